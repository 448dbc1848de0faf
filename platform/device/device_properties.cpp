// The system properties of a device, through its own programs.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>

#include "descriptor.h"
#include "environment.h"
#include "mutex.h"
#include "property_store.h"

namespace {

constexpr const char* kGetprop = "/system/bin/getprop";
constexpr const char* kSetprop = "/system/bin/setprop";

constexpr std::chrono::seconds kPatience{5};  // with a program that does not end

// What comes until the other end closes; nothing when it does not in time.
std::optional<std::string> read_all(int fd) {
  const timing::Deadline deadline = timing::Clock::now() + kPatience;
  std::string all;
  char room[4096];
  for (;;) {
    pollfd readable{fd, POLLIN, 0};
    const int ready = qmi::poll_until(&readable, 1, deadline);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return std::nullopt;
    const ssize_t n = read(fd, room, sizeof room);
    if (n < 0) return std::nullopt;
    if (n == 0) return all;
    all.append(room, static_cast<size_t>(n));
  }
}

// Whether a program ended well. One whose end somebody else has seen counts as such.
bool ended_well(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return true;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Runs a program of the device and waits for its end. What it printed, or nothing when it could not
// be run or failed.
std::optional<std::string> run(const char* program, const char* first, const char* second) {
  const std::string path = environment::device_root() + program;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return std::nullopt;
  const qmi::Descriptor out(ends[0]);
  qmi::Descriptor in(ends[1]);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, in.get(), STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const char* arguments[] = {path.c_str(), first, second, nullptr};
  pid_t child;
  const int error =
      posix_spawn(&child, path.c_str(), &actions, nullptr, const_cast<char**>(arguments), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return std::nullopt;

  in = qmi::Descriptor();
  auto printed = read_all(out.get());
  if (!printed) kill(child, SIGKILL);
  return ended_well(child) ? printed : std::nullopt;
}

using Values = std::map<std::string, std::string, std::less<>>;

// Lines of `[name]: [value]`; a value may itself have several lines.
Values parse(std::string_view text) {
  Values values;
  while (text.starts_with('[')) {
    const size_t middle = text.find("]: [");
    if (middle == text.npos) break;
    const size_t begin = middle + strlen("]: [");
    const size_t end = std::min(text.find("]\n[", begin), text.size() - strlen("]\n"));
    if (end < begin) break;
    values.emplace(text.substr(1, middle - 1), text.substr(begin, end - begin));
    text.remove_prefix(end + strlen("]\n"));
  }
  return values;
}

// All values as they were last told. Asking costs a process, and every message asks.
class SystemProperties {
 public:
  property_store::Pair get(const char* first, const char* second) {
    MutexLock hold(lock_);
    if (told_ == timing::kPast || timing::Clock::now() - told_ >= kFresh) {
      values_ = parse(run(kGetprop, nullptr, nullptr).value_or(""));
      told_ = timing::Clock::now();
    }
    return {value(first), value(second)};
  }

  bool set(const char* key, const char* value, std::string& problem) {
    MutexLock hold(lock_);
    told_ = timing::kPast;
    if (run(kSetprop, key, value)) return true;
    problem = std::string(kSetprop) + " failed";
    return false;
  }

 private:
  static constexpr std::chrono::seconds kFresh{1};

  std::string value(const char* key) REQUIRES(lock_) {
    const auto found = values_.find(key);
    return found != values_.end() ? found->second : "";
  }

  Mutex lock_;
  Values values_ GUARDED_BY(lock_);
  timing::Deadline told_ GUARDED_BY(lock_) = timing::kPast;
};

SystemProperties& properties() {
  static auto* const all = new SystemProperties;  // callbacks may still log while the process exits
  return *all;
}

}  // namespace

std::string property_store::get(const char* key) {
  return properties().get(key, key).first;
}

property_store::Pair property_store::get_both(const char* first, const char* second) {
  return properties().get(first, second);
}

bool property_store::set(const char* key, const char* value, std::string& problem) {
  return properties().set(key, value, problem);
}
