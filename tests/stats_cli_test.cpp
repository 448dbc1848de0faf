// Modules 7 and 9 as a person at the shell sees them.
#include "support/cli_fixture.h"

namespace {

using namespace testing_support;

class StatsCli : public Cli {
 protected:
  // What a command prints besides its log.
  std::string results(const Args& args) {
    const std::string out = tovi(args);
    std::string all;
    for (size_t at = 0; at < out.size();) {
      const size_t end = out.find('\n', at) + 1;
      const std::string one = out.substr(at, end - at);
      if (!one.starts_with("RIL[") && !one.starts_with("VELMOR") && !one.starts_with("velmor_") &&
          !one.starts_with("qmi_client")) {
        all += one;
      }
      at = end;
    }
    return all;
  }
  void set_debug(const std::string& lines) { write_file(folder / "state/stats/debug", lines); }
};

TEST_F(StatsCli, EveryStatisticIsALineForBothSubscriptions) {
  for (const char* opt :
       {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "20", "21", "30"}) {
    for (const char* sub : {"0", "1"}) {
      const std::string line = results({"9", opt, sub});
      EXPECT_TRUE(line.starts_with(std::string(opt) == "30" ? "ANT INFO: " : "ASDIV DATA: "))
          << opt << " " << line;
      EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << opt;
    }
  }
  const struct {
    const char* opt;
    const char* line;
  } factory[] = {
      {"0",
       "earfcn: 1932, pci: 183, rx_valid: 15, rsrp_rx0: -95.00, rsrq_rx0: -10.75, rssi_rx0: "
       "-66.50, snr_rx0: 17.00, rsrp_rx1: -96.50, rsrq_rx1: -11.25, rssi_rx1: -68.00, snr_rx1: "
       "15.50, rsrp_rx2: -99.50, rsrq_rx2: -12.00, rssi_rx2: -70.50, snr_rx2: 11.75, rsrp_rx3: "
       "-101.50, rsrq_rx3: -12.50, rssi_rx3: -72.00, snr_rx3: 10.50"},
      {"7", "rssi_rx0: -62.50, rssi_rx1: -64.00, rssi_rx2: -66.00, rssi_rx3: -67.75"},
      {"8", "snr_rx0: 21.50, snr_rx1: 20.25, snr_rx2: 18.00, snr_rx3: 17.50"},
      {"10",
       "rsrp_rx0: -89.75, rsrp_rx1: -91.25, rsrp_rx2: -93.75, rsrp_rx3: -95.50, rsrq: -12.25"},
      {"21", "rx_prx: -70.00, rx_drx: -72.25"},
  };
  for (const auto& row : factory) {
    EXPECT_EQ(results({"9", row.opt, "0"}), "ASDIV DATA: " + std::string(row.line) + "\n");
  }
  write_file(folder / "state/stats/0/110", "version=9\nrx_agc_0=-1.005\nrx_agc_1=nan\n");
  EXPECT_EQ(results({"9", "20", "0"}), "ASDIV DATA: rx_agc_0: -1.00, rx_agc_1: nan\n");
  EXPECT_EQ(results({"9", "20", "1"}), "ASDIV DATA: rx_agc_0: -75.50, rx_agc_1: -78.00\n");
  write_file(folder / "state/stats/0/100",
             "ant_number=255\nant_switch_path=65535\nsig_path=1\nold_config=2\nnew_config=3\n");
  EXPECT_EQ(results({"9", "30", "1"}),
            "ANT INFO: ant_num: 255, ant_path: 65535, sig_path: 1, old_config: 2, new_config: 3\n");
  write_file(folder / "state/stats/0/113", "ant_rx_0_old=1\nant_tx_1_new=7\n");
  EXPECT_EQ(results({"9", "9", "0"}),
            "ASDIV DATA: ant_rx_0_old = 1, ant_rx_0_new = 0, ant_rx_1_old = 0, ant_rx_1_new = 0, "
            "ant_rx_2_old = 0, ant_rx_2_new = 0, ant_rx_3_old = 0, ant_rx_3_new = 0, "
            "ant_tx_0_old = 0, ant_tx_0_new = 0, ant_tx_1_old = 0, ant_tx_1_new = 7\n");
  set_property("persist.vendor.velmor.shell_print", "0");
  EXPECT_EQ(tovi({"9", "20", "0"}), "");
  write_file(folder / "state/stats/0/110", "length=8\n");
  EXPECT_EQ(tovi({"9", "20", "0"}), "g_skarn_data_left(3) is not enough for rx_agc_1, id(0x6e)\n");
}

TEST_F(StatsCli, AServiceThatFailsIsSaidAndTheCommandEnds) {
  const auto has = [&](const Args& args, const std::string& text) {
    return tovi(args).find(text) != std::string::npos;
  };
  const std::string deinit = line("modem_api_release", "function exit <-------------");
  EXPECT_TRUE(tovi({"9", "13", "0"}).ends_with(deinit));
  EXPECT_TRUE(has({"9", "13", "0"}, "velmor_test_qmi_modem_stats_hdl: Unknown opt(13), sub(0)\n"));
  EXPECT_TRUE(has({"9", "13", "0"}, line("modem_api_free_client", "client_id 0")));
  variables["TOVI_SIM_FAULTS"] = "e4/3=error:3";
  EXPECT_TRUE(
      has({"9", "20", "0"}, "modem_api_set_skarn_feature_status, start fail, result = 1\n"));
  EXPECT_TRUE(has({"9", "20", "0"}, "ret = 8, sub = 0, id = 110\n"));  // not switched on
  variables["TOVI_SIM_FAULTS"] = "e4=restart";
  EXPECT_TRUE(has({"9", "20", "0"}, "service down with error -2\n"));
  variables.erase("TOVI_SIM_FAULTS");
  variables["TOVI_TIME_SCALE"] = "0.01";
  take_modem_away();
  const std::string out = tovi({"9", "20", "0"});
  EXPECT_NE(out.find("try # 9 port[65535]"), std::string::npos);
  EXPECT_NE(out.find("client type 0, client id 0, operational_status 2\n"), std::string::npos);
  EXPECT_NE(out.find(line("velmor_test_qmi_modem_stats_get", "skarn qmi is not yet inited")),
            std::string::npos);
  EXPECT_TRUE(out.ends_with(deinit));
  EXPECT_EQ(tovi({"9", "0"}), line("velmor_test_qmi_modem_stats_do",
                                   "note: Too few parameters, Pls refer to the following cmd:") +
                                  help("9: velmor"));
}

const std::string kRule = "===========================================\n";

std::string field(int size, const std::string& name, const std::string& value) {
  return "UNPK[size:" + std::to_string(size) + "], " + name + " = " + value + "\n";
}

TEST_F(StatsCli, TheSupportCheckEndsInOneOfThreeBanners) {
  tovi({"9", "0", "0"});  // so that there is a state
  const auto check = [&](const std::string& enabled, const std::string& unsupported) {
    set_debug("version=1\nfeature_enable_status=" + enabled + "\nversion_not_support_num=" +
              unsupported + "\ncmd_ok_count=18446744073709551615\ncmd_fail_count=2\n" +
              "unsupported=0xB193,0xB97F,1\n");
    return results({"7", "1", "0"});
  };
  const auto numbers = [](const std::string& enabled, const std::string& unsupported) {
    return field(1, "version", "1") + field(1, "modem_stats_feature_enable_status", enabled) +
           field(8, "version_not_support_num", unsupported) +
           field(8, "modem_stats_cmd_ok_count", "18446744073709551615") +
           field(8, "modem_stats_cmd_fail_count", "2");
  };
  EXPECT_EQ(check("0", "5"),
            numbers("0", "5") + kRule + "================ CLOSED ===================\n" + kRule);
  EXPECT_EQ(check("1", "0"),
            numbers("1", "0") + kRule + "================ SUCCES ===================\n" + kRule);
  EXPECT_EQ(check("1", "3"), numbers("1", "3") + field(2, "log_num", "3") + kRule +
                                 "================= FAIL ====================\n" + kRule +
                                 "Diag logs to be upgraded[num:3]:\n"
                                 "log_id[0]: 0xB193\nlog_id[1]: 0xB97F\nlog_id[2]: 0x0001\n");
  const std::string f = "velmor_test_modem_stats_get_debug_info_do";
  variables["TOVI_SIM_FAULTS"] = "ffe4=error:1";
  EXPECT_TRUE(tovi({"7", "1", "0"})
                  .ends_with(line(f,
                                  "velmor_common_qmi_req fail, REQUEST_ID_COMMON, result = -3, "
                                  "rsp.result = 0")));
  variables["TOVI_SIM_FAULTS"] = "ffe4#2=error:1";
  EXPECT_TRUE(tovi({"7", "1", "0"})
                  .ends_with(line("velmor_modem_stats_support_status_check",
                                  "velmor_common_qmi_req fail, result = -3, "
                                  "rsp_not_support.result = 0")));
}

TEST_F(StatsCli, DebugInformationOfEveryVersion) {
  tovi({"9", "0", "0"});
  const struct {
    const char* version;
    int ends[4];
    const char* last_main;
    const char* last_diag;
  } rows[] = {
      {"0", {26, 69, 127, 137}, "g_modem_stats_cmd_fail_count", "poll_update_parse_num"},
      {"1", {26, 93, 151, 161}, "g_modem_stats_cmd_fail_count", "nr5g_cell_id_invalid_num"},
      {"2", {50, 137, 195, 205}, "modem_statsi_cmd_free_q_count", "debug_parse_num"},
      {"3", {50, 145, 203, 213}, "modem_statsi_cmd_free_q_count", "cust_event_parse_num"},
      {"4", {58, 153, 211, 221}, "g_skarn_log_stats_mask", "cust_event_parse_num"},
  };
  for (const auto& row : rows) {
    set_debug("version=" + std::string(row.version) + "\nlog_stats_mask=5\n" +
              "uim_event_parse_num=77\n");
    const std::string out = results({"7", "1", "1"});
    const auto marks = [&](const std::string& block, int end) {
      const std::string rule = "-------- stats " + block + " info ";
      return out.find(rule + "start --------\n") != std::string::npos &&
             out.find(rule + "end, cnt(" + std::to_string(end) + ") --------\n") !=
                 std::string::npos;
    };
    EXPECT_TRUE(marks("main", row.ends[0]) && marks("diag", row.ends[1]) &&
                marks("cm", row.ends[2]) && marks("uim", row.ends[3]))
        << out;
    EXPECT_TRUE(out.ends_with(field(4, "listener_event_parse_num", "77") +
                              "-------- stats uim info end, cnt(" + std::to_string(row.ends[3]) +
                              ") --------\n"));
    const auto before = [&](const std::string& name, const std::string& rule) {
      const size_t at = out.find(rule);
      const size_t begin = out.rfind("], ", at) + 3;
      return out.substr(begin, name.size()) == name;
    };
    EXPECT_TRUE(before(row.last_main, "-------- stats main info end")) << out;
    EXPECT_TRUE(before(row.last_diag, "-------- stats diag info end")) << out;
  }
}

TEST_F(StatsCli, Module7RefusesWhatItDoesNotKnow) {
  const std::string f = "velmor_test_modem_stats_parsing_process";
  const std::string few = "note: Too few parameters, Pls refer to the following cmd:";
  EXPECT_EQ(tovi({"7", "0"}),
            line(f, few) + help("7: velmor") + line("velmor_test_modem_stats_do", f + " FAIL"));
  EXPECT_EQ(tovi({"7", "1"}),
            line("velmor_test_modem_stats_get_debug_info", few) + help("7: velmor"));
  EXPECT_EQ(tovi({"7"}), line("velmor_test_modem_stats_do", few) + help("7: velmor"));
  EXPECT_FALSE(exists(folder / "state"));
}

}  // namespace
