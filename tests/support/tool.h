// Runs the built programs as a user would, in a state folder of the test's own.
#pragma once

#include <sys/types.h>
#include <sys/un.h>

#include <map>
#include <string>
#include <vector>

namespace testing_support {

// A folder that goes away with the test.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

struct Result {
  int status;  // exit status; 128 + signal when killed
  std::string out;
  std::string err;
};

using Args = std::vector<std::string>;
using Variables = std::map<std::string, std::string>;

// A program that is running, one of the build's or anyone named by its whole path: its output is
// collected until it ends.
class Program {
 public:
  Program(const std::string& name, const Args& args, const Variables& variables);
  ~Program();

  // Waits until the program has written `text` to standard error, and gives all it wrote there.
  const std::string& wait_for_error_line(const std::string& text);
  void kill(int signal);
  pid_t id() const { return pid_; }
  Result wait();

 private:
  pid_t pid_;
  int err_fd_;
  std::string out_path_;
  std::string err_;
  ScratchFolder folder_;
};

Result run(const std::string& name, const Args& args, const Variables& variables);

// `text` with "RIL[name:line]" turned into "RIL[name]": line numbers are nobody's business.
std::string without_lines(const std::string& text);

// Binds a socket to a name that other tests of this machine may have for a while.
void bind_in_turn(int socket, const sockaddr_un& address, size_t size);

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);

// `text` must be what the file holds, which is written anew with TOVI_TEST_UPDATE=1.
void expect_golden(const std::string& path, const std::string& text);

}  // namespace testing_support
