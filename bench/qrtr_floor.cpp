// The floor of a command on the kernel's QRTR: one socket that looks the extension service up,
// sends one request, receives the answer and prints its length. Nothing of this program's library
// is in it.
//
//   qrtr_floor                    the bare exchange
//   qrtr_floor --time N CMD...    runs a command N times and prints the microseconds of one
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
// After sys/socket.h, which it needs.
#include <linux/qrtr.h>

namespace {

constexpr unsigned int kControlPort = 0xFFFFFFFE;

int exchange() {
  const int fd = socket(AF_QIPCRTR, SOCK_DGRAM, 0);
  sockaddr_qrtr address{};
  socklen_t size = sizeof address;
  if (fd < 0 || getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 1;
  address.sq_port = kControlPort;
  const unsigned int lookup[5] = {10, 0xFFE4, 0, 0, 0};
  sendto(fd, lookup, sizeof lookup, 0, reinterpret_cast<sockaddr*>(&address), sizeof address);
  unsigned int found[5] = {}, news[5] = {};
  do {
    if (recv(fd, news, sizeof news, 0) != sizeof news || news[0] != 4) return 1;
    if (news[1] != 0) memcpy(found, news, sizeof found);
  } while (news[1] != 0);

  unsigned char request[7 + 529] = {0, 1, 0, 2, 0, 0x11, 2, 1,    4, 0, 2, 0, 0,    0,
                                    2, 4, 0, 0, 2, 0,    0, 0x10, 0, 2, 1, 0, 0x26, 2};
  address.sq_node = found[3];
  address.sq_port = found[4];
  sendto(fd, request, sizeof request, 0, reinterpret_cast<sockaddr*>(&address), sizeof address);
  unsigned char answer[2048];
  const ssize_t n = recv(fd, answer, sizeof answer, 0);
  printf("%zd bytes\n", n);
  return n > 0 ? 0 : 1;
}

long long now_us() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000LL + now.tv_nsec / 1000;
}

int time_command(int times, char** command) {
  const long long begin = now_us();
  for (int i = 0; i < times; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      if (freopen("/dev/null", "w", stdout) == nullptr) _exit(127);
      execv(command[0], command);
      _exit(127);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) return 1;
  }
  printf("%lld\n", (now_us() - begin) / times);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4 || strcmp(argv[1], "--time") != 0) return exchange();
  return time_command(atoi(argv[2]), argv + 3);
}
