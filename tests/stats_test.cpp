// The statistics framework: its clients through restarts, its front door, tracked memory, and the
// unpacker of diagnostic records.
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "modem_api/modem_api.h"
#include "modem_api/nas/nas_0_client.h"
#include "modem_api/vs/vs_client.h"
#include "modem_api/vs/vs_service.h"
#include "properties.h"
#include "skarn_common/skarn_mem.h"
#include "support/fake_modem_fixture.h"
#include "velmor_tovi_skarn_data.h"
#include "velmor_tovi_skarn_test.h"
#include "velmor_tovi_skarn_unpk.h"
#include "velmor_utils.h"

namespace {

using namespace testing_support;

constexpr uint32_t kVs = 0xE4, kSar = 0x11, kNas = 0x03;
constexpr uint32_t kVsPort = 40, kSarPort = 41, kNasPort = 42;
const char* const kSuccess = "02 0400 0000 0000";

Mutex g_lock;
std::string g_events GUARDED_BY(g_lock);

void note_event(int event, int client_type) {
  MutexLock hold(g_lock);
  g_events += std::to_string(event - 0x10000) + "/" + std::to_string(client_type) + " ";
}
std::string events() {
  MutexLock hold(g_lock);
  return g_events;
}

class Stats : public FakeModemTest {
 protected:
  using FakeModemTest::FakeModemTest;
  void SetUp() override {
    modem.add_service(kVs, kVsPort);
    modem.add_service(kSar, kSarPort);
    modem.add_service(kNas, kNasPort);
    g_velmor_shell_print_flag = 0;
    reply(kSuccess);
    modem_api_init();
    MutexLock hold(g_lock);
    g_events.clear();
  }
  void TearDown() override {
    modem_api_release();
    FakeModemTest::TearDown();
  }

  void reply(const std::string& tlvs) {
    modem.on_request([=](const Bytes& request) {
      const auto id = static_cast<uint16_t>(request[3] | request[4] << 8);
      return Replies{packet(qmi::Kind::Response, transaction_of(request), id, bytes(tlvs))};
    });
  }
  // The statuses that the log shows for a client, in order.
  static std::string statuses(int client_type) {
    const std::string log = read_file(log_path());
    const std::string mark = "client type " + std::to_string(client_type) + ", client id ";
    const std::string word = "operational_status ";
    std::string all;
    for (size_t at = 0; (at = log.find(mark, at)) != std::string::npos; ++at) {
      all += log[log.find(word, at) + word.size()];
    }
    return all;
  }
  static std::string log_path() {
    return std::filesystem::path(socket_path()).parent_path() / "log";
  }
  // Waits until the statuses end with `end` and there are more than `before`.
  static bool wait_for_status(int client_type, const std::string& end, size_t before) {
    for (int i = 0; i < 5000; ++i, usleep(1000)) {
      const std::string now = statuses(client_type);
      if (now.size() > before && now.ends_with(end)) return true;
    }
    return false;
  }
  int connect(
      int client_type, modem_api_event_cb event_cb = [](int, void*, int) {}) {
    int id = -1;
    result = modem_api_init_client(client_type, event_cb, note_event, &id);
    return id;
  }

