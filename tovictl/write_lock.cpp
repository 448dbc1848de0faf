#include "write_lock.h"

#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "environment.h"
#include "results.h"

namespace ctl {
namespace {

std::string real_path(const std::string& path) {
  char* const real = realpath(path.c_str(), nullptr);
  std::string found = real != nullptr ? real : path;
  free(real);
  return found;
}

// The same for everybody who means the same modem.
std::string modem_name() {
  const environment::ModemChoice* modem = environment::modem();
  if (modem == nullptr) return "";
  if (modem->kind == environment::ModemKind::Unix) return "unix:" + real_path(modem->path);
  if (modem->kind != environment::ModemKind::Simulated) return modem->text;
  const std::string* state = environment::state_folder();
  return "sim:" + (state != nullptr ? real_path(*state) : "");
}

uint64_t fnv1a(const std::string& text) {
  uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001b3;
  return hash;
}

}  // namespace

Verdict WriteLock::take(bool wait) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // An abstract name: it begins with a zero byte.
  const int length = snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "tovictl-%016llx",
                              static_cast<unsigned long long>(fnv1a(modem_name())));
  const auto size =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<size_t>(length));
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  for (;;) {
    name_ = qmi::Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (bind(name_.get(), name, size) == 0) {
      listen(name_.get(), 8);
      return {};
    }
    if (errno != EADDRINUSE) return {Status::Usage, std::string("the lock: ") + strerror(errno)};
    if (!wait) return {Status::Busy, ""};
    // Nobody lets this connection in: it ends with who has the name.
    char nothing;
    if (connect(name_.get(), name, size) == 0) {
      [[maybe_unused]] const ssize_t n = read(name_.get(), &nothing, 1);
    } else {
      usleep(1000);  // it has just ended, or has no room for one more
    }
  }
}

Verdict may_change(const Settings& settings, const char* question, WriteLock& lock) {
  if (question != nullptr && !settings.yes && !results::ask(question)) {
    return {Status::NeedsYes, question};
  }
  return lock.take(settings.wait);
}

}  // namespace ctl
