// A test that runs the program as a person at the shell does, in a state folder of its own.
#pragma once

#include "gtest/gtest.h"
#include "support/tool.h"

namespace testing_support {

class Cli : public testing::Test {
 protected:
  // What `tovi ARGS...` prints, line numbers left out; it must end well and quietly.
  std::string tovi(const Args& args) {
    const Result result = run("tovi", args, variables);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.err.empty() || result.err == complaint) << result.err;
    return without_lines(result.out);
  }

  // From now on nobody is at the modem's socket, which commands that ask for it say in one line.
  void take_modem_away() {
    const std::string modem = "unix:" + (folder / "nobody");
    variables["TOVI_MODEM"] = modem;
    complaint = "tovi: TOVI_MODEM=" + modem + ": no such socket\n";
  }

  void set_property(const std::string& name, const std::string& value) {
    EXPECT_EQ(run("tovi-modem", {"setprop", name, value}, variables).status, 0);
  }

  // The help between its banners: all of it, or the section that begins with `heading`.
  static std::string help(const std::string& heading = "") {
    std::string all = read_file(std::string(TOVI_TEST_DATA) + "/golden/help.txt");
    if (heading.empty()) return all;
    const size_t first = all.find('\n') + 1;
    const size_t last = all.find("=========== above");
    const size_t start = all.find(heading);
    size_t end = all.find('\n', start) + 1;
    while (end < last && all[end] == ' ') end = all.find('\n', end) + 1;
    return all.substr(0, first) + all.substr(start, end - start) + all.substr(last);
  }

  ScratchFolder folder;
  std::string complaint;  // the only one that a command may have
  Variables variables = {{"TOVI_STATE", folder / "state"}, {"TOVI_LOG", folder / "log"}};
};

// One echoed message.
inline std::string line(const std::string& function, const std::string& body) {
  return "RIL[" + function + "]: " + body + "\n";
}

}  // namespace testing_support
