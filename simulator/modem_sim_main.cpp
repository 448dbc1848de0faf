// tovi-modem: the simulated modem as a program of its own.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/signalfd.h>

#include <optional>
#include <string>
#include <vector>

#include "device_ports.h"
#include "environment.h"
#include "faults.h"
#include "modem.h"
#include "properties.h"
#include "qrtr_server.h"
#include "router.h"
#include "standard_descriptors.h"
#include "state_files.h"
#include "unix_server.h"

namespace {

constexpr const char* kUsage =
    "usage: tovi-modem serve --unix PATH [--faults RULES]\n"
    "                                      serve the simulated modem at a unix socket\n"
    "       tovi-modem serve --qrtr [--faults RULES]\n"
    "                                      serve it on the kernel's QRTR\n"
    "       tovi-modem getprop NAME        print a system property\n"
    "       tovi-modem setprop NAME VALUE  set a system property\n"
    "       tovi-modem reset               empty the state folder\n"
    "       tovi-modem --help, -h | --version\n"
    "\n"
    "The modem's state is the folder TOVI_STATE ($XDG_STATE_HOME/tovi or ~/.local/state/tovi when\n"
    "unset). Programs reach a served modem with TOVI_MODEM=unix:PATH.\n";

enum Status { kDone = 0, kFailed = 1, kWrongUsage = 2 };

using Args = std::vector<std::string>;

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

int wrong_usage() {
  print_usage(stderr);
  return kWrongUsage;
}

int failed(const std::string& problem) {
  environment::complain("%s", problem.c_str());
  return kFailed;
}

struct ServeOptions {
  bool qrtr = false;
  std::string socket;
  std::string faults;
};

std::optional<ServeOptions> parse_serve_options(const Args& args) {
  ServeOptions options;
  options.faults = environment::sim_faults();
  for (size_t i = 0; i < args.size(); ++i) {
    const bool has_value = i + 1 < args.size();
    if (args[i] == "--qrtr") {
      options.qrtr = true;
    } else if (args[i] == "--unix" && has_value) {
      options.socket = args[++i];
    } else if (args[i] == "--faults" && has_value) {
      options.faults = args[++i];
    } else {
      return std::nullopt;
    }
  }
  if (options.qrtr == !options.socket.empty()) return std::nullopt;  // one of the two
  return options;
}

// SIGTERM and SIGINT, as a descriptor that polls readable when one of them comes.
qmi::Descriptor stop_signals() {
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTERM);
  sigaddset(&stops, SIGINT);
  sigprocmask(SIG_BLOCK, &stops, nullptr);
  return qmi::Descriptor(signalfd(-1, &stops, SFD_CLOEXEC));
}

int ready_and_run(auto& server, const sim::Modem& modem, const qmi::Descriptor& stop) {
  sim::DevicePorts ports(modem);
  std::string problem;
  const auto outcome = ports.open(sim::DevicePorts::Owner::Server, problem);
  if (outcome == sim::DevicePorts::Outcome::HasServer) problem = "another server has them";
  if (!problem.empty()) environment::complain("diag and AT port: %s", problem.c_str());
  fputs("tovi-modem: ready\n", stderr);
  server.run(stop.get());
  return kDone;
}

int serve(const Args& args) {
  const auto options = parse_serve_options(args);
  if (!options) return wrong_usage();
  const std::string* folder = environment::needed_state_folder();
  if (folder == nullptr) return kFailed;
  std::string problem;
  if (sim::Modem::open(*folder, problem) == nullptr) return failed(problem);
  const state_files::FolderLock serving(*folder, state_files::LockPart::Serving,
                                        state_files::FolderLock::Mode::Shared);
  if (!serving.held()) return failed(*folder + "/lock: cannot be locked");
  // Once more, now that nobody can empty the folder any more.
  const auto modem = sim::Modem::open(*folder, problem);
  if (modem == nullptr) return failed(problem);
  auto behaviour = sim::Behaviour::from(options->faults, *modem, problem);
  if (!behaviour) return failed(problem);
  const qmi::Descriptor stop = stop_signals();
  if (options->qrtr) {
    sim::QrtrServer server(*modem, std::move(*behaviour));
    return server.listen(problem) ? ready_and_run(server, *modem, stop) : failed(problem);
  }
  sim::Router router(*modem, std::move(*behaviour));
  sim::UnixServer server(router);
  return server.listen(options->socket, problem) ? ready_and_run(server, *modem, stop)
                                                 : failed(problem);
}

int getprop(const Args& args) {
  if (args.size() != 1) return wrong_usage();
  if (environment::needed_state_folder() == nullptr) return kFailed;
  char value[PROPERTY_VALUE_MAX];
  property_get(args[0].c_str(), value, "");
  puts(value);
  return kDone;
}

int setprop(const Args& args) {
  if (args.size() != 2) return wrong_usage();
  if (const char* problem = property_problem(args[0], args[1])) return failed(problem);
  const std::string* folder = environment::needed_state_folder();
  if (folder == nullptr) return kFailed;
  std::string problem;
  if (sim::Modem::open(*folder, problem) == nullptr) return failed(problem);
  return property_set(args[0].c_str(), args[1].c_str()) == 0 ? kDone : kFailed;
}

int reset(const Args& args) {
  if (!args.empty()) return wrong_usage();
  const std::string* folder = environment::needed_state_folder();
  if (folder == nullptr) return kFailed;
  std::string problem;
  return sim::Modem::reset(*folder, problem) ? kDone : failed(problem);
}

int help(const Args&) {
  print_usage(stdout);
  return kDone;
}

int version(const Args&) {
  puts("tovi-modem " TOVI_VERSION);
  return kDone;
}

struct Command {
  const char* name;
  int (*run)(const Args& args);
};
constexpr Command kCommands[] = {
    {"serve", serve}, {"getprop", getprop}, {"setprop", setprop},   {"reset", reset},
    {"--help", help}, {"-h", help},         {"--version", version},
};

}  // namespace

int main(int argc, char** argv) {
  fill_standard_descriptors();
  if (argc < 2) return wrong_usage();
  for (const Command& command : kCommands) {
    if (strcmp(command.name, argv[1]) == 0) return command.run(Args(argv + 2, argv + argc));
  }
  return wrong_usage();
}