  FakeModem modem{socket_path()};
  int result = 0;
};

std::string repeated(int times, const std::string& hex) {
  std::string all;
  while (times-- > 0) all += hex;
  return all;
}

std::string tlv(const std::string& number, const std::string& value) {
  const size_t size = bytes(value).size();
  return number + hex(Bytes{uint8_t(size & 255), uint8_t(size >> 8)}) + value;
}

// The first has a value of 800 bytes.
const std::string kTwelveStats = "0c 0000 0000 52000000 2003" + repeated(800, "ee") +
                                 repeated(11, "0000 0000 53000000 0200 aabb");

TEST_F(Stats, RequestsByteForByte) {
  const int vs = connect(MODEM_API_VS);
  EXPECT_EQ(modem_api_set_skarn_feature_status(vs, 2, 1, 1, 1), 0);
  EXPECT_EQ(hex(modem.requests().back()).substr(6),
            hex(bytes("0300 0f00 01 0400 02000000 02 0100 01 10 0100 01")));
  EXPECT_EQ(modem_api_set_skarn_feature_status(vs, 2, 0, 0, 9), 0);
  EXPECT_EQ(hex(modem.requests().back()).substr(6),
            hex(bytes("0300 0b00 01 0400 02000000 02 0100 00")));
  modem_stats_para_data data{};
  data.para_num = 1;
  data.entries[0].id = 82;
  data.entries[0].value_len = 5;
  memcpy(data.entries[0].value, "\x01\x00\x00\x00\xaa", 5);
  reply(std::string(kSuccess) + "10 0f00 01 0100 0700 52000000 0400 11223344");
  EXPECT_EQ(modem_api_get_stats_parameter(vs, 1, 3, &data), 0);
  EXPECT_EQ(hex(modem.requests().back()).substr(6),
            hex(bytes("0702 1d00 01 0200 0100 02 0200 0300"
                      "03 1000 01 0000 0000 52000000 0500 01000000aa")));
  EXPECT_EQ(data.entries[0].sub, 1);
  EXPECT_EQ(data.entries[0].word, 7);
  EXPECT_EQ(data.entries[0].value_len, 4u);
  // Of more statistics than there is room for as many are kept as there is, of a longer value too.
  data.para_num = 1;
  reply(kSuccess + tlv("10", kTwelveStats));
  EXPECT_EQ(modem_api_get_stats_parameter(vs, 1, 3, &data), 0);
  EXPECT_EQ(data.para_num, 10u);
  EXPECT_EQ(data.entries[0].value_len, 700u);
  EXPECT_EQ(data.entries[9].id, 0x53u);
  EXPECT_EQ(hex(std::span(data.entries[9].value).first(3)), "aabb00");
  EXPECT_EQ(modem_api_get_stats_parameter(vs, 1, 3, &data), 0);
  EXPECT_EQ(modem.requests().back().size(), 839u);  // ten, as they came
  modem_api_free_client(vs);

  // Bound after every attempt, then registered twice: by the client and by the front door.
  for (const int sub : {0, 1}) {
    reply(kSuccess);  // forgets the requests so far
    const int nas = connect(MODEM_API_NAS_0 + sub);
    std::string sent;
    for (const Bytes& request : modem.requests()) sent += hex(request).substr(6) + " ";
    const std::string registration = hex(bytes("0300 0400 13 0100 00")) + " ";
    EXPECT_EQ(sent, hex(bytes("4500 0400 01 0100 0" + std::to_string(sub))) + " " + registration +
                        registration);
    modem_api_free_client(nas);
  }
}

TEST_F(Stats, TheTableHoldsOneClientOfAType) {
  EXPECT_EQ(connect(4), -1);
  EXPECT_EQ(result, MODEM_API_NOT_SUPPORTED);
  const int vs = connect(MODEM_API_VS), sar = connect(MODEM_API_SAR);
  EXPECT_EQ(vs, 0);
  EXPECT_EQ(sar, 1);
  EXPECT_EQ(connect(MODEM_API_VS), -1);
  EXPECT_EQ(result, MODEM_API_ALREADY_CONNECTED);
  for (const int status :
       {MODEM_API_SUSPENDED, MODEM_API_SUSPENDING, MODEM_API_RELEASED, MODEM_API_CONNECTING}) {
    modem_api_operational_status_cb(MODEM_API_VS, status);
    EXPECT_EQ(connect(MODEM_API_VS), -1);
    EXPECT_EQ(result, MODEM_API_ALREADY_CONNECTING);
  }
  EXPECT_EQ(modem_api_set_skarn_feature_status(vs, 2, 1, 1, 1), MODEM_API_INVALID_CLIENT);
  modem_api_operational_status_cb(MODEM_API_VS, MODEM_API_OPERATIONAL);
  modem_stats_para_data data{};
  for (const uint32_t num : {0u, 11u}) {
    data.para_num = num;
    EXPECT_EQ(modem_api_get_stats_parameter(vs, 0, 1, &data), MODEM_API_INVALID_ARGUMENT);
  }
  EXPECT_EQ(modem_api_get_stats_parameter(vs, 0, 1, nullptr), MODEM_API_INVALID_ARGUMENT);
  for (const int id : {sar, -1, 10, 5, INT32_MAX}) {
    EXPECT_EQ(modem_api_get_stats_parameter(id, 0, 1, &data), MODEM_API_INVALID_CLIENT) << id;
    EXPECT_EQ(modem_api_util_enable_networking_indications(id, 0), MODEM_API_INVALID_CLIENT);
  }
  EXPECT_EQ(modem_api_free_client(10), MODEM_API_INVALID_CLIENT);
  EXPECT_EQ(modem_api_free_client(-1), MODEM_API_INVALID_CLIENT);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(modem_api_free_client(vs), 0);
    EXPECT_EQ(modem_api_free_client(sar), 0);
  }
  EXPECT_EQ(events(), "2/0 2/1 1/0 2/0 ");
  EXPECT_EQ(statuses(MODEM_API_SAR), "130");

  // A second init leaves the table alone, one release ends both, and another does nothing.
  for (void (*again)() : {+[] { modem_api_init(); }, +[] { modem_api_release(); }}) {
    EXPECT_EQ(connect(MODEM_API_SAR), 0);
    again();
    EXPECT_EQ(connect(MODEM_API_SAR), -1);
    modem_api_free_client(0);
    modem_api_release();
  }
}

