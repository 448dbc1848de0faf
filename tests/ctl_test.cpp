// tovictl as scripts use it: files, statuses.
#include <signal.h>
#include <unistd.h>

#include "gtest/gtest.h"
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

TEST_F(Ctl, StatusesSayWhatWentWrong) {
  write_file(folder / "plain", "");
  const struct {
    Args args;
    int status;
    const char* err = "";
    Variables more = {};
  } rows[] = {
      {{"get", "550"}, 0},
      {{"get", "77"}, 1, "tovictl: refused: NV item 77 of subscription 0: 5 (not active)\n"},
      {{"get", "/no"}, 1, "tovictl: refused: /no of subscription 0: -2 (no such file)\n"},
      {{"get", "550"}, 1, "9 (INVALID_HANDLE)", {{"TOVI_SIM_FAULTS", "extend=error:9"}}},
      {{}, 2},
      {{"fetch"}, 2, "fetch: no such verb"},
      {{"get", "7233"}, 2},
      {{"get", "0x10"}, 2},
      {{"get", "nv"}, 2},
      {{"get", "550", "--sub", "2"}, 2},
      {{"get", "/" + std::string(70, 'x')}, 2},
      {{"get", "550", "-o", "/nonexistent/x"}, 2, "/nonexistent/x"},
      {{"put", "/x", "hex:012"}, 2},
      {{"put", "/x", "/nonexistent"}, 2},
      {{"get", "550"}, 3, "", {{"TOVI_MODEM", "unix:/nobody"}}},
      {{"get", "550"}, 3, "", {{"TOVI_MODEM", "unix:" + (folder / "plain")}}},
      {{"get", "550"}, 3, "", {{"TOVI_MODEM", "what"}}},
      {{"get", "550"}, 4, "no extension service", {{"TOVI_SIM_FAULTS", "extend=absent"}}},
      {{"get", "550", "--timeout", "0.1"}, 5, "", {{"TOVI_SIM_FAULTS", "extend=drop"}}},
      {{"get", "550"}, 5, "went away", {{"TOVI_SIM_FAULTS", "extend=down"}}},
      {{"get", "550"}, 6, "", {{"TOVI_SIM_FAULTS", "extend=garbage"}}},
      {{"get", "550"}, 6, "", {{"TOVI_SIM_FAULTS", "extend=len:21"}}},
      {{"put", "550", "hex:01"}, 6, "written, but", {{"TOVI_SIM_FAULTS", "extend#2=len:20"}}},
      {{"put", "550", "hex:02"}, 1, "the commit", {{"TOVI_SIM_FAULTS", "extend/nv_sync=result:3"}}},
      {{"rm", "550"}, 8},
      {{"rm", "550", "--yes"}, 0},
      {{"rm", "550", "--yes"}, 0, "absent already"},
      {{"rm", "/no", "--yes"}, 0, "absent already"},
  };
  for (const auto& row : rows) {
    Variables with = variables;
    for (const auto& [name, value] : row.more) with[name] = value;
    const Result result = run("tovictl", row.args, with);
    std::string what;
    for (const std::string& arg : row.args) what += arg + " ";
    EXPECT_EQ(result.status, row.status) << what << result.err;
    EXPECT_NE(result.err.find(row.err), std::string::npos) << what << result.err;
    EXPECT_TRUE(row.status == 0 || result.out.empty()) << what;
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

TEST_F(Ctl, APutThatIsKilledLeavesTheOldFileOrTheNew) {
  const std::string old_bytes = pattern(50000), new_bytes = std::string(60000, 'n');
  const std::string held = folder / "state/efs/0/f";
  write_file(folder / "old", old_bytes);
  write_file(folder / "new", new_bytes);
  for (const int ms : {1, 2, 3, 4, 6, 9}) {
    ASSERT_EQ(ctl({"put", "/f", folder / "old"}).status, 0);
    Program put("tovictl", {"put", "/f", folder / "new"}, variables);
    usleep(static_cast<useconds_t>(ms * 700));
    put.kill(SIGKILL);
    put.wait();
    const std::string left = read_file(held);
    EXPECT_TRUE(left == old_bytes || left == new_bytes) << ms << " " << left.size();
  }
}

}  // namespace
}  // namespace testing_support
