// A modem that runs for one command: signals, what is left of those that are killed; its log.
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "gtest/gtest.h"
#include "log.h"
#include "support/fake_modem.h"
#include "support/tool.h"
#include "timing.h"
#include "words.h"

namespace {

using namespace testing_support;
using namespace std::chrono_literals;

class Tester : public testing::Test {
 protected:
  Tester() {
    std::filesystem::create_directory(tmp);
    variables = {{"TMPDIR", tmp},
                 {"TOVI_LOG", "/dev/null"},
                 {"TOVI_TIME_SCALE", "0.2"},
                 {"PATH", TOVI_BUILD_FOLDER ":" + std::string(getenv("PATH"))}};
  }

  // `tovi-modem run OPTIONS -- COMMAND`.
  static Args words(const Args& options, const Args& command) {
    Args all = {"run"};
    all.insert(all.end(), options.begin(), options.end());
    all.push_back("--");
    all.insert(all.end(), command.begin(), command.end());
    return all;
  }

  // The lines of the log, without the time.
  std::vector<std::string> log_lines() const {
    std::vector<std::string> lines;
    std::istringstream text(read_file(log));
    for (std::string line; std::getline(text, line);) {
      EXPECT_TRUE(line.starts_with("{\"time\":\"20")) << line;
      lines.push_back(line.substr(line.find("Z\",") + 2).replace(0, 1, "{"));
    }
    return lines;
  }

  // Whether, within ten seconds, no process has this test's folder in its environment, and nothing
  // is left there.
  bool is_clean_soon() const {
    const auto limit = timing::Clock::now() + 10s;
    while (timing::Clock::now() < limit) {
      if (!has_process() && std::filesystem::is_empty(tmp)) return true;
      usleep(2000);
    }
    return false;
  }

  bool has_process() const {
    std::error_code gone;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", gone)) {
      std::ifstream file(entry.path() / "environ", std::ios::binary);
      std::stringstream text;
      text << file.rdbuf();
      if (text.str().find("TMPDIR=" + tmp) != std::string::npos) return true;
    }
    return false;
  }

  ScratchFolder folder;
  const std::string tmp = folder / "tmp";
  const std::string log = folder / "log";
  Variables variables;
};

TEST_F(Tester, SignalsReachTheCommand) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Program modem("tovi-modem",
                  words({}, {"sh", "-c",
                             "trap 'exit 40' INT; trap 'exit 41' TERM; echo there >&2; "
                             "while :; do sleep 0.01; done"}),
                  variables);
    modem.wait_for_error_line("there\n");
    modem.kill(signal);
    EXPECT_EQ(modem.wait().status, signal == SIGINT ? 40 : 41);
    EXPECT_TRUE(is_clean_soon());
  }
}

TEST_F(Tester, OfFiftyRunsThatAreKilledNothingStaysButWholeStateFolders) {
  constexpr int kRuns = 50;
  std::vector<std::unique_ptr<Program>> runs;
  for (int i = 0; i < kRuns; ++i) {
    Args options;
    if (i % 2 == 0) options = {"--state", folder / "state" + std::to_string(i)};
    const std::string script = "echo $$ >&2; while tovi 4 2 0 550 1 2 >/dev/null; do :; done";
    runs.push_back(
        std::make_unique<Program>("tovi-modem", words(options, {"sh", "-c", script}), variables));
  }
  std::minstd_rand random;
  for (int i = 0; i < kRuns; ++i) {
    usleep(static_cast<useconds_t>(random() % 20000));
    const bool the_command = i % 3 == 0;
    if (the_command) {
      const std::string id = runs[size_t(i)]->wait_for_error_line("\n");
      ::kill(std::stoi(id), SIGKILL);
      EXPECT_EQ(runs[size_t(i)]->wait().status, 128 + SIGKILL);
    } else {
      runs[size_t(i)]->kill(SIGKILL);
    }
  }
  runs.clear();
  EXPECT_TRUE(is_clean_soon());
  for (int i = 0; i < kRuns; i += 2) {
    const std::string state = folder / "state" + std::to_string(i);
    if (!exists(state)) continue;
    EXPECT_FALSE(exists(state + "/device/dev/diag") || exists(state + "/device/dev/smd8"));
    variables["TOVI_STATE"] = state;
    EXPECT_NE(run("tovi", {"4", "1", "1", "550"}, variables).out.find("data len(9)"),
              std::string::npos);
  }
}

TEST_F(Tester, TheLogHasRequestsThatAreNone) {
  sim::Log log_of_them;
  std::string problem;
  ASSERT_TRUE(log_of_them.open(log, problem)) << problem;
  const auto* service = sim::service_named("sar");
  for (const char* request : {"00 0100", "00 0100 0200 0100", "00 0100 0200 0000"}) {
    log_of_them.saw(*service, {1, 2}, bytes(request), {});
  }
  const std::string client = R"({"client":"1:2","service":"sar","service_id":17,)",
                    nothing = R"("responses":0,"indications":0})";
  EXPECT_EQ(log_lines(),
            (std::vector{
                client + R"("malformed_bytes":3,)" + nothing,
                client + R"("malformed_bytes":7,)" + nothing,
                client + R"("message":"rf_get_state","message_id":2,"arguments":{},)" + nothing}));
}

}  // namespace
