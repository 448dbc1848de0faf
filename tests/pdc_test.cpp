// The PDC client: its requests byte for byte, the meeting of requests, indications and timers in
// every order, and the handlers' answers to whatever comes.
#include <unistd.h>

#include <random>

#include "modem.h"
#include "pdc_utils_info.h"
#include "sim_pdc.h"
#include "support/fake_modem_fixture.h"
#include "utilities/qcril_memory_management.h"
#include "velmor_mbn_utils.h"
#include "velmor_timer.h"
#include "velmor_utils.h"

namespace {

using namespace testing_support;

constexpr uint32_t kPdc = 0x24;
constexpr uint32_t kPdcPort = 30;
const char* const kId = "0102030405060708090a0b0c0d0e0f1011121314";
const char* const kAccepted = "02 0400 0000 0000";
const char* const kGood = "01 0200 0000";
constexpr pdc_config_type_enum_v01 kSoftware = PDC_CONFIG_TYPE_MODEM_SW_V01;

class Pdc : public FakeModemTest {
 protected:
  using FakeModemTest::FakeModemTest;
  void SetUp() override {
    modem.add_service(kPdc, kPdcPort);
    g_velmor_shell_print_flag = 0;
    ASSERT_EQ(pdc_init(), 0);
  }
  void TearDown() override {
    pdc_clean();
    FakeModemTest::TearDown();
  }

  static Bytes response(const Bytes& request, const std::string& tlvs = kAccepted) {
    return packet(qmi::Kind::Response, transaction_of(request), id_of(request), bytes(tlvs));
  }
  static Bytes indication(uint16_t id, const std::string& tlvs) {
    return packet(qmi::Kind::Indication, 3, id, bytes(tlvs));
  }
  static uint16_t id_of(const Bytes& request) {
    return static_cast<uint16_t>(request[3] | request[4] << 8);
  }
  // Accepts every request and indicates `tlvs` after that.
  void answer_with(const std::string& tlvs) {
    modem.on_request([=](const Bytes& request) {
      return Replies{response(request), indication(id_of(request), tlvs)};
    });
  }
  // Waits until the holder of a kind has seen an indication.
  static void wait_until_done(pdc_req_type type) {
    for (bool done = false; !done; usleep(100)) {
      MutexLock hold(g_pdc_info.mutex);
      done = g_pdc_info.holder(type).is_done != 0;
    }
  }
  // Waits until all indications that were sent have been handled.
  void flush() {
    {
      MutexLock hold(g_pdc_info.mutex);
      g_pdc_info.holder(PDC_SET_FEATURE).is_done = 0;
    }
    modem.send(kPdcPort, indication(0x2E, kGood));
    wait_until_done(PDC_SET_FEATURE);
  }
  static int get() {
    pdc_config_pdc_info out{};
    return pdc_get_current_config(&out, kSoftware, 0);
  }
  static int select() {
    pdc_config_pdc_info cfg{20, {}};
    for (uint8_t i = 0; i < 20; ++i) cfg.config_id[i] = static_cast<uint8_t>(i + 1);
    return pdc_select_config(&cfg, kSoftware, 0);
  }
  static int deactivate() { return pdc_deactivate_config(0, kSoftware); }

