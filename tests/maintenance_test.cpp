// Modules 10 and 11 as a person at the shell sees them: configurations, restart, dump, print
// switches, shared memory, timer; and the log.
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <regex>

#include "qmi_client.h"
#include "support/cli_fixture.h"
#include "utilities/qcril_log.h"
#include "utilities/qcril_qmi_err_utils.h"
#include "utilities/velmor_log.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_utils.h"

namespace {

using namespace testing_support;

const std::string kId = "0102030405060708090a0b0c0d0e0f1011121314";
const std::string kActive = "selected=" + kId + "\nactive=" + kId + "\npending=\n";

class Mbn : public Cli {
 protected:
  // The lines about subscriptions that a command logs.
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
};

TEST_F(Mbn, WhoStopsAReactivationStopsItBehindTheActivation) {
  const struct {
    int signal;
    bool is_ignored;
  } rows[] = {{SIGINT, false}, {SIGHUP, false}, {SIGTERM, false}, {SIGHUP, true}};
  variables["TOVI_TRACE"] = "stderr";
  variables["TOVI_SIM_FAULTS"] = "24/23=ind-delay:300";
  for (const auto& row : rows) {
    write_file(folder / "state/pdc/software/0", kActive);
    const auto usual = signal(row.signal, row.is_ignored ? SIG_IGN : SIG_DFL);
    Program program("tovi", {"10", "1", row.is_ignored ? "1" : "3"}, variables);
    signal(row.signal, usual);
    program.wait_for_error_line("deactivate req");
    program.kill(row.signal);
    const Result result = program.wait();
    EXPECT_EQ(result.status, row.is_ignored ? 0 : 128 + row.signal) << row.signal;
    EXPECT_EQ(outcome_in(result.out),
              "SUB_0 pdc_get_current_config ret_val 0|SUB_0 pdc_select_config ret_val 0|"
              "SUB_0 pdc_activate_config ret_val 0|")
        << row.signal;
    EXPECT_EQ(state(0), kActive) << row.signal;
  }
}

class SmartTest : public Cli {
 protected:
  SmartTest() { variables["TOVI_TIME_SCALE"] = "0.01"; }
};

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

TEST_F(Cli, AModuleThatIsEnteredWithTheNumberOfAnotherShowsItsHelp) {
  setenv("TOVI_STATE", (folder / "state").c_str(), 1);
  setenv("TOVI_LOG", (folder / "log").c_str(), 1);
  const std::regex note("note: [^,]*,");
  for (const TestModule& module : velmor_test_modules()) {
    if (module.enter == nullptr) continue;
    const std::string number = std::to_string(module.number);
    const char* argv[] = {"tovi", "99", "0", "0", "0", "0", "0"};
    testing::internal::CaptureStdout();
    module.enter(module.number == 8 ? 3 : 7, const_cast<char**>(argv));
    fflush(stdout);
    EXPECT_EQ(without_lines(testing::internal::GetCapturedStdout()),
              std::regex_replace(tovi({number}), note,
                                 "note: the first parameters should be " + number + ","));
  }
}

TEST(Log, TellsWholeMessagesAndWhoseTheyAre) {
  const ScratchFolder folder;
  setenv("TOVI_STATE", (folder / "state").c_str(), 1);
  setenv("TOVI_LOG", (folder / "log").c_str(), 1);
  LogPlace place(Speaker::here("speaker"), "a/b/file.cpp", 7);
  std::string log, echo;
  testing::internal::CaptureStdout();
  for (const size_t size : {1u, 511u, 512u, 980u, 981u, 982u, 5000u}) {
    const std::string body(size, 'm');
    velmor_log(LogLevel::Error, place, "%s", body.c_str());
    log += "E [maintenance_test][file.cpp:7] speaker: " + body + "\n";
    echo += "RIL[speaker:7]: " + body + "\n";
  }
  velmor_set_qcril_process_instance_id(1);
  place.file = "file.cpp";
  velmor_log(LogLevel::Debug, place, "%d", -5);
  log += "D SUB[1][file.cpp:7] speaker: -5\n";
  echo += "RIL[speaker:7]: -5\n";
  qcril_log_error("tag", "%s", std::string(300, 'm').c_str());
  log += "E tag: " + std::string(255, 'm') + "\n";
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), echo);
  EXPECT_EQ(read_file(folder / "log"), log);
}

TEST(RilResult, IsGoodWithoutAnErrorAndWithoutAnEffect) {
  const struct {
    int transport;
    uint32_t result, error;
    int ril;
  } rows[] = {{0, 0, 0x30, 0}, {-2, 0, 0, 0},    {0, 1, 0, 0}, {0, 1, 0x1A, 0},
              {0, 1, 0x1B, 2}, {-2, 1, 0x30, 2}, {0, 2, 0, 2}, {-1, 0, 0, 2}};
  for (const auto& row : rows) {
    const qmi_response_type_v01 response{row.result, row.error};
    EXPECT_EQ(qcril_qmi_util_convert_qmi_response_codes_to_ril_result(row.transport, &response),
              row.ril)
        << row.transport << " " << row.error;
  }
  EXPECT_EQ(qcril_qmi_util_convert_qmi_response_codes_to_ril_result(0, nullptr), 0);
  EXPECT_EQ(qcril_qmi_util_convert_qmi_response_codes_to_ril_result(-1, nullptr), 2);
}

}  // namespace