TEST_F(Stats, ErrorsAreMapped) {
  const struct {
    int transport;
    uint32_t result, error;
    int mapped;
  } rows[] = {
      {0, 0, 0x30, 0}, {-2, 0, 0, 0},   {0, 1, 0, 0},    {0, 1, 0x1A, 0}, {0, 1, 4, 10},
      {0, 1, 0x11, 5}, {0, 1, 0x13, 5}, {0, 1, 0x30, 5}, {0, 1, 0x31, 5}, {-2, 1, 0x18, 4},
      {0, 1, 0x2A, 4}, {0, 1, 0x4D, 4}, {0, 1, 0x5E, 4}, {0, 1, 0x34, 8}, {0, 1, 3, 1},
      {0, 2, 0, 1},    {-1, 0, 0, 12},  {-5, 0, 0, 12},  {-3, 0, 0, 11},  {-4, 0, 0, 1},
      {7, 0, 0, 1},
  };
  for (const auto& row : rows) {
    const qmi_response_type_v01 resp{row.result, row.error};
    EXPECT_EQ(modem_api_map_qmi_error_to_modem_api(row.transport, &resp), row.mapped)
        << row.transport << " " << row.error;
  }
}

// Attempts to connect are a second apart.
class StatsRetries : public Stats {
 protected:
  StatsRetries() : Stats("0.05") {}
};

TEST_F(StatsRetries, AServiceThatIsNotThereCostsTenAttempts) {
  modem.remove_service(kSarPort);
  modem.remove_service(kNasPort);
  const auto start = timing::Clock::now();
  EXPECT_EQ(connect(MODEM_API_SAR), -1);
  EXPECT_EQ(result, MODEM_API_FAILED);
  const auto took = timing::Clock::now() - start;
  EXPECT_GE(took, timing::scaled_s(9));
  EXPECT_LE(took, timing::scaled_s(9) + std::chrono::seconds(5));
  EXPECT_EQ(statuses(MODEM_API_SAR), "12");
  const std::string log = read_file(log_path());
  EXPECT_NE(log.find("try # 9 port[65535]"), std::string::npos);
  EXPECT_EQ(log.find("try # 10"), std::string::npos);
  EXPECT_EQ(connect(MODEM_API_NAS_0), -1);
  modem.add_service(kSar, kSarPort);
  const int id = connect(MODEM_API_SAR);
  EXPECT_EQ(id, 0);  // the failed ones left nothing behind
  modem_api_free_client(id);
}

size_t entries(const char* folder) {
  size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++n;
  return n;
}

TEST_F(Stats, AHundredRestartsLeaveNothingBehind) {
  ASSERT_EQ(property_set("persist.skarn.mem_trace", "true"), 0);
  const struct {
    int type;
    uint32_t service, port;
  } kinds[] = {{MODEM_API_SAR, kSar, kSarPort}, {MODEM_API_NAS_0, kNas, kNasPort}};
  for (const auto& kind : kinds) {
    const int id = connect(kind.type);
    ASSERT_GE(id, 0);
    size_t descriptors = 0, threads = 0;
    for (int i = 0; i < 100; ++i) {
      const size_t before = statuses(kind.type).size();
      modem.remove_service(kind.port);
      ASSERT_TRUE(wait_for_status(kind.type, "45", before));
      modem.add_service(kind.service, kind.port);
      ASSERT_TRUE(wait_for_status(kind.type, "4563", before)) << statuses(kind.type);
      if (i != 9) continue;
      usleep(20000);
      descriptors = entries("/proc/self/fd");
      threads = entries("/proc/self/task");
    }
    usleep(50000);
    EXPECT_LE(entries("/proc/self/fd"), descriptors);
    EXPECT_LE(entries("/proc/self/task"), threads);
    EXPECT_EQ(skarn_mem_records().size(), 1u);  // the client itself
    modem_api_free_client(id);
    EXPECT_TRUE(skarn_mem_records().empty());
  }
}

TEST_F(StatsRetries, AClientMayBeFreedInTheMiddleOfARestart) {
  for (int i = 0; i < 60; ++i) {
    const int id = connect(MODEM_API_SAR);
    ASSERT_GE(id, 0);
    modem.remove_service(kSarPort);
    usleep(static_cast<useconds_t>(i * 20));
    modem.add_service(kSar, kSarPort);
    usleep(static_cast<useconds_t>(i % 7 * 100));
    EXPECT_EQ(modem_api_free_client(id), 0);
    modem_api_release();
    modem_api_init();
  }
  const size_t before = statuses(MODEM_API_SAR).size();
  const int id = connect(MODEM_API_SAR);
  EXPECT_EQ(statuses(MODEM_API_SAR).substr(before), "13");
  usleep(20000);
  EXPECT_LE(entries("/proc/self/task"), 6u);
  EXPECT_LE(entries("/proc/self/fd"), 40u);
  modem_api_free_client(id);
}

