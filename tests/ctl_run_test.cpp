// tovictl run: every command of tovi, every way to fail it.
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "gtest/gtest.h"
#include "support/slow.h"
#include "support/tool.h"

namespace testing_support {
namespace {

using nlohmann::json;

Args words_of(const std::string& command) {
  Args words;
  for (size_t at = 0; at < command.size();) {
    const size_t end = std::min(command.find(' ', at), command.size());
    words.push_back(command.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

// The commands of the list that ask a service, each code once.
std::vector<std::string> commands() {
  std::istringstream list(read_file(TOVI_TEST_DATA "/commands/all.txt"));
  std::vector<std::string> found;
  for (std::string line; std::getline(list, line);) {
    if (isdigit(line[0])) found.push_back(line);
  }
  return found;
}

void fill(const std::string& state) {
  run("tovi", {"4", "1", "0", "550"}, {{"TOVI_STATE", state}, {"TOVI_LOG", "/dev/null"}});
  constexpr auto kOver = std::filesystem::copy_options::overwrite_existing;
  std::filesystem::copy(TOVI_TEST_DATA "/commands/state", state,
                        std::filesystem::copy_options::recursive | kOver);
}

// What is printed, but for what other threads print at their own times.
std::string own_lines(const std::string& output) {
  static const std::regex others("RIL\\[qmi_pdc_[^\n]*\n");
  // A modem that restarts takes the service away before the wait for its answer is over, or after.
  static const std::regex lost("send msg sync failed:-[23]");
  return std::regex_replace(std::regex_replace(without_lines(output), others, ""), lost, "lost");
}

// One command with one fault, by tovictl and by tovi, each with a modem of its own.
struct Trial {
  std::string command, rules;
  ScratchFolder folder;
  std::unique_ptr<Program> ctl, plain;

  Trial(const std::string& command, const std::string& rules, const std::string& state,
        Variables more = {})
      : command(command), rules(rules) {
    Args words = words_of(command);
    more.insert({{"TOVI_LOG", "/dev/null"},
                 {"TOVI_SIM_FAULTS", rules},
                 // Timers must not run out on a busy machine.
                 {"TOVI_TIME_SCALE", kSlow || command.starts_with("10 ") ? "0.1" : "0.02"}});
    const auto with_state = [&](const char* name) {
      std::filesystem::copy(state, folder / name, std::filesystem::copy_options::recursive);
      more["TOVI_STATE"] = folder / name;
      return more;
    };
    plain = std::make_unique<Program>("tovi", words, with_state("plain"));
    words.insert(words.begin(), {"--json", "--yes", "--timeout", "5", "run"});
    ctl = std::make_unique<Program>("tovictl", words, with_state("ctl"));
  }

  json told;
  int end() {
    const Result result = ctl->wait();
    told = json::parse(result.out, nullptr, false);
    EXPECT_FALSE(told.is_discarded()) << what() << result.out << result.err;
    if (told.is_discarded()) return -1;
    EXPECT_EQ(told["status"], result.status) << what();
    EXPECT_EQ(own_lines(told.value("output", "")), own_lines(plain->wait().out)) << what();
    return result.status;
  }
  std::string what() const { return command + " with " + rules + " "; }
};

// What makes an exchange fail, and what that is.
struct Failure {
  const char* action;
  int status;
  const char* service = "";  // of whom alone
};
const Failure kFailures[] = {
    {"drop", 5},
    {"delay:90000", 5},
    {"stray", 5},
    {"error:94", 1},
    {"result:-5", 1, "extend"},
    {"short:0", 6},
    {"garbage", 6},
    {"down", 5},
    {"len:3", 6, "extend"},
    {"no-ind", 5, "pdc"},
    {"ind-other:7", 5, "pdc"},
};

// An exchange whose failure is none of the command's: only where a later one succeeds, or where
// nothing is there.
bool is_excused(const std::string& command, const std::string& exchange) {
  return command.starts_with("5 10 ") && exchange == "get_eid";
}

class CtlRun : public testing::TestWithParam<std::string> {};

TEST_P(CtlRun, EveryFailureOfEveryExchangeHasItsStatus) {
  ScratchFolder folder;
  fill(folder / "state");
  struct Case {
    std::unique_ptr<Trial> trial;
    int want;
    bool excused;
  };
  std::vector<Case> cases;
  const auto end_all = [&] {
    for (const Case& one : cases) {
      const int status = one.trial->end();
      // A client that opens itself again finds no service any more.
      const bool gone = one.want == 5 && one.trial->rules.ends_with("=down") && status == 4;
      EXPECT_TRUE(status == one.want || gone || (one.excused && status == 0))
          << one.trial->what() << "is " << status << ", not " << one.want << ": "
          << one.trial->told["cause"];
    }
    cases.clear();
  };
  const std::string& command = GetParam();
  Trial clean(command, "", folder / "state");
  EXPECT_EQ(clean.end(), 0) << clean.told["cause"];
  std::map<std::string, int> count;
  int exchange = 0;
  const auto exchanges = clean.told["exchanges"];
  for (const json& seen : exchanges) {
    const std::string service = seen["service"], name = seen["name"];
    const int n = ++count[service];
    // A sanitizer is slow to start: there the first and the last will do.
    if (kSlow && ++exchange != 1 && exchange != static_cast<int>(exchanges.size())) continue;
    for (const Failure& failure : kFailures) {
      if (*failure.service != '\0' && service != failure.service) continue;
      const std::string rule = service + "#" + std::to_string(n) + "=" + failure.action;
      cases.push_back({std::make_unique<Trial>(command, rule, folder / "state"), failure.status,
                       is_excused(command, name)});
      if (cases.size() == 8) end_all();
    }
  }
  for (const auto& [service, n] : count) {
    cases.push_back(
        {std::make_unique<Trial>(command, service + "=absent", folder / "state"), 4, false});
  }
  cases.push_back(
      {std::make_unique<Trial>(command, "", folder / "state",
                               Variables{{"TOVI_MODEM", "unix:" + (folder / "nobody")}}),
       3, false});
  end_all();
}

INSTANTIATE_TEST_SUITE_P(Command, CtlRun, testing::ValuesIn(commands()),
                         [](const auto& command) { return std::to_string(command.index); });

}  // namespace
}  // namespace testing_support
