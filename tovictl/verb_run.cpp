// tovictl run: a command of tovi, with its verdict.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "device_path.h"
#include "results.h"
#include "run_commands.h"
#include "velmor_extend_cmn.h"
#include "velmor_tovi_test_modules.h"
#include "verbs.h"
#include "witness.h"
#include "write_lock.h"

namespace ctl {
namespace {

struct Arguments {
  std::vector<std::string> words;
};

// What a scan finds comes after its response, when tovi lets its client go: this one waits. tovi
// would print nothing of what is heard meanwhile.
Witness* g_witness;
uint32_t g_outcome_ms;

void wait_before_release(bool released) {
  if (released) {
    results::resume_library_output();
  } else {
    results::pause_library_output();
    g_witness->wait_for_outcomes(g_outcome_ms);
  }
}

// The module's result, which few commands have.
int run_module(const std::vector<std::string>& words) {
  std::vector<std::string> all = {"tovi"};
  all.insert(all.end(), words.begin(), words.end());
  std::vector<char*> argv;
  for (std::string& word : all) argv.push_back(word.data());
  argv.push_back(nullptr);
  for (const TestModule& module : velmor_test_modules()) {
    if (std::to_string(module.number) == words[0]) {
      return module.enter(static_cast<int>(all.size()), argv.data());
    }
  }
  return 0;
}

// Of what goes past QMI.
Verdict port_verdict() {
  const TestOutcome& outcome = g_velmor_test_outcome;
  const std::string what = outcome.what;
  switch (outcome.kind) {
    case TestOutcome::Done: return {};
    case TestOutcome::NoPort: return {Status::Unreachable, what + " cannot be opened"};
    case TestOutcome::NoAnswer:
      if (access(velmor_device_path(outcome.what).c_str(), R_OK | W_OK) != 0) {
        return {Status::Unreachable, what + ": " + strerror(errno)};
      }
      return {Status::NoAnswer, what + ": no answer, or no end of one"};
    case TestOutcome::Refused: return {Status::Refused, what + ": " + std::to_string(outcome.code)};
    case TestOutcome::LocalFailure: return {Status::Usage, what + " is not possible"};
  }
  return {};
}

Json json_of(const std::vector<Exchange>& exchanges) {
  Json list = Json::array();
  for (const Exchange& exchange : exchanges) {
    list.push_back({{"service", exchange.service},
                    {"name", exchange.name},
                    {"milliseconds", exchange.milliseconds},
                    {"status", static_cast<int>(exchange.verdict.status)},
                    {"verdict", status_word(exchange.verdict.status)},
                    {"cause", exchange.verdict.cause}});
    if (exchange.excuse != nullptr) list.back()["excuse"] = exchange.excuse;
  }
  return list;
}

Outcome run(const Arguments& arguments, const Settings& settings) {
  const std::vector<std::string>& words = arguments.words;
  std::string problem;
  const RunCommand* const command = find_run_command(words, problem);
  if (command == nullptr) return Outcome({Status::Usage, problem});
  WriteLock lock;
  if (const char* changes = needs_yes(*command, words)) {
    const Verdict may = may_change(settings, (std::string(changes) + "?").c_str(), lock);
    if (!may.ok()) return Outcome(may);
  }

  Witness& witness = Witness::begin();
  g_witness = &witness;
  g_outcome_ms = settings.timeout_ms();
  g_velmor_nas_release_hook = wait_before_release;
  const auto begun = timing::Clock::now();
  results::begin_library_output(settings.json ? results::Library::Kept : results::Library::Shown);
  witness.end_command(run_module(words));
  const std::string output = results::end_library_output();
  witness.wait_for_outcomes(settings.timeout_ms());
  const std::chrono::duration<double, std::milli> took = timing::Clock::now() - begun;

  Outcome outcome(worse(witness.judge(command->excuses), port_verdict()));
  outcome.values = {{"arguments", words},
                    {"milliseconds", took.count()},
                    {"values", witness.values()},
                    {"exchanges", json_of(witness.exchanges())},
                    {"output", output}};
  outcome.always_said = true;
  return outcome;
}

}  // namespace

Run declare_run(Words& words, const Settings& settings) {
  const auto arguments = std::make_shared<Arguments>();
  words.required("words", "M C ARG...", arguments->words,
                 "module, command and arguments, as tovi takes them");
  return [arguments, &settings] { return run(*arguments, settings); };
}

}  // namespace ctl
