// The extension client, the common requests and the NV/EFS library: what they send, byte for byte,
// and what they make of whatever comes back.
#include "modem.h"
#include "modem_api/nas/nas_service.h"
#include "sim_extension.h"
#include "support/fake_modem_fixture.h"
#include "utilities/velmor_result.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_nvefs.h"
#include "velmor_tovi_test_rf.h"
#include "velmor_utils.h"

namespace {

using namespace testing_support;

// The 17 bytes between a request's header and its payload: request id, length, TLV of the payload.
std::string request_prefix(const std::string& request_id, const std::string& data_len) {
  return hex(bytes("01 0400" + request_id + "02 0400" + data_len + "10 0002"));
}

class Extend : public FakeModemTest {
 protected:
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

std::string captured() {
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST_F(Extend, ARequestAlwaysCarriesAll512Bytes) {
  unsigned int room = 512;
  EXPECT_EQ(send(3, room), 0);
  EXPECT_EQ(send(512, room = 512), 0);
  const auto requests = modem.requests();
  ASSERT_EQ(requests.size(), 2u);
  const std::string header = "00" + hex(std::span(requests[0]).subspan(1, 2)) + "02001102";
  EXPECT_EQ(hex(requests[0]),
            header + request_prefix("02000000", "03000000") + "5a5a5a" + std::string(509 * 2, '0'));
  EXPECT_EQ(hex(requests[1]).substr(14),
            request_prefix("02000000", "00020000") + hex(Bytes(512, 0x5a)));
}

TEST_F(Extend, ArgumentsOutOfRangeAreRefusedUnsent) {
  Bytes buf(512);
  const struct {
    bool data, resp, resp_len;
    int data_len;
    unsigned int room;
    const char* text;
  } rows[] = {
      {false, true, true, 1, 1, "0,  put Invalid param\n"},
      {true, true, true, 513, 1, "put data_len 513 > max 512\n"},
      {true, true, true, 1, 513, "put data_len 1 > max 512\n"},
      {true, true, true, -1, 1, "put data_len -1 > max 512\n"},
      {true, true, true, 1, 0x80000000, "put data_len 1 > max 512\n"},
      {true, false, true, 1, 1, ",  put Invalid param\n"},
      {true, true, false, 1, 1, ",  put Invalid param\n"},
  };
  for (const auto& row : rows) {
    unsigned int room = row.room;
    testing::internal::CaptureStdout();
    EXPECT_EQ(velmor_extend_qmi_send_sync(2, row.data ? buf.data() : nullptr, row.data_len,
                                          row.resp ? buf.data() : nullptr,
                                          row.resp_len ? &room : nullptr),
              -1);
    const std::string out = captured();
    EXPECT_TRUE(out.ends_with(row.text)) << out;
    EXPECT_EQ(room, row.room);
  }
  EXPECT_TRUE(modem.requests().empty());
}

TEST_F(Extend, WhatIsCopiedOutFitsTheRoomAndTheAnswer) {
  unsigned char resp[8];
  unsigned int room = 4;
  reply(bytes("010203"));
  EXPECT_EQ(send(1, room, resp), 0);
  EXPECT_EQ(room, 3u);
  reply(bytes("0102030405"));
  memset(resp, 0xee, sizeof resp);
  EXPECT_EQ(send(1, room = 4, resp), 0);
  EXPECT_EQ(room, 4u);
  EXPECT_EQ(hex(resp), "01020304eeeeeeee");
  modem.on_request([](const Bytes& request) {  // says 4294967295 bytes
    Bytes lie = answer(request, {});
    memset(&lie[qmi::kHeaderBytes + 10], 0xff, 4);
    return Replies{lie};
  });
  EXPECT_EQ(send(1, room = 512), 0);
  EXPECT_EQ(room, 512u);
  modem.on_request([](const Bytes& request) {  // no payload at all
    return Replies{packet(qmi::Kind::Response, transaction_of(request), 2,
                          bytes("01 0400 00000000 02 0400 05000000"))};
  });
  EXPECT_EQ(send(1, room = 4), 0);
  EXPECT_EQ(room, 0u);
}

TEST_F(Extend, FailuresAreSaidAndLeaveTheCallersRoomAlone) {
  unsigned int room = 4;
  reply({}, 9);
  testing::internal::CaptureStdout();
  EXPECT_EQ(send(1, room), -3);
  EXPECT_EQ(captured(),
            "9 QMI service framework error. Check client\n"
            "velmor_extend_qmi_handle_req_cb result:-3\n");
  modem.on_request([](const Bytes&) { return Replies{}; });
  testing::internal::CaptureStdout();
  EXPECT_EQ(send(1, room), -3);
  EXPECT_EQ(captured(), "send msg sync failed:-3\nvelmor_extend_qmi_handle_req_cb result:-3\n");
  EXPECT_EQ(room, 4u);
  g_velmor_extend_print_flag = 0;
  testing::internal::CaptureStdout();
  EXPECT_EQ(send(1, room), -3);
  EXPECT_EQ(send(513, room), -1);
  reply(bytes("01"));
  EXPECT_EQ(send(1, room), 0);
  EXPECT_EQ(captured(), "");
}

std::string g_heard;

TEST_F(Extend, IndicationsReachTheHandlerOfTheirSlot) {
  const Bytes body3 =
      bytes("01 0400 02000000 02 0400 03000000 10 0002 aabbcc" + std::string(509 * 2, '0'));
  const qmi_client_type handle = velmor_extend_qmi_client_open();
  const auto indicate = [&](unsigned int id, Bytes body) {
    velmor_extend_qmi_ind_cb(handle, id, body.data(), static_cast<unsigned int>(body.size()),
                             nullptr);
  };
  const auto printed = [&](unsigned int id, const Bytes& body) {
    testing::internal::CaptureStdout();
    indicate(id, body);
    return captured();
  };
  const std::string first = "VELMOR__EXTEND_QMI: Indication msg_id=0x3 buf_len=";
  EXPECT_EQ(printed(3, body3), first + "529 \nNo function defined to handle indication: 2");
  Bytes seven = body3;
  seven[3] = 7;
  EXPECT_EQ(printed(3, seven), first + "529 \nIndicaion: 7 greater than maximum known indication.");
  EXPECT_EQ(printed(3, bytes("01")), first + "1 \nNo function defined to handle indication: 0");
  EXPECT_EQ(printed(4, body3) + printed(2, body3) + printed(10, body3) + printed(5, {}), "");

  EXPECT_FALSE(velmor_extend_set_ind_handler(7, nullptr));
  EXPECT_TRUE(velmor_extend_set_ind_handler(
      2, [](unsigned int id, const unsigned char* data, unsigned int len) {
        g_heard += std::to_string(id) + ":" + hex({data, len}) + " ";
      }));
  velmor_extend_set_generic_ind_handler([](unsigned int id, const void*, unsigned int len) {
    g_heard += std::to_string(id) + "/" + std::to_string(len) + " ";
  });
  testing::internal::CaptureStdout();
  indicate(3, body3);
  Bytes invalid(body3.begin(), body3.begin() + 14);
  indicate(3, invalid);
  const auto words = [](size_t n) { return Bytes(n); };
  const std::string two = "01 0400 00000000 02 0400 00000000 ";
  const auto with = [&](const char* header, size_t n) {
    Bytes body = bytes(two + header);
    const Bytes zeros = words(n);
    body.insert(body.end(), zeros.begin(), zeros.end());
    return body;
  };
  indicate(5, with("03 6004", 1120));
  indicate(6, with("03 0a00", 10));
  indicate(7, bytes(two));
  indicate(8, bytes("01 0400 00000000 02 1800" + std::string(48, '0')));
  indicate(9, with("03 9001", 400));
  indicate(9, with("03 9001", 399));
  captured();
  EXPECT_EQ(g_heard, "2:aabbcc 2: 5/1128 6/1288 7/8 8/32 9/408 ");
  velmor_extend_set_ind_handler(2, nullptr);
  velmor_extend_set_generic_ind_handler(nullptr);
}

TEST_F(Extend, CommonRequestsComeInTwoForms) {
  velmor_common_rsp rsp;
  unsigned char value[500];
  memset(value, 0x77, sizeof value);
  reply(bytes("00000000 05000000 0a0b"));
  EXPECT_EQ(velmor_send_common_qmi_msg(31, 4, value, &rsp), 0);
  EXPECT_EQ(sent(), "02000000000000001f0000000400000077777777");
  EXPECT_EQ(rsp.result, 5);
  EXPECT_EQ(rsp.data[1], 0x0b);
  reply({});
  EXPECT_EQ(velmor_common_qmi_req(27, 1, value, &rsp), 0);
  EXPECT_EQ(sent(), "1b0000000000000077");
  EXPECT_EQ(hex(std::span(modem.requests()[0]).subspan(7, 17)),
            request_prefix("04000000", "00020000"));
  reply({});
  EXPECT_EQ(velmor_nvefs_sync(), 0);
  EXPECT_EQ(sent(), "020000000000000023");
  reply(bytes("00000000 06000000"));
  EXPECT_EQ(velmor_nvefs_sync(), 6);

  reply({});
  EXPECT_EQ(velmor_send_common_qmi_msg(1, 491, value, &rsp), 0);
  EXPECT_EQ(velmor_common_qmi_req(1, 499, value, &rsp), 0);
  EXPECT_EQ(modem.requests().size(), 2u);
  memset(&rsp, 0xee, sizeof rsp);
  EXPECT_EQ(velmor_common_qmi_req(1, 500, value, &rsp), VELMOR_INVALID_ARGUMENT);
  EXPECT_EQ(rsp.data[499], 0xee);
  EXPECT_EQ(velmor_send_common_qmi_msg(1, 492, value, &rsp), VELMOR_INVALID_ARGUMENT);
  EXPECT_EQ(rsp.data[499], 0);
  EXPECT_EQ(velmor_send_common_qmi_msg(1, 1, nullptr, &rsp), VELMOR_INVALID_ARGUMENT);
  EXPECT_EQ(velmor_common_qmi_req(1, 1, nullptr, &rsp), VELMOR_INVALID_ARGUMENT);
  EXPECT_EQ(velmor_send_common_qmi_msg(1, 0, nullptr, nullptr), 0x0FFFF00A);
  EXPECT_EQ(velmor_common_qmi_req(1, 0, nullptr, nullptr), 0x0FFFF00A);
  EXPECT_EQ(modem.requests().size(), 2u);
}

TEST_F(Extend, TheSarDsiIsAskedThroughAClientOfItsOwn) {
  const auto sar = [&](const std::string& body) {
    modem.on_request([=](const Bytes& request) {
      return Replies{packet(qmi::Kind::Indication, 0, 3, {}),
                     packet(qmi::Kind::Response, transaction_of(request), 2, bytes(body))};
    });
    return velmor_get_sar_dsi();
  };
  EXPECT_EQ(velmor_get_sar_dsi(), -1);  // no service
  modem.add_service(0x11, 9);
  testing::internal::CaptureStdout();
  EXPECT_EQ(sar("02 0400 0000 0000 10 0400 03000000"), 3);
  const std::string out = without_lines(captured());
  const std::string log = "RIL[velmor_get_sar_dsi]: ";
  EXPECT_NE(out.find("RIL[velmor_qmi_client_common_empty_unsol_ind_cb]: msg_id 3\n"),
            std::string::npos);
  EXPECT_NE(out.find(log + "dsi vailid = 1 , dsi value = 3\n" + log + "function exit"),
            std::string::npos);
  EXPECT_EQ(hex(modem.requests().at(0)), "00010002000000");
  EXPECT_EQ(sar("02 0400 0100 5e00"), 0);  // refused, and no state: still an answer
  EXPECT_EQ(sar("02 0400 0000"), -1);
  EXPECT_EQ(hex(modem.requests().at(0)), "00010002000000");
  modem.remove_service(9);
}

TEST_F(Extend, ANasRequestIsSentOnAClientOfItsOwn) {
  modem.add_service(0x03, 11);
  nas_perform_network_scan_req_msg_v01 scan{};
  nas_perform_network_scan_resp_msg_v01 found{};
  nas_perform_incremental_network_scan_req_msg_v01 incremental{};
  nas_perform_incremental_network_scan_resp_msg_v01 accepted{};
  const auto reply_with = [&](const std::string& tlvs) {
    modem.on_request([=](const Bytes& request) {
      const auto id = static_cast<uint16_t>(request[3] | request[4] << 8);
      return Replies{packet(qmi::Kind::Response, transaction_of(request), id, bytes(tlvs))};
    });
  };
  const auto send_scan = [&] {
    return velmor_send_nas_qmi_req_msg(0x21, &scan, sizeof scan, &found, sizeof found, 1000);
  };
  reply_with(
      "02 0400 0000 0000 10 0c00 0100 cc01 0100 aa 04 54455354 11 0700 0100 cc01 0100 08"
      "12 0700 0100 cc01 0100 00 13 0400 00000000 14 0300 08 cc01");
  EXPECT_EQ(send_scan(), 0);
  EXPECT_EQ(found.network[0].mcc, 460);
  EXPECT_EQ(found.network[0].name_len, 4u);
  EXPECT_EQ(found.rat[0].rat, 8);
  reply_with("02 0400 0100 5e00");
  EXPECT_EQ(send_scan(), 0);  // what the modem says is the caller's
  EXPECT_EQ(found.resp.error, 0x5eu);
  reply_with("02 0400 0000 0000");
  EXPECT_EQ(send_scan(), 0);
  EXPECT_EQ(velmor_send_nas_qmi_req_msg(0x85, &incremental, sizeof incremental, &accepted,
                                        sizeof accepted, 1000),
            0);
  const auto requests = modem.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(hex(requests[0]), "00010021000000");
  EXPECT_EQ(hex(requests[1]), "00010085000000");  // a first transaction again
  EXPECT_EQ(velmor_send_nas_qmi_req_msg(0x21, nullptr, 0, &found, sizeof found, 1000), -1);
  EXPECT_EQ(velmor_send_nas_qmi_req_msg(0x21, &scan, sizeof scan, nullptr, 0, 1000), -1);
  modem.on_request([](const Bytes&) { return Replies{}; });
  EXPECT_EQ(send_scan(), QMI_TIMEOUT_ERR);
  modem.remove_service(11);
}

char g_path[] = "/ab";

TEST_F(Extend, NvAndEfsRequestsByteForByte) {
  unsigned char buf[512] = {0x11, 0x22, 0x33};
  unsigned int room = 8;
  const std::string no_path(2 * 72, '0');  // offsets 4 to 75
  const std::string path = "032f6162" + std::string(2 * 68, '0');
  const std::string nothing(2 * 72, '0');
  const struct {
    std::function<int()> call;
    std::string payload;
  } rows[] = {
      {[&] { return velmor_nv_read(1, 7232, buf, &room); }, "0101401c"},
      {[&] { return velmor_nv_write_ex(0, 550, buf, 3); },
       "02002602" + no_path + "03000000" + std::string(16, '0') + "112233"},
      {[&] { return velmor_nv_delete(1, 10); }, "03010a"},
      {[&] { return velmor_efs_read(0, g_path, 3, buf, &room); }, "04000000032f6162"},
      {[&] { return velmor_efs_write(1, g_path, 3, buf, 3); },
       "0501ff00" + path + "03000000" + "03000000" + "00000000" + "112233"},
      {[&] { return velmor_efs_delete(0, g_path, 3); }, "06000000032f6162"},
  };
  for (const auto& row : rows) {
    room = 8;
    buf[0] = 0x11;
    reply(nvefs_rsp(1, 1, 0, {0x11}));
    EXPECT_EQ(row.call(), 0) << row.payload;
    EXPECT_EQ(sent(), row.payload);
    EXPECT_EQ(hex(std::span(modem.requests()[0]).subspan(7, 17)),
              request_prefix("02000000", "00020000"));
  }
}

TEST_F(Extend, RfSettingsByteForByte) {
  std::vector<std::string> sixty = {"tovi", "3", "0"};
  sixty.insert(sixty.end(), 60, "1");
  std::string fifty = "000000000000000032";
  for (int i = 0; i < 50; ++i) fifty += "00000001";
  const std::string kGpioPath = "/nv/item_files/modem/velmor/rf_ant_port_config";
  const std::string kTxPath = "/nv/item_files/modem/antenna/ant_tx_config";
  const struct {
    std::vector<std::string> words;
    std::string payload;
  } rows[] = {
      {{"tovi", "3", "0"}, ""},
      {{"tovi", "3", "0", "7", "-1"}, "00000000000000000200000007000000ffffffff"},
      {sixty, fifty},
      {{"tovi", "3", "3", "1", "4", "0x30000"}, "01000000000000000100000004000000000003"},
      {{"tovi", "3", "3", "0", "2", "18446744073709551615"},
       "01000000000000000000000002000000ffffffffffffffff"},
      {{"tovi", "3", "1"},
       "040000002f" + hex(Bytes(kGpioPath.begin(), kGpioPath.end()))},  // 47 with its NUL
      {{"tovi", "3", "5"}, "060000002b" + hex(Bytes(kTxPath.begin(), kTxPath.end()))},
  };
  for (const auto& row : rows) {
    std::vector<char*> argv;
    for (const std::string& word : row.words) argv.push_back(const_cast<char*>(word.c_str()));
    reply(nvefs_rsp(1, 1, 0, {1}));
    testing::internal::CaptureStdout();
    velmor_test_rf_do(static_cast<int>(argv.size()), argv.data());
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(sent(), row.payload);
  }
}

TEST_F(Extend, NvefsChecksItsArgumentsInOrderAndSendsNothing) {
  unsigned char buf[512] = {};
  unsigned int room = 8, none = 0;
  const struct {
    int code;
    std::function<int()> call;
  } rows[] = {
      {-104, [&] { return velmor_nv_read(2, 9999, nullptr, nullptr); }},
      {-109, [&] { return velmor_nv_read(0, 7233, nullptr, nullptr); }},
      {-107, [&] { return velmor_nv_read(0, 1, nullptr, nullptr); }},
      {-108, [&] { return velmor_nv_read(0, 1, buf, nullptr); }},
      {-108, [&] { return velmor_nv_read(0, 1, buf, &none); }},
      {-109, [&] { return velmor_nv_write_ex(0, 0xFFFFFFFF, nullptr, 0); }},
      {-107, [&] { return velmor_nv_write_ex(0, 1, nullptr, 0); }},
      {-108, [&] { return velmor_nv_write_ex(0, 1, buf, 0); }},
      {-108, [&] { return velmor_nv_write_ex(0, 1, buf, 425); }},
      {-108, [&] { return velmor_nv_write_ex(0, 1, buf, -1); }},
      {-104, [&] { return velmor_nv_delete(2, 1); }},
      {-109, [&] { return velmor_nv_delete(1, 7233); }},
      {-104, [&] { return velmor_efs_read(2, nullptr, 0, nullptr, nullptr); }},
      {-105, [&] { return velmor_efs_read(0, nullptr, 0, nullptr, nullptr); }},
      {-106, [&] { return velmor_efs_read(0, g_path, 0, nullptr, nullptr); }},
      {-106, [&] { return velmor_efs_read(0, g_path, 72, nullptr, nullptr); }},
      {-106, [&] { return velmor_efs_read(0, g_path, -3, nullptr, nullptr); }},
      {-107, [&] { return velmor_efs_read(0, g_path, 3, nullptr, nullptr); }},
      {-108, [&] { return velmor_efs_read(0, g_path, 3, buf, nullptr); }},
      {-108, [&] { return velmor_efs_read(0, g_path, 3, buf, &none); }},
      {-106, [&] { return velmor_efs_write(0, g_path, 71, nullptr, 0); }},
      {-107, [&] { return velmor_efs_write(0, g_path, 3, nullptr, 0); }},
      {-108, [&] { return velmor_efs_write(0, g_path, 3, buf, 0); }},
      {-108, [&] { return velmor_efs_write(0, g_path, 3, buf, 102411); }},
      {-105, [&] { return velmor_efs_delete(0, nullptr, 3); }},
      {-106, [&] { return velmor_efs_delete(0, g_path, 71); }},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.call(), row.code) << &row - rows;
  }
  EXPECT_TRUE(modem.requests().empty());

  char longest[72];
  memset(longest, 'p', sizeof longest);
  reply(nvefs_rsp(1, 1, 0, {1}));
  EXPECT_EQ(velmor_efs_read(0, longest, 71, buf, &room), 0);
  EXPECT_EQ(velmor_efs_write(0, longest, 70, buf, 1), 0);
  EXPECT_EQ(velmor_nv_write_ex(0, 1, buf, 424), 0);
  EXPECT_EQ(modem.requests().size(), 3u);
}

TEST_F(Extend, AnswersOfEveryShapeHaveADocumentedOutcome) {
  unsigned char buf[64];
  unsigned int room;
  const auto nv_read = [&] { return velmor_nv_read(0, 1, buf, &(room = 8)); };
  const auto nv_write = [&] { return velmor_nv_write_ex(0, 1, buf, 1); };
  const auto nv_delete = [&] { return velmor_nv_delete(0, 1); };
  const auto efs_read = [&] { return velmor_efs_read(0, g_path, 3, buf, &(room = 8)); };
  const auto efs_write = [&] { return velmor_efs_write(0, g_path, 3, buf, 1); };
  const auto efs_delete = [&] { return velmor_efs_delete(0, g_path, 3); };
  const Bytes five = bytes("0102030405");
  const struct {
    const char* what;
    std::function<int()> call;
    Bytes payload;
    int code;
    unsigned int stored;  // of a read that succeeds
  } rows[] = {
      {"the item", nv_read, nvefs_rsp(5, 0, 0, five), 0, 5},
      {"an item larger than the room", nv_read, nvefs_rsp(9, 0, 0, Bytes(9)), 0, 8},
      {"fewer bytes than it says", nv_read, nvefs_rsp(7, 0, 0, five), 0, 5},
      {"a size of 4294967295", nv_read, nvefs_rsp(0xFFFFFFFF, 0, 0, five), 0, 5},
      {"an empty item", nv_read, nvefs_rsp(0, 0, 0, five), -108, 0},
      {"an empty answer", nv_read, {}, -108, 0},
      {"the modem's refusal", nv_read, nvefs_rsp(5, 0, 5, five), 5, 0},
      {"a negative refusal", nv_read, nvefs_rsp(5, 0, -5, five), -5, 0},
      {"success", nv_write, nvefs_rsp(0, 0, 0, {}), 0, 0},
      {"a refusal", nv_write, nvefs_rsp(0, 0, 7, {}), 7, 0},
      {"no room for a result", nv_write, Bytes(19), -103, 0},
      {"no room for a result", nv_delete, Bytes(19), -103, 0},
      {"no room for a result", efs_write, Bytes(19), -103, 0},
      {"no room for a result", efs_delete, {}, -103, 0},
      {"an instance", efs_write, nvefs_rsp(0, 0, 254, {}), 0, 0},
      {"a negative refusal", efs_write, nvefs_rsp(0, 0, -22, {}), -22, 0},
      {"a positive refusal", efs_delete, nvefs_rsp(0, 0, 2, {}), 2, 0},
      {"the file", efs_read, nvefs_rsp(5, 5, 0, five), 0, 5},
      {"more bytes than the room", efs_read, nvefs_rsp(20, 20, 0, Bytes(20)), 0, 8},
      {"more bytes than it says", efs_read, nvefs_rsp(3, 3, 0, five), 0, 3},
      {"a chunk of 4294967295", efs_read, nvefs_rsp(5, 0xFFFFFFFF, 0, five), 0, 5},
      {"an empty chunk", efs_read, nvefs_rsp(5, 0, 0, five), -108, 0},
      {"a chunk without its bytes", efs_read, nvefs_rsp(5, 5, 0, {}), -108, 0},
      {"a refusal", efs_read, nvefs_rsp(5, 5, 2, five), 2, 0},
  };
  for (const auto& row : rows) {
    memset(buf, 0xee, sizeof buf);
    reply(row.payload);
    EXPECT_EQ(row.call(), row.code) << row.what;
    if (row.code == 0 && row.stored > 0) {
      EXPECT_EQ(room, row.stored) << row.what;
      EXPECT_EQ(buf[8], 0xee) << row.what;
    }
  }
  reply({}, 1);
  EXPECT_EQ(nv_read(), -103);
  modem.on_request([](const Bytes&) { return Replies{}; });
  EXPECT_EQ(efs_write(), -103);
}

TEST_F(Extend, AShortAnswerLowersTheRoomForTheRestOfAnEfsRead) {
  int chunk = 0;
  modem.on_request([&](const Bytes& request) {
    const size_t data = chunk++ == 0 ? 10 : 100;
    const auto size = static_cast<uint32_t>(data);
    return Replies{answer(request, nvefs_rsp(30, size, 0, Bytes(data, 7)))};
  });
  unsigned char buf[64];
  unsigned int room = sizeof buf;
  EXPECT_EQ(velmor_efs_read(0, g_path, 3, buf, &room), 0);
  EXPECT_EQ(room, 30u);
  EXPECT_EQ(modem.requests().size(), 3u);
}

TEST_F(Extend, AnEfsReadEndsAfter300Exchanges) {
  reply(nvefs_rsp(100000, 1, 0, {7}));
  Bytes buf(1000);
  unsigned int room = 1000;
  EXPECT_EQ(velmor_efs_read(0, g_path, 3, buf.data(), &room), 0);
  EXPECT_EQ(room, 300u);
  EXPECT_EQ(modem.requests().size(), 300u);
}

// The real modem's rules, without a process in between.
class ExtendWithModem : public Extend {
 protected:
  void SetUp() override {
    Extend::SetUp();
    std::string problem;
    simulated_ = sim::Modem::open(folder_.path(), problem);
    ASSERT_NE(simulated_, nullptr) << problem;
    service_ = std::make_unique<sim::ExtensionService>(*simulated_);
    modem.on_request([this](const Bytes& request) {
      const auto done = sim::carry_out(*service_, {1, 1}, request, no_faults_, random_);
      return Replies{done.deliveries.at(0).packet};
    });
    g_velmor_extend_print_flag = 0;
    g_velmor_shell_print_flag = 0;
  }
  void TearDown() override { g_velmor_shell_print_flag = 1; }

