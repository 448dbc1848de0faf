// tovictl as scripts use it: files, statuses.
#include <fcntl.h>
#include <math.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "gtest/gtest.h"
#include "report.h"
#include "support/fake_modem.h"
#include "support/tool.h"

namespace testing_support {
namespace {

class Ctl : public testing::Test {
 protected:
  Result ctl(const Args& args) { return run("tovictl", args, variables); }

  ScratchFolder folder;
  Variables variables = {{"TOVI_STATE", folder / "state"}, {"TOVI_LOG", folder / "log"}};
};

// It keeps its own output and that of the libraries apart, which takes two descriptors.
TEST_F(Ctl, WithoutADescriptorForItItSaysWhy) {
  for (int limit = 3; limit < 8; ++limit) {
    const std::string script =
        "ulimit -n " + std::to_string(limit) + "; exec " TOVI_BUILD_FOLDER "/tovictl get 550";
    const Result result = run("/bin/sh", {"-c", script}, variables);
    // A sanitizer, and a loader of shared libraries, need some themselves.
    if (result.err.find("Sanitizer") != std::string::npos || result.status == 127) continue;
    EXPECT_TRUE(result.status > 0 && result.status < 10) << limit << " " << result.status;
    EXPECT_TRUE(result.err.starts_with("tovi")) << result.err;
  }
}

// Every file of a folder but the manifest, by its path.
std::map<std::string, std::string> tree(const std::string& root) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    const std::string path = entry.path();
    if (!entry.is_regular_file() || path.ends_with("manifest.json")) continue;
    files[path.substr(root.size())] = read_file(path);
  }
  return files;
}

TEST_F(Ctl, AnInterruptedSaveContinuesAndEndsEqual) {
  ctl({"get", "550"});
  for (int id = 300; id < 800; ++id) {
    write_file(folder / ("state/nv/1/" + std::to_string(id)), std::to_string(id));
  }
  const auto save = [&](const std::string& to) {
    return Args{"save", folder / to, "--nv", "0-1200"};
  };
  ASSERT_EQ(ctl(save("whole")).status, 0);
  for (const int ms : {2, 9, 20, 40}) {
    Program cut("tovictl", save("cut"), variables);
    usleep(static_cast<useconds_t>(ms * 1000));
    cut.kill(SIGKILL);
    cut.wait();
  }
  const int status = ctl(save("cut")).status;
  EXPECT_TRUE(status == 0 || status == 2) << status;  // 2: it was complete before
  EXPECT_EQ(tree(folder / "cut"), tree(folder / "whole"));
  EXPECT_EQ(ctl({"diff", folder / "cut", folder / "whole"}).status, 0);

  // What cannot be read is told, and is neither difference nor loss.
  variables["TOVI_SIM_FAULTS"] = "extend/nv_read#9=result:4";
  const Args holey = {"--json", "save", folder / "holey", "--nv", "0-20"};
  EXPECT_NE(ctl(holey).out.find("4 (not stored)"), std::string::npos);
  variables.erase("TOVI_SIM_FAULTS");
  EXPECT_EQ(ctl({"diff", folder / "holey"}).status, 0);
}

TEST_F(Ctl, TheDoctorAndACommandNameTheCause) {
  FakeModem mute(folder / "mute"), other(folder / "other");
  mute.answer_lookups(false);
  other.add_service(0xFFE4, 9, 2);
  Program device("tovi-modem", {"serve", "--qmux", folder / "wdm"}, variables);
  device.wait_for_error_line("ready\n");
  const qmi::Descriptor used(posix_openpt(O_RDWR | O_NOCTTY));
  char name[64];
  ASSERT_TRUE(unlockpt(used.get()) == 0 && ptsname_r(used.get(), name, sizeof name) == 0);
  ASSERT_EQ(symlink(name, (folder / "busy").c_str()), 0);
  const qmi::Descriptor user(open(name, O_RDWR | O_NOCTTY));
  ASSERT_EQ(flock(user.get(), LOCK_EX), 0);
  const struct {
    std::string scheme, name;
    Args args;
    int status;
    std::string last_words;
  } rows[] = {
      {"unix:", "mute", {"doctor"}, 5, " does not answer\n"},
      {"unix:", "other", {"doctor"}, 4, "wrong: extension: only version 2 on node 0: not used\n"},
      {"qmux:", "wdm", {"doctor", "--ask"}, 0, "nothing is wrong\n"},
      {"qmux:", "busy", {"doctor"}, 3, "programs share it through qmux-proxy:PATH\n"},
      {"unix:", "mute", {"run", "4", "1", "0", "550"}, 5, "/mute is mute\n"},
      {"unix:", "other", {"run", "4", "1", "0", "550"}, 4, "is there in version 2 only, not 1\n"},
  };
  variables["TOVI_TIME_SCALE"] = "0.1";
  for (const auto& row : rows) {
    variables["TOVI_MODEM"] = row.scheme + (folder / row.name);
    const Result result = ctl(row.args);
    const std::string& said = row.args[0] == "run" ? result.err : result.out;
    EXPECT_EQ(result.status, row.status) << row.name << said;
    EXPECT_TRUE(said.ends_with(row.last_words)) << row.name << "\n" << said;
  }
}

// TOVI_TEST_UPDATE=1 writes the page anew: look at it in a browser before it is kept.
TEST(CtlReport, IsDrawnToTheByte) {
  ctl::Report report;
  for (int i = 0; i < 2000; ++i) {
    const double seconds = i * 0.5, wave = i % 40 < 20 ? i % 20 : 20 - i % 20;
    if (i > 600 && i < 700) continue;
    report.add("lte: 4G", "", "earfcn", seconds, 1932);
    report.add("lte: 4G", "", "pci", seconds, 183.25);
    report.add("lte: 4G", "dBm", "rsrp_rx0", seconds, -95 - wave);
    report.add("lte: 4G", "dBm", "rsrp_rx1", seconds, i == 1000 ? NAN : -97.5 - wave / 2);
    report.add("lte: 4G", "", "path_", seconds, wave);
    report.add("gsm: GSM", "dBm", "none", seconds, NAN);
  }
  report.away(300.5, 349.5);
  report.away(900, 900.1);
  ctl::Report brief;
  brief.add("ant", "", "ant_tx_0", 0, 1);
  brief.add("ant", "", "ant_tx_0", 2.5, 3);
  const std::string drawn = report.page("long", "then") + brief.page("short", "now");
  const std::string golden = TOVI_TEST_DATA "/golden/report.html";
  expect_golden(golden, drawn);
}

}  // namespace
}  // namespace testing_support
