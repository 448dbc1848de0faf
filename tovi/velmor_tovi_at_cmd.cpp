// Module 8: sends one AT command over the modem's AT port and logs the answer.
//
//   tovi 8 atcmd_cxt
//
// The command goes through the shell's `echo`, in double quotes that keep nothing from the shell: a
// quote, $, ` and \ in it mean what they mean there.
#include "velmor_tovi_at_cmd.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <semaphore>
#include <string>

#include "device_path.h"
#include "timing.h"
#include "utilities/velmor_log.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"

namespace {

constexpr int kModule = 8;
constexpr size_t kCommandMax = 100;  // characters

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: velmor at command test", {kModule}},
  {"   tovi %d atcmd_cxt               /* atcmd_cxt: at command context */", {kModule}},
  {"                                    the len of atcmd can not > %d", {static_cast<int>(kCommandMax)}},
};
// clang-format on

constexpr const char* kPort = "/dev/smd8";
constexpr uint32_t kAnswerMs = 5000;
constexpr uint32_t kQuietMs = 200;  // between the pieces of an answer, at most

int g_at_serial_fd;  // 0: not open. The reader's alone until it has set the flag.
std::atomic<int> g_at_receive_done;

// The reader says that it is there before the command is sent, and reads after that: so the two
// threads always log in the same order.
std::binary_semaphore g_reader_started{0};
std::binary_semaphore g_command_sent{0};

// What follows `start` in the line that begins with it, or null.
const char* find_line(const char* text, const char* start) {
  for (const char* at = text; (at = strstr(at, start)) != nullptr; ++at) {
    if (at == text || at[-1] == '\n') return at + strlen(start);
  }
  return nullptr;
}

// The line that ends an answer: OK, or a refusal that may have a code.
void note_result(const char* answer) {
  for (const char* refusal : {"+CME ERROR:", "+CMS ERROR:", "ERROR", "NO CARRIER"}) {
    if (const char* code = find_line(answer, refusal)) {
      g_velmor_test_outcome = {TestOutcome::Refused, kPort, velmor_atoi(code)};
      return;
    }
  }
  if (find_line(answer, "OK") == nullptr) g_velmor_test_outcome = {TestOutcome::NoAnswer, kPort};
}

void* velmor_test_at_cmd_receive(void*) {
  VELMOR_LOG_DEBUG("The thread to receive data from serial is started");
  if (g_at_serial_fd <= 0) {
    VELMOR_LOG_DEBUG("The at channel is not opened, g_at_serial_fd %d", g_at_serial_fd);
    g_velmor_test_outcome = {TestOutcome::NoPort, kPort};
    g_reader_started.release();
  } else {
    g_reader_started.release();
    g_command_sent.acquire();
    char answer[512];
    timing::wait_quiet(g_at_serial_fd, kQuietMs, kAnswerMs);
    const ssize_t n = read(g_at_serial_fd, answer, sizeof answer - 1);
    if (n <= 0) {
      VELMOR_LOG_DEBUG("Failed to receive bytes from server");
      g_velmor_test_outcome = {TestOutcome::NoAnswer, kPort};
    } else {
      answer[n] = '\0';
      note_result(answer);
      VELMOR_LOG_DEBUG("Receive the AT reponse: len(%d)", static_cast<int>(n));
      VELMOR_LOG_DEBUG("%s", answer);
    }
  }
  g_at_receive_done = 1;
  return nullptr;
}

std::string shell_line(const char* cmd, const std::string& target) {
  return "echo \"" + std::string(cmd) + "\r\" > " + target;
}

std::string quoted_for_shell(const std::string& path) {
  std::string quoted = "'";
  for (const char c : path) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

// The line is logged with the device's own path.
void velmor_test_at_cmd_send(char* cmd) {
  const std::string line = shell_line(cmd, kPort);
  VELMOR_LOG_DEBUG("at shell cmd: %s", line.c_str());
  const std::string path = velmor_device_path(kPort);
  const bool mapped = path != kPort;
  const int ret_sys = system((mapped ? shell_line(cmd, quoted_for_shell(path)) : line).c_str());
  VELMOR_LOG_DEBUG("echo, ret_sys: %d", ret_sys);
  if (ret_sys == 0) {
    VELMOR_LOG_DEBUG("Success to send at shell cmd");
  } else {
    VELMOR_LOG_DEBUG("Fail to send at shell cmd");
  }
}

// A terminal hands on what comes as it comes: no line editing, and no echo of the modem's answer to
// the modem.
void set_raw(int fd) {
  termios mode{};
  if (tcgetattr(fd, &mode) != 0) return;
  cfmakeraw(&mode);
  tcsetattr(fd, TCSANOW, &mode);
}

// A file that is no port, as the shell makes one where there is none, would answer with the
// command.
void open_port() {
  const std::string path = velmor_device_port(kPort);
  const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  struct stat status {};
  if (fd > 0 && fstat(fd, &status) == 0 && S_ISCHR(status.st_mode)) {
    set_raw(fd);
    g_at_serial_fd = fd;
  } else if (fd >= 0) {
    close(fd);
  }
}

// Sends the command up to its first blank and waits for the reader. False when nothing was sent.
bool run_command(int argc, char** argv, Speaker speaker) {
  if (argc != 3) {
    velmor_log(LogLevel::Debug, speaker,
               "note: The number of inputs should be 2, Pls refer to the following cmd:");
    return false;
  }
  if (velmor_atoi(argv[1]) != kModule) {
    velmor_log(LogLevel::Debug, speaker,
               "note: the first parameters should be %d, Pls refer to the following cmd:", kModule);
    return false;
  }
  if (strlen(argv[2]) > kCommandMax) {
    velmor_log(LogLevel::Debug, speaker,
               "note: the second parameters length should <= %d, Pls refer to the following cmd:",
               static_cast<int>(kCommandMax));
    return false;
  }
  char text[kCommandMax + 5] = {};
  static_assert(kCommandMax == 100, "the width below");
  const int scanned = sscanf(argv[2], "%100s\r", text);
  velmor_log(LogLevel::Debug, speaker, "At cmd you input: sscanf(%d), len (%d), %s", scanned,
             static_cast<int>(strlen(text)), text);

  open_port();
  velmor_log(LogLevel::Debug, speaker, "Will create a thread to receive data from serial");
  pthread_t reader;
  if (pthread_create(&reader, nullptr, velmor_test_at_cmd_receive, nullptr) != 0) {
    velmor_log(LogLevel::Debug, speaker, "Fail to create a thread");
    return false;
  }
  g_reader_started.acquire();
  velmor_test_at_cmd_send(text);
  if (g_at_serial_fd > 0) g_command_sent.release();
  while (g_at_receive_done == 0) timing::sleep_s(1);
  pthread_join(reader, nullptr);
  return true;
}

}  // namespace

void velmor_test_at_cmd_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_at_cmd_do(int argc, char** argv) {
  const bool sent = run_command(argc, argv, Speaker::here());
  if (g_at_serial_fd > 0) {
    VELMOR_LOG_DEBUG("Will close channel: %s", kPort);
    close(g_at_serial_fd);
    g_at_serial_fd = 0;
  }
  g_at_receive_done = 0;
  if (!sent) show_help(kModule);
  return 0;
}
