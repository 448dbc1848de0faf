// tovictl as scripts use it: files, statuses.
#include <fcntl.h>
#include <math.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <sstream>

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

std::string pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
  return bytes;
}

TEST_F(Ctl, ContentOfEverySizeGoesThereAndBack) {
  const struct {
    const char* target;
    size_t size;
    int status;
  } rows[] = {
      {"/f", 0, 0},   {"/f", 1, 0},   {"/f", 413, 0},  {"/f", 414, 0},    {"/f", 415, 0},
      {"/f", 424, 0}, {"/f", 425, 0}, {"/f", 4096, 0}, {"/f", 102410, 0}, {"/f", 102411, 2},
      {"77", 1, 0},   {"77", 424, 0}, {"77", 0, 2},    {"77", 425, 2},
  };
  for (const auto& row : rows) {
    const std::string what = std::string(row.target) + " of " + std::to_string(row.size);
    const std::string bytes = pattern(row.size);
    write_file(folder / "in", bytes);
    EXPECT_EQ(ctl({"put", row.target, folder / "in", "--sub", "1"}).status, row.status) << what;
    const std::string held = *row.target == '/' ? "state/efs/1/f" : "state/nv/1/77";
    EXPECT_EQ(exists(folder / held) && read_file(folder / held) == bytes, row.status == 0) << what;
    if (row.status != 0) continue;
    const Result got = ctl({"get", row.target, "--sub", "1"});
    EXPECT_EQ(got.status, 0) << got.err;
    EXPECT_EQ(got.out, bytes) << what;
    EXPECT_EQ(ctl({"get", row.target, "--sub", "1", "-o", folder / "out"}).status, 0);
    EXPECT_EQ(read_file(folder / "out"), bytes) << what;
  }
}

TEST_F(Ctl, OneAtATimeChangesAModem) {
  variables["TOVI_SIM_FAULTS"] = "extend#1=delay:300";
  Program first("tovictl", {"put", "/a", "hex:01"}, variables);
  // Until the first has the lock.
  while (!exists(folder / "state/efs/0/a")) usleep(1000);
  variables.erase("TOVI_SIM_FAULTS");
  EXPECT_EQ(ctl({"put", "/a", "hex:02"}).status, 9);
  EXPECT_EQ(ctl({"get", "/a"}).status, 0);
  EXPECT_EQ(ctl({"--wait", "put", "/a", "hex:02"}).status, 0);
  EXPECT_EQ(first.wait().status, 0);
  EXPECT_EQ(ctl({"get", "/a"}).out, "\x02");
}

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

