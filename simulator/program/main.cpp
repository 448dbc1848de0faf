// tovi-modem: the simulated modem as a program of its own.
#include <stdio.h>
#include <string.h>

#include "environment.h"
#include "faults.h"
#include "standard_descriptors.h"
#include "verbs.h"

namespace program {
namespace {

constexpr const char* kUsage =
    "usage: tovi-modem serve --unix PATH | --qrtr | --qmux LINK [OPTIONS]\n"
    "                                      serve the simulated modem at a unix socket, on the\n"
    "                                      kernel's QRTR, or as a device that LINK leads to\n"
    "       tovi-modem run [--state DIR] [OPTIONS] -- COMMAND...\n"
    "                                      run a command with a modem of its own, new or DIR's\n"
    "       tovi-modem getprop NAME        print a system property\n"
    "       tovi-modem setprop NAME VALUE  set a system property\n"
    "       tovi-modem reset               empty the state folder\n"
    "       tovi-modem unpack HEX|FILE     print a diagnostic statistics record field by field\n"
    "       tovi-modem --help, -h | --version\n"
    "\n"
    "OPTIONS: --faults RULES   misbehave\n"
    "         --log FILE       write down what was asked and done, a JSON object a line\n"
    "         --replay FILE    answer from what TOVI_RECORD wrote; --fast: without its delays\n"
    "         --sync           keep what was answered whatever happens to the machine\n"
    "\n"
    "The modem's state is the folder TOVI_STATE ($XDG_STATE_HOME/tovi or ~/.local/state/tovi when\n"
    "unset). Programs reach a served modem with TOVI_MODEM=unix:PATH, qrtr or\n"
    "qmux:LINK.\n";

void print_usage(FILE* to) {
  constexpr size_t kWidth = 90;
  fputs(kUsage, to);
  fputs("\nRULES are separated by ;, each service[/message][#n]=action. Actions:", to);
  size_t column = kWidth;
  for (const std::string& action : sim::Faults::actions()) {
    const bool fits = column + 1 + action.size() <= kWidth;
    fprintf(to, "%s %s", fits ? "" : "\n ", action.c_str());
    column = (fits ? column : 1) + 1 + action.size();
  }
  fputc('\n', to);
}

int help(const Args&) {
  print_usage(stdout);
  return kDone;
}

int version(const Args&) {
  puts("tovi-modem " TOVI_VERSION);
  return kDone;
}

struct Verb {
  const char* name;
  int (*run)(const Args& args);
};
constexpr Verb kVerbs[] = {
    {"serve", serve},     {"run", run},     {"getprop", getprop},
    {"setprop", setprop}, {"reset", reset}, {"unpack", unpack},
    {"--help", help},     {"-h", help},     {"--version", version},
};

}  // namespace

int wrong_usage() {
  print_usage(stderr);
  return kWrongUsage;
}

int failed(const std::string& problem) {
  environment::complain("%s", problem.c_str());
  return kFailed;
}

}  // namespace program

int main(int argc, char** argv) {
  using namespace program;
  fill_standard_descriptors();
  if (argc < 2) return wrong_usage();
  for (const Verb& verb : kVerbs) {
    if (strcmp(verb.name, argv[1]) == 0) return verb.run(Args(argv + 2, argv + argc));
  }
  return wrong_usage();
}
