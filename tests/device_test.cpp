// The system log and the properties of a device, against stand-ins: a datagram socket for the log
// daemon, two scripts for the property programs.
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>

#include "gtest/gtest.h"
#include "properties.h"
#include "support/tool.h"
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
  script("getprop", "echo \"$@\" >> asked; cat values/$1 2> values/missing; echo");
  script("setprop", "test \"$1\" != ro.fixed && printf %s \"$2\" > values/$1");
  write_file(root / "values/persist.vendor.velmor.print", "0");
  write_file(root / "values/long", std::string(200, 'v'));

  EXPECT_EQ(velmor_utils_get_print_flag(), 0);
  EXPECT_EQ(velmor_utils_get_shell_print_flag(), 1);
  EXPECT_EQ(get("unset", "default"), "default");
  EXPECT_EQ(get("long", ""), std::string(PROPERTY_VALUE_MAX - 1, 'v'));

  EXPECT_EQ(property_set("name", "two words $HOME"), 0);
  EXPECT_EQ(get("name", ""), "two words $HOME");
  EXPECT_EQ(property_set("name", "again"), 0);
  EXPECT_EQ(get("name", ""), "again");
  EXPECT_EQ(property_set("ro.fixed", "1"), -1);

  // Each message asks; the program is not run for each.
  write_file(root / "asked", "");
  for (int i = 0; i < 100; ++i) get("often", "");
  EXPECT_EQ(read_file(root / "asked"), "often\n");
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

}  // namespace
}  // namespace testing_support
