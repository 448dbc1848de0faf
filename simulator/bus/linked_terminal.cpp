#include "linked_terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>

namespace sim {
namespace {

bool failed(const std::string& path, std::string& problem) {
  problem = path + ": " + strerror(errno);
  return false;
}

// What is no link stays, and is in the way.
bool replace_link(const std::string& link, const std::string& target) {
  struct stat status {};
  if (lstat(link.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) unlink(link.c_str());
  return symlink(target.c_str(), link.c_str()) == 0;
}

}  // namespace

bool LinkedTerminal::open(const std::string& link, std::string& problem) {
  qmi::Descriptor modem_end(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  char name[64];
  if (!modem_end || grantpt(modem_end.get()) != 0 || unlockpt(modem_end.get()) != 0 ||
      ptsname_r(modem_end.get(), name, sizeof name) != 0) {
    return failed("pseudo-terminal", problem);
  }
  qmi::Descriptor tty(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios mode{};
  if (!tty || tcgetattr(tty.get(), &mode) != 0) return failed(name, problem);
  cfmakeraw(&mode);
  if (tcsetattr(tty.get(), TCSANOW, &mode) != 0) return failed(name, problem);
  if (!replace_link(link, name)) return failed(link, problem);
  link_ = link;
  name_ = name;
  modem_end_ = std::move(modem_end);
  tty_ = std::move(tty);
  return true;
}

LinkedTerminal::~LinkedTerminal() {
  char target[64];
  const ssize_t n = readlink(link_.c_str(), target, sizeof target);
  if (n > 0 && name_ == std::string(target, static_cast<size_t>(n))) unlink(link_.c_str());
}

void LinkedTerminal::drop_unread() {
  tcflush(tty_.get(), TCIFLUSH);
}

}  // namespace sim
