// The UIM client and what module 5 sends through it and the extension service: byte for byte, when
// the client is opened anew, and what hostile answers do.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "support/fake_modem_fixture.h"
#include "uim_service.h"
#include "utilities/qcril_memory_management.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_cmn_uim.h"
#include "velmor_tovi_test_cmn.h"
#include "velmor_tovi_test_cmn_esim.h"
#include "velmor_utils.h"

namespace {

using namespace testing_support;

constexpr uint32_t kUim = 0x0B;
constexpr uint32_t kUimPort = 20;

const char* const kSuccess = "02 0400 0000 0000";
const char* const kRefusal = "02 0400 0100 5e00";

class Uim : public FakeModemTest {
 protected:
  using FakeModemTest::FakeModemTest;
  void SetUp() override {
    modem.add_service(kUim, kUimPort);
    modem.add_service(kExtensionId, kExtensionPort);
    g_velmor_extend_print_flag = 0;
    reply(kSuccess);
  }

  // Answers UIM requests with these TLVs and extension requests with success.
  void reply(const std::string& tlvs) {
    modem.on_request([=](const Bytes& request) {
      const auto id = static_cast<uint16_t>(request[3] | request[4] << 8);
      if (id == kExtendSendDataMsg) return Replies{answer(request, Bytes(20))};
      return Replies{packet(qmi::Kind::Response, transaction_of(request), id, bytes(tlvs))};
    });
  }
  void fall_silent() {
    modem.on_request([](const Bytes&) { return Replies{}; });
  }

  // What `call` echoes; its result goes to `result`.
  std::string echo_of(const std::function<int()>& call) {
    testing::internal::CaptureStdout();
    result = call();
    fflush(stdout);
    return without_lines(testing::internal::GetCapturedStdout());
  }
  static bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }

  // The service leaves and comes back; returns when the library has told the client.
  void lose_service() {
    std::ifstream log(std::filesystem::path(socket_path()).parent_path() / "log", std::ios::ate);
    modem.remove_service(kUimPort);
    modem.add_service(kUim, kUimPort);
    std::string line, part;  // a line may be seen while it is being written
    for (int pauses = 0; pauses < 50000;) {
      getline(log, part);
      line += part;
      if (log.eof()) {
        log.clear();
        usleep(200);
        ++pauses;
      } else {
        if (line.ends_with("SSR Detected, set SSR_Detected 1")) return;
        line.clear();
      }
    }
    FAIL() << "the client was not told";
  }

  FakeModem modem{socket_path()};
  int result = 0;
  const std::function<int()> status = [] {
    UimCardStatus out{};
    return velmor_uim_get_card_status(&out);
  };
  const std::function<int()> open = [] {
    const UimOpenChannelParams in = {2, 1};
    uint8_t channel = 0xFF;
    return velmor_uim_open_channel(&in, &channel);
  };
  const std::function<int()> close = [] {
    const UimCloseChannelParams in = {2, 1};
    return velmor_uim_close_channel(&in);
  };
  const std::function<int()> apdu = [] {
    const UimApduRequest in = {
        2, 1, 13, {0x80, 0xE2, 0x91, 0x00, 0x07, 0xBF, 0x34, 0x04, 0x82, 0x02, 0x05, 0xE0, 0x00}};
    UimApduResponse out{};
    return velmor_uim_send_apdu(&in, &out);
  };
  const std::function<int()> power_down = [] {
    const UiccPowerParams in = {0, 2, 0, 0};
    return velmor_esim_request_uicc_power_ex(&in);
  };
  const std::function<int()> power_up = [] {
    const UiccPowerParams in = {1, 2, 7, 1};
    return velmor_esim_request_uicc_power_ex(&in);
  };
  const std::function<int()> eid = [] {
    const uint8_t slot = 2;
    uint8_t out[16];
    return velmor_uim_request_eid(&slot, out);
  };
};

TEST_F(Uim, ACardWhoseModeCannotBeStoredIsNotPowered) {
  reply(kRefusal);
  const std::string refused = echo_of(power_down);
  EXPECT_EQ(result, 0);  // what the service says is not looked at
  const std::string f = "RIL[velmor_esim_request_uicc_power_ex]: ";
  EXPECT_TRUE(holds(refused, f + "velmor_uim_request_uicc_power_ex power down sim\n"));
  EXPECT_TRUE(holds(refused, f + "uicc_power_ex res = 0, failed_cnt = 0\n" + f +
                                 "function exit <-------------\n"));
  modem.on_request([](const Bytes& request) { return Replies{answer(request, {}, 1)}; });
  const std::string failed = echo_of(power_up);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(modem.requests().size(), 1u);
  EXPECT_TRUE(
      holds(failed, f + "velmor_uim_request_uicc_power_ex power up sim, ignore hotswap = 1 \n"));
  EXPECT_TRUE(holds(failed, f + "Velmor, power up write esim efs file failed\n" + f +
                                "uicc_power_ex res = -1, failed_cnt = 0\n"));
}