TEST_F(StatsRetries, ALossWhileConnectingIsSeenToAfterwards) {
  const int id = connect(MODEM_API_NAS_0);
  ASSERT_GE(id, 0);
  for (int i = 0; i < 40; ++i) {
    const size_t before = statuses(MODEM_API_NAS_0).size();
    // The service comes back, and goes again while the client registers with it.
    modem.remove_service(kNasPort);
    ASSERT_TRUE(wait_for_status(MODEM_API_NAS_0, "45", before));
    std::thread leaves;
    modem.on_request([&](const Bytes& request) {
      const auto message = static_cast<uint16_t>(request[3] | request[4] << 8);
      if (message == 3 && !leaves.joinable()) {
        leaves = std::thread([&] { modem.remove_service(kNasPort); });
      }
      return Replies{
          packet(qmi::Kind::Response, transaction_of(request), message, bytes(kSuccess))};
    });
    modem.add_service(kNas, kNasPort);
    ASSERT_TRUE(wait_for_status(MODEM_API_NAS_0, "5", before + 2));
    leaves.join();
    reply(kSuccess);
    modem.add_service(kNas, kNasPort);
    ASSERT_TRUE(wait_for_status(MODEM_API_NAS_0, "63", before + 4));
    const std::string order = statuses(MODEM_API_NAS_0).substr(before);
    EXPECT_TRUE(order == "45634563" || order == "45674563") << order;
  }
  modem_api_free_client(id);
}

// The statuses that a client reports by itself, and what is done on one of them.
std::string g_reported GUARDED_BY(g_lock);
std::function<void(int status)> g_on_status;

void note_status(int, int status) {
  {
    MutexLock hold(g_lock);
    g_reported += static_cast<char>('0' + status);
  }
  if (g_on_status) g_on_status(status);
}
std::string reported() {
  MutexLock hold(g_lock);
  return g_reported;
}
void wait_until_reported(const std::string& all) {
  for (int i = 0; i < 5000 && reported() != all; ++i) usleep(1000);
  ASSERT_EQ(reported(), all);
}
size_t count(const std::string& text, const std::string& words) {
  size_t n = 0;
  for (size_t at = 0; (at = text.find(words, at)) != std::string::npos; ++at) ++n;
  return n;
}

TEST_F(Stats, ARecoveryOfAnEarlierLifeReportsAndLeavesNothing) {
  const auto begin_life = [] {
    nas_0_init();
    nas_0_client_set_operational_status_callback(note_status);
  };
  for (const int ends_at : {MODEM_API_SUSPENDING, MODEM_API_RESUMING}) {
    {
      MutexLock hold(g_lock);
      g_reported.clear();
    }
    begin_life();
    ASSERT_TRUE(nas_0_client_init(nullptr));
    const auto attempts = [] { return count(read_file(log_path()), "try # "); };
    const size_t before = attempts();
    g_on_status = [&](int status) {
      if (status != ends_at) return;
      nas_0_client_release();
      begin_life();
    };
    modem.remove_service(kNasPort);
    if (ends_at == MODEM_API_RESUMING) wait_until_reported("1345");
    modem.add_service(kNas, kNasPort);
    const std::string at_its_end = ends_at == MODEM_API_SUSPENDING ? "1340" : "134560";
    wait_until_reported(at_its_end);
    usleep(20000);
    nas_0_client_release();  // waits for the recovery
    EXPECT_EQ(reported(), at_its_end + "0");
    EXPECT_EQ(attempts(), before);
  }
  g_on_status = nullptr;
}

TEST_F(Stats, AReleaseWaitsForTheConnectionUnderWayAndLeavesNoHandle) {
  nas_0_init();
  nas_0_client_set_operational_status_callback(note_status);
  ASSERT_TRUE(nas_0_client_init(nullptr));
  modem.remove_service(kNasPort);
  wait_until_reported("1345");
  std::atomic<bool> connects = false;
  modem.on_request([&](const Bytes& request) {
    const auto message = static_cast<uint16_t>(request[3] | request[4] << 8);
    if (message == 3) {
      connects = true;
      wait_until_reported("134560");
      usleep(10000);
    }
    return Replies{packet(qmi::Kind::Response, transaction_of(request), message, bytes(kSuccess))};
  });
  modem.add_service(kNas, kNasPort);
  while (!connects) usleep(1000);
  nas_0_client_release();
  EXPECT_EQ(count(read_file(log_path()), "enable_indication result: 0"), 2u);  // the recovery ended
  // A handle that is left would hear of these.
  modem.send(kNasPort, packet(qmi::Kind::Indication, 0, 0x85, {}));
  usleep(10000);
  modem.remove_service(kNasPort);
  usleep(10000);
  EXPECT_EQ(count(read_file(log_path()), "Unexpected NULL pointer!"), 0u);
  EXPECT_EQ(count(read_file(log_path()), "service down with error"), 1u);
  EXPECT_EQ(reported(), "134560");
}

struct Delivered {
  int id = 0;
  Bytes payload;
};
std::vector<Delivered> g_delivered GUARDED_BY(g_lock);

