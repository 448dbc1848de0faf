#include "support/tool.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "gtest/gtest.h"

namespace testing_support {

ScratchFolder::ScratchFolder() {
  std::string name = "/tmp/tovi-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) abort();
  path_ = name;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Program::Program(const std::string& name, const Args& args, const Variables& variables) {
  const std::string path = std::filesystem::path(TOVI_BUILD_FOLDER) / name;
  std::vector<char*> argv = {const_cast<char*>(path.c_str())};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  out_path_ = folder_ / "out";
  int err[2];
  if (pipe2(err, O_CLOEXEC) != 0) abort();
  pid_ = fork();
  if (pid_ == 0) {
    for (const char* set : {"TOVI_MODEM", "TOVI_STATE", "TOVI_LOG", "TOVI_TRACE", "TOVI_TRACE_FULL",
                            "TOVI_TIME_SCALE", "TOVI_RECORD", "TOVI_DEVICE_ROOT", "TOVI_SIM_FAULTS",
                            "TOVI_SIM_SEED"}) {
      unsetenv(set);
    }
    for (const auto& [key, value] : variables) setenv(key.c_str(), value.c_str(), 1);
    dup2(open(out_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    execv(path.c_str(), argv.data());
    _exit(127);
  }
  close(err[1]);
  err_fd_ = err[0];
}

Program::~Program() {
  if (pid_ > 0) {
    kill(SIGKILL);
    wait();
  }
  close(err_fd_);
}

const std::string& Program::wait_for_error_line(const std::string& text) {
  char buffer[256];
  ssize_t n = 1;
  while (err_.find(text) == std::string::npos && n > 0) {
    n = read(err_fd_, buffer, sizeof buffer);
    if (n > 0) err_.append(buffer, static_cast<size_t>(n));
  }
  EXPECT_NE(err_.find(text), std::string::npos) << err_;
  return err_;
}

void Program::kill(int signal) {
  ::kill(pid_, signal);
}

Result Program::wait() {
  char buffer[4096];
  for (ssize_t n; (n = read(err_fd_, buffer, sizeof buffer)) > 0;) {
    err_.append(buffer, static_cast<size_t>(n));
  }
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), read_file(out_path_),
          err_};
}

Result run(const std::string& name, const Args& args, const Variables& variables) {
  return Program(name, args, variables).wait();
}

std::string without_lines(const std::string& text) {
  static const std::regex line("RIL\\[(\\w+):\\d+\\]");
  return std::regex_replace(text, line, "RIL[$1]");
}

void bind_in_turn(int socket, const sockaddr_un& address, size_t size) {
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  for (int tries = 0; bind(socket, name, static_cast<socklen_t>(size)) != 0; ++tries) {
    if (errno != EADDRINUSE || tries == 30000) abort();
    usleep(1000);
  }
}

std::string read_file(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

void write_file(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

bool exists(const std::string& path) {
  return std::filesystem::exists(path);
}

void expect_golden(const std::string& path, const std::string& text) {
  if (getenv("TOVI_TEST_UPDATE") != nullptr) write_file(path, text);
  EXPECT_EQ(text, read_file(path));
}

}  // namespace testing_support