const char* const kTry = " try init_uim_qmi_client ";
const char* const kRelease = "RIL[uim_qmi_client_recovery]: uim_qmi_client_recovery";

TEST_F(Uim, AnOperationLogsItsWayThroughTheClient) {
  const std::string f = "RIL[velmor_uim_open_channel]: ";
  reply(std::string(kSuccess) + "10 0100 03 11 0200 9000 12 0300 02 6f00");
  EXPECT_EQ(echo_of(open), f + "function entry ------------->\n" +
                               "RIL[init_uim_qmi_client]: init_uim_qmi_client 0x1\n" + f +
                               "velmor_uim_open_channel try init_uim_qmi_client 0x1\n" + f +
                               "velmor_uim_open_channel uim_qmi_client 0x1\n" + f +
                               "velmor_uim_open_channel successfully\n" + f +
                               "function exit <-------------\n");
  reply(kRefusal);
  EXPECT_TRUE(holds(echo_of(open), f + "velmor_uim_open_channel failed\n"));
  EXPECT_EQ(result, -1);
  for (const auto& refused_is_fine : {close, eid, status}) {
    echo_of(refused_is_fine);
    EXPECT_EQ(result, 0);
  }
  echo_of(apdu);
  EXPECT_EQ(result, -1);
}

TEST_F(Uim, ALossBetweenOperationsIsRecoveredFromBeforeTheNextSend) {
  echo_of(open);
  for (const auto& call : {open, close, apdu, power_down, power_up, eid}) {
    lose_service();
    const std::string echo = echo_of(call);
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(holds(echo, "SSR_Detected, try recovery\n" + std::string(kRelease)));
    EXPECT_TRUE(holds(echo, kTry));
    EXPECT_FALSE(holds(echo, "QMI error"));
    EXPECT_FALSE(holds(echo_of(call), kRelease));
  }
  // The card status sends first, fails, and recovers after that.
  lose_service();
  const std::string echo = echo_of(status);
  EXPECT_EQ(result, -2);
  EXPECT_FALSE(holds(echo, kTry));
  EXPECT_TRUE(holds(echo,
                    "send msg sync client error = -2\n"
                    "RIL[velmor_uim_get_card_status]: QMI error, try recovery\n" +
                        std::string(kRelease)));
  EXPECT_TRUE(holds(echo_of(status), kTry));
  EXPECT_EQ(result, 0);
}

class SilentUim : public Uim {
 protected:
  SilentUim() : Uim("0.2") {}
};

TEST_F(SilentUim, TheThirdTimeOutRecoversAndTheNextOperationOpensAClient) {
  echo_of(eid);
  fall_silent();
  for (int i = 1; i <= 3; ++i) {
    const std::string echo = echo_of(i == 2 ? status : eid);
    EXPECT_EQ(result, -3);
    EXPECT_EQ(holds(echo, kRelease), i == 3) << i;
  }
  modem.remove_service(kUimPort);
  for (int i = 0; i < 2; ++i) {  // as long as no client can be opened, every operation recovers
    const std::string echo = echo_of(power_up);
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(holds(echo,
                      "qmi_client_init UIM instance failed, qmi_client_error = -3\n"
                      "RIL[velmor_esim_request_uicc_power_ex]: init_uim_qmi_client failed\n"
                      "RIL[velmor_esim_request_uicc_power_ex]: uicc_power_ex res = -1, "
                      "failed_cnt = 3\n"
                      "RIL[velmor_esim_request_uicc_power_ex]: QMI error, try recovery\n"
                      "RIL[uim_qmi_client_recovery]: uim_qmi_client_recovery "
                      "qmi_client_release (nil)\n"));
  }
  modem.add_service(kUim, kUimPort);
  reply(kSuccess);
  EXPECT_TRUE(holds(echo_of(eid), kTry));
  EXPECT_EQ(result, 0);
  fall_silent();
  EXPECT_FALSE(holds(echo_of(eid), kRelease));  // the count began anew
}

