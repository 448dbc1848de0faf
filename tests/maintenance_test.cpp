// Modules 10 and 11 as a person at the shell sees them: configurations, restart, dump, print
// switches, shared memory, timer.
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "support/cli_fixture.h"
#include "velmor_utils.h"

namespace {

using namespace testing_support;

const std::string kFirst = "0102030405060708090a0b0c0d0e0f1011121314";
const std::string kSecond = "1112131415161718191a1b1c1d1e1f2021222324";

std::string selection(const std::string& selected, const std::string& active,
                      const std::string& pending = "") {
  return "selected=" + selected + "\nactive=" + active + "\npending=" + pending + "\n";
}

class Mbn : public Cli {
 protected:
  // The lines about subscriptions that a command logs; it must end well.
  std::string outcome(const Args& args) {
    const Result result = run("tovi", args, variables);
    EXPECT_EQ(result.status, 0);
    error = result.err;
    return outcome_in(result.out);
  }
  static std::string outcome_in(const std::string& out) {
    std::string lines;
    for (size_t at = 0; (at = out.find("SUB_", at)) != std::string::npos;) {
      const size_t end = out.find('\n', at);
      lines += out.substr(at, end - at) + "|";
      at = end;
    }
    return lines;
  }
  std::string state(int sub) {
    return read_file(folder / "state/pdc/software/" + std::to_string(sub));
  }

  static std::string refreshed(int sub) {
    return "SUB_" + std::to_string(sub) + " pdc_activate_config_ex ret 0|";
  }
  static std::string reactivated(int sub, int read = 0, int select = 0, int activate = 0) {
    const std::string s = "SUB_" + std::to_string(sub) + " ";
    const std::string first = s + "pdc_get_current_config ret_val " + std::to_string(read) + "|";
    if (read != 0) return first + s + "pdc_get_current_config fail|";
    return first + s + "pdc_select_config ret_val " + std::to_string(select) + "|" + s +
           "pdc_activate_config ret_val " + std::to_string(activate) + "|";
  }
  static std::string left_without(int sub, const std::string& id) {
    return "tovi: subscription " + std::to_string(sub) + " may be left without its configuration " +
           id + "\n";
  }

