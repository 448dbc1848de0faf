// A test of the simulated modem as a program, in a state folder of its own.
#pragma once

#include <filesystem>
#include <memory>

#include "gtest/gtest.h"
#include "support/tool.h"

namespace testing_support {

class Simulator : public testing::Test {
 protected:
  std::unique_ptr<Program> serve() {
    auto server = std::make_unique<Program>("tovi-modem", Args{"serve", "--unix", socket}, state);
    server->wait_for_error_line("tovi-modem: ready\n");
    return server;
  }
  Result modem(const Args& args) { return run("tovi-modem", args, state); }

  // Starts the same program several times at once; all must end well and quietly.
  std::vector<std::string> together(const std::vector<Args>& commands, const Variables& variables) {
    std::vector<std::unique_ptr<Program>> programs;
    for (const Args& args : commands) {
      programs.push_back(std::make_unique<Program>("tovi", args, variables));
    }
    std::vector<std::string> out;
    for (const auto& program : programs) {
      const Result result = program->wait();
      EXPECT_EQ(result.status, 0);
      EXPECT_EQ(result.err, "");
      out.push_back(without_lines(result.out));
    }
    return out;
  }

  // All that is in the test's folder, sizes and all.
  std::string listing() {
    std::string all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
      all += entry.path().string() + " " +
             (entry.is_regular_file() ? std::to_string(entry.file_size()) : "") + "\n";
    }
    return all;
  }

  ScratchFolder folder;
  const std::string socket = folder / "socket";
  const Variables state = {{"TOVI_STATE", folder / "state"}, {"TOVI_LOG", folder / "log"}};
  const Variables served = {{"TOVI_MODEM", "unix:" + socket},
                            {"TOVI_LOG", folder / "log"},
                            {"TOVI_STATE", folder / "elsewhere"}};
};

}  // namespace testing_support
