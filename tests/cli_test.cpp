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

constexpr const char* kMask = "/nv/item_files/modem/velmor/rf_print_mask";

TEST_F(Cli, WithoutAModuleThereIsTheWholeHelp) {
  for (const Args& args : {Args{}, Args{"13"}, Args{"--help"}, Args{"0", "1"}, Args{"-4"}}) {
    EXPECT_EQ(tovi(args), help());
  }
  EXPECT_FALSE(exists(folder / "state"));
  variables = {{"HOME", ""}, {"XDG_STATE_HOME", ""}};
  EXPECT_EQ(tovi({}), help());
}

TEST_F(Cli, ModulesWithoutAHandlerAreNotSupported) {
  EXPECT_EQ(tovi({"2"}), line("main", "Not support"));
  EXPECT_EQ(tovi({"1", "1"}), line("main", "Not support"));
}

TEST_F(Cli, WrongArgumentsAreNotedWithTheModulesHelp) {
  const std::string few = "note: Too few parameters, Pls refer to the following cmd:";
  const std::string second =
      "note: the second parameters is invalid, Pls refer to the following cmd:";
  const std::string error = "note: Error happen! error_code(268431370)";
  const std::string need5 = "note: need 5 inputs, Pls refer to the following cmd:";
  const std::string inputs = "note: Too few inputs, Pls refer to the following cmd:";
  const std::string id = "note: the second parameters(qmi_id) should be >= 0 && < 6";
  const std::string nvefs = "velmor_test_nvefs_do", send = "velmor_test_qmi_send_data_do";
  const std::string scan = "velmor_test_qmi_do";
  const struct {
    Args args;
    std::string notes;
  } rows[] = {
      {{"4"}, line(nvefs, few)},
      {{"4", "7", "0", "1"}, line(nvefs, second)},
      {{"4", "0", "0", "1"}, line(nvefs, second)},
      {{"4", "1", "0", "10", "x"}, line("velmor_nvefs_test_nv_read", need5) + line(nvefs, error)},
      {{"4", "3", "0"}, line("velmor_nvefs_test_nv_delete", need5) + line(nvefs, error)},
      {{"4", "4", "0"}, line("velmor_nvefs_test_efs_read", need5) + line(nvefs, error)},
      {{"4", "2", "0", "10"}, line("velmor_nvefs_test_nv_write", inputs) + line(nvefs, error)},
      {{"4", "5"}, line("velmor_nvefs_test_efs_write", inputs) + line(nvefs, error)},
      {{"6", "2"}, line(send, few)},
      {{"6", "6", "1"}, line(send, id)},
      {{"6", "-1", "1"}, line(send, id)},
      {{"12"}, line(scan, few)},
      {{"12", "2"}, line(scan, second)},
      {{"12", "-1"}, line(scan, second)},
  };
  for (const auto& row : rows) {
    const std::map<std::string, const char*> headings = {
        {"4", "4: nvefs"}, {"6", "6: velmor"}, {"12", "12: qmi"}};
    EXPECT_EQ(tovi(row.args), row.notes + help(headings.at(row.args[0])));
  }
  EXPECT_FALSE(exists(folder / "state"));
}

// The file holds commands, run one after the other in the same state folder, and what they print.
// Variables before a command are its own. TOVI_TEST_UPDATE=1 writes the file anew.
TEST_F(Cli, PrintsItsTranscriptsToTheByte) {
  const std::string path = TOVI_TEST_DATA "/golden/transcripts.txt";
  const std::string said = read_file(path);
  const Variables usual = variables;
  std::istringstream transcripts(said);
  std::string printed, word;
  for (std::string line; std::getline(transcripts, line);) {
    if (!line.starts_with("$ ")) continue;
    variables = usual;
    std::istringstream words(line.substr(2));
    while (words >> word && word != "tovi") {
      const size_t equals = word.find('=');
      ASSERT_NE(equals, std::string::npos) << line;
      variables[word.substr(0, equals)] = word.substr(equals + 1);
    }
    Args args;
    while (words >> word) args.push_back(word);
    printed += line + "\n" + tovi(args);
  }
  if (getenv("TOVI_TEST_UPDATE") != nullptr) write_file(path, printed);
  EXPECT_EQ(printed, said);
}

TEST_F(Cli, AFileIsWrittenReadAndDeleted) {
  const std::string stored = folder / "state/efs/0" + kMask;
  tovi({"4", "5", "0", kMask, "15", "256", "-1", "0x10"});
  EXPECT_EQ(read_file(stored), std::string("\x0f\x00\xff\x00", 4));
  tovi({"4", "6", "0", kMask});
  EXPECT_FALSE(exists(stored));
  EXPECT_TRUE(tovi({"4", "4", "0", kMask})
                  .ends_with(line("velmor_test_nvefs_do", "note: Error happen! error_code(-2)") +
                             help("4: nvefs")));
}

