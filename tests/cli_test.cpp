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

// A transcript is what a shell prints, line numbers left out: its commands run one after the other
// in a folder of their own, with the modem's state in `state`. TOVI_TEST_UPDATE=1 writes it anew.
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
    const Result result = run("/bin/sh", {"-c", start + line.substr(2)}, variables);
    printed += line + "\n" + std::regex_replace(without_lines(result.out), here, "HERE");
  }
  expect_golden(path, printed);
}

INSTANTIATE_TEST_SUITE_P(Of, Transcript,
                         testing::Values("cards", "configurations", "diag", "extension", "failures",
                                         "modem", "nvefs", "restarts", "rf", "scans", "statistics",
                                         "tovictl", "traces", "usage", "verdicts", "watch",
                                         "words"),
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

TEST_F(Cli, AVariableThatCannotBeUsedIsSaidInOneLine) {
  const struct {
    const char* name;
    const char* value;
    bool modem;  // still there?
  } rows[] = {
      {"TOVI_MODEM", "wire", false},           {"TOVI_MODEM", "unix:", false},
      {"TOVI_STATE", "/proc/nowhere", false},  {"TOVI_TIME_SCALE", "0", false},
      {"TOVI_SIM_FAULTS", "3=explode", false}, {"TOVI_SIM_SEED", "many", false},
      {"TOVI_LOG", "/proc/nowhere/log", true}, {"TOVI_TRACE", "/proc/nowhere/trace", true},
  };
  for (const auto& row : rows) {
    Variables changed = variables;
    if (!row.modem) changed["TOVI_TIME_SCALE"] = "0.01";
    changed[row.name] = row.value;
    const Result result = run("tovi", {"4", "1", "0", "550"}, changed);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << row.name << result.err;
    EXPECT_NE(result.err.find(row.value), std::string::npos) << result.err;
    EXPECT_EQ(result.out.find("data len(9)") != std::string::npos, row.modem) << row.name;
    EXPECT_EQ(result.out.find("returned -5 num_services = 0") != std::string::npos, !row.modem);
    EXPECT_EQ(run("tovi", {}, changed).err, "");
  }
}

TEST_F(Cli, TheTraceShowsWhatWasAskedAndAnswered) {
  variables["TOVI_TRACE"] = folder / "trace";
  const struct {
    std::vector<std::string> command;
    std::vector<std::string> parts;  // in this order
  } rows[] = {
      {{"6", "5", "35"},
       {" > extend 0x0002 send_data req #1 len 529\n  request_id = 5\n"
        "  data_len = 1\n  data = 512 bytes: 23 00*511\n  00 01 00 02 00 11 02 ",
        "\n  *\n  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n",
        " < extend 0x0002 send_data rsp #1 len 14\n  result = 1\n"}},
      {{"4", "4", "1", "/nv/item_files/ims/IMS_enable"},
       {"data = efs_read {op_type = 4, sub_id = 1, id = 0, path_len = 29, "
        "path = \"/nv/item_files/ims/IMS_enable\", ",
        "data = efs_read {unread_0 = 0, data_len_all = 1, ", "result = 0, data = 424 bytes: "}},
      {{"4", "6", "1", "/nothing"}, {"result = -2, data = 424 bytes: 00*424}\n"}},
      {{"3", "0", "7"},
       {"data = gpio_set {type = 0, reserved = 0, value = 504 bytes: 01 00 00 00 07"}},
      {{"11", "2"},
       {"data = nv_sync {form = 2, reserved = 0, type = 35, length = 0, ",
        "data = nv_sync {unread = 0, result = 0, "}},
      {{"12", "0"}, {"network = [{mcc = 1, mnc = 1, status = 165, name = \"TEST 1\"}, "}},
  };
  for (const auto& row : rows) {
    write_file(folder / "trace", "");
    tovi(row.command);
    const std::string trace = read_file(folder / "trace");
    size_t at = 0;
    for (const std::string& part : row.parts) {
      const size_t found = trace.find(part, at);
      ASSERT_NE(found, std::string::npos) << part << "\nin\n" << trace;
      at = found + part.size();
    }
  }
}

TEST_F(Cli, TheTraceHidesWhatIdentifiesTheDevice) {
  const std::string imei = "08 0a 10 10 32 54 76 98 20", eid = "89 04 90 32";
  const std::string eid_file = "/nv/item_files/modem/uim/uimdrv/esim_eid";
  const struct {
    std::vector<std::string> command;
    std::string secret;
  } rows[] = {
      {{"4", "1", "0", "550"}, imei},
      {{"4", "2", "0", "550", "8", "10", "16", "16", "50", "84", "118", "152", "32"}, imei},
      {{"5", "10", "1", "0"}, eid},
      {{"4", "4", "1", eid_file}, eid},
      {{"4", "5", "0", eid_file, "137", "4", "144", "50"}, eid},
      {{"4", "4", "0", eid_file}, eid},
      {{"4", "4", "1", eid_file.substr(1)}, eid},
  };
  for (const auto& row : rows) {
    for (const char* full : {"1", "0"}) {
      write_file(folder / "trace", "");
      variables["TOVI_TRACE"] = folder / "trace";
      variables["TOVI_TRACE_FULL"] = full;
      tovi(row.command);
      std::string trace = read_file(folder / "trace");
      std::replace(trace.begin(), trace.end(), '\n', ' ');
      for (size_t at; (at = trace.find("   ")) != std::string::npos;) trace.erase(at, 2);
      EXPECT_EQ(trace.find(row.secret) != std::string::npos, full[0] == '1') << row.command[1];
    }
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