void take_event(int id, void* payload, int len) {
  const auto* from = static_cast<uint8_t*>(payload);
  MutexLock hold(g_lock);
  g_delivered.push_back({id, Bytes(from, from + len)});
}
Delivered last_event() {
  MutexLock hold(g_lock);
  return g_delivered.back();
}

TEST_F(Stats, IndicationsBecomeEvents) {
  const int vs = connect(MODEM_API_VS, take_event);
  // The last indication's handler has run when a known one behind it has.
  const auto indicate = [&](uint16_t id, const std::string& tlvs) {
    {
      MutexLock hold(g_lock);
      g_delivered.clear();
    }
    modem.send(kVsPort, packet(qmi::Kind::Indication, 0, id, bytes(tlvs)));
    modem.send(kVsPort, packet(qmi::Kind::Indication, 0, 0x0601, bytes("01 0100 aa")));
    for (;; usleep(100)) {
      MutexLock hold(g_lock);
      if (g_delivered.empty() || g_delivered.back().payload != Bytes{0xaa}) continue;
      return g_delivered.size() > 1 ? g_delivered.front() : Delivered{};
    }
  };
  EXPECT_EQ(modem_api_set_skarn_feature_status(vs, 2, 1, 1, 1), 0);  // so that it knows the client
  Delivered got = indicate(0x0204, "01 0400 05000000 02 0400 03 0102ff 03 0200 0700 04 0200 0900");
  EXPECT_EQ(got.id, 4);
  EXPECT_EQ(got.payload.size(), 412u);
  EXPECT_EQ(hex(std::span(got.payload).first(16)),
            "0500000001000000"
            "02000000ff000000");
  EXPECT_EQ(hex(std::span(got.payload).subspan(404)), "0300000007000900");
  got = indicate(0x0203, "01 0400 09000000 02 0f00 01 0100 0200 52000000 0400 aabbccdd");
  ASSERT_EQ(got.payload.size(), 10696u);
  const auto* report = reinterpret_cast<const vs_report_event*>(got.payload.data());
  EXPECT_EQ(report->entry_count, 1u);
  const auto words = std::span(got.payload).subspan(4, sizeof report->entries[0]);
  EXPECT_EQ(hex(words.first(12)) + hex(words.last(8)), "52000000aabbccdd000000000400000001000200");
  EXPECT_EQ(report->field_11, 0xFFFFFFFFu);
  got = indicate(0x0203, "01 0400 09000000" + tlv("02", kTwelveStats) + tlv("10", kTwelveStats));
  report = reinterpret_cast<const vs_report_event*>(got.payload.data());
  ASSERT_EQ(got.payload.size(), 10696u);
  EXPECT_EQ(report->entry_count, 10u);
  EXPECT_EQ(report->entries[0].value_len, 700u);
  EXPECT_EQ(report->entries[9].id, 0x53u);
  EXPECT_EQ(report->more_count, 5u);
  EXPECT_EQ(report->more_entries[4].id, 0x53u);
  got = indicate(0x0204, "01 0400 05000000" + tlv("02", "65" + repeated(101, "ee")) +
                             "03 0200 0700 04 0200 0900");
  EXPECT_EQ(hex(std::span(got.payload).subspan(404)), "6400000007000900");
  got = indicate(0x0004, "01 0400 02000000 02 0100 07 03 0100 00");
  EXPECT_EQ(hex(got.payload), "0200000001000000");
  got = indicate(0x0601, "01 0100 09");
  EXPECT_EQ(got.id, 5);
  EXPECT_EQ(hex(got.payload), "09");
  EXPECT_EQ(indicate(0x0204, "01 0400 05000000 02 0200 c8ff 03 0200 0700 04 0200 0900").id, 0);
  for (const char* broken : {"", "01", "01 0400 05000000", "02 0400 04 0102ff 03 0200 0700"}) {
    for (const uint16_t id : {uint16_t{0x0004}, uint16_t{0x0203}, uint16_t{0x0204},
                              uint16_t{0x0601}, uint16_t{0x0999}}) {
      EXPECT_EQ(indicate(id, broken).id, 0) << id << " " << broken;
    }
  }
  modem_api_free_client(vs);
}

std::atomic<bool> g_hears;