  FakeModem modem{socket_path()};
  const std::string active = std::string(kGood) + "11 1500 14" + kId;
};

// Those of the platform's configuration, and the list's next page.
TEST_F(Pdc, RequestsThatNoCommandSendsByteForByte) {
  const struct {
    std::function<int()> call;
    std::string message;  // id, length, TLVs
  } rows[] = {
      {[] {
         pdc_config_pdc_info out{};
         return pdc_get_current_config(&out, PDC_CONFIG_TYPE_MODEM_PLATFORM_V01, 1);
       },
       "2200 0700 01 0400 00000000"},
      {[] { return pdc_deactivate_config(1, PDC_CONFIG_TYPE_MODEM_PLATFORM_V01); },
       "2b00 0e00 01 0400 00000000 11 0400 01000000"},
      {[] {
         return pdc_activate_config_ex(PDC_CONFIG_TYPE_MODEM_PLATFORM_V01,
                                       PDC_ACTIVATION_REGULAR_V01, 0, 0);
       },
       "2700 0e00 01 0400 00000000 11 0400 00000000"},
      {[] {
         uint32_t timer_id = 1;
         qmi_pdc_list_configs_follow_up_request(&timer_id);
         return 0;
       },
       "2400 1200 10 0400 00000000 11 0400 01000000 12 0100 01"},
  };
  for (const auto& row : rows) {
    answer_with(active);
    EXPECT_EQ(row.call(), 0) << row.message;
    EXPECT_EQ(hex(modem.requests().at(0)).substr(6), hex(bytes(row.message)));
  }
}

TEST_F(Pdc, TheOutcomeIsThatOfTheIndication) {
  const struct {
    int (*call)();
    std::string tlvs;
    int result;
  } rows[] = {
      {get, active, 0},
      {get, std::string(kGood) + "3f 0100 00 12 0200 01 aa 11 1500 14" + kId + "10 0400 05000000",
       0},
      {get, kGood, -6},
      {get, std::string(kGood) + "12 0200 01 aa", -6},
      {get, "01 0200 1000", -1},
      {select, kGood, 0},
      {select, "01 0200 2900", -1},
      {deactivate, kGood, 0},
      {deactivate, "01 0200 1a00", -1},
  };
  for (const auto& row : rows) {
    answer_with(row.tlvs);
    EXPECT_EQ(row.call(), row.result) << row.tlvs;
    modem.on_request([&](const Bytes& request) {  // before the response
      return Replies{indication(id_of(request), row.tlvs), response(request)};
    });
    EXPECT_EQ(row.call(), row.result) << row.tlvs;
  }
  pdc_config_pdc_info out{};
  answer_with(active);
  EXPECT_EQ(pdc_get_current_config(&out, kSoftware, 0), 0);
  EXPECT_EQ(out.config_id_len, 20u);
  EXPECT_EQ(hex({out.config_id, 20}), kId);
  EXPECT_EQ(pdc_get_current_config(nullptr, kSoftware, 0), -1);
  pdc_config_pdc_info long_id{125, {}};
  answer_with(kGood);
  EXPECT_EQ(pdc_select_config(&long_id, kSoftware, 0), -4);
  EXPECT_TRUE(modem.requests().empty());
  long_id.config_id_len = 124;
  EXPECT_EQ(pdc_select_config(&long_id, kSoftware, 0), 0);
}

TEST_F(Pdc, OnlyPlatformAndSoftwareAreRefreshedAndReactivated) {
  answer_with(active);
  EXPECT_EQ(velmor_refresh_mbn(1, 2), 0);
  EXPECT_EQ(velmor_reactivate_mbn(1, 2), -1);
  velmor_mbn_deactivate_config(0, static_cast<pdc_config_type_enum_v01>(2));
  velmor_mbn_deactivate_config(2, kSoftware);
  EXPECT_TRUE(modem.requests().empty());
  EXPECT_EQ(velmor_refresh_mbn(3, 0), 0);
  EXPECT_EQ(modem.requests().size(), 2u);
}

TEST_F(Pdc, RefusalsCountForTheSelectedConfigurationOnly) {
  modem.on_request([&](const Bytes& request) {
    return Replies{response(request, "02 0400 0100 3000"),
                   indication(id_of(request), id_of(request) == 0x22 ? active : kGood)};
  });
  EXPECT_EQ(get(), -1);
  EXPECT_EQ(select(), 0);
  EXPECT_EQ(deactivate(), 0);
  modem.on_request([&](const Bytes& request) {  // "no effect" counts as success
    return Replies{response(request, "02 0400 0100 1a00"), indication(id_of(request), active)};
  });
  EXPECT_EQ(get(), 0);
  modem.remove_service(kPdcPort);
  for (int (*call)() : {select, deactivate}) EXPECT_EQ(call(), -1);
  pdc_clean();
  EXPECT_EQ(get(), -1);
}

class SilentPdc : public Pdc {
 protected:
  SilentPdc() : Pdc("0.1") {}
};

TEST_F(SilentPdc, AWaitEndsWithTheRequestsTimer) {
  modem.on_request([](const Bytes& request) { return Replies{response(request)}; });
  for (int (*call)() : {get, select, deactivate}) {
    const auto start = timing::Clock::now();
    EXPECT_EQ(call(), -1);
    const auto took = timing::Clock::now() - start;
    EXPECT_GE(took, timing::scaled(5000));
    EXPECT_LE(took, timing::scaled(5000) + std::chrono::seconds(2));
  }
  modem.send(kPdcPort, indication(0x22, active));  // too late for who had asked
  flush();
  {
    MutexLock hold(g_pdc_info.mutex);
    EXPECT_EQ(g_pdc_info.holder(PDC_GET_SEL).result, PDC_FAILED);
  }
  modem.on_request([](const Bytes& request) {  // one of another kind ends nothing
    return Replies{response(request),
                   indication(0x2E, kGood),
                   indication(0x27, "01 0200 1000"),
                   indication(0x21, "01 0600 01000000 01 aa"),
                   indication(0x2F, "01 0400 00000000"),
                   indication(0x99, kGood),
                   indication(0x23, "01 0100 00")};
  });
  EXPECT_EQ(deactivate(), -1);
  EXPECT_EQ(pdc_activate_config_ex(static_cast<pdc_config_type_enum_v01>(2),
                                   PDC_ACTIVATION_REGULAR_V01, 0, 0),
            -1);  // of a type above 1 the indication is waited for
  modem.on_request([](const Bytes&) { return Replies{}; });
  for (int (*call)() : {get, select, deactivate}) EXPECT_EQ(call(), -1);
  modem.on_request([lost = true](const Bytes& request) mutable {
    return std::exchange(lost, false) ? Replies{} : Replies{response(request)};
  });
  EXPECT_EQ(velmor_refresh_mbn(3, 1), 0);  // the last subscription's result is that of all
  answer_with(active);
  EXPECT_EQ(get(), 0);
}

TEST_F(Pdc, IndicationsThatNobodyHandlesAreDroppedInSilence) {
  answer_with(kGood);
  EXPECT_EQ(deactivate(), 0);
  flush();
  testing::internal::CaptureStdout();
  for (const uint16_t id : {uint16_t{0x20}, uint16_t{0x21}, uint16_t{0x29}, uint16_t{0x2C},
                            uint16_t{0x2D}, uint16_t{0x2F}}) {
    for (const char* tlvs : {"", "01 0100 00 77 0000", "01 0400 00000000 10 0400 00000000"}) {
      modem.send(kPdcPort, indication(id, tlvs));
    }
  }
  flush();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(Pdc, ASecondCallOfAKindIsRefusedWhileOneRuns) {
  modem.on_request([](const Bytes& request) { return Replies{response(request)}; });
  std::thread first([] { EXPECT_EQ(select(), 0); });
  for (bool waits = false; !waits; usleep(100)) {
    MutexLock hold(g_pdc_info.mutex);
    waits = g_pdc_info.holder(PDC_SEL_CONFIG).is_waiting != 0;
  }
  EXPECT_EQ(select(), -2);
  EXPECT_EQ(modem.requests().size(), 1u);
  modem.send(kPdcPort, indication(0x23, kGood));
  first.join();
}

TEST_F(Pdc, AFreshStartFailsARequestThatWaits) {
  modem.on_request([](const Bytes& request) { return Replies{response(request)}; });
  std::thread waiter([] { EXPECT_EQ(get(), -1); });
  for (bool waits = false; !waits; usleep(100)) {
    MutexLock hold(g_pdc_info.mutex);
    waits = g_pdc_info.holder(PDC_GET_SEL).is_waiting != 0;
  }
  qmi_pdc_init_pdc_info();
  waiter.join();
}

TEST_F(Pdc, ThousandsOfRequestsMeetTheirIndicationsInAnyOrder) {
  enum Scenario { Early, AtOnce, Late, Twice, Failing, OtherKind, Stale, kScenarios };
  const struct {
    int (*call)();
    uint16_t id;
  } kinds[] = {{get, 0x22}, {select, 0x23}, {deactivate, 0x2B}};
  std::minstd_rand random(20);
  std::thread sender;
  answer_with(kGood);
  EXPECT_EQ(deactivate(), 0);  // so that the modem knows whom to send to
  for (int i = 0; i < 2000; ++i) {
    const auto& kind = kinds[random() % 3];
    const auto scenario = static_cast<Scenario>(random() % kScenarios);
    const std::string good = kind.call == get ? active : kGood;
    const Bytes ind = indication(kind.id, scenario == Failing ? "01 0200 0100" : good);
    const auto late_us = static_cast<uint32_t>(random() % 300);
    if (scenario == Stale) {
      // An indication that nobody asked for is there and processed before the request is sent.
      modem.send(kPdcPort, indication(kind.id, "01 0200 0100"));
      flush();
    }
    modem.on_request([&](const Bytes& request) {
      switch (scenario) {
        case Early: return Replies{ind, response(request)};
        case Twice: return Replies{response(request), ind, ind};
        case OtherKind:
          return Replies{response(request), indication(0x2E, "01 0200 0100"),
                         indication(kind.id == 0x23 ? 0x2B : 0x23, "01 0200 0100"), ind};
        case Late:
          sender = std::thread([&modem = modem, ind, late_us] {
            usleep(late_us);
            modem.send(kPdcPort, ind);
          });
          return Replies{response(request)};
        default: return Replies{response(request), ind};
      }
    });
    EXPECT_EQ(kind.call(), scenario == Failing ? -1 : 0) << i << " " << scenario;
    if (sender.joinable()) sender.join();
    if (scenario == Twice) flush();
  }
}

// What a handler makes of an indication.
template <typename Ind>
int handled(void (*handler)(const Ind*, uint32_t), pdc_req_type type, const Ind* ind) {
  handler(ind, sizeof *ind);
  MutexLock hold(g_pdc_info.mutex);
  pdc_req_holder_s_type& holder = g_pdc_info.holder(type);
  EXPECT_EQ(std::exchange(holder.is_done, 0u), 1u);
  return holder.result;
}

TEST_F(Pdc, HandlersCheckWhatTheDecoderAlreadyChecked) {
  pdc_get_selected_config_ind_msg_v01 selected{};
  selected.active_config_id_valid = 1;
  selected.active_config_id_len = 125;
  const auto get_selected = [&] {
    return handled(qmi_pdc_get_selected_config_ind_hdlr, PDC_GET_SEL, &selected);
  };
  EXPECT_EQ(get_selected(), -1);  // nobody asked
  pdc_config_pdc_info out{};
  {
    MutexLock hold(g_pdc_info.mutex);
    g_pdc_info.get_sel_holder = &out;
  }
  EXPECT_EQ(get_selected(), -1);
  EXPECT_EQ(out.config_id_len, 0u);
  selected.active_config_id_len = 124;
  EXPECT_EQ(get_selected(), 0);
  EXPECT_EQ(out.config_id_len, 124u);
  selected.active_config_id_len = 0;
  EXPECT_EQ(get_selected(), -6);
  EXPECT_EQ(handled<pdc_get_selected_config_ind_msg_v01>(qmi_pdc_get_selected_config_ind_hdlr,
                                                         PDC_GET_SEL, nullptr),
            -1);

  const struct {
    uint32_t error;
    uint8_t reset;
    int result;
  } loads[] = {{0, 0, 0}, {2, 0, -5}, {0x29, 0, -4}, {3, 1, -1}, {0, 1, -3}};
  for (const auto& row : loads) {
    const pdc_load_config_ind_msg_v01 ind = {row.error, 0, 0, 1, 10, 1, 20, row.reset, row.reset};
    EXPECT_EQ(handled(qmi_pdc_load_config_ind_hdlr, PDC_LOAD, &ind), row.result);
  }
  {
    const pdc_load_config_ind_msg_v01 nothing_told{};
    EXPECT_EQ(handled(qmi_pdc_load_config_ind_hdlr, PDC_LOAD, &nothing_told), 0);
    MutexLock hold(g_pdc_info.mutex);
    EXPECT_EQ(g_pdc_info.received_config_size, 10u);
    EXPECT_EQ(g_pdc_info.remaining_config_size, 20u);
  }
  EXPECT_EQ(handled<pdc_load_config_ind_msg_v01>(qmi_pdc_load_config_ind_hdlr, PDC_LOAD, nullptr),
            -1);
  const struct {
    void (*handler)(const pdc_result_ind_msg_v01*, uint32_t);
    pdc_req_type type;
  } results[] = {{qmi_pdc_delete_config_ind_hdlr, PDC_DEL},
                 {qmi_pdc_activate_config_ind_hdlr, PDC_ACT_CONFIG},
                 {qmi_pdc_set_feature_ind_hdlr, PDC_SET_FEATURE}};
  for (const auto& [handler, type] : results) {
    const pdc_result_ind_msg_v01 good{}, bad{0x10, 0, 0};
    EXPECT_EQ(handled(handler, type, &good), 0);
    EXPECT_EQ(handled(handler, type, &bad), -1);
    EXPECT_EQ(handled<pdc_result_ind_msg_v01>(handler, type, nullptr), -1);
  }
}

TEST_F(Pdc, ConfigInfosAreCopiedAsFarAsTheyGo) {
  pdc_get_config_info_ind_msg_v01 info{};
  info.error = 5;  // of these the error is not looked at
  info.config_desc_valid = 1;
  info.config_desc_len = 300;
  memset(info.config_desc, 'd', sizeof info.config_desc);
  info.config_version = 7;
  info.base_version_valid = 1;
  pdc_get_default_config_info_ind_msg_v01 def{};
  def.config_desc_len = 300;
  def.config_version_valid = 1;
  EXPECT_EQ(handled(qmi_pdc_get_config_info_ind_hdlr, PDC_INFO, &info), -1);
  EXPECT_EQ(handled(velmor_mbn_get_default_config_info_ind_hdlr, PDC_DEFAULT_INFO, &def), -1);
  struct {
    pdc_config_info_holder info{}, def{};
  } out;
  {
    MutexLock hold(g_pdc_info.mutex);
    g_pdc_info.config_info = &out.info;
    g_pdc_info.default_config_info = &out.def;
  }
  EXPECT_EQ(handled(qmi_pdc_get_config_info_ind_hdlr, PDC_INFO, &info), 0);
  EXPECT_EQ(out.info.config_desc_len, 255u);
  EXPECT_EQ(out.info.config_desc[254], 'd');
  EXPECT_EQ(out.info.config_version, 7u);
  EXPECT_EQ(out.info.base_version_valid, 1);
  EXPECT_EQ(handled(velmor_mbn_get_default_config_info_ind_hdlr, PDC_DEFAULT_INFO, &def), 0);
  EXPECT_EQ(out.def.config_desc_len, 255u);
  EXPECT_EQ(out.def.config_version_valid, 1);
  def.error = 1;
  EXPECT_EQ(handled(velmor_mbn_get_default_config_info_ind_hdlr, PDC_DEFAULT_INFO, &def), -1);
}

class PdcList : public Pdc {
 protected:
  void begin_list() {
    MutexLock hold(g_pdc_info.mutex);
    g_pdc_info.config_list_holder = &list;
    g_pdc_info.num_of_configs = &count;
    g_pdc_info.holder(PDC_LIST).is_handling = 1;
    g_pdc_info.holder(PDC_LIST).is_done = 0;
  }
  ~PdcList() override {
    while (list != nullptr) {
      pdc_config_list_node* next = list->next;
      qcril_free_adv(list, __func__, __LINE__);
      list = next;
    }
  }
  pdc_config_list_node* list = nullptr;
  uint32_t count = 0;
};

TEST_F(PdcList, SixtyConfigurationsComeInThreePages) {
  ScratchFolder folder;
  std::string problem;
  const auto simulated = sim::Modem::open(folder.path(), problem);
  ASSERT_NE(simulated, nullptr) << problem;
  for (uint8_t i = 3; i < 60; ++i) {  // three are there already
    simulated->configurations().add({1, std::string(i, 'x'), 1, 2, "One more"});
  }
  sim::PdcService service(simulated->configurations());
  sim::Faults no_faults;
  std::minstd_rand random;
  modem.on_request([&](const Bytes& request) {
    Replies replies;
    for (auto& delivery : sim::carry_out(service, {1, 1}, request, no_faults, random).deliveries) {
      replies.push_back(std::move(delivery.packet));
    }
    return replies;
  });
  begin_list();
  uint32_t timer_id = 1;
  qmi_pdc_list_configs_follow_up_request(&timer_id);
  wait_until_done(PDC_LIST);
  EXPECT_EQ(modem.requests().size(), 3u);
  MutexLock hold(g_pdc_info.mutex);
  EXPECT_EQ(g_pdc_info.holder(PDC_LIST).result, 0);
  EXPECT_EQ(count, 60u);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->config_id_len, 59u);  // the newest stands first
  size_t nodes = 0;
  for (const auto* node = list; node != nullptr; node = node->next) ++nodes;
  EXPECT_EQ(nodes, 60u);
}

TEST_F(PdcList, WhatEndsAList) {
  pdc_list_configs_ind_msg_v01 ind{};
  const auto page = [&](uint32_t error, uint32_t len, uint8_t more) {
    ind.error = error;
    ind.config_list_valid = 1;
    ind.config_list_len = len;
    ind.more_available_valid = ind.ind_token_valid = ind.more_available = more;
    return handled(qmi_pdc_list_configs_ind_hdlr, PDC_LIST, &ind);
  };
  EXPECT_EQ(page(0, 1, 0), -1);  // nobody asked
  begin_list();
  EXPECT_EQ(page(3, 1, 0), -1);
  EXPECT_EQ(page(0, 0, 0), -6);
  EXPECT_EQ(page(0, 26, 1), -1);
  EXPECT_EQ(page(0, 25, 0), 0);
  EXPECT_EQ(count, 25u);
  modem.on_request([](const Bytes&) { return Replies{}; });
  modem.remove_service(kPdcPort);
  pdc_clean();
  {
    MutexLock hold(g_pdc_info.mutex);
    g_pdc_info.holder(PDC_LIST).is_done = 0;
  }
  ind.config_list_len = 1;
  ind.more_available_valid = ind.ind_token_valid = ind.more_available = 1;
  qmi_pdc_list_configs_ind_hdlr(&ind, sizeof ind);  // the next page cannot be asked for
  wait_until_done(PDC_LIST);
  MutexLock hold(g_pdc_info.mutex);
  EXPECT_EQ(g_pdc_info.holder(PDC_LIST).result, -1);
  EXPECT_EQ(count, 26u);
  g_pdc_info.holder(PDC_LIST).is_handling = 0;
}

TEST_F(Pdc, AFiredTimerEndsWhateverWaits) {
  modem.on_request([](const Bytes& request) { return Replies{response(request)}; });
  std::thread waiter([] { EXPECT_EQ(select(), -1); });
  for (bool waits = false; !waits; usleep(100)) {
    MutexLock hold(g_pdc_info.mutex);
    waits = g_pdc_info.holder(PDC_SEL_CONFIG).is_waiting != 0;
  }
  uint32_t unknown = 4711;
  testing::internal::CaptureStdout();
  qmi_pdc_request_timer_timeout_proc(&unknown);
  fflush(stdout);
  EXPECT_EQ(without_lines(testing::internal::GetCapturedStdout()),
            "RIL[qmi_pdc_request_timer_get_ptr_by_timer_id]: not find this timer_id(4711)\n"
            "RIL[qmi_pdc_request_timer_get_req_type_by_timer_id]: not find this timer_id(4711)\n");
  waiter.join();
  MutexLock hold(g_pdc_info.mutex);
  for (int type = 1; type <= kPdcReqTypes; ++type) {
    EXPECT_EQ(g_pdc_info.holder(static_cast<pdc_req_type>(type)).is_done, type != PDC_SEL_CONFIG)
        << type;
  }
  // A type that nobody knows has the last slot, and a running timer is stopped before a new one.
  EXPECT_EQ(qmi_pdc_request_timer_get_ptr_by_req_type(0),
            qmi_pdc_request_timer_get_ptr_by_req_type(PDC_DEFAULT_INFO));
  qmi_pdc_request_timer_start(11);
  const uint32_t first = g_pdc_info.holder(PDC_DEFAULT_INFO).timer_id;
  qmi_pdc_request_timer_start(PDC_DEFAULT_INFO);
  EXPECT_EQ(velmor_timer_stop(first), -1);
  qmi_pdc_request_timer_stop(PDC_DEFAULT_INFO);
}

std::atomic<uint32_t> g_fired;
std::atomic<int> g_fires;

TEST_F(Pdc, TimersFireOnceUnlessTheyAreStopped) {
  const velmor_timer_cb note = [](uint32_t* id) {
    g_fired = *id;
    ++g_fires;
    velmor_timer_stop(*id);  // from inside: it has expired
  };
  const auto fires = [](int count) {
    while (g_fires < count) usleep(100);
    usleep(2000);
    return g_fires.load();
  };
  const uint32_t at_once = velmor_timer_start(note, 0);
  EXPECT_NE(at_once, 0u);
  EXPECT_EQ(fires(1), 1);
  EXPECT_EQ(g_fired, at_once);
  EXPECT_EQ(velmor_timer_stop(at_once), -1);
  EXPECT_EQ(velmor_timer_stop(0), -1);

  const uint32_t never = velmor_timer_start(note, UINT64_MAX);  // clamped, not wrapped
  const uint32_t stopped = velmor_timer_start(note, 1);
  const uint32_t second = velmor_timer_start(note, 1);
  EXPECT_EQ(velmor_timer_stop(stopped), 0);
  EXPECT_EQ(fires(2), 2);
  EXPECT_EQ(g_fired, second);
  EXPECT_EQ(velmor_timer_stop(never), 0);

  // A callback that takes its time holds up neither another timer nor a stop.
  static std::atomic<bool> runs, go_on;
  const uint32_t slow = velmor_timer_start(
      [](uint32_t*) {
        runs = true;
        while (!go_on) usleep(100);
        ++g_fires;
      },
      0);
  while (!runs) usleep(100);
  EXPECT_EQ(velmor_timer_stop(slow), -1);
  velmor_timer_start(note, 0);
  EXPECT_EQ(fires(3), 3);
  go_on = true;
  EXPECT_EQ(fires(4), 4);
}

}  // namespace
