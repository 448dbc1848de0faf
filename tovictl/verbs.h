// The verbs of tovictl, as one table that the command line, its help, the manual and the completion
// share.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "verdict.h"

namespace CLI {
class App;
}

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

// What a part of the command line takes, and where its words go. A name that begins with "-" is an
// option's, any other that of the word at this place; `kind` stands for its word in the help.
class Words {
 public:
  explicit Words(CLI::App& app) : app_(app) {}

  void flag(const char* name, bool& given, const char* does);
  void required(const char* name, const char* kind, std::string& word, const char* does);
  void required(const char* name, const char* kind, std::vector<std::string>& rest,
                const char* does);
  void optional(const char* name, const char* kind, std::string& word, const char* does);
  void optional(const char* name, const char* kind, std::vector<std::string>& rest,
                const char* does);
  void optional(const char* name, const char* kind, uint64_t& number, const char* does);
  void optional(const char* name, const char* kind, double& number, double least, double most,
                const char* does);

  void subscription(unsigned int& sub);
  // An NV item or an EFS file, and its subscription.
  void target(std::string& target, unsigned int& sub);

 private:
  CLI::App& app_;
};

// A verb. `declare` adds its arguments to the command line and gives what carries it out.
struct Verb {
  const char* name;
  const char* does;  // in one line
  const char* more;  // what else its user needs to know
  Run (*declare)(Words& words, const Settings& settings);
};

std::span<const Verb> verbs();

// One function for each row of the table.
Run declare_diff(Words& words, const Settings& settings);
Run declare_doctor(Words& words, const Settings& settings);
Run declare_get(Words& words, const Settings& settings);
Run declare_put(Words& words, const Settings& settings);
Run declare_restore(Words& words, const Settings& settings);
Run declare_rm(Words& words, const Settings& settings);
Run declare_run(Words& words, const Settings& settings);
Run declare_save(Words& words, const Settings& settings);
Run declare_watch(Words& words, const Settings& settings);

}  // namespace ctl