TEST_F(Ctl, ABackupAnswersAsTheModemDidAndBringsItBack) {
  const std::string backup = folder / "backup";
  ASSERT_EQ(ctl({"put", "/a/b", "hex:0102"}).status, 0);
  write_file(folder / "paths", "# beside the known ones\n/a/b\n/none\n");
  const Args save = {"save", backup, "--nv", "0-700", "--paths", folder / "paths"};
  ASSERT_EQ(ctl(save).status, 0);
  EXPECT_EQ(ctl(save).status, 2) << "complete already";
  const auto of_modem = [&](const std::string& state) {
    return run("tovi", {"4", "1", "1", "550"}, {{"TOVI_STATE", state}, {"TOVI_LOG", "/dev/null"}});
  };
  EXPECT_EQ(of_modem(backup).out, of_modem(folder / "state").out);
  EXPECT_EQ(of_modem(backup).out.find("fail"), std::string::npos);
  EXPECT_EQ(ctl({"diff", backup}).out, "");
  EXPECT_EQ(ctl({"restore", backup}).status, 8);

  write_file(folder / "state/nv/1/77", "x");
  write_file(folder / "state/efs/0/a/b", "longer");
  std::filesystem::remove(folder / "state/nv/0/10");
  const Result differs = ctl({"diff", backup});
  EXPECT_EQ(differs.status, 7);
  EXPECT_EQ(differs.out,
            "removed NV item 10 of subscription 0: 3 bytes, now nothing\n"
            "changed /a/b of subscription 0: 2 bytes, now 6 bytes\n"
            "added NV item 77 of subscription 1: nothing, now 1 bytes\n");
  EXPECT_EQ(ctl({"--yes", "restore", backup}).status, 0);
  EXPECT_EQ(ctl({"diff", backup}).status, 0);

  // Another device gets the rest and stays itself.
  const std::string other = "\x08\x0a\x10\x10\x32\x54\x76\x98\x03";
  write_file(folder / "state/nv/0/550", other);
  write_file(folder / "state/nv/0/10", "new");
  EXPECT_EQ(ctl({"--yes", "restore", backup}).status, 7);
  EXPECT_EQ(read_file(folder / "state/nv/0/10"), "new");
  EXPECT_EQ(ctl({"--yes", "restore", backup, "--other-device"}).status, 0);
  EXPECT_EQ(read_file(folder / "state/nv/0/550"), other);
  EXPECT_EQ(ctl({"diff", backup}).out,
            "changed NV item 550 of subscription 0: 9 bytes, now 9 bytes\n");

  // A folder that cannot be read is not one without items, which a restore would delete.
  std::filesystem::remove_all(backup + "/nv/0");
  std::filesystem::create_symlink("0", backup + "/nv/0");
  EXPECT_EQ(ctl({"--yes", "restore", backup, "--other-device"}).status, 2);
}

