// The program as a person at the shell sees it: arguments in, bytes out, what the modem holds
// afterwards.
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <regex>
#include <set>
#include <sstream>

#include "support/cli_fixture.h"

namespace {

using namespace testing_support;

TEST_F(Cli, WithoutAModuleThereIsTheWholeHelp) {
  for (const Args& args : {Args{}, Args{"13"}, Args{"--help"}, Args{"0", "1"}, Args{"-4"}}) {
    EXPECT_EQ(tovi(args), help());
  }
  EXPECT_FALSE(exists(folder / "state"));
  variables = {{"HOME", ""}, {"XDG_STATE_HOME", ""}};
  EXPECT_EQ(tovi({}), help());
}

// A transcript is what a shell prints, line numbers left out: its commands, each behind a $ and as
// many lines as end in a backslash, run one after the other in a folder of their own, with the
// modem's state in `state`. TOVI_TEST_UPDATE=1 writes it anew.
class Transcript : public testing::TestWithParam<const char*> {};

TEST_P(Transcript, IsPrintedToTheByte) {
  const std::string path = TOVI_TEST_DATA "/golden/transcripts/" + std::string(GetParam()) + ".txt";
  const std::string said = read_file(path);
  const ScratchFolder folder;
  const std::string start = "exec 2>&1; cd " + folder.path() + "; ";
  const std::regex here(folder.path());
  const Variables variables = {{"LC_ALL", "C"},
                               {"PATH", TOVI_BUILD_FOLDER ":" + std::string(getenv("PATH"))},
                               {"TOVI_STATE", folder / "state"},
                               {"TOVI_LOG", folder / "log"}};
  std::istringstream transcript(said);
  std::string printed;
  for (std::string line; std::getline(transcript, line);) {
    if (line.starts_with("-- ")) printed += line + "\n";
    if (!line.starts_with("$ ")) continue;
    for (std::string more; line.ends_with('\\') && std::getline(transcript, more);) {
      line += "\n" + more;
    }
    const Result result = run("/bin/sh", {"-c", start + line.substr(2)}, variables);
    printed += line + "\n" + std::regex_replace(without_lines(result.out), here, "HERE");
  }
  expect_golden(path, printed);
}

INSTANTIATE_TEST_SUITE_P(Of, Transcript,
                         testing::Values("answers", "at", "cards", "configurations", "diag",
                                         "extension", "failures", "faults", "files", "folders",
                                         "modem", "nvefs", "replays", "requests", "restarts", "rf",
                                         "runs", "scans", "statistics", "tovictl", "traces",
                                         "usage", "verdicts", "watch", "words"),
                         [](const auto& name) { return std::string(name.param); });

TEST_F(Cli, TheFlagsSwitchLogAndEchoApart) {
  set_property("persist.vendor.velmor.shell_print", "0");
  EXPECT_EQ(tovi({"2"}), "");
  EXPECT_EQ(tovi({}), "");
  const std::string log = read_file(folder / "log");
  EXPECT_TRUE(log.starts_with("D [tovi][velmor_tovi_test_main.cpp:")) << log;
  EXPECT_TRUE(log.ends_with("] main: Not support\n")) << log;
  set_property("persist.vendor.velmor.shell_print", "2");
  set_property("persist.vendor.velmor.print", "2");
  EXPECT_EQ(tovi({"2"}), line("main", "Not support"));
  EXPECT_EQ(read_file(folder / "log"), log);
}

// The entry and the exit of an operation alone have one in common.
TEST_F(Cli, EveryMessageHasASourceLineOfItsOwn) {
  const std::regex echo("RIL\\[(\\w+:\\d+)\\]: (.*)\n"), value("-?[0-9A-F]+|/.*");
  std::map<std::string, std::set<std::string>> said;  // by function and line
  for (const Args& args : std::vector<Args>{{"5", "10", "5", "1"},
                                            {"4", "1", "0", "550"},
                                            {"4", "1", "2"},
                                            {"9", "8", "0"},
                                            {"10", "1", "1"},
                                            {"3", "3", "1", "4", "9"},
                                            {"12", "0"}}) {
    const std::string out = run("tovi", args, variables).out;
    for (std::sregex_iterator at(out.begin(), out.end(), echo), end; at != end; ++at) {
      const std::string body = std::regex_replace((*at)[2].str(), value, "#");
      if (!body.starts_with("function exit")) said[(*at)[1]].insert(body);
    }
  }
  EXPECT_GT(said.size(), 80u);
  for (const auto& [place, bodies] : said) {
    EXPECT_EQ(bodies.size(), 1u) << place << " " << *bodies.begin() << " " << *bodies.rbegin();
  }
}

TEST_F(Cli, AReaderThatLeavesEarlyDoesNoHarm) {
  const std::string command =
      std::string("bash -c '") + TOVI_BUILD_FOLDER + "/tovi | head -1; echo ${PIPESTATUS[0]}'";
  FILE* pipe = popen(command.c_str(), "r");
  char out[512] = {};
  EXPECT_GT(fread(out, 1, sizeof out - 1, pipe), 0u);
  pclose(pipe);
  EXPECT_TRUE(std::string(out).ends_with("=\n0\n")) << out;
}

}  // namespace
