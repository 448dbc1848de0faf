// The system log, the properties and the diag port of a device, against stand-ins: a datagram
// socket for the log daemon, two scripts for the property programs, a socket for the diag router.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "descriptor.h"
#include "gtest/gtest.h"
#include "properties.h"
#include "support/tool.h"
#include "unix_address.h"
#include "velmor_diag.h"
#include "velmor_utils.h"

namespace testing_support {
namespace {

class Device : public testing::Test {
 protected:
  Device() { setenv("TOVI_DEVICE_ROOT", root.path().c_str(), 1); }

  void script(const std::string& name, const std::string& body) {
    const std::string path = root / "system/bin/" + name;
    write_file(path, "#!/bin/sh\ncd " + root.path() + "\n" + body + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }

  std::string get(const char* key, const char* default_value) {
    char value[PROPERTY_VALUE_MAX];
    memset(value, 'x', sizeof value);
    const int length = property_get(key, value, default_value);
    EXPECT_EQ(static_cast<size_t>(length), strlen(value));
    return value;
  }

  ScratchFolder root;
};

TEST_F(Device, PropertiesGoThroughTheSystemsOwnPrograms) {
  script("getprop", R"sh(echo "[$*]" >> asked; cd values
    for name in *; do printf '[%s]: [%s]\n' "$name" "$(cat "$name")"; done)sh");
  script("setprop", "test \"$1\" != ro.fixed && printf %s \"$2\" > values/$1");
  write_file(root / "values/persist.vendor.velmor.print", "0");
  write_file(root / "values/long", std::string(200, 'v'));
  write_file(root / "values/lines", "[1]\n]: [\n2]");
  write_file(root / "values/of", "");

  EXPECT_EQ(velmor_utils_get_print_flag(), 0);
  EXPECT_EQ(velmor_utils_get_shell_print_flag(), 1);
  EXPECT_EQ(get("unset", "default"), "default");
  EXPECT_EQ(get("long", ""), std::string(PROPERTY_VALUE_MAX - 1, 'v'));
  EXPECT_EQ(get("lines", ""), "[1]\n]: [\n2]");
  EXPECT_EQ(get("of", "default"), "default");

  EXPECT_EQ(property_set("name", "two words $HOME"), 0);
  EXPECT_EQ(get("name", ""), "two words $HOME");
  EXPECT_EQ(property_set("name", "again"), 0);
  EXPECT_EQ(get("name", ""), "again");
  EXPECT_EQ(property_set("ro.fixed", "1"), -1);

  // Each message asks for two; one run of the program tells all.
  property_set("name", "once more");
  write_file(root / "asked", "");
  for (int i = 0; i < 100; ++i) velmor_utils_get_print_flags();
  EXPECT_EQ(get("name", ""), "once more");
  EXPECT_EQ(read_file(root / "asked"), "[]\n");
  write_file(root / "values/name", "by another");
  for (int tries = 0; tries < 500 && get("name", "") == "once more"; ++tries) usleep(10000);
  EXPECT_EQ(get("name", ""), "by another");
}

TEST_F(Device, WithoutThePropertyProgramsEverythingIsUnset) {
  script("getprop", "echo half; exit 1");
  EXPECT_EQ(get("failing", "default"), "default");
  std::filesystem::remove(root / "system/bin/getprop");
  EXPECT_EQ(get("absent", "default"), "default");
  EXPECT_EQ(property_set("absent", "1"), -1);
}

TEST_F(Device, TheLogDaemonGetsADatagramAnEntry) {
  std::filesystem::create_directories(root / "dev/socket");
  const int daemon = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strcpy(address.sun_path, (root / "dev/socket/logdw").c_str());
  ASSERT_EQ(bind(daemon, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  const auto entry = [&] {
    std::string bytes(10000, '\0');
    bytes.resize(static_cast<size_t>(recv(daemon, bytes.data(), bytes.size(), MSG_DONTWAIT)));
    return bytes;
  };
  constexpr size_t kHeader = 11, kMax = kHeader + 4068;
  const std::string tag("device_test\0", 12);

  velmor_utils_syslog_dbg("number %d", 7);
  std::string bytes = entry();
  uint16_t thread = 0;
  uint32_t seconds = 0, nanoseconds = 0;
  memcpy(&thread, &bytes[1], 2);
  memcpy(&seconds, &bytes[3], 4);
  memcpy(&nanoseconds, &bytes[7], 4);
  EXPECT_EQ(bytes[0], 0);
  EXPECT_EQ(thread, static_cast<uint16_t>(gettid()));
  EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(time(nullptr)), 5);
  EXPECT_LT(nanoseconds, 1'000'000'000u);
  EXPECT_EQ(bytes.substr(kHeader), "\x03" + tag + std::string("number 7\0", 9));

  velmor_utils_syslog_err("%s", std::string(5000, 'e').c_str());
  bytes = entry();
  EXPECT_EQ(bytes.size(), kMax);
  EXPECT_EQ(bytes.substr(kHeader, 14), "\x06" + tag + "e");
  EXPECT_EQ(bytes.substr(kMax - 2), std::string("e\0", 2));

  close(daemon);
  velmor_utils_syslog_dbg("nobody listens");
}

// A diag port: tells all its clients what the modem says, and logs without end.
class DiagPort {
 public:
  using Packets = std::vector<std::string>;

  // That of the router is one for the whole machine.
  explicit DiagPort(const sockaddr_un& address) {
    bind_in_turn(listener_.get(), address, sizeof address);
  }
  ~DiagPort() {
    stop_.set();
    if (thread_.joinable()) thread_.join();
  }

  void serve(std::function<Packets(const std::string& command)> answers) {
    ASSERT_EQ(listen(listener_.get(), 8), 0);
    thread_ = std::thread([this, answers = std::move(answers)] {
      for (;;) {
        std::vector<pollfd> fds = {{stop_.descriptor(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
        for (const auto& client : clients_) fds.push_back({client.get(), POLLIN, 0});
        if (poll(fds.data(), fds.size(), 5) == 0) say({"\x10log"});
        if (fds[0].revents != 0) return;
        for (size_t i = fds.size(); i > 2; --i) {
          if (fds[i - 1].revents == 0) continue;
          char room[4096];
          const ssize_t n = recv(fds[i - 1].fd, room, sizeof room, 0);
          if (n > 0) {
            say(answers({room, static_cast<size_t>(n)}));
          } else {
            clients_.erase(clients_.begin() + static_cast<ptrdiff_t>(i - 3));
          }
        }
        if (fds[1].revents != 0) {
          clients_.emplace_back(accept(listener_.get(), nullptr, nullptr));
        }
      }
    });
  }

 private:
  void say(const Packets& packets) {
    for (const std::string& packet : packets) {
      for (const auto& client : clients_) {
        send(client.get(), packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      }
    }
  }

  qmi::Descriptor listener_{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
  qmi::WakeEvent stop_;
  std::thread thread_;
  std::vector<qmi::Descriptor> clients_;
};

// An address whose name is all zero bytes, of its full size.
DiagPort diag_router() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  return DiagPort(address);
}

// The answer, cut to `room`, or "none".
std::string ask(const std::string& command, unsigned int time_out_ms, size_t room = 10240) {
  std::string answer(room, '\0');
  auto size = static_cast<unsigned int>(room);
  const int result = velmor_diag_cmd_send_with_result_by_dci_mode(
      reinterpret_cast<const unsigned char*>(command.data()),
      static_cast<unsigned int>(command.size()), time_out_ms,
      reinterpret_cast<unsigned char*>(answer.data()), &size);
  EXPECT_LE(size, room);
  return result == 0 ? answer.substr(0, size) : "none";
}

TEST_F(Device, TheDiagRouterIsThePortWhereOneRuns) {
  DiagPort router = diag_router();
  std::filesystem::create_directory(root / "dev");
  sockaddr_un address;
  ASSERT_TRUE(make_unix_address(root / "dev/diag", address));
  DiagPort socket_file(address);
  EXPECT_EQ(ask("\x01", 2000), "none");
  socket_file.serve([](const auto&) { return DiagPort::Packets{"\x01 file"}; });
  EXPECT_EQ(ask("\x01", 2000), "\x01 file");  // a router that refuses is none
  router.serve([](const auto&) { return DiagPort::Packets{"\x01 router"}; });
  EXPECT_EQ(ask("\x01", 2000), "\x01 router");
}

TEST_F(Device, DiagPacketsThatAreNoAnswerAreSkippedUntilTheTimeIsOver) {
  using namespace std::string_literals;
  const struct {
    std::string command;
    DiagPort::Packets said;
    std::string answer;
    size_t room = 10240;
  } rows[] = {
      {"\x26\x0a\x00"s,
       {"\x10 log", "\x60 event", "\x79 message", "\x92 message", "\x98 other", "\x00 version"s,
        "\x4b\x0a\x00\x00"s, "\x26 mine", "\x26 late"},
       "\x26 mine"},
      {"\x4b\x0b\x01\x00\x05"s,
       {"\x4b\x0c\x01\x00"s, "\x4b\x0b\x02\x00"s, "\x4b\x0b\x01\x01", "\x4b\x0b\x01",
        "\x80\x0b\x01\x00"s, "\x4b\x0b\x01\x00 mine"s},
       "\x4b\x0b\x01\x00 mine"s},
      {"\x80\x0b\x01\x00"s,
       {"\x80\x0b\x01\x01", "\x80\x0b\x01\x00 mine"s},
       "\x80\x0b\x01\x00 mine"s},
      {"\x26\x0a\x00"s,
       {"\x13\x7c", "\x13\x26\x0b\x00"s, "\x14\x26\x0a", "\x15\x26\x0a\x00\x00"s,
        "\x16\x26\x0a\x00"s, "\x13\x26\x0a\x00"s},
       "\x13\x26\x0a\x00"s},
      {"\x4b\x01", {"\x14\x4b\x02", "\x14\x4b\x01"}, "\x14\x4b\x01"},
      {"\x7c", {"\x15\x26", "\x15\x7c"}, "\x15\x7c"},
      {"\x7c", {std::string(20000, '\x7c')}, std::string(10240, '\x7c')},
      {"\x01\x02\x03\x04", {"\x13\x01\x02", "\x13\x01\x02\x03\x04"}, "\x13\x01", 2},
      {"\x26", {"\x7c"}, "none"},
      {"\x26", {}, "none"},
  };
  DiagPort router = diag_router();
  std::atomic<size_t> at = 0;
  router.serve([&](const std::string& command) {
    EXPECT_EQ(command, rows[at].command);
    return rows[at].said;
  });
  for (at = 0; at < std::size(rows); ++at) {
    const auto& row = rows[at];
    const unsigned int time_out_ms = row.answer == "none" ? 100 : 5000;
    EXPECT_EQ(ask(row.command, time_out_ms, row.room), row.answer) << at;
  }
}

TEST_F(Device, DiagClientsSideBySideEachGetTheirOwnAnswer) {
  DiagPort router = diag_router();
  router.serve([](const std::string& command) { return DiagPort::Packets{command + " answer"}; });
  std::vector<std::thread> clients;
  for (const char* command : {"\x26", "\x7c", "\x4b\x01\x02\x03", "\x4b\x01\x02\x04"}) {
    clients.emplace_back([command] {
      for (int i = 0; i < 50; ++i) EXPECT_EQ(ask(command, 5000), command + std::string(" answer"));
    });
  }
  for (std::thread& client : clients) client.join();
}

}  // namespace
}  // namespace testing_support