size_t entries(const char* folder) {
  size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++n;
  return n;
}

TEST_F(Uim, AThousandRecoveriesLeaveNothingBehind) {
  g_velmor_shell_print_flag = 0;
  const auto before_a_send = [&] {
    lose_service();
    EXPECT_EQ(eid(), 0);
  };
  const auto after_a_send_that_failed = [&] {
    lose_service();
    EXPECT_EQ(status(), -2);
    EXPECT_EQ(eid(), 0);
  };
  eid();
  for (int i = 0; i < 10; ++i) before_a_send();
  const size_t descriptors = entries("/proc/self/fd"), threads = entries("/proc/self/task");
  for (int i = 0; i < 495; ++i) {
    before_a_send();
    after_a_send_that_failed();
  }
  // The thread of the last connection may still be ending.
  const auto left_over = [&] {
    return entries("/proc/self/fd") > descriptors || entries("/proc/self/task") > threads;
  };
  for (int i = 0; i < 500 && left_over(); ++i) usleep(10000);
  EXPECT_FALSE(left_over());
  g_velmor_shell_print_flag = 1;
}

std::string count8(size_t n, const std::string& element) {
  std::string all = hex(Bytes{static_cast<uint8_t>(n)});
  for (size_t i = 0; i < n; ++i) all += element;
  return all;
}

std::string tlv(const std::string& number, const std::string& value) {
  const size_t size = bytes(value).size();
  return number + hex(Bytes{uint8_t(size & 255), uint8_t(size >> 8)}) + value;
}

TEST_F(Uim, CardsAreKeptAsFarAsTheyCanBeRead) {
  // Three GW sessions, of which the first has a card, and two 1X sessions without any.
  const std::string head = "03 0000 ffff ffff 02 ffff ffff ";
  const std::string usim =
      "01 00 00 00 00 01 02 07 02 0b 00 00 07 a0000000871002 00 03 03 0a 01 03 0a";
  const struct {
    std::string extended;  // the value of TLV 0x13
    const char* logged;
    int state[2];
  } rows[] = {
      {head + "02 010000000000 020000000100", "0] State = 1|1] State = 2|", {1, 2}},
      {head + "02" + usim + "000000000000", "0] State = 1|1] State = 0|", {1, 0}},
      {"00 00 02 010000000000 020000000100", "0] State = 1|1] State = 2|", {1, 2}},  // no session
      {count8(16, "0001") + count8(17, "0102") + "02 010000000000 020000000100",
       "0] State = 1|1] State = 2|",
       {1, 2}},
      {count8(255, "0001") + count8(255, "0102") + "02" + usim + "020000000100",
       "0] State = 1|1] State = 2|",
       {1, 2}},
      {head + "01 020000000000", "0] State = 2|", {2, 3}},
      {head + "00", "", {3, 3}},
      {head + count8(200, "010000000000"),
       "0] State = 1|1] State = 1|2] State = 1|3] State = 1|4] State = 1|",
       {1, 1}},
      {head + "02" + usim + "00 00 00", "0] State = 1|", {1, 3}},      // cut in the second card
      {head + "02 010000000001 02 07", "", {3, 3}},                    // cut in an application
      {head + "01 010000000000 1122334455", "0] State = 1|", {1, 3}},  // appended
      {head + "01 01000000000b" + std::string(400, '0'), "", {3, 3}},  // eleven applications
      {head + "01 7f0000000000", "0] State = 127|", {127, 3}},
  };
  for (const auto& row : rows) {
    reply(kSuccess + tlv("16", "02 01000000 01000000") + tlv("15", "02 0101") +
          tlv("13", row.extended) + tlv("11", "02 0000") +
          tlv("10", "0000 ffff ffff ffff 01 050000000000"));
    UimCardStatus out = {{9, 9}};
    const std::string echo = echo_of([&] { return velmor_uim_get_card_status(&out); });
    EXPECT_EQ(result, 0) << row.extended;
    std::string logged;
    for (size_t at = 0; (at = echo.find("SIM[", at)) != std::string::npos; ++at) {
      logged += echo.substr(at + 4, echo.find('\n', at) - at - 4) + "|";
    }
    EXPECT_EQ(logged, row.logged) << row.extended;
    EXPECT_EQ(out.state[0], row.state[0]);
    EXPECT_EQ(out.state[1], row.state[1]);
  }
  UimCardStatus out = {{9, 9}};
  const auto call = [&] { return velmor_uim_get_card_status(&out); };
  const std::string cuts[] = {"", "03 0000 ffff", "11" + std::string(66, '0'), "00 02 ffff ff"};
  for (const std::string& cut : cuts) {
    reply(kSuccess + tlv("13", cut));  // not even a head: the message is malformed
    echo_of(call);
    EXPECT_EQ(result, -1) << cut;
    EXPECT_EQ(out.state[0], 9);
  }
  reply(kRefusal + tlv("13", head + "01 010000000000"));
  echo_of(call);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(out.state[0], kUimCardStateUnknown);
}

