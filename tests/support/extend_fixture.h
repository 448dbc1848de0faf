// A test of what is built on the extension service, with its client open.
#pragma once

#include "support/fake_modem_fixture.h"
#include "velmor_extend_cmn.h"

namespace testing_support {

// The 17 bytes between a request's header and its payload: request id, length, TLV of the payload.
inline std::string request_prefix(const std::string& request_id, const std::string& data_len) {
  return hex(bytes("01 0400" + request_id + "02 0400" + data_len + "10 0002"));
}

class Extend : public FakeModemTest {
 protected:
  using FakeModemTest::FakeModemTest;
  void SetUp() override {
    g_velmor_extend_print_flag = 1;
    modem.add_service(kExtensionId, kExtensionPort);
    reply({});
    unsigned int room = 4;
    testing::internal::CaptureStdout();
    ASSERT_EQ(send(1, room), 0);  // so that opening the client is behind the test
    testing::internal::GetCapturedStdout();
    reply({});
  }

  // The process's one client never opens again, so the modem stays from test to test.
  static FakeModem& lasting_modem() {
    static auto* lasting = new FakeModem(socket_path());
    return *lasting;
  }
  FakeModem& modem = lasting_modem();

  // Answers every request with these payload bytes.
  void reply(const Bytes& payload, uint32_t result = 0) {
    modem.on_request(
        [=](const Bytes& request) { return Replies{answer(request, payload, result)}; });
  }

  // Answers an NV/EFS request: lengths, result, data.
  static Bytes nvefs_rsp(uint32_t all, uint32_t send, int32_t result, const Bytes& data) {
    velmor_nvefs_rsp rsp{};
    rsp.data_len_all = all;
    rsp.data_len_send = send;
    rsp.result = result;
    Bytes out(20 + data.size());
    memcpy(out.data(), &rsp, 20);
    std::copy(data.begin(), data.end(), out.begin() + 20);
    return out;
  }

  // The payload of the only request so far, without trailing zeros.
  std::string sent() {
    const auto requests = modem.requests();
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? "" : payload_of(requests[0]);
  }

  int send(int data_len, unsigned int& room, unsigned char* resp = nullptr) {
    static Bytes data(600, 0x5a);
    static Bytes scratch(600);
    return velmor_extend_qmi_send_sync(2, data.data(), data_len,
                                       resp != nullptr ? resp : scratch.data(), &room);
  }
};

// Tests whose modem falls silent.
class SilentModem : public Extend {
 protected:
  SilentModem() : Extend("0.34") {}
};

}  // namespace testing_support
