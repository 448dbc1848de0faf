// What a modem may say on its AT port and its diag port, to the modules that ask it. The first byte
// tells which port; threads take turns, the shell that would write to the AT port is not run.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "descriptor.h"
#include "fuzz.h"
#include "turns.h"
#include "unix_address.h"
#include "velmor_diag.h"
#include "velmor_tovi_test_modules.h"

namespace {

// The device tree with both ports; the modem's ends of them.
struct Device {
  fuzz::Folder root;
  qmi::Descriptor terminal, listener;
  // Keeps what was said there until somebody reads it.
  qmi::Descriptor other_end;

  Device() {
    setenv("TOVI_DEVICE_ROOT", root.path.c_str(), 1);
    std::filesystem::create_directory(root.path + "/dev");
    terminal = qmi::Descriptor(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    fuzz::require(grantpt(terminal.get()) == 0 && unlockpt(terminal.get()) == 0);
    const std::string name = ptsname(terminal.get());
    other_end = qmi::Descriptor(::open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios mode{};
    fuzz::require(tcgetattr(other_end.get(), &mode) == 0);
    cfmakeraw(&mode);
    tcsetattr(other_end.get(), TCSANOW, &mode);
    std::filesystem::create_symlink(name, root.path + "/dev/smd8");

    listener = qmi::Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address;
    fuzz::require(make_unix_address(root.path + "/dev/diag", address));
    fuzz::require(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
    fuzz::require(listen(listener.get(), 4) == 0);
  }
};

Device& device() {
  static Device one;
  return one;
}

std::string g_answer;  // on the AT port

void run(std::vector<std::string> words) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  for (const TestModule& module : velmor_test_modules()) {
    if (std::to_string(module.number) != words[1]) continue;
    module.enter(static_cast<int>(words.size()), argv.data());
  }
}

void ask_at(fuzz::Input& input) {
  std::string command(fuzz::text_of(input.block()));
  std::erase(command, '\0');
  g_answer = fuzz::text_of(input.rest());
  tcflush(device().other_end.get(), TCIOFLUSH);
  run({"tovi", "8", command});
}

void ask_diag(fuzz::Input& input) {
  const uint8_t how = input.byte();
  const auto command = input.block();
  // The modem says what it has to say to the first who comes.
  std::thread modem([input]() mutable {
    const qmi::Descriptor& listener = device().listener;
    pollfd comes{listener.get(), POLLIN, 0};
    if (qmi::poll_until(&comes, 1, timing::Clock::now() + std::chrono::seconds(20)) != 1) return;
    const qmi::Descriptor client(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    while (!input.empty()) {
      const auto packet = input.block();
      send(client.get(), packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
  });
  if ((how & 1) != 0) {
    std::vector<std::string> words = {"tovi", "5", "0", how & 2 ? "0" : "1", how & 4 ? "0" : "1",
                                      "1000"};
    for (const uint8_t byte : command.first(std::min<size_t>(command.size(), 40))) {
      words.push_back(std::to_string(byte));
    }
    run(words);
  } else {
    const fuzz::Exact sent(command);
    const std::span<const uint8_t> bytes = sent;
    unsigned int room = how >> 1;
    const std::unique_ptr<unsigned char[]> answer(new unsigned char[room]);
    velmor_diag_cmd_send_with_result_by_dci_mode(
        bytes.data(), static_cast<unsigned int>(bytes.size()), 1000, answer.get(), &room);
    fuzz::require(room <= how >> 1);
  }
  modem.join();
}

}  // namespace

// Runs no shell: the command has arrived, and the modem answers.
extern "C" int system(const char*) {
  [[maybe_unused]] const ssize_t n =
      write(device().terminal.get(), g_answer.data(), g_answer.size());
  return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  for (const char* name : {"TOVI_STATE", "XDG_STATE_HOME", "HOME", "TOVI_MODEM"}) unsetenv(name);
  static char buffer[1 << 16];
  setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
  device();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  turns::begin(0);
  fuzz::Input input(data, size);
  if ((input.byte() & 1) != 0) {
    ask_at(input);
  } else {
    ask_diag(input);
  }
  return 0;
}
