// The extension client, and what shares its code: common requests, the one-shot clients of SAR and
// NAS. What they send, byte for byte, and what they make of whatever comes back.
#include "modem_api/nas/nas_service.h"
#include "support/extend_fixture.h"
#include "utilities/velmor_log.h"
#include "utilities/velmor_result.h"
#include "velmor_extend_nvefs.h"
#include "velmor_tovi_test_rf.h"

namespace {

using namespace testing_support;

std::string captured() {
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
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

TEST_F(SilentModem, FailuresAreSaidAndLeaveTheCallersRoomAlone) {
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

TEST(Log, LinesOfAnyLengthAreWhole) {
  for (const size_t size : {511u, 512u, 513u, 2000u}) {
    const std::string body(size, 'x');
    testing::internal::CaptureStdout();
    VELMOR_LOG_DEBUG("%s", body.c_str());
    EXPECT_TRUE(captured().ends_with(": " + body + "\n")) << size;
  }
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
  const Bytes done = bytes("00000000 00000000");
  reply(done);
  EXPECT_EQ(velmor_common_qmi_req(27, 1, value, &rsp), 0);
  EXPECT_EQ(sent(), "1b0000000000000077");
  EXPECT_EQ(hex(std::span(modem.requests()[0]).subspan(7, 17)),
            request_prefix("04000000", "00020000"));
  reply(done);
  EXPECT_EQ(velmor_nvefs_sync(), 0);
  EXPECT_EQ(sent(), "020000000000000023");
  reply(bytes("00000000 06000000"));
  EXPECT_EQ(velmor_nvefs_sync(), 6);
  reply(Bytes(7, 1));  // no room for a result
  EXPECT_EQ(velmor_nvefs_sync(), -3);
  EXPECT_EQ(velmor_common_qmi_req(27, 1, value, &rsp), -3);
  EXPECT_EQ(rsp.unread, 0u);
  EXPECT_EQ(velmor_send_common_payload(velmor_common_direct_req{.type = 1, .value = {}}, &rsp), 0);

  reply(done);
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
  EXPECT_EQ(hex(modem.requests().at(0)), "00020002000000");  // the connection's second
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
  unsigned int time_out_ms = 1000;
  const auto send_scan = [&] {
    return velmor_send_nas_qmi_req_msg(0x21, &scan, sizeof scan, &found, sizeof found, time_out_ms);
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
  time_out_ms = 60;
  EXPECT_EQ(send_scan(), QMI_TIMEOUT_ERR);
  modem.remove_service(11);
}

}  // namespace
