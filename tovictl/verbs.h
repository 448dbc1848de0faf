// The verbs of tovictl, as one table that the command line, its help, the manual and the completion
// share.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <span>

#include "verdict.h"

namespace ctl {

using Json = nlohmann::ordered_json;

// What the command line says for every verb.
struct Settings {
  bool json = false;
  bool yes = false;
  bool wait = false;
  double timeout_s = 10;  // for an answer or an outcome

  uint32_t timeout_ms() const { return static_cast<uint32_t>(timeout_s * 1000); }
};

// What a verb has come to. `values` becomes the object that --json prints; null for a verb that
// prints its own.
struct Outcome {
  Outcome(Verdict verdict = {}, Json values = Json::object())
      : verdict(std::move(verdict)), values(std::move(values)) {}

  Verdict verdict;
  Json values;
  bool always_said = false;  // also when there is nothing to say but ok
};

using Run = std::function<Outcome()>;

// A verb. `declare` adds its arguments to the command line and gives what carries it out.
struct Verb {
  const char* name;
  const char* does;  // in one line
  const char* more;  // what else its user needs to know
  Run (*declare)(CLI::App& app, const Settings& settings);
};

std::span<const Verb> verbs();

// The whole command line. Parsing it picks the verb: `chosen` is set to what carries that out.
std::unique_ptr<CLI::App> make_command_line(Settings& settings, Run& chosen);

// The arguments of a verb that is about an NV item or an EFS file.
void add_target(CLI::App& app, std::string& target, unsigned int& sub);

// One function for each row of the table.
Run declare_diff(CLI::App& app, const Settings& settings);
Run declare_doctor(CLI::App& app, const Settings& settings);
Run declare_get(CLI::App& app, const Settings& settings);
Run declare_put(CLI::App& app, const Settings& settings);
Run declare_restore(CLI::App& app, const Settings& settings);
Run declare_rm(CLI::App& app, const Settings& settings);
Run declare_run(CLI::App& app, const Settings& settings);
Run declare_save(CLI::App& app, const Settings& settings);
Run declare_watch(CLI::App& app, const Settings& settings);

}  // namespace ctl