TEST_F(Ctl, AFileIsReplacedBehindItsLinkAndKeepsItsMode) {
  write_file(folder / "file", "old");
  std::filesystem::permissions(folder / "file", std::filesystem::perms::owner_all);
  std::filesystem::create_symlink("file", folder / "link");
  std::filesystem::create_hard_link(folder / "file", folder / "before");
  EXPECT_EQ(ctl({"get", "550", "-o", folder / "link"}).status, 0);
  EXPECT_EQ(read_file(folder / "file").size(), 9u);
  EXPECT_EQ(std::filesystem::status(folder / "file").permissions(),
            std::filesystem::perms::owner_all);
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(read_file(folder / "before"), "old") << "it was not written into";
  EXPECT_EQ(ctl({"get", "550", "-o", "/dev/full"}).status, 2);
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

TEST_F(Ctl, TheDoctorNamesTheCause) {
  write_file(folder / "plain", "");
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
    const char* modem;
    int status;
    const char* last_line;
    const char* faults = "";
    Args more = {};
  } rows[] = {
      {"sim", 0, "nothing is wrong\n"},
      {"sim", 0, "nothing is wrong\n", "", {"--ask"}},
      {"unix:@nobody", 3, ": no such socket\n"},
      {"unix:@plain", 3, ": not a socket\n"},
      {"unix:@mute", 5, " does not answer\n"},
      {"unix:@other", 4, "wrong: extension: only version 2 on node 0: not used\n"},
      {"sim", 4, "wrong: no PDC service; it is for configurations: module 10\n", "pdc=absent"},
      {"sim", 1, "the UIM service: 94 (NOT_SUPPORTED)\n", "uim=error:94", {"--ask"}},
      {"sim", 5, "the SAR service: no answer\n", "sar=drop", {"--ask", "--timeout", "0.1"}},
      {"what", 3, "a TOVI_ variable cannot be used\n"},
      {"qmux:@wdm", 0, "nothing is wrong\n", "", {"--ask"}},
      {"qmux:@busy", 3, "programs share it through qmux-proxy:PATH\n"},
      {"qmux:@none", 3, ": no such device: is the modem there?\n"},
      {"qmux-proxy:@plain", 3, ": not a character device\n"},
      {"qmux:/dev/null", 5, "wrong: names: no modem answers behind it\n"},
  };
  for (const auto& row : rows) {
    std::string modem = row.modem;
    if (const size_t at = modem.find('@'); at != std::string::npos)
      modem.replace(at, 1, folder / "");
    Variables with = variables;
    with["TOVI_MODEM"] = modem;
    with["TOVI_SIM_FAULTS"] = row.faults;
    Args args = row.more;
    args.insert(args.begin(), "doctor");
    const Result result = run("tovictl", args, with);
    EXPECT_EQ(result.status, row.status) << modem << result.out;
    EXPECT_TRUE(result.out.ends_with(row.last_line)) << modem << "\n" << result.out;
  }

  // So does a command that gets no client.
  const struct {
    const char* modem;
    int status;
    std::string cause;
  } commands[] = {
      {"nobody", 3, "nobody at unix:" + folder.path() + "/nobody"},
      {"mute", 5, "the name service of unix:" + folder.path() + "/mute is mute"},
      {"other", 4, "the extension service is there in version 2 only, not 1"},
  };
  for (const auto& row : commands) {
    Variables with = variables;
    with["TOVI_MODEM"] = "unix:" + (folder / row.modem);
    with["TOVI_TIME_SCALE"] = "0.01";
    const Result result = run("tovictl", {"run", "4", "1", "0", "550"}, with);
    EXPECT_EQ(result.status, row.status);
    EXPECT_TRUE(result.err.ends_with(": " + row.cause + "\n")) << result.err;
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

TEST_F(Ctl, AWatchTellsARestartAndOutlivesIt) {
  variables["TOVI_SIM_FAULTS"] = "vs/get_stats#3=restart:50;vs/get_stats#6=error:52";
  const std::string page = folder / "page.html";
  const Result json = ctl({"--json", "watch", "--every", "0", "--count", "6", "nr-snr", "wcdma",
                           "--sub", "1", "--report", page});
  EXPECT_EQ(json.status, 0) << json.err;
  std::string events;
  std::istringstream lines(json.out);
  for (std::string line; std::getline(lines, line);) {
    events += line.find("\"away\"") != std::string::npos   ? 'a'
              : line.find("\"back\"") != std::string::npos ? 'b'
              : line.find("snr_rx0") != std::string::npos  ? 's'
                                                           : 'w';
  }
  EXPECT_EQ(events, "swswabswswswsw");
  const std::string html = read_file(page);
  for (const char* part : {"<svg", "class=\"gap\"", "nr-snr: 5G", "away 1 time", "rx_agc"}) {
    EXPECT_NE(html.find(part), std::string::npos) << part;
  }
  for (const char* fetched : {"http", "src=", "url(", "@import"}) {
    EXPECT_EQ(html.find(fetched), std::string::npos) << fetched;
  }
  variables.erase("TOVI_SIM_FAULTS");

  write_file(folder / "state/stats/0/110", "length=5\n");
  const Result csv = ctl({"watch", "--csv", "--count", "1", "wcdma", "gsm"});
  EXPECT_EQ(csv.out.substr(0, csv.out.find('\n')),
            "time,wcdma.rx_agc_0,wcdma.rx_agc_1,gsm.rx_prx,gsm.rx_drx");
  EXPECT_NE(csv.out.find("Z,,,-"), std::string::npos) << csv.out;

  const struct {
    Args args;
    int status;
  } rows[] = {
      {{"watch", "--list"}, 0},
      {{"watch"}, 2},
      {{"watch", "snr"}, 2},
      {{"watch", "ant", "--sub", "1"}, 2},
      {{"watch", "nr-snr", "--every", "1min"}, 2},
      {{"watch", "nr-snr", "--count", "1", "--report", "/nonexistent/x"}, 2},
      {{"watch", "nr-snr", "--csv", "--json"}, 2},
  };
  for (const auto& row : rows) EXPECT_EQ(ctl(row.args).status, row.status) << row.args.back();
}

}  // namespace
}  // namespace testing_support