  std::string error;  // what the last command said there
};

TEST_F(Mbn, BothSubscriptionsAreRefreshedAndReactivated) {
  EXPECT_EQ(outcome({"10", "0", "1"}), refreshed(0));
  EXPECT_EQ(outcome({"10", "0", "2"}), refreshed(1));
  EXPECT_EQ(outcome({"10", "0", "3"}), refreshed(0) + refreshed(1));
  EXPECT_EQ(outcome({"10", "1", "1"}), reactivated(0));
  EXPECT_EQ(outcome({"10", "1", "3"}), reactivated(0) + reactivated(1));
  EXPECT_EQ(state(0), selection(kFirst, kFirst));
  EXPECT_EQ(state(1), selection(kSecond, kSecond));
  write_file(folder / "state/pdc/software/0", selection("", kFirst));
  EXPECT_EQ(outcome({"10", "1", "3"}), reactivated(0, -6));
  write_file(folder / "state/pdc/software/0", selection(kFirst, "", kFirst));
  EXPECT_EQ(outcome({"10", "1", "3"}), reactivated(0, -6));
  EXPECT_EQ(state(1), selection(kSecond, kSecond));
  EXPECT_EQ(error, "");
  write_file(folder / "state/pdc/software/1", selection("990a", "990a"));  // one it does not hold
  EXPECT_EQ(outcome({"10", "1", "2"}), reactivated(1, 0, -1));
  EXPECT_EQ(error, left_without(1, "990a"));
  EXPECT_EQ(state(1), selection("", ""));
}

TEST_F(Mbn, WhateverTheModemDoesToAReactivationHasADocumentedEnd) {
  const struct {
    std::string faults;
    std::string lines;
    bool is_left = false;
  } rows[] = {
      {"24/22=error:3", reactivated(0, -1)},
      {"24/22=drop", reactivated(0, -1)},
      {"24/22=no-ind", reactivated(0, -1)},
      {"24/22=ind-delay:60000", reactivated(0, -1)},
      {"24/22=ind-other:0x23", reactivated(0, -1)},
      {"24/2b=ind-other:0x23", reactivated(0)},
      {"24/2b=ind-delay:60000", reactivated(0)},
      {"24/23=no-ind", reactivated(0, 0, -1), true},
      {"24/23=ind-first", reactivated(0)},
      {"24/23=ind-delay:60000", reactivated(0, 0, -1), true},
      {"24/22=ind-delay:1000", reactivated(0)},
      {"24/22=ind-first", reactivated(0)},
      {"24=ind-twice", reactivated(0)},
      {"24/22=restart", reactivated(0, -1)},
      {"24/2b=error:3", reactivated(0)},
      {"24/2b=no-ind", reactivated(0)},
      {"24/2b=drop", reactivated(0)},
      {"24/2b=restart", reactivated(0, 0, -1, -1), true},
      {"24/23=error:3;24/27=drop", reactivated(0, 0, -1, -1), true},
      {"24/23=restart", reactivated(0, 0, -1, -1), true},
      {"24/27=restart", reactivated(0, 0, 0, -1), true},
      {"24/27=error:3", reactivated(0)},
      {"ffe4=drop", reactivated(0)},
  };
  // Side by side, since most of them wait: each with a modem of its own.
  std::vector<std::unique_ptr<Program>> programs;
  variables["TOVI_TIME_SCALE"] = "0.2";
  for (const auto& row : rows) {
    variables["TOVI_SIM_FAULTS"] = row.faults;
    variables["TOVI_STATE"] = folder / ("state" + std::to_string(programs.size()));
    programs.push_back(std::make_unique<Program>("tovi", Args{"10", "1", "1"}, variables));
  }
  for (size_t i = 0; i < programs.size(); ++i) {
    const Result result = programs[i]->wait();
    EXPECT_EQ(outcome_in(result.out), rows[i].lines) << rows[i].faults;
    EXPECT_EQ(result.err, rows[i].is_left ? left_without(0, kFirst) : "") << rows[i].faults;
  }
}

TEST_F(Mbn, WhoStopsAReactivationStopsItBehindTheActivation) {
  const struct {
    int signal;
    bool is_ignored;
  } rows[] = {{SIGINT, false}, {SIGHUP, false}, {SIGTERM, false}, {SIGHUP, true}};
  variables["TOVI_TRACE"] = "stderr";
  variables["TOVI_SIM_FAULTS"] = "24/23=ind-delay:300";
  for (const auto& row : rows) {
    write_file(folder / "state/pdc/software/0", selection(kFirst, kFirst));
    const auto usual = signal(row.signal, row.is_ignored ? SIG_IGN : SIG_DFL);
    Program program("tovi", {"10", "1", row.is_ignored ? "1" : "3"}, variables);
    signal(row.signal, usual);
    program.wait_for_error_line("deactivate req");
    program.kill(row.signal);
    const Result result = program.wait();
    EXPECT_EQ(result.status, row.is_ignored ? 0 : 128 + row.signal) << row.signal;
    EXPECT_EQ(outcome_in(result.out), reactivated(0)) << row.signal;
    EXPECT_EQ(state(0), selection(kFirst, kFirst)) << row.signal;
  }
}

TEST_F(Mbn, WrongArgumentsAndAModemThatIsNotThere) {
  const std::string f = "velmor_test_mbn_do";
  EXPECT_EQ(tovi({"10", "1"}),
            line(f, "note: Too few parameters, Pls refer to the following cmd:") +
                help("10: velmor mbn"));
  for (const char* mask : {"0", "4", "-1"}) {
    EXPECT_EQ(
        tovi({"10", "0", mask}),
        line(f, "note: sub_mask(" + std::string(mask) + ") is invalid:") + help("10: velmor mbn"));
  }
  EXPECT_FALSE(exists(folder / "state"));
  const std::string unknown = tovi({"10", "2", "1"});
  EXPECT_NE(unknown.find("qmi_client_init succeeds for PDC"), std::string::npos);
  EXPECT_TRUE(unknown.ends_with(line(f, "invalid mbn_i = 2") + help("10: velmor mbn")));

  take_modem_away();
  variables["TOVI_TIME_SCALE"] = "0.0001";
  const std::string out = tovi({"10", "1", "1"});
  for (int i = 0; i < 20; ++i) {
    EXPECT_NE(out.find("for PDC, retry times " + std::to_string(i) + "\n"), std::string::npos);
  }
  EXPECT_TRUE(
      out.ends_with(line("velmor_mbn_init", "pdc init failed, g_velmor_pdc_init_status = -1") +
                    line("velmor_mbn_init", "function exit <-------------") +
                    line(f, "pdc init failed, do nothing") + help("10: velmor mbn")));

  set_property("persist.vendor.velmor.shell_print", "0");
  variables.erase("TOVI_MODEM");
  EXPECT_EQ(tovi({"10", "0", "1"}), line("qmi_pdc_init_pdc_info", "pdc_info init done"));
}

class SmartTest : public Cli {
 protected:
  SmartTest() { variables["TOVI_TIME_SCALE"] = "0.01"; }
  std::string getprop(const std::string& name) {
    return run("tovi-modem", {"getprop", name}, variables).out;
  }
  // The common requests that a command sends, by type.
  std::string requests(const Args& args) {
    write_file(folder / "trace", "");
    variables["TOVI_TRACE"] = folder / "trace";
    tovi(args);
    variables.erase("TOVI_TRACE");
    const std::string trace = read_file(folder / "trace");
    const std::string common = " {form = 2, reserved = 0, ";
    std::string all;
    for (size_t at = 0; (at = trace.find(common, at)) != std::string::npos;) {
      at += common.size();
      all += trace.substr(at, trace.find('\n', at) - at) + "|";
    }
    return all;
  }
  const std::string efs = folder / "state/efs/0";
};

const std::string kSsr = "type = 31, length = 4, value = 496 bytes: 00 10 00*494}|";
const std::string kSync = "type = 35, length = 0, value = 496 bytes: 00*496}|";
const std::string kDump = "type = 99, length = 4, value = 496 bytes: 00 20 00*494}|";

TEST_F(SmartTest, RestartSyncAndDumpAreRequested) {
  EXPECT_EQ(requests({"11", "0"}), kSsr);
  EXPECT_EQ(requests({"11", "2"}), kSync);
  EXPECT_EQ(said({"11", "0"}, "velmor_smart_test_modem_ssr"), "Will trigger SSR of modem|");
}

TEST_F(SmartTest, ADumpSwitchesRestartsOffOnce) {
  const std::string count = efs + "/nv/item_files/modem/velmor/ssr_update_count";
  const std::string level = "persist.vendor.ssr.restart_level", f = "velmor_smart_test_full_dump";
  const auto will = [](const std::string& current, const std::string& backup) {
    return "Will trigger Full Dump, the current state: " + current +
           ", the default state: " + backup + "|";
  };
  EXPECT_EQ(said({"11", "1"}, f),
            "need to save ssr state|" + will("ALL_ENABLE", "") + "need to close ssr|");
  EXPECT_EQ(read_file(count), std::string("\x01\0\0\0", 4));
  EXPECT_EQ(getprop(level), "ALL_DISABLE\n");
  EXPECT_EQ(getprop(level + "_bak"), "ALL_ENABLE\n");
  EXPECT_EQ(requests({"11", "1"}), kDump);
  EXPECT_EQ(said({"11", "1"}, f), will("ALL_DISABLE", "ALL_ENABLE"));
  EXPECT_EQ(read_file(count), std::string("\x01\0\0\0", 4));

  const struct {
    const char* wait;
    std::string requests, said;
  } rows[] = {
      {"-1", "", "ssr wait_s = -1|modem ssr will not wait|"},
      {"0", kDump, "ssr wait_s = 0|modem ssr will not wait|"},
      {"2", kDump, "ssr wait_s = 2|wait-start(2s) ...|wait-end(2s)|"},
      {"", kDump, "ssr wait_s = 5|wait-start(5s) ...|wait-end(5s)|"},
  };
  for (const auto& row : rows) {
    set_property("persist.radio.ssr_wait_s", row.wait);
    set_property(level, "ALL_ENABLE");
    EXPECT_EQ(requests({"11", "1"}), row.requests);
    set_property(level, "something");
    EXPECT_EQ(said({"11", "1"}, "velmor_smart_test_ssr_wait_s"), row.said);
    EXPECT_EQ(getprop(level), "ALL_DISABLE\n");
  }
  EXPECT_EQ(read_file(count), std::string("\x09\0\0\0", 4));
}

TEST_F(SmartTest, APropertyThatCannotBeSetIsSaidOnce) {
  const std::string file = folder / "state/properties";
  write_file(file + "/in_the_way", "");
  const auto problem = [&](const std::string& name) {
    return "the property " + name + " is not set: " + file + ": Is a directory\n";
  };
  const struct {
    const char* program;
    Args args;
    int status;
    std::string property;
  } rows[] = {
      {"tovi", {"11", "1"}, 0, "persist.vendor.ssr.restart_level_bak"},  // the first of two
      {"tovi", {"11", "3", "1"}, 0, "persist.vendor.radio.print_stats"},
      {"tovi-modem", {"setprop", "a.b", "1"}, 1, "a.b"},
  };
  for (const auto& row : rows) {
    const Result result = run(row.program, row.args, variables);
    EXPECT_EQ(result.status, row.status);
    EXPECT_EQ(result.err, std::string(row.program) + ": " + problem(row.property));
  }
}

TEST_F(SmartTest, PrintSwitchesAreFilesThatTheModemReadsAtItsStart) {
  const struct {
    const char* command;
    const char* function;
    const char* name;
    std::string file, content;
  } rows[] = {
      {"4", "velmor_smart_test_bp_skarn_print_switch", "bp_skarn_print",
       efs + "/skarn/skarn_print_mask", std::string("\x1f\0\0\0", 4)},
      {"5", "velmor_smart_test_bp_qmi_print_switch", "bp_qmi_print",
       efs + "/nv/item_files/modem/velmor/qmi_print_flag", "\x01"},
      {"6", "velmor_smart_test_bp_rf_print_switch", "bp_rf_print",
       efs + "/nv/item_files/modem/velmor/rf_print_mask", std::string("\x0f\0\0\0", 4)},
  };
  for (const auto& row : rows) {
    const std::string name = row.name, done = "|success, pls wait 10 seconds |";
    EXPECT_EQ(said({"11", row.command, "1"}, row.function), name + ", opt = 1" + done);
    EXPECT_EQ(read_file(row.file), row.content);
    EXPECT_EQ(requests({"11", row.command, "0"}), kSync + kSsr);
    EXPECT_FALSE(exists(row.file));
    EXPECT_EQ(requests({"11", row.command, "0"}), "");  // nothing to delete: no restart
    EXPECT_EQ(said({"11", row.command, "0"}, row.function),
              name + ", opt = 0|velmor_efs_delete failed|");
  }
  variables["TOVI_SIM_FAULTS"] = "ffe4=error:1";
  EXPECT_EQ(said({"11", "5", "1"}, "velmor_smart_test_bp_qmi_print_switch"),
            "bp_qmi_print, opt = 1|velmor_efs_write failed|");
  EXPECT_EQ(said({"11", "3", "1"}, "velmor_smart_test_ap_skarn_switch"),
            "ap_skarn_print, opt = 1|success, need to reboot|");
  EXPECT_EQ(getprop("persist.vendor.radio.print_stats"), "1\n");
  tovi({"11", "3", "0"});
  EXPECT_EQ(getprop("persist.vendor.radio.print_stats"), "2\n");
}

TEST_F(SmartTest, ARestartTakesTheServicesDownAndUpADumpDown) {
  variables["TOVI_TIME_SCALE"] = "3";  // of the modem: the services are away for 0.9 s
  Program server("tovi-modem", {"serve", "--unix", folder / "socket"}, variables);
  server.wait_for_error_line("tovi-modem: ready\n");
  variables["TOVI_MODEM"] = "unix:" + (folder / "socket");
  const auto answers = [&] {
    Variables hasty = variables;
    hasty["TOVI_TIME_SCALE"] = "0.001";  // nobody waits for a service
    const std::string out = run("tovi", {"4", "1", "0", "550"}, hasty).out;
    return out.find("data len(9)") != std::string::npos;
  };
  // Looks until the services are there or not; at most so often, 20 ms apart.
  const auto becomes = [&](bool there, int looks) {
    for (int i = 0; i < looks; ++i) {
      if (answers() == there) return true;
      usleep(20000);
    }
    return false;
  };
  variables.erase("TOVI_TIME_SCALE");
  tovi({"11", "0"});
  EXPECT_TRUE(becomes(false, 200));
  EXPECT_TRUE(becomes(true, 200));
  set_property("persist.vendor.ssr.restart_level", "ALL_DISABLE");
  set_property("persist.radio.ssr_wait_s", "0");
  tovi({"11", "1"});
  EXPECT_TRUE(becomes(false, 200));
  EXPECT_FALSE(becomes(true, 50));
  server.kill(SIGTERM);
  server.wait();
}

TEST_F(SmartTest, SharedMemoryShowsItsFirstFiveBytes) {
  const std::string f = "velmor_smart_test_sh_test_read";
  const std::string file = folder / "state/device/data/vendor/modem/share_memory";
  const auto shown = [&](const std::string& bytes_shown) {
    std::string out = said({"11", "7"}, f);
    const size_t at = out.find("open, fd: "), map = out.find("data_ptr: 0x");
    out.erase(map + 12, 8);
    out.erase(at + 10, out.find('|', at) - at - 10);
    EXPECT_EQ(out,
              "function entry ------------->|g_share_memory_file_path: "
              "/data/vendor/modem/share_memory|open, fd: |ftruncate, ret: 0|"
              "mmap, data_ptr: 0x|" +
                  bytes_shown + "munmap, ret: 0|close fd|function exit <-------------|");
  };
  shown("data_ptr[0]: 1|data_ptr[1]: 2|data_ptr[2]: 3|data_ptr[3]: 4|data_ptr[4]: 5|");
  write_file(file, "\xff");
  shown("data_ptr[0]: 255|data_ptr[1]: 0|data_ptr[2]: 0|data_ptr[3]: 0|data_ptr[4]: 0|");
  EXPECT_EQ(read_file(file).size(), 100u);
  set_property("persist.vendor.velmor.shell_print", "0");
  EXPECT_EQ(tovi({"11", "7"}), line(f, "close fd"));  // an error, as it is marked
  set_property("persist.vendor.velmor.shell_print", "1");
  variables["TOVI_DEVICE_ROOT"] = folder / "nowhere";
  EXPECT_EQ(said({"11", "7"}, f),
            "function entry ------------->|g_share_memory_file_path: "
            "/data/vendor/modem/share_memory|open, fd: -1|shm_open error|"
            "function exit <-------------|");
}

TEST_F(SmartTest, TheTimerTestCountsSecondsUntilTheTimerExpires) {
  const std::string f = "velmor_smart_test_velmor_timer", expired = "The timer expired with ID 1";
  const auto start = [&](const std::string& s) {
    return line(f, "Timer test start, timeout_s = " + s) +
           line(f, "Start one timer(timer_id 1), will pause until this timer is expired ...");
  };
  variables["TOVI_TIME_SCALE"] = "0.5";
  EXPECT_EQ(tovi({"11", "8", "0"}), start("0") + line("velmor_tovi_delay_timer_cb", expired) +
                                        line(f, "1 second has passed") +
                                        line(f, "Timer test done"));
  const std::string out = tovi({"11", "8", "2"});
  EXPECT_TRUE(out.starts_with(start("2") + line(f, "1 second has passed"))) << out;
  EXPECT_NE(out.find(line(f, "2 seconds have passed")), std::string::npos);
  EXPECT_TRUE(out.ends_with(line(f, "Timer test done")));

  const std::string few = "note: Too few parameters, Pls refer to the following cmd:";
  const struct {
    Args args;
    std::string note;
  } rows[] = {
      {{"11"}, few},
      {{"11", "3"}, few},
      {{"11", "8"}, few},
      {{"11", "5", "2"}, "note: opt(2) is invalid:"},
      {{"11", "9"}, "invalid par_i = 9"},
      {{"11", "-1"}, "invalid par_i = -1"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(tovi(row.args), line("velmor_smart_test_do", row.note) + help("11: smart test"));
  }
}

TEST(PrintFlags, AreThoseOfTheMomentForEveryMessage) {
  ScratchFolder folder;
  setenv("TOVI_STATE", (folder / "state").c_str(), 1);
  std::filesystem::create_directory(folder / "state");
  const std::string off = folder / "off", file = folder / "state/properties";
  write_file(off, "persist.vendor.velmor.print=0\npersist.vendor.velmor.shell_print=0\n");
  int stale = 0;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(link(off.c_str(), file.c_str()), 0);
    velmor_print_flags flags = velmor_utils_get_print_flags();
    stale += flags.print != 0 || flags.shell_print != 0;
    ASSERT_EQ(unlink(file.c_str()), 0);
    flags = velmor_utils_get_print_flags();
    stale += flags.print != 1 || flags.shell_print != 1;
  }
  EXPECT_EQ(stale, 0);
}

}  // namespace