TEST_F(Stats, WhatArrivedBeforeAReleaseIsHeard) {
  const auto indication = [](const char* value) {
    return packet(qmi::Kind::Indication, 0, 0x0601, bytes("01 0100" + std::string(value)));
  };
  const int vs = connect(MODEM_API_VS, [](int id, void* payload, int len) {
    take_event(id, payload, len);
    if (g_hears) return;
    // With the answer to this the second indication has arrived.
    vs_set_feature_req_msg_v01 req{};
    vs_resp_msg_v01 resp{};
    vs_client_send_msg_sync(kVsSetFeatureMsg, &req, sizeof req, &resp, sizeof resp);
    g_hears = true;
    for (int i = 0; i < 5000 && !statuses(MODEM_API_VS).ends_with("0"); ++i) usleep(1000);
    usleep(5000);
  });
  EXPECT_EQ(modem_api_set_skarn_feature_status(vs, 2, 1, 1, 1), 0);  // so that it knows the client
  modem.on_request([&](const Bytes& request) {
    return Replies{indication("bb"), packet(qmi::Kind::Response, transaction_of(request),
                                            kVsSetFeatureMsg, bytes(kSuccess))};
  });
  modem.send(kVsPort, indication("aa"));
  while (!g_hears) usleep(1000);
  modem_api_free_client(vs);
  MutexLock hold(g_lock);
  ASSERT_EQ(g_delivered.size(), 2u);
  EXPECT_EQ(g_delivered[1].payload, Bytes{0xbb});
}

TEST(StatsEvents, ListsAndValuesAreClipped) {
  auto ind = std::make_unique<vs_report_ind_msg_v01>();
  ind->stats_len = 12;
  ind->more_stats_valid = 1;
  ind->more_stats_len = 9;
  for (auto& stat : ind->stats) stat.value_len = 800;
  for (auto& stat : ind->more_stats) stat.value_len = UINT32_MAX;
  EXPECT_TRUE(vs_client_handle_indication(0x0203, ind.get(), take_event));
  const Delivered got = last_event();
  const auto* report = reinterpret_cast<const vs_report_event*>(got.payload.data());
  EXPECT_EQ(report->entry_count, 10u);
  EXPECT_EQ(report->more_count, 5u);
  EXPECT_EQ(report->entries[9].value_len, 700u);
  EXPECT_EQ(report->more_entries[4].value_len, 700u);
  const vs_bytes_ind_msg_v01 many = {1, 200, {1}, 2, 3};
  EXPECT_TRUE(vs_client_handle_indication(0x0204, &many, take_event));
  const Delivered clipped = last_event();
  EXPECT_EQ(hex(std::span(clipped.payload).subspan(404, 4)), "64000000");
  EXPECT_FALSE(vs_client_handle_indication(0x0999, &many, take_event));
}

struct Answer {
  std::string text;
};

TEST(StatsResponses, AreDeliveredOnceAndFreed) {
  const auto collect = [](void* data, int len, void* user, int status) {
    auto& text = static_cast<Answer*>(user)->text;
    text += data != nullptr ? hex({static_cast<uint8_t*>(data), static_cast<size_t>(len)}) : "-";
    text += ":" + std::to_string(status) + " ";
    skarn_free_adv(data, __func__, __LINE__);
  };
  const auto answered = [&](unsigned int msg_id, bool with_resp, uint32_t error, int transport) {
    Answer answer;
    auto* record = static_cast<modem_api_response_record*>(
        skarn_malloc_adv(sizeof(modem_api_response_record), __func__, __LINE__));
    *record = {collect, &answer};
    vs_raw_resp_msg_v01* resp = nullptr;
    if (with_resp) {
      resp = static_cast<vs_raw_resp_msg_v01*>(skarn_malloc_adv(sizeof *resp, __func__, __LINE__));
      resp->resp = {error != 0, error};
      resp->data_len = 3;
      memcpy(resp->data, "abc", 3);
    }
    vs_client_command_cb(nullptr, msg_id, resp, with_resp ? sizeof *resp : 0, record, transport);
    return answer.text;
  };
  EXPECT_EQ(answered(0, true, 0, 0), "616263:0 -:2 ");
  EXPECT_EQ(answered(3, true, 0, 0), "-:2 ");
  EXPECT_EQ(answered(0, true, 0x34, 0), "-:8 ");
  EXPECT_EQ(answered(0, true, 0, -3), "-:11 ");
  EXPECT_EQ(answered(0, false, 0, 0), "-:3 ");
  vs_client_command_cb(nullptr, 0, nullptr, 0, nullptr, 0);
}

TEST(TrackedMemory, KnowsItsBlocksWhenAskedTo) {
  ScratchFolder folder;
  setenv("TOVI_STATE", (folder / "state").c_str(), 1);
  setenv("TOVI_LOG", (folder / "log").c_str(), 1);
  ASSERT_EQ(property_set("persist.skarn.mem_trace", "true"), 0);
  void* blocks[3];
  for (int i = 0; i < 3; ++i) blocks[i] = skarn_malloc_adv(10 + static_cast<size_t>(i), "owner", 1);
  skarn_free_adv(blocks[1], "owner", 2);
  const auto records = skarn_mem_records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].ptr, blocks[0]);
  EXPECT_EQ(records[1].size, 12u);
  EXPECT_STREQ(records[1].func, "owner");
  EXPECT_EQ(records[1].pid, getpid());
  EXPECT_GE(records[1].year, 2024);
  skarn_free_adv(blocks[0], "owner", 3);
  skarn_free_adv(blocks[2], "owner", 4);
  skarn_free_adv(nullptr, "owner", 5);
  EXPECT_TRUE(skarn_mem_records().empty());
  uint8_t bytes_shown[30] = {0, 0xAB};
  EXPECT_EQ(std::string(skarn_get_print_buf(bytes_shown)).substr(0, 9), " 00 AB 00");
  EXPECT_EQ(strlen(skarn_get_print_buf(bytes_shown)), 90u);
}