TEST_F(Cli, TheTwoSubscriptionsNeverMix) {
  tovi({"4", "2", "0", "77", "1", "2"});
  tovi({"4", "2", "7", "77", "3"});
  EXPECT_EQ(read_file(folder / "state/nv/0/77"), "\x01\x02");
  EXPECT_EQ(read_file(folder / "state/nv/1/77"), "\x03");
  tovi({"4", "3", "0", "77"});
  EXPECT_FALSE(exists(folder / "state/nv/0/77"));
  EXPECT_NE(tovi({"4", "1", "1", "77"})
                .find(": data len(1)\ndata: \n\nRIL[velmor_nvefs_test_nv_read]:  03"),
            std::string::npos);
  EXPECT_NE(tovi({"4", "1", "0", "77"}).find("error_code(5)"), std::string::npos);
}

TEST_F(Cli, DataBeyondTheBufferIsLeftOut) {
  Args write = {"4", "2", "0", "77"};
  write.insert(write.end(), 400, "7");
  EXPECT_NE(tovi(write).find("buf_len: 365"), std::string::npos);
  EXPECT_EQ(read_file(folder / "state/nv/0/77"), std::string(365, 7));
  write_file(folder / "state/nv/0/78", std::string(400, 8));
  EXPECT_NE(tovi({"4", "1", "0", "78"}).find("data len(365)"), std::string::npos);
  Args send = {"6", "4"};
  send.insert(send.end(), 600, "0x12");
  const std::string out = tovi(send);
  EXPECT_NE(out.find("velmor_qmi req data(qmi_id: 4, len: 600[max: 500]):"), std::string::npos);
  size_t lines = 0;
  for (size_t at = 0; (at = out.find(": 0x12 \n", at)) != std::string::npos; ++at) ++lines;
  EXPECT_EQ(lines, 500u);
}

TEST_F(Cli, AnRfSettingIsKeptShownAndDeleted) {
  const std::string gpio = folder / "state/efs/0/nv/item_files/modem/velmor/rf_ant_port_config";
  const std::string tx = folder / "state/efs/0/nv/item_files/modem/antenna/ant_tx_config";
  EXPECT_EQ(said({"3", "0", "300", "-1"}, "velmor_gpio_test_set"),
            "velmor_gpio_test_set|velmor_gpio_test_set, gpio_v[0]: 300|"
            "velmor_gpio_test_set, gpio_v[1]: -1|");
  EXPECT_EQ(read_file(gpio), std::string("\x02\0\0\0\x2c\x01\0\0\xff\xff\xff\xff", 12));
  EXPECT_EQ(said({"3", "1"}, "velmor_gpio_test_get"),
            "velmor_gpio_test_get|data len(12)data: | 02| 00| 00| 00| 2C| 01| 00| 00| FF| FF| FF|"
            " FF||");
  EXPECT_EQ(said({"3", "2"}, "velmor_gpio_test_closed"), "velmor_gpio_test_closed|");
  EXPECT_FALSE(exists(gpio));

  EXPECT_EQ(said({"3", "3", "1", "4", "18446744073709551615"}, "velmor_rf_tx_test_set"),
            "velmor_rf_tx_test_set, argc(6)| v_ant(1)| v_sys(4)| "
            "v_band_list(18446744073709551615)|");
  EXPECT_EQ(read_file(tx), std::string("\x01\0\0\0\x04\0\0\0", 8) + std::string(8, '\xff'));
  EXPECT_EQ(said({"3", "4"}, "velmor_rf_tx_test_get").substr(0, 35),
            "velmor_rf_tx_test_get|data len(16)|");
  EXPECT_EQ(said({"3", "5"}, "velmor_rf_tx_test_closed"), "velmor_rf_tx_test_closed|");
  EXPECT_EQ(said({"3", "5"}, "velmor_rf_tx_test_closed"),
            "velmor_rf_tx_test_closed|velmor_extend_qmi_send_sync fail, REQUEST_ID_EFS|");
  EXPECT_EQ(said({"3", "5"}, "velmor_test_rf_do"), "note: Error happen! error_code(-2)|");
  EXPECT_FALSE(exists(tx));

  EXPECT_EQ(said({"3", "3", "1", "4"}, "velmor_rf_tx_test_set"),
            "velmor_rf_tx_test_set, argc(5)|note: need 5 inputs, Pls refer to the following cmd:|");
  for (const char* command : {"1", "2", "4", "5"}) {
    const std::string out = tovi({"3", command, "extra"});
    EXPECT_NE(out.find("note: Cmd error, should be: tovi 3 " + std::string(command) +
                       " , Pls refer to the following cmd:\n" +
                       line("velmor_test_rf_do", "note: Error happen! error_code(268431370)") +
                       help("3: rf")),
              std::string::npos);
  }
}

