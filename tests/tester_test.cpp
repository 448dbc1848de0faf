// A modem for other people's tests: run for one command, logged, told to refuse, recorded and
// replayed.
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
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
  Result modem_run(const Args& options, const Args& command) {
    return run("tovi-modem", words(options, command), variables);
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

TEST_F(Tester, ARunGivesTheStatusOfItsCommandAndLeavesNothing) {
  const struct {
    Args options;
    Args command;
    int status;
    std::string out;
    std::string err = "";
  } rows[] = {
      {{}, {"sh", "-c", "exit 7"}, 7, ""},
      {{}, {"sh", "-c", "kill -9 $$"}, 128 + SIGKILL, ""},
      {{}, {"sh", "-c", "test -S ${TOVI_MODEM#unix:} && ls $TOVI_STATE/nv"}, 0, "0\n1\n"},
      {{"--state", folder / "kept"}, {"sh", "-c", "echo $TOVI_STATE"}, 0, (folder / "kept") + "\n"},
      {{}, {"nosuchprogram"}, 127, "", "tovi-modem: nosuchprogram: No such file or directory\n"},
      {{}, {"/"}, 126, "", "tovi-modem: /: Permission denied\n"},
      {{"--faults", "x"},
       {"true"},
       1,
       "",
       "tovi-modem: the fault rule 'x' cannot be read: it has no =\n"},
      {{"--log", folder / "no/log"},
       {"true"},
       1,
       "",
       "tovi-modem: " + (folder / "no/log") + ": No such file or directory\n"},
  };
  for (const auto& row : rows) {
    const Result result = modem_run(row.options, row.command);
    EXPECT_EQ(result.status, row.status) << row.command.back();
    EXPECT_EQ(result.out, row.out);
    EXPECT_EQ(result.err, row.err);
    EXPECT_TRUE(std::filesystem::is_empty(tmp));
  }
  EXPECT_TRUE(exists(folder / "kept/nv/0/550"));
  EXPECT_FALSE(exists(folder / "kept/device/dev/diag"));
  for (const Args& args : {Args{"run"}, Args{"run", "--"}, Args{"run", "true"},
                           Args{"run", "--state", "--", "true"}, Args{"run", "--fly", "--", "x"}}) {
    EXPECT_EQ(run("tovi-modem", args, variables).status, 2);
  }
}

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

TEST_F(Tester, TheLogTellsWhatWasAskedAndDoneWithoutIdentities) {
  const std::string write =
      R"({"client":"1:16384","service":"extend","service_id":65508,"message":"send_data",)"
      R"("message_id":2,"operation":"nv_write","arguments":{"request_id":2,"data_len":512,)"
      R"("op_type":2,"sub_id":1,"id":77,"path_len":0,"path":"","data_len_all":2,)"
      R"("data_len_send":0,"data_len_cur":0,"data":"07ff"},"result":0,"modem_result":6,)"
      R"("responses":1,"indications":0,"fault":"extend/nv_write=result:6"})";
  const struct {
    const char* script;
    const char* full;
    std::vector<std::string> lines;  // whole, or a part of each
  } rows[] = {
      {"tovi 4 2 1 77 7 255", "", {write}},
      {"tovi 4 2 0 550 8 9", "", {R"("id":550,"path_len":0,)", R"("data":".."})"}},
      {"tovi 4 2 0 550 8 9", "1", {R"("data":"0809"})"}},
      {"tovi 12 1",
       "",
       {R"("message":"incremental_scan","message_id":133,)",
        R"("result":0,"responses":1,"indications":4})"}},
      {"tovi 5 10 1 0", "", {R"("message":"get_eid","message_id":101,"arguments":{"slot":2})"}},
      {"tovi 8 AT+CGSN", "", {R"({"port":"at","command":"AT+CGSN","answer":"OK"})"}},
      {"tovi 8 AT+X=12", "", {R"({"port":"at","command":"AT+X=..","answer":"ERROR"})"}},
      {"tovi 8 AT+CGSN", "1", {R"(\r\n001012345678902\r\n)"}},
      {"tovi 5 0 0 0 100 38 38 2",
       "",
       {R"({"port":"diag","command":"262602","command_bytes":3,)"
        R"("answer":"26","answer_bytes":133})"}},
  };
  for (const auto& row : rows) {
    std::filesystem::remove(log);
    variables["TOVI_TRACE_FULL"] = row.full;
    modem_run({"--log", log, "--faults", "extend/nv_write=result:6"}, {"sh", "-c", row.script});
    std::string all;
    for (const std::string& line : log_lines()) all.append(line).append("\n");
    for (const std::string& line : row.lines) {
      EXPECT_NE(all.find(line), std::string::npos) << line << "\n" << all;
    }
    EXPECT_EQ(*row.full == '\0' && all.find("001012345678902") != std::string::npos, false);
  }
  struct stat status {};
  EXPECT_EQ(stat(log.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  const Result full =
      modem_run({"--log", "/dev/full"}, {"sh", "-c", "tovi 4 1 0 10; tovi 4 1 0 10"});
  EXPECT_NE(full.out.find("data len(3)"), std::string::npos);
  EXPECT_EQ(full.err, "tovi-modem: /dev/full: No space left on device\n");
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

TEST_F(Tester, NetworksAndAtCommandsAreThoseOfTheStateFolder) {
  const struct {
    const char* file;
    const char* text;
    Args args;
    const char* found;  // in what is printed and traced
  } rows[] = {
      {"networks",
       "310/26=nr serving,preferred A B  # mine\n",
       {"12", "0"},
       R"([{mcc = 310, mnc = 26, status = 105, name = "A B"}])"},
      {"networks",
       "1/1=gsm home,forbidden x\n",
       {"12", "0"},
       "rat = [{mcc = 1, mnc = 1, rat = 4}]"},
      {"networks", "", {"12", "0"}, "network = []"},
      {"networks", "1/1=lte fast x\n", {"12", "0"}, "resp = {result = 1, error = 3}"},
      {"networks", "1/-1=lte - x\n", {"12", "0"}, "resp = {result = 1, error = 3}"},
      {"networks", "1001/1=lte - x\n", {"12", "0"}, "resp = {result = 1, error = 3}"},
      {"at", "AT+X=? -> one|two\n", {"8", "at+x=?"}, "\r\none\r\n\r\ntwo\r\n\r\nOK\r\n"},
      {"at",
       "AT+X no-sim -> no\nAT+X sim -> yes | +CME ERROR: 3\n",
       {"8", "AT+X"},
       "\r\nyes\r\n\r\n+CME ERROR: 3\r\n"},
      {"at", "#AT -> x\nAT -> me {imei}.\n", {"8", "AT"}, "\r\nme 001012345678902.\r\n"},
      {"at", "AT+X\n", {"8", "AT+X"}, "\r\nERROR\r\n"},
      {"at", "", {"8", "ATE0"}, "\r\nOK\r\n"},
  };
  variables["TOVI_TRACE"] = "stderr";
  for (const auto& row : rows) {
    const std::string state = folder / "state";
    write_file(state + "/" + row.file, row.text);
    Args command = row.args;
    command.insert(command.begin(), "tovi");
    const Result result = modem_run({"--state", state}, command);
    EXPECT_NE((result.out + result.err).find(row.found), std::string::npos)
        << row.text << result.out << result.err;
    std::filesystem::remove_all(state);
  }
}

// Every command that asks the modem for something: 7 0 and 11 3 do not.
TEST_F(Tester, EveryRefusalThatACommandCanMeetCanBeProvoked) {
  struct Row {
    Args args;
    std::string rule;  // faults do not touch the ports: there it is the command that is refused
    std::string logged;
  };
  std::vector<Row> rows = {
      {{"3", "0", "1"}, "extend/gpio_set=result:48", ""},
      {{"3", "1"}, "extend/efs_read=result:-5", ""},
      {{"3", "2"}, "extend/efs_delete=result:-5", ""},
      {{"3", "3", "1", "4", "7"}, "extend/tx_set=result:3", ""},
      {{"3", "4"}, "extend/efs_read=error:1", ""},
      {{"3", "5"}, "extend/efs_delete=result:-13", ""},
      {{"4", "1", "0", "10"}, "extend/nv_read=result:5", ""},
      {{"4", "2", "0", "77", "1"}, "extend/nv_write=result:6", ""},
      {{"4", "3", "0", "10"}, "extend/nv_delete=result:5", ""},
      {{"4", "4", "0", "/x"}, "extend/efs_read=result:-2", ""},
      {{"4", "5", "0", "/x", "1"}, "extend/efs_write=result:-28", ""},
      {{"4", "6", "0", "/x"}, "extend/efs_delete=result:-22", ""},
      {{"5", "0", "0", "0", "100", "99"},
       "",
       R"("port":"diag","command":"63","command_bytes":1,"answer":"13")"},
      {{"5", "1"}, "extend/card_status_query=result:94", ""},
      {{"5", "2", "0"}, "extend/card_status_get=result:48", ""},
      {{"5", "3", "0", "1", "0"}, "extend/card_status_set=result:48", ""},
      {{"5", "4"}, "extend/card_type_query=error:9", ""},
      {{"5", "5"}, "sar/rf_get_state=error:94", ""},
      {{"5", "6", "0"}, "extend/card_hotswap_test=result:94", ""},
      {{"5", "10", "2", "0"}, "uim/power_down=error:26", ""},
      {{"5", "10", "2", "0"}, "uim/power_up=error:102", ""},
      {{"5", "10", "1", "0"}, "uim/get_eid=error:94", ""},
      {{"6", "4", "31"}, "extend/restart=result:94", ""},
      {{"6", "3", "1"}, "extend/send_data=error:1", ""},
      {{"7", "1", "0"}, "extend/stats_debug_info=result:94", ""},
      {{"7", "1", "1"}, "extend/stats_debug_info=error:1", ""},
      {{"8", "AT+X"}, "", R"("port":"at","command":"AT+X","answer":"ERROR")"},
      {{"9", "0", "0"}, "vs/set_feature=error:94", ""},
      {{"10", "0", "1"}, "pdc/activate=error:16", ""},
      {{"10", "1", "1"}, "pdc/get_selected=error:3", ""},
      {{"10", "1", "1"}, "pdc/deactivate=error:26", ""},
      {{"10", "1", "1"}, "pdc/set_selected=error:41", ""},
      {{"11", "0"}, "extend/restart=result:94", ""},
      {{"11", "1"}, "extend/full_dump=result:94", ""},
      {{"11", "2"}, "extend/nv_sync=result:3", ""},
      {{"11", "4", "1"}, "extend/efs_write=result:-5", ""},
      {{"11", "5", "1"}, "extend/nv_sync=error:1", ""},
      {{"12", "0"}, "nas/network_scan=error:16", ""},
      {{"12", "1"}, "nas/incremental_scan=error:52", ""},
  };
  for (const char* record :
       {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "20", "21", "30"}) {
    rows.push_back({{"9", record, "0"}, "vs/get_stats=error:52", ""});
  }
  variables["TOVI_TIME_SCALE"] = "1";  // so many at once need the time that they are given
  std::vector<std::unique_ptr<Program>> runs;
  for (size_t i = 0; i < rows.size(); ++i) {
    Args command = {"tovi"};
    command.insert(command.end(), rows[i].args.begin(), rows[i].args.end());
    const Args options = {"--faults", rows[i].rule, "--log", log + std::to_string(i)};
    runs.push_back(std::make_unique<Program>("tovi-modem", words(options, command), variables));
  }
  for (size_t i = 0; i < rows.size(); ++i) {
    runs[i]->wait();
    const std::string& rule = rows[i].rule;
    const size_t value = rule.find(':') + 1;
    const bool inside = rule.find("=result:") != std::string::npos;
    const std::string result =
        std::string(inside ? "\"modem_result\":" : "\"result\":") + rule.substr(value);
    const std::string text = read_file(log + std::to_string(i));
    const size_t struck = text.find(R"("fault":")" + rule + R"("})");
    const std::string line = text.substr(0, struck);
    const std::string logged = rule.empty() ? rows[i].logged : result + ",";
    EXPECT_NE(line.substr(rule.empty() ? 0 : line.rfind('\n') + 1).find(logged), std::string::npos)
        << rule << "\n"
        << text;
    EXPECT_EQ(struck == std::string::npos, rule.empty()) << rule << "\n" << text;
  }
}

// A record of version 4, by hand.
TEST_F(Tester, ADiagnosticRecordIsUnpackedFieldByField) {
  const std::string hex =
      "04000000 2a01 14050000 64470000 3200 6400 0102030405060708 cc00 02 0400 01 39300000 0300";
  std::string bytes;
  for (size_t i = 0; i < hex.size(); i += hex[i] == ' ' ? 1 : 2) {
    if (hex[i] != ' ') bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  write_file(folder / "digits", hex + "\n");
  write_file(folder / "bytes", bytes);
  const std::string whole = run("tovi-modem", {"unpack", hex}, variables).out;
  for (const char* line :
       {"version            0    32  4 (0x4)\n", "mcc              208    16  204 (0xcc)\n",
        "mnc_num          224     8  2 (0x2)\n", "tac              256    32  12345 (0x3039)\n",
        "cgi              144    64  578437695752307201 (0x807060504030201)\n",
        "pci               32    16  298 (0x12a)\n", "freq_band_ind    288    16  3 (0x3)\n",
        "allow_access     248     8  1 (0x1)\n"}) {
    EXPECT_NE(whole.find(line), std::string::npos) << line << whole;
  }
  EXPECT_EQ(run("tovi-modem", {"unpack", folder / "digits"}, variables).out, whole);
  EXPECT_EQ(run("tovi-modem", {"unpack", folder / "bytes"}, variables).out, whole);
  const Result cut = run("tovi-modem", {"unpack", hex.substr(0, hex.size() - 2)}, variables);
  EXPECT_NE(cut.out.find("freq_band_ind    288    16  is not in the record\n"), std::string::npos);
  const struct {
    const char* record;
    std::string out;
    std::string err;
  } rows[] = {
      {"0400000", "", "0400000: neither a file nor hexadecimal digits, two a byte\n"},
      {"040000", "", "a record has 4 to 2000 bytes, not 3\n"},
      {"/", "", "/: Is a directory\n"},
      {"05000000", "VERSION_NOT_SUPPORT", ""},
  };
  for (const auto& row : rows) {
    const Result result = run("tovi-modem", {"unpack", row.record}, variables);
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.out.starts_with(row.out)) << result.out;
    EXPECT_EQ(result.err, row.err.empty() ? "" : "tovi-modem: " + row.err);
  }
}

class Recorded : public Tester {
 protected:
  const std::string record = folder / "record";

  // `tovi ARGS` with a modem of its own, recorded.
  Result recorded(const Args& args, const std::string& rules = "") {
    std::filesystem::remove(record);
    variables["TOVI_RECORD"] = record;
    return modem_run({"--faults", rules}, command(args));
  }
  Result replayed(const Args& args, const Args& options = {}) {
    variables.erase("TOVI_RECORD");
    Args all = {"--replay", record};
    all.insert(all.end(), options.begin(), options.end());
    return modem_run(all, command(args));
  }
  static Args command(Args args) {
    args.insert(args.begin(), "tovi");
    return args;
  }
};

// tools/replay-sessions does it with random sessions.
TEST_F(Recorded, ASessionReplaysToTheByte) {
  variables["TOVI_TIME_SCALE"] = "1";
  variables["TOVI_TRACE_FULL"] = "1";
  const struct {
    Args args;
    const char* rules;
  } rows[] = {
      {{"4", "1", "0", "550"}, ""},
      {{"4", "4", "0", "/nv/item_files/modem/mmode/lte_bandpref"}, "extend#1=twice"},
      {{"4", "5", "0", "/x", "1"}, "extend#2=delay:200"},
      {{"5", "10", "1", "0"}, "uim/get_eid#1=error:3"},
      {{"4", "1", "0", "10"}, "extend=stray"},
      {{"10", "1", "1"}, ""},
      {{"11", "0"}, "extend#1=garbage"},
      {{"12", "1"}, "nas=ind-delay:30"},
      {{"4", "1", "0", "10"}, "extend=absent"},
      {{"4", "1", "0", "10"}, "extend#1=restart:50"},
  };
  // All at once: most of their time they wait.
  const auto run_all = [&](const std::string& option, auto options_of) {
    std::vector<std::unique_ptr<Program>> running;
    std::vector<Result> results;
    for (const auto& row : rows) {
      const std::string file = record + std::to_string(&row - rows);
      Variables mine = variables;
      if (option == "--faults") mine["TOVI_RECORD"] = file;
      running.push_back(std::make_unique<Program>(
          "tovi-modem", words({option, options_of(row, file)}, command(row.args)), mine));
    }
    for (const auto& program : running) results.push_back(program->wait());
    return results;
  };
  const auto first_time = run_all("--faults", [](const auto& row, auto) { return row.rules; });
  const auto second_time = run_all("--replay", [](const auto&, auto file) { return file; });
  for (size_t i = 0; i < std::size(rows); ++i) {
    EXPECT_EQ(second_time[i].out, first_time[i].out) << rows[i].rules;
    EXPECT_EQ(second_time[i].err, first_time[i].err) << rows[i].rules;
    EXPECT_EQ(second_time[i].status, 0) << rows[i].rules;
  }
  const auto begin = timing::Clock::now();
  const Result first = recorded({"12", "0"}, "nas=delay:3000");
  const auto recorded_at = timing::Clock::now();
  EXPECT_EQ(replayed({"12", "0"}, {"--fast"}).out, first.out);
  EXPECT_LT(timing::Clock::now() - recorded_at, recorded_at - begin - 1500ms);
}

TEST_F(Recorded, ADifferenceIsNamedAndRefusedAndGivesStatus1) {
  const struct {
    Args args;
    const char* then;  // in the record
    const char* now;
    std::string said;
  } rows[] = {
      {{"4", "1", "0", "10"},
       "0201000a00",
       "0201000b00",
       "extend send_data nv_read: differs from line 4 of the record in data.id: 10, recorded 11\n"
       "tovi-modem: replay: never asked: line 4 of the record, extend send_data nv_read\n"},
      {{"4", "4", "0", "/abc"},
       "2f616263",
       "2f616264",
       "extend send_data efs_read: differs from line 4 of the record in data.path\n"
       "tovi-modem: replay: never asked: line 4 of the record, extend send_data efs_read\n"},
      {{"4", "1", "0", "10"},
       "01040002000000",
       "01040003000000",
       "extend send_data nv_read: differs from line 4 of the record in request_id: 2, recorded 3\n"
       "tovi-modem: replay: never asked: line 4 of the record, extend send_data\n"},
      {{"12", "0"},
       "00010021000000",
       "00010085000000",
       "nas network_scan: differs from line 4 of the record in the message\n"
       "tovi-modem: replay: never asked: line 4 of the record, nas incremental_scan\n"},
  };
  for (const auto& row : rows) {
    recorded(row.args);
    std::string text = read_file(record);
    const size_t at = text.find(row.then);
    ASSERT_NE(at, std::string::npos) << text;
    write_file(record, text.replace(at, strlen(row.then), row.now));
    const Result result = replayed(row.args);
    EXPECT_EQ(result.err, "tovi-modem: replay: " + row.said);
    EXPECT_EQ(result.status, 1);
  }
  recorded({"4", "1", "0", "10"});
  EXPECT_EQ(replayed({"4"}).err,
            "tovi-modem: replay: never asked: line 4 of the record, extend send_data nv_read\n");
  variables.erase("TOVI_RECORD");
  const Result more = modem_run({"--replay", record}, {"sh", "-c", "tovi 4 1 0 10; tovi 4 1 0 10"});
  EXPECT_EQ(more.err,
            "tovi-modem: replay: extend send_data nv_read: the record has no more requests "
            "of the service\n");
  EXPECT_NE(more.out.find("error_code(-103)"), std::string::npos);
}

TEST_F(Recorded, IdentitiesAreNotRecordedAndMayBeOthersInAReplay) {
  recorded({"4", "2", "0", "550", "8", "10", "16"});
  EXPECT_EQ(read_file(record).find("080a10"), std::string::npos);
  EXPECT_NE(read_file(record).find("...."), std::string::npos);
  struct stat status {};
  EXPECT_EQ(stat(record.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_EQ(replayed({"4", "2", "0", "550", "9", "9", "9"}).err, "");
  EXPECT_EQ(replayed({"4", "2", "0", "551", "9", "9", "9"}).status, 1);
  variables["TOVI_TRACE_FULL"] = "1";
  recorded({"4", "2", "0", "550", "8", "10", "16"});
  EXPECT_NE(read_file(record).find("080a10"), std::string::npos);
  variables["TOVI_RECORD"] = "/dev/full";
  const Result full = modem_run({}, {"tovi", "4", "1", "0", "10"});
  EXPECT_NE(full.out.find("data len(3)"), std::string::npos);
  EXPECT_EQ(full.err, "tovi: TOVI_RECORD: No space left on device\n");
}

TEST_F(Recorded, ADamagedRecordIsReadAsFarAsItGoes) {
  recorded({"4", "1", "0", "10"});
  const std::string whole = read_file(record);
  const std::string name = "tovi-modem: " + record;
  const std::string so_far = "; what stands before it is replayed\n";
  const struct {
    std::string text;
    std::string said;
    int status;
  } rows[] = {
      {whole + whole.substr(0, 40), name + ":6: ends within a line" + so_far, 0},
      {whole + "{}\n", name + ":6: no line of a record" + so_far, 0},
      {whole + R"({"time":1,"process":1,"service_id":65508,"direction":">","bytes":"0g"})" + "\n",
       name + ":6: no line of a record" + so_far, 0},
      {whole + R"({"time":1,"process":1,"service_id":65508,"direction":">","bytes":["00"]})" + "\n",
       name + ":6: no line of a record" + so_far, 0},
      {whole + R"({"time":1,"process":1e30,"service_id":3,"presence":"there"})" + "\n",
       name + ":6: no line of a record" + so_far, 0},
      {whole + R"({"time":1e300,"process":1,"service_id":3,"presence":"there"})" + "\n",
       name + ":6: no line of a record" + so_far, 0},
      {"hello\n", name + ":1: no line of a record\n", 1},
      {"", name + ": no record, it is empty\n", 1},
  };
  for (const auto& row : rows) {
    write_file(record, row.text);
    const Result result = replayed({"4", "1", "0", "10"});
    EXPECT_EQ(result.err, row.said);
    EXPECT_EQ(result.status, row.status);
    EXPECT_EQ(result.out.find("data len(3)") != std::string::npos, row.status == 0);
  }
  std::filesystem::remove(record);
  EXPECT_EQ(replayed({"4"}).err, name + ": No such file or directory\n");
}

}  // namespace