  ScratchFolder folder_;
  std::unique_ptr<sim::Modem> simulated_;
  std::unique_ptr<sim::ExtensionService> service_;
  sim::Faults no_faults_;
  std::minstd_rand random_;
};

TEST_F(ExtendWithModem, FilesOfEverySizeGoThereAndBackWhole) {
  const struct {
    unsigned int size;
    size_t writes, reads;
  } rows[] = {{1, 1, 1},   {413, 1, 1}, {414, 1, 1},       {415, 2, 1},
              {424, 2, 1}, {425, 2, 2}, {102410, 248, 242}};
  Bytes data(102410), back(102411);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + i / 251);
  char path[] = "/nv/item_files/modem/big";
  const int path_len = static_cast<int>(strlen(path));
  size_t before = 0;
  for (const auto& row : rows) {
    EXPECT_EQ(velmor_efs_write(1, path, path_len, data.data(), row.size), 0) << row.size;
    EXPECT_EQ(modem.requests().size() - before, row.writes) << row.size;
    before += row.writes;
    const std::string stored = read_file(folder_ / "efs/1/nv/item_files/modem/big");
    ASSERT_EQ(stored.size(), row.size);
    EXPECT_EQ(memcmp(stored.data(), data.data(), row.size), 0);
    unsigned int room = static_cast<unsigned int>(back.size());
    EXPECT_EQ(velmor_efs_read(1, path, path_len, back.data(), &room), 0) << row.size;
    EXPECT_EQ(room, row.size);
    EXPECT_EQ(memcmp(back.data(), data.data(), row.size), 0);
    EXPECT_EQ(modem.requests().size() - before, row.reads) << row.size;
    before += row.reads;
  }
  unsigned int room = 1000;
  EXPECT_EQ(velmor_efs_read(1, path, path_len, back.data(), &room), 0);
  EXPECT_EQ(room, 1000u);
  EXPECT_FALSE(exists(folder_ / "efs/0/nv/item_files/modem/big"));
}

TEST_F(ExtendWithModem, AChunkQuotesTheInstanceItWasGivenAndMustFit) {
  unsigned char data[415] = {};
  EXPECT_EQ(velmor_efs_write(0, g_path, 3, data, 415), 0);
  const auto requests = modem.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(payload_of(requests[0]).substr(0, 8), "0500ff00");
  EXPECT_EQ(payload_of(requests[1]).substr(0, 8), "05000100");

  const auto write = [&](uint32_t client, uint16_t id, uint32_t offset, uint32_t send) {
    velmor_extend_send_data_req_msg_v01 req{
        .request_id = 2, .data_len = 512, .data_valid = 1, .data = {}};
    velmor_extend_send_data_resp_msg_v01 resp{};
    const velmor_nvefs_req payload = {
        NvefsOp::EfsWrite, 0, id, 3, {'/', 'c', 'd'}, 20, send, offset, {}};
    memcpy(req.data, &payload, sizeof payload);
    sim::Aftermath none(service_->description());
    EXPECT_EQ(service_->answer({1, client}, 2, &req, &resp, none), 0u);
    velmor_nvefs_rsp rsp;
    memcpy(&rsp, resp.data, sizeof rsp);
    return rsp.result;
  };
  const int instance = write(1, kNoEfsInstance, 0, 10);
  ASSERT_GT(instance, 0);
  const auto id = static_cast<uint16_t>(instance);
  EXPECT_LT(write(2, id, 10, 10), 0);  // somebody else's
  EXPECT_LT(write(1, id, 11, 9), 0);   // a gap ends it
  EXPECT_LT(write(1, id, 10, 10), 0);
  EXPECT_LT(write(1, kNoEfsInstance, 0, 21), 0);
  EXPECT_LT(write(1, kNoEfsInstance, 0, 0), 0);
  const auto gone = static_cast<uint16_t>(write(1, kNoEfsInstance, 0, 10));
  service_->client_gone({1, 1});
  EXPECT_LT(write(1, gone, 10, 10), 0);
  const auto oldest = static_cast<uint16_t>(write(1, kNoEfsInstance, 0, 10));
  for (int i = 0; i < 300; ++i) {
    const int next = write(1, kNoEfsInstance, 0, 10);
    EXPECT_TRUE(next >= 1 && next <= 254 && next != kNoEfsInstance) << next;
  }
  EXPECT_LT(write(1, oldest, 10, 10), 0);
  EXPECT_FALSE(exists(folder_ / "efs/0/cd"));
}

}  // namespace
