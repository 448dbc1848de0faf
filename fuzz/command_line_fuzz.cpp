// Any words as the command line of tovi, tovi-modem or tovictl, on a machine that has no modem and
// no folder for its state. The first byte tells whose; the words end in a NUL or a line break.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <vector>

#include "caretaker.h"
#include "fuzz.h"
#include "run_commands.h"
#include "turns.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"
#include "verbs.h"
#include "verbs_of_tovictl.h"

using Words = std::vector<std::string>;

// What tovi-modem's verbs need of the rest of their program: no command is run.
namespace program {
int wrong_usage() {
  return kWrongUsage;
}
int failed(const std::string& problem) {
  fuzz::require(!problem.empty());
  return kFailed;
}
Caretaker::~Caretaker() = default;
bool Caretaker::start(const std::string&, std::string& problem) {
  problem = "nothing is run here";
  return false;
}
}  // namespace program

extern "C" int system(const char*) {
  return 0;
}

namespace {

// Not those that wait for longer than the clock counts.
void run_tovi(Words& words) {
  const bool may_wait = words.size() > 3 && velmor_atoi(words[1].c_str()) == 11;
  if (may_wait && velmor_atoi(words[3].c_str()) >> 12 != 0) return;
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  for (const TestModule& module : velmor_test_modules()) {
    if (words.size() < 2 || module.number != velmor_atoi(argv[1]) || module.enter == nullptr)
      continue;
    module.enter(static_cast<int>(words.size()), argv.data());
  }
}

void run_tovi_modem(const Words& words) {
  constexpr struct {
    const char* name;
    int (*run)(const program::Args& args);
  } kVerbs[] = {{"serve", program::serve},     {"run", program::run},
                {"getprop", program::getprop}, {"setprop", program::setprop},
                {"reset", program::reset},     {"unpack", program::unpack}};
  for (const auto& [name, run] : kVerbs) {
    if (words.size() < 2 || words[1] != name) continue;
    const int status = run({words.begin() + 2, words.end()});
    fuzz::require(status >= program::kDone && status <= program::kWrongUsage);
  }
}

// What run takes, tovi does not misread.
void run_tovictl(const Words& words) {
  fuzz::parse_command_line(words);
  if (words.size() < 2 || words[1] != "run") return;
  const Words command(words.begin() + 2, words.end());
  std::string problem;
  const auto* known = ctl::find_run_command(command, problem);
  fuzz::require((known == nullptr) == !problem.empty());
  if (known != nullptr) {
    fuzz::require(velmor_atoi(command[0].c_str()) == known->module);
    ctl::needs_yes(*known, command);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::keep_apart();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  turns::begin(0);
  fuzz::Input input(data, size);
  const uint8_t whose = input.byte() % 3;
  Words words = {whose == 0 ? "tovi" : whose == 1 ? "tovi-modem" : "tovictl"};
  std::string_view rest = fuzz::text_of(input.rest());
  while (!rest.empty() && words.size() < 64) {
    const size_t end = std::min(rest.find_first_of(std::string_view("\0\n", 2)), rest.size());
    words.emplace_back(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  switch (whose) {
    case 0: run_tovi(words); break;
    case 1: run_tovi_modem(words); break;
    default: run_tovictl(words); break;
  }
  return 0;
}