TEST(TrackedMemory, StaysOffForAnyOtherWord) {
  ScratchFolder folder;
  setenv("TOVI_STATE", (folder / "state").c_str(), 1);
  setenv("TOVI_LOG", (folder / "log").c_str(), 1);
  ASSERT_EQ(property_set("persist.skarn.mem_trace", "TRUE"), 0);
  void* block = skarn_malloc_adv(10, "owner", 1);
  EXPECT_TRUE(skarn_mem_records().empty());
  skarn_free_adv(block, "owner", 2);
  EXPECT_FALSE(exists(folder / "log"));
}

// A payload in which each field of a version stands at its place.
struct BitWriter {
  uint8_t payload[kUnpkBufBytes] = {};
  void put(int bit, int width, uint64_t value) {
    for (int i = 0; i < width; ++i, ++bit) {
      if ((value >> i & 1) != 0) payload[bit / 8] |= static_cast<uint8_t>(1 << bit % 8);
    }
  }
};

std::string printed(const std::function<bool()>& call, bool& result) {
  testing::internal::CaptureStdout();
  result = call();
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST(Unpacker, DecodesEachOfTheFourVersions) {
  const struct {
    uint32_t version;
    int positions[12];  // in the order in which a record is printed
  } rows[] = {
      {4, {176, 192, 200, 224, 112, 0, 256, 16, 80, 48, 96, 216}},
      {0x30000, {240, 256, 264, 288, 176, 0, 320, 80, 144, 112, 160, 280}},
      {0x30001, {250, 266, 274, 298, 186, 10, 330, 90, 154, 122, 170, 290}},
      {0x30002, {264, 280, 288, 312, 200, 24, 344, 104, 168, 136, 184, 304}},
  };
  const struct {
    int width;
    uint64_t value;
  } fields[12] = {{16, 460},   {8, 2},  {16, 11},     {32, 0xFFFFFFFF}, {64, 0xFEDCBA9876543211},
                  {16, 65535}, {16, 3}, {32, 123456}, {16, 20},         {32, 654321},
                  {16, 100},   {8, 255}};
  for (const auto& row : rows) {
    BitWriter writer;
    writer.put(0, 32, row.version);
    for (int i = 0; i < 12; ++i)
      writer.put(32 + row.positions[i], fields[i].width, fields[i].value);
    modem_stats_single_data_common_type record{};
    bool good;
    EXPECT_EQ(
        printed([&] { return modem_stats_parse_xxxx_diag_xxxx(writer.payload, false, record); },
                good),
        "version = " + std::to_string(row.version) +
            ", mcc = 460, mnc_num 2, mnc 11, tac -1, cgi 18364758544493064721, pci 65535\n"
            "freq_band_ind = 3, dl_earfcn = 123456, dl_bw 20, ul_earfcn 654321, ul_bw 100, "
            "allow_access 255, scs 0\n");
    EXPECT_TRUE(good);
    EXPECT_EQ(record.cgi, 0xFEDCBA9876543211u);
  }
}

TEST(Unpacker, EveryCheckEndsTheParseWithItsLine) {
  const uint8_t payload[kUnpkBufBytes] = {};
  const Unpacker none(nullptr, kUnpkDataMax, false);
  uint64_t value = 1;
  const auto with = [&](int limit, auto step) {
    return [&payload, limit, step] {
      Unpacker unpacker(payload, limit, false);
      return step(unpacker);
    };
  };
  const struct {
    std::function<bool()> call;
    const char* text;
  } rows[] = {
      {[&] { return Unpacker(nullptr, 2000, false).read("v", 4, value); },
       "DATA_UNPK, g_unpk_data_ptr is NULL, name: v, id(0x0)\n"},
      {with(0, [&](Unpacker& u) { return u.read("v", 4, value); }),
       "DATA_UNPK, (base + cnt)(0) is can not >= 0 for v, id(0x0)\n"},
      {with(2000,
            [&](Unpacker& u) {
              return u.go_to("f", 1999 * 8 + 1, 64) && u.extract("f", 1999 * 8 + 1, 64, value);
            }),
       "DATA_UNPK, (base + cnt)(2007) is can not >= 2000 for f_tmp2, id(0x0)\n"},
      {with(2000, [&](Unpacker& u) { return u.go_to("f", 16000, 8); }),
       "UNPK_SET_BIT, pos(2000) should be[0, 2000), id(0x0)\n"},
      {with(2000, [&](Unpacker& u) { return u.go_to("f", -8, 8); }),
       "UNPK_SET_BIT, pos(-1) should be[0, 2000), id(0x0)\n"},
      {[&] { return none.mid("f", 0, 8, 0, value); },
       "UNPK_MID, low(0) should be in [1, 128] for f, id(0x0)\n"},
      {[&] { return none.mid("f", 129, 8, 0, value); },
       "UNPK_MID, low(129) should be in [1, 128] for f, id(0x0)\n"},
      {[&] { return none.mid("f", 1, 129, 0, value); },
       "UNPK_MID, high(129) should be in [1, 128] for f, id(0x0)\n"},
      {[&] { return none.mid("f", 1, 65, 0, value); },
       "UNPK_MID, high(65) should be in [1, 64] for f, id(0x0)\n"},
      {[&] { return none.mid("f", 9, 8, 0, value); },
       "UNPK_MID, low(9) should <= high(8) for f, id(0x0)\n"},
      {[&] { return none.high("f", 63, 0, value); },
       "UNPK_HIGH, bit_num(63) should be in [64, 128] for f, id(0x0)\n"},
      {[&] { return none.high("f", 129, 0, value); },
       "UNPK_HIGH, bit_num(129) should be in [64, 128] for f, id(0x0)\n"},
      {[&] { return none.low("f", 17, 16, value); },
       "UNPK_LOW, bit_num(17) should be in [1, 16] for f, id(0x0)\n"},
      {with(2000, [&](Unpacker& u) { return u.go_to("f", 1, 65); }),
       "UNPK_LOW, bit_num(65) should be in [1, 64] for f, id(0x0)\n"},
      {[&] { return none.low("f", 0, 16, value); },
       "UNPK_LOW, bit_num(0) should be in [1, 16] for f, id(0x0)\n"},
  };
  for (const auto& row : rows) {
    bool good;
    EXPECT_EQ(printed(row.call, good), row.text);
    EXPECT_FALSE(good);
  }
  uint8_t unknown[kUnpkBufBytes] = {5};
  for (const char* count : {"1", "2"}) {
    bool done;
    const std::string out = printed(
        [&] {
          velmor_test_modem_stats_parsing_process_do(unknown, false);
          return true;
        },
        done);
    EXPECT_TRUE(out.starts_with("VERSION_NOT_SUPPORT[modem_stats_parse_xxxx_diag_xxxx:"));
    EXPECT_TRUE(out.ends_with("], version(5), not_support_num(" + std::string(count) +
                              "), name(root), id(0x0)\n"));
  }
  bool done;
  EXPECT_EQ(printed(
                [] {
                  velmor_test_modem_stats_parsing_process_do(nullptr, true);
                  return true;
                },
                done),
            "UNPK_START, payload is NULL, id(0x0)\n");
}

TEST_F(Stats, Module7TakesWhatTheModemSays) {
  modem.add_service(kExtensionId, kExtensionPort);
  g_velmor_shell_print_flag = 1;
  const auto run = [&](const Bytes& info, const Bytes& logs) {
    int count = 0;
    modem.on_request(
        [&](const Bytes& request) { return Replies{answer(request, count++ == 0 ? info : logs)}; });
    std::string words[] = {"tovi", "7", "1", "0"};
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    testing::internal::CaptureStdout();
    velmor_test_modem_stats_do(4, argv.data());
    fflush(stdout);
    return without_lines(testing::internal::GetCapturedStdout());
  };
  const auto with_result = [](int32_t result, const Bytes& data) {
    Bytes rsp(8 + data.size());
    memcpy(&rsp[4], &result, sizeof result);
    std::copy(data.begin(), data.end(), rsp.begin() + 8);
    return rsp;
  };
  EXPECT_TRUE(run(with_result(5, {}), {})
                  .ends_with("RIL[velmor_test_modem_stats_get_debug_info_do]: qmi response fail, "
                             "result = 0, rsp.result = 5\n"));
  const Bytes unsupported = with_result(0, bytes("01 01 0100000000000000" + std::string(32, '0')));
  EXPECT_TRUE(run(unsupported, with_result(-7, {}))
                  .ends_with("RIL[velmor_modem_stats_support_status_check]: qmi response fail, "
                             "result = 0, rsp_not_support.result = -7\n"));
  Bytes ids = bytes("8000");  // 128 of them: the last is read from the front again
  for (uint8_t i = 0; i < 128; ++i) ids.insert(ids.end(), {i, 0x10});
  const std::string out = run(unsupported, with_result(0, ids));
  EXPECT_NE(out.find("log_id[126]: 0x107E\nlog_id[127]: 0x0080\n"), std::string::npos);
  testing::internal::CaptureStdout();
  velmor_modem_stats_support_status_check(nullptr);
  EXPECT_EQ(velmor_modem_stats_main_info_unpk(nullptr, 4), 0);
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "velmor_modem_stats_support_status_check, ptr is null\nptr is null\n");
}

}  // namespace