TEST_F(Cli, AScanRunsOnAClientOfItsOwn) {
  const auto scan = [](const std::string& name, int id, const std::string& heard,
                       const std::string& failure) {
    const std::string f = "velmor_send_nas_perform_" + name + "_req_msg_v01";
    const std::string send = "velmor_send_nas_qmi_req_msg";
    const std::string result = failure.empty() ? "" : line(f, failure);
    return line(f, "function entry ------------->") + line(f, f + ", scan_scope = 0") +
           line(send, "function entry ------------->") +
           line(send, send + ", msg_id = " + std::to_string(id) +
                          ", time_out_ms = 10000, qmi_client_ptr = 0x00000000") +
           line("velmor_qmi_client_init", "init qmi_client") + heard +
           line(send, "function exit <-------------") + result +
           line(f, "function exit <-------------");
  };
  const std::string opened = line("velmor_qmi_client_init", "qmi_svc_client 0x1");
  const std::string released =
      line("velmor_qmi_client_recovery", "velmor_qmi_client_recovery, qmi_client_ptr 0x1");
  const std::string heard = line("velmor_qmi_client_unsol_ind_cb", "msg_id 133");
  EXPECT_EQ(tovi({"12", "0"}), scan("network_scan", 33, opened + released, ""));
  EXPECT_EQ(tovi({"12", "1", "x"}), scan("incremental_network_scan", 133, opened + released, ""));

  variables["TOVI_SIM_FAULTS"] = "3/85=ind-first";
  std::string out = tovi({"12", "1"});
  size_t indications = 0;  // they may come before or after the line of the release
  for (size_t at; (at = out.find(heard)) != std::string::npos; ++indications) {
    out.erase(at, heard.size());
  }
  EXPECT_EQ(indications, 4u);
  EXPECT_EQ(out, scan("incremental_network_scan", 133, opened + released, ""));

  take_modem_away();
  variables["TOVI_TIME_SCALE"] = "0.01";
  const std::string null =
      line("velmor_send_nas_qmi_req_msg", "qmi_client_ptr is NULL") +
      line("velmor_qmi_client_recovery", "velmor_qmi_client_recovery, qmi_client_ptr (nil)") +
      line("velmor_qmi_client_recovery", "qmi_client_ptr is NULL");
  EXPECT_EQ(tovi({"12", "0"}),
            scan("network_scan", 33,
                 line("velmor_qmi_client_init",
                      "velmor_qmi_client_init instance failed, qmi_client_error = -3") +
                     null,
                 "qmi_client_send_msg_sync fail, qmi_client_error = -1") +
                line("velmor_test_qmi_do",
                     "VELMOR_LOG_DEBUGnote: Error happen! error_code(-1)VELMOR_LOG_DEBUG") +
                help("12: qmi"));
}

TEST_F(Cli, TheFlagsSwitchLogAndEchoApart) {
  set_property("persist.vendor.velmor.shell_print", "0");
  EXPECT_EQ(tovi({"2"}), "");
  EXPECT_EQ(tovi({}), "");
  const std::string log = read_file(folder / "log");
  EXPECT_TRUE(log.starts_with("D [tovi][velmor_tovi_test_main.cpp:")) << log;
  EXPECT_TRUE(log.ends_with("] main: Not support\n")) << log;
  set_property("persist.vendor.velmor.shell_print", "1");
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

TEST_F(Cli, WithoutAModemTheSearchEndsAfter50Attempts) {
  take_modem_away();
  variables["TOVI_TIME_SCALE"] = "0.01";
  std::string searches;
  for (int i = 0; i < 50; ++i) {
    searches += "VELMOR_QMI_NV: qmi_client_get_service_list() returned -2 num_services = 0\n";
  }
  EXPECT_EQ(
      tovi({"4", "3", "0", "10"}),
      line("velmor_nv_delete", "function entry ------------->") +
          line("velmor_nv_delete", "velmor_nv_delete, sub_id 0, nv_id: 10") + searches +
          "qmi_client_get_service_list, err = -2, num_entries = 0, num_services = 0"
          "qmi_client_init, err = -5, handle = 0, client_handle = 0"
          "-5 QMI client init failed\n"
          "velmor_extend_qmi_handle_req_cb result:-2\n" +
          line("velmor_qmi_result_map", "velmor_qmi_result_map, old_result -2, new_result -102") +
          line("velmor_nv_delete", "result = -102, rsp.result = 0") +
          line("velmor_nv_delete", "velmor_extend_qmi_send_sync fail") +
          line("velmor_nv_delete", "function exit <-------------") +
          line("velmor_nvefs_test_nv_delete", "velmor_extend_qmi_send_sync fail, REQUEST_ID_EFS") +
          line("velmor_test_nvefs_do", "note: Error happen! error_code(-102)") + help("4: nvefs"));
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