TEST_F(Uim, AnswersNeverReachPastTheCallersRecord) {
  const UimApduRequest in = {2, 1, 1, {0}};
  const auto send = [&](UimApduResponse& out) {
    return echo_of([&] { return velmor_uim_send_apdu(&in, &out); });
  };
  const struct {
    size_t size;
    int result, len;
  } rows[] = {{0, 0, 0}, {63, 0, 63}, {64, 0, 63}, {255, 0, 63}, {1024, 0, 63}, {1025, -1, 0}};
  for (const auto& row : rows) {
    struct {
      UimApduResponse out{};
      uint8_t guard = 0xEE;
    } record;
    std::string value = hex(Bytes{uint8_t(row.size & 255), uint8_t(row.size >> 8)});
    value += hex(Bytes(row.size, 0xAA));
    reply(kSuccess + tlv("10", value));
    send(record.out);
    EXPECT_EQ(result, row.result) << row.size;
    EXPECT_EQ(record.out.len, row.len) << row.size;
    EXPECT_EQ(record.guard, 0xEE);
  }
  UimApduResponse nothing{};
  reply(std::string(kSuccess) + "11 0600 dc05 07000000");  // too long for one message
  const std::string long_answer = send(nothing);
  EXPECT_EQ(result, 0);
  reply(kSuccess);
  EXPECT_EQ(send(nothing), long_answer);
  EXPECT_EQ(nothing.len, 0);
  const uint8_t slot = 2;
  const struct {
    const char* tlvs;
    const char* eid;
  } eids[] = {
      {"10 1100 10 89049032123451234512345678901235", "89049032123451234512345678901235"},
      {"10 0400 03 112233", "11223300000000000000000000000000"},
      {"10 0100 00", "00000000000000000000000000000000"},
      {"", "eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee"},
      {"10 1200 11 8904903212345123451234567890123500", "eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee"},
  };
  for (const auto& row : eids) {
    uint8_t out[16];
    memset(out, 0xEE, sizeof out);
    reply(std::string(kSuccess) + row.tlvs);
    echo_of([&] { return velmor_uim_request_eid(&slot, out); });
    EXPECT_EQ(hex(out), row.eid);
  }
  uint8_t channel = 0xFF;
  const UimOpenChannelParams open_in = {2, 1};
  reply(kSuccess);  // a channel that is not named
  echo_of([&] { return velmor_uim_open_channel(&open_in, &channel); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(channel, 0xFF);
}

TEST_F(Uim, AnEidIsValidByItsRemainder) {
  const struct {
    const char* text;
    int remainder;
  } rows[] = {
      {"89049032123451234512345678901235", 1},
      {"89049032123451234512345678901236", 2},
      {"00000000000000000000000000000000", 0},
      {"ffffffffffffffffffffffffffffffff", 69},  // letters count with their code minus 48
  };
  for (const auto& row : rows) {
    bool valid = false;
    const std::string echo = echo_of([&] {
      valid = is_eid_valid(row.text);
      return 0;
    });
    EXPECT_EQ(valid, row.remainder == 1) << row.text;
    if (row.remainder != 1) {
      EXPECT_TRUE(holds(echo, "eid validate failed, result = " + std::to_string(row.remainder)));
    }
  }
}

TEST_F(Uim, MemoryThatCannotBeHadIsSaidInTheLog) {
  const std::string log = std::filesystem::path(socket_path()).parent_path() / "log";
  EXPECT_EQ(qcril_malloc_adv(SIZE_MAX / 2, "some_caller", 42), nullptr);
  const std::string text = read_file(log);
  EXPECT_TRUE(holds(text, "E util: [some_caller: 42] [")) << text;
  EXPECT_TRUE(holds(text, ")] qcril_malloc_adv: Fail to allocate memory\n")) << text;
  void* block = qcril_malloc_adv(100, "some_caller", 43);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(hex({static_cast<uint8_t*>(block), 100}), std::string(200, '0'));
  qcril_free_adv(block, "some_caller", 44);
}

}  // namespace
