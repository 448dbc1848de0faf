#include "caretaker.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "state_files.h"

namespace program {
namespace {

void remove_folder(const std::string& folder) {
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

void remove_ports(const std::string& state) {
  using state_files::FolderLock;
  const FolderLock ports(state, state_files::LockPart::Ports, FolderLock::Mode::Exclusive,
                         FolderLock::Wait::No);
  if (!ports.held()) return;  // somebody has them again
  unlink((state + "/device/dev/diag").c_str());
  unlink((state + "/device/dev/smd8").c_str());
}

std::string new_folder() {
  const char* parent = getenv("TMPDIR");
  std::string folder = parent != nullptr && parent[0] != '\0' ? parent : "/tmp";
  folder += "/tovi-modem.XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) return "";
  std::error_code unknown;
  return std::filesystem::absolute(folder, unknown);  // the command may go to another folder
}

}  // namespace

bool Caretaker::start(const std::string& state, std::string& problem) {
  int ends[2] = {-1, -1};
  const bool connected = socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0;
  alive_ = qmi::Descriptor(ends[0]);
  qmi::Descriptor watched(ends[1]);
  pid_ = connected ? fork() : -1;
  if (pid_ == 0) {
    alive_ = qmi::Descriptor();
    take_care(watched, state);
  }
  watched = qmi::Descriptor();
  char name[4096];
  const ssize_t length = pid_ > 0 ? recv(alive_.get(), name, sizeof name, 0) : -1;
  if (length > 0) {
    folder_.assign(name, static_cast<size_t>(length));
    return true;
  }
  problem = "no folder for temporary files can be made";
  return false;
}

// No signal but SIGKILL ends it, and none that is meant for a group or a terminal reaches it.
void Caretaker::take_care(const qmi::Descriptor& alive, const std::string& state) {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, nullptr);
  setsid();
  const std::string folder = new_folder();
  const bool told = send(alive.get(), folder.data(), folder.size(), MSG_NOSIGNAL) >= 0;
  char nothing;
  while (told && recv(alive.get(), &nothing, 1, 0) < 0 && errno == EINTR) {
  }
  if (!folder.empty()) remove_folder(folder);
  if (!state.empty()) remove_ports(state);
  _exit(0);
}

// When this process lives so long, it sees to it that all is cleared up before it ends.
Caretaker::~Caretaker() {
  if (pid_ <= 0) return;
  alive_ = qmi::Descriptor();
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  if (status != 0 && !folder_.empty()) remove_folder(folder_);
}

}  // namespace program
