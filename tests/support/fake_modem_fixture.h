// A test whose QMI library, in this process, talks to a fake modem at socket_path().
#pragma once

#include <stdlib.h>

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

  static const std::string& socket_path() {
    static const ScratchFolder folder;
    static const std::string path = folder / "modem";
    setenv("TOVI_MODEM", ("unix:" + path).c_str(), 1);
    setenv("TOVI_STATE", (folder / "state").c_str(), 1);
    setenv("TOVI_LOG", (folder / "log").c_str(), 1);
    return path;
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
