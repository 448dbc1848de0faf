// The system log of a device: Android's log daemon takes each entry as one datagram.
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "environment.h"
#include "system_log.h"
#include "unix_address.h"
#include "velmor_utils.h"

namespace {

constexpr const char* kSocket = "/dev/socket/logdw";
constexpr timeval kPatience = {1, 0};  // with a daemon that does not read

constexpr uint8_t kMainLog = 0;
constexpr char kDebug = 3;
constexpr char kError = 6;
constexpr size_t kPayloadMax = 4068;

struct [[gnu::packed]] EntryHeader {
  uint8_t log_id;
  uint16_t thread_id;
  uint32_t seconds;  // of real time
  uint32_t nanoseconds;
};
static_assert(sizeof(EntryHeader) == 11);

// What follows the header: the priority, then the tag and the message, each with its NUL. A message
// that is too long is cut.
size_t write_payload(char (&room)[kPayloadMax], int priority, const char* format, va_list args) {
  room[0] = priority == LOG_ERR ? kError : kDebug;
  const size_t tag = std::min(strlen(velmor_get_current_pid_name()), kPayloadMax / 2);
  memcpy(room + 1, velmor_get_current_pid_name(), tag);
  room[1 + tag] = '\0';
  const size_t begin = tag + 2, left = kPayloadMax - begin;
  const int length = vsnprintf(room + begin, left, format, args);
  return begin + std::min(static_cast<size_t>(std::max(length, 0)), left - 1) + 1;
}

// The daemon, asked for once; -1 without one.
std::atomic<int>& daemon_socket() {
  static std::atomic<int> fd = [] {
    const int opened = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (opened >= 0 && connect_unix(opened, environment::device_root() + kSocket) == 0) {
      setsockopt(opened, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
      return opened;
    }
    if (opened >= 0) close(opened);
    return -1;
  }();
  return fd;
}

}  // namespace

void system_log::write(int priority, const char* format, va_list args) {
  std::atomic<int>& daemon = daemon_socket();
  const int fd = daemon;
  if (fd < 0) return;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  EntryHeader header = {kMainLog, static_cast<uint16_t>(gettid()),
                        static_cast<uint32_t>(now.tv_sec), static_cast<uint32_t>(now.tv_nsec)};
  char payload[kPayloadMax];
  const size_t size = write_payload(payload, priority, format, args);
  iovec parts[] = {{&header, sizeof header}, {payload, size}};
  msghdr entry{};
  entry.msg_iov = parts;
  entry.msg_iovlen = std::size(parts);
  // A daemon that is gone, or does not read, is not waited for again.
  if (sendmsg(fd, &entry, MSG_NOSIGNAL) < 0) daemon = -1;
}
