// A test whose QMI library, in this process, talks to a fake modem at socket_path().
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "gtest/gtest.h"
#include "support/fake_modem.h"
#include "support/tool.h"
#include "velmor_extend_service.h"

namespace testing_support {

inline constexpr uint32_t kExtensionId = 0xFFE4;
inline constexpr uint32_t kExtensionPort = 7;

class FakeModemTest : public testing::Test {
 protected:
  // The library reads its variables once in the life of the process. Only a test that waits for
  // what never comes scales its time down: on a busy machine a peer needs the time it is given.
  explicit FakeModemTest(const char* time_scale = "1") { setenv("TOVI_TIME_SCALE", time_scale, 1); }
  void TearDown() override { expect_known_log(); }

  static const std::string& socket_path() {
    static const ScratchFolder folder;
    static const std::string path = folder / "modem";
    setenv("TOVI_MODEM", ("unix:" + path).c_str(), 1);
    setenv("TOVI_STATE", (folder / "state").c_str(), 1);
    setenv("TOVI_LOG", (folder / "log").c_str(), 1);
    return path;
  }

  // What the test has logged, line by line and in any order, is what its file in golden/logs says,
  // if it has one. TOVI_TEST_UPDATE=1 writes that anew.
  static void expect_known_log() {
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = test.test_suite_name() + std::string(".") + test.name() + ".txt";
    const std::string known = TOVI_TEST_DATA "/golden/logs/" + name;
    if (!exists(known)) return;
    const std::regex place(R"(^(.) \[\w+\]\[(\w+\.\w+):\d+\])");
    std::set<std::string> lines;
    std::ifstream log(std::filesystem::path(socket_path()).parent_path() / "log");
    for (std::string line; std::getline(log, line);) {
      lines.insert(std::regex_replace(line, place, "$1 $2") + "\n");
    }
    std::string said;
    for (const std::string& line : lines) said += line;
    expect_golden(known, said);
  }

  // A response of the extension service to `request` that carries `payload`.
  static Bytes answer(const Bytes& request, const Bytes& payload, uint32_t result = 0) {
    velmor_extend_send_data_resp_msg_v01 resp{};
    Bytes body = bytes("01 0400 00000000 02 0400 00000000 10 0002");
    const auto size = static_cast<uint32_t>(payload.size());
    memcpy(&body[3], &result, 4);
    memcpy(&body[10], &size, 4);
    std::copy(payload.begin(), payload.end(), resp.data);
    body.insert(body.end(), resp.data, resp.data + sizeof resp.data);
    return packet(qmi::Kind::Response, transaction_of(request), kExtendSendDataMsg, body);
  }

  static uint16_t transaction_of(const Bytes& request) {
    return static_cast<uint16_t>(request[1] | request[2] << 8);
  }

  // The 512 bytes of payload in a request, without trailing zeros.
  static std::string payload_of(const Bytes& request) {
    Bytes payload(request.begin() + qmi::kHeaderBytes + 17, request.end());
    while (!payload.empty() && payload.back() == 0) payload.pop_back();
    return hex(payload);
  }
};

}  // namespace testing_support
