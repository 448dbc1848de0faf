// The QMI client library, against a modem that says exactly what a test tells it to.
#include <atomic>
#include <future>

#include "pdc_service.h"
#include "qcci/observer.h"
#include "qmi_client.h"
#include "support/fake_modem_fixture.h"
#include "uim_service.h"

namespace {

using namespace testing_support;
using std::chrono::milliseconds;

const qmi_idl_service_object_type kService = velmor_extend_get_service_object_internal_v01(1, 1, 6);
constexpr uint32_t kPort = kExtensionPort;

// What callbacks were told, for a test to wait for.
class Events {
 public:
  void add(const std::string& event) {
    MutexLock hold(lock_);
    all_ += event + " ";
    changed_.notify_all();
  }
  // All events once there are as many as in `wanted`, or what there is after a while.
  std::string when(const std::string& wanted) {
    MutexLock hold(lock_);
    const auto limit = timing::Clock::now() + std::chrono::seconds(10);
    while (all_.size() < wanted.size() && changed_.wait_until(lock_, limit)) {
    }
    return all_;
  }

 private:
  Mutex lock_;
  Condition changed_;
  std::string all_ GUARDED_BY(lock_);
};

void on_indication(qmi_client_type handle, unsigned int id, void* buf, unsigned int len,
                   void* data) {
  std::this_thread::sleep_for(milliseconds(5));
  velmor_extend_two_words_msg_v01 words;
  const auto error =
      qmi_client_message_decode(handle, QMI_IDL_INDICATION, id, buf, len, &words, sizeof words);
  static_cast<Events*>(data)->add(
      "ind" + std::to_string(id) + ":" +
      (error == 0 ? std::to_string(words.second) : "error" + std::to_string(error)));
}

Bytes two_words(uint8_t second) {
  Bytes body = bytes("01 0400 00000000 02 0400 00000000");
  body[10] = second;
  return body;
}

void on_error(qmi_client_type, qmi_client_error_type error, void* data) {
  static_cast<Events*>(data)->add("error" + std::to_string(error));
}

void on_notify(qmi_client_type, qmi_idl_service_object_type, qmi_client_notify_event_type event,
               void* data) {
  static_cast<Events*>(data)->add("event" + std::to_string(event));
}

class Qcci : public FakeModemTest {
 protected:
  using FakeModemTest::FakeModemTest;
  qmi_client_type open(qmi_client_ind_cb cb = nullptr, void* data = nullptr) {
    qmi_client_type handle = nullptr;
    EXPECT_EQ(qmi_client_init_instance(kService, QMI_CLIENT_INSTANCE_ANY, cb, data, nullptr, 1000,
                                       &handle),
              QMI_NO_ERR);
    return handle;
  }

  qmi_client_error_type send(qmi_client_type handle, uint8_t payload = 0,
                             unsigned int time_out_ms = 100000) {
    velmor_extend_send_data_req_msg_v01 req{};
    req.data_valid = 1;
    req.data[0] = payload;
    resp = {};
    return qmi_client_send_msg_sync(handle, 2, &req, sizeof req, &resp, sizeof resp, time_out_ms);
  }

  // Answers every request with the payload byte it came with.
  void echo() {
    modem.on_request([](const Bytes& request) {
      return Replies{answer(request, {request[qmi::kHeaderBytes + 17]})};
    });
  }

  FakeModem modem{socket_path()};
  velmor_extend_send_data_resp_msg_v01 resp{};
};

TEST_F(Qcci, ListGivesTheServersOfTheRightVersion) {
  modem.add_service(kExtensionId, 5, 0x0002);  // another version
  modem.add_service(kExtensionId, 6, 0x0001);
  modem.add_service(kExtensionId, 9, 0x0301);
  unsigned int entries = 99, services = 99;
  EXPECT_EQ(qmi_client_get_service_list(kService, nullptr, &entries, &services), QMI_NO_ERR);
  EXPECT_EQ(entries, 0u);
  EXPECT_EQ(services, 2u);
  qmi_service_info list[3] = {};
  entries = 3;
  EXPECT_EQ(qmi_client_get_service_list(kService, list, &entries, &services), QMI_NO_ERR);
  EXPECT_EQ(entries, 2u);
  EXPECT_EQ(list[0].port, 6u);
  EXPECT_EQ(list[1].instance, 3u);
  EXPECT_EQ(list[2].port, 0u);
  qmi_client_type handle;
  EXPECT_EQ(qmi_client_init_instance(kService, 3, nullptr, nullptr, nullptr, 4, &handle), 0);
  EXPECT_EQ(qmi_client_init_instance(kService, 2, nullptr, nullptr, nullptr, 4, &handle),
            QMI_TIMEOUT_ERR);
}

TEST_F(Qcci, WithoutTheServiceNothingOpens) {
  unsigned int entries = 1, services = 1;
  qmi_service_info list[1] = {};
  EXPECT_EQ(qmi_client_get_service_list(kService, list, &entries, &services), QMI_SERVICE_ERR);
  EXPECT_EQ(entries + services, 0u);
  qmi_client_type handle = &handle;
  EXPECT_EQ(qmi_client_init(list, kService, nullptr, nullptr, nullptr, &handle),
            QMI_PORT_NOT_OPEN_ERR);
  EXPECT_EQ(handle, nullptr);
  list[0].port = 3;  // a server that is not there any more
  EXPECT_EQ(qmi_client_init(list, kService, nullptr, nullptr, nullptr, &handle), QMI_SERVICE_ERR);
  EXPECT_EQ(qmi_client_init_instance(kService, 0xFFFF, nullptr, nullptr, nullptr, 4, &handle),
            QMI_TIMEOUT_ERR);
  modem.stop();
  EXPECT_EQ(qmi_client_get_service_list(kService, list, &entries, &services), QMI_SERVICE_ERR);
  EXPECT_EQ(qmi_client_init_instance(kService, 0xFFFF, nullptr, nullptr, nullptr, 4, &handle),
            QMI_TIMEOUT_ERR);
}

class Onlooker final : public qmi::Observer {
 public:
  std::string seen() {
    MutexLock hold(qmi::bus_lock);
    return std::exchange(seen_, "");
  }

 private:
  void on_crossing(const qmi::Crossing& crossing) override REQUIRES(qmi::bus_lock) {
    seen_ += crossing.direction + std::to_string(crossing.packet[0]);
    if (!crossing.request.empty()) seen_ += "?";
    if (crossing.message != nullptr) seen_ += crossing.message->name;
    if (crossing.c_struct == nullptr) seen_ += "!";
    seen_ += " ";
  }
  void on_outcome(const qmi_idl_service_object&, const qmi::Message&,
                  qmi_client_error_type result) override REQUIRES(qmi::bus_lock) {
    seen_ += "=" + std::to_string(result) + " ";
  }
  void on_opened(const qmi_idl_service_object&, qmi_client_error_type result) override
      REQUIRES(qmi::bus_lock) {
    seen_ += "opened" + std::to_string(result) + " ";
  }

  std::string seen_ GUARDED_BY(qmi::bus_lock);
};

TEST_F(Qcci, AnObserverSeesWhatCrossesDecodedAndWhatBecameOfIt) {
  static Onlooker onlooker;
  qmi::add_observer(onlooker);
  qmi_client_type handle;
  qmi_client_init_instance(kService, QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr, nullptr, 4,
                           &handle);
  EXPECT_EQ(onlooker.seen(), "opened-3 ");
  modem.add_service(kExtensionId, kPort);
  handle = open();
  echo();
  send(handle);
  EXPECT_EQ(onlooker.seen(), "opened0 >0?send_data <2?send_data =0 ");

  modem.on_request([](const Bytes& request) {
    return Replies{packet(qmi::Kind::Indication, 1, 7, two_words(1)),
                   packet(qmi::Kind::Response, transaction_of(request), 2, bytes("01 0100 00"))};
  });
  send(handle);
  EXPECT_EQ(onlooker.seen(), ">0?send_data <4two_words <2?send_data! =-1 ");

  modem.remove_service(kPort);
  send(handle);
  EXPECT_TRUE(onlooker.seen().ends_with("=-2 "));
  qmi_client_release(handle);
}

class SilentNameService : public Qcci {
 protected:
  SilentNameService() : Qcci("0.2") { modem.answer_lookups(false); }

  static qmi_client_error_type list(qmi_idl_service_object_type service) {
    unsigned int entries = 0, services = 0;
    return qmi_client_get_service_list(service, nullptr, &entries, &services);
  }
  template <typename T>
  static bool is_waiting(const std::future<T>& call) {
    return call.wait_for(milliseconds(0)) == std::future_status::timeout;
  }

  const qmi_idl_service_object_type uim = uim_get_service_object_internal_v01(1, 109, 6);
};

TEST_F(SilentNameService, IsWaitedForOnce) {
  const auto start = timing::Clock::now();
  for (int i = 0; i < 50; ++i) EXPECT_EQ(list(kService), QMI_SERVICE_ERR);
  EXPECT_LT(timing::Clock::now() - start, milliseconds(1000));
  // Its late answer is not taken for that of the next question.
  modem.answer_lookups(true);
  modem.add_service(0x0B, 9);
  EXPECT_EQ(list(uim), QMI_NO_ERR);
}

TEST_F(SilentNameService, AndAClientDoNotWaitForEachOther) {
  modem.answer_lookups(true);
  modem.add_service(kExtensionId, kPort);
  const qmi_client_type handle = open();
  modem.answer_lookups(false);
  echo();
  auto lookup = std::async(std::launch::async, [&] { return list(uim); });
  std::this_thread::sleep_for(milliseconds(20));
  EXPECT_EQ(send(handle, 7), QMI_NO_ERR);
  EXPECT_EQ(resp.data[0], 7);
  EXPECT_TRUE(is_waiting(lookup));
  EXPECT_EQ(lookup.get(), QMI_SERVICE_ERR);

  modem.on_request([](const Bytes&) { return Replies{}; });
  auto sent = std::async(std::launch::async, [&] { return send(handle); });
  while (modem.requests().empty()) std::this_thread::yield();
  EXPECT_EQ(list(pdc_get_service_object_internal_v01(1, 16, 6)), QMI_SERVICE_ERR);
  EXPECT_TRUE(is_waiting(sent));
  modem.remove_service(kPort);
  EXPECT_EQ(sent.get(), QMI_SERVICE_ERR);
}

TEST_F(SilentNameService, ThatIsLostDuringTheWaitIsWaitedForAgain) {
  auto lookup = std::async(std::launch::async, [&] { return list(kService); });
  std::this_thread::sleep_for(milliseconds(20));
  EXPECT_TRUE(is_waiting(lookup));
  modem.stop();
  EXPECT_EQ(lookup.get(), QMI_SERVICE_ERR);
  modem.answer_lookups(true);
  modem.add_service(kExtensionId, kPort);
  modem.start();
  EXPECT_EQ(list(kService), QMI_NO_ERR);
}

TEST_F(Qcci, AServiceThatComesLateIsWaitedFor) {
  auto opened = std::async(std::launch::async, [&] { return open(); });
  std::this_thread::sleep_for(milliseconds(10));
  modem.add_service(kExtensionId, kPort);
  EXPECT_NE(opened.get(), nullptr);
}

TEST_F(Qcci, HandlesThatStandForNothingAreRefusedUntouched) {
  modem.add_service(kExtensionId, kPort);
  const qmi_client_type released = open();
  EXPECT_EQ(qmi_client_release(released), QMI_NO_ERR);
  uint8_t buf[600];
  for (const qmi_client_type handle : {qmi_client_type{}, released, qmi_client_type(buf)}) {
    EXPECT_EQ(send(handle), QMI_PORT_NOT_OPEN_ERR);
    EXPECT_EQ(qmi_client_release(handle), QMI_PORT_NOT_OPEN_ERR);
    EXPECT_EQ(qmi_client_register_error_cb(handle, on_error, nullptr), QMI_PORT_NOT_OPEN_ERR);
    EXPECT_EQ(qmi_client_register_notify_cb(handle, on_notify, nullptr), QMI_PORT_NOT_OPEN_ERR);
    EXPECT_EQ(qmi_client_message_decode(handle, QMI_IDL_INDICATION, 3, buf, 0, buf, sizeof buf),
              QMI_PORT_NOT_OPEN_ERR);
  }
}

TEST_F(Qcci, WrongSizesAndUnknownMessagesAreNotSent) {
  modem.add_service(kExtensionId, kPort);
  const qmi_client_type handle = open();
  velmor_extend_send_data_req_msg_v01 req{};
  EXPECT_EQ(qmi_client_send_msg_sync(handle, 2, &req, 523, &resp, 524, 9), QMI_INTERNAL_ERR);
  EXPECT_EQ(qmi_client_send_msg_sync(handle, 2, &req, 524, &resp, 523, 9), QMI_INTERNAL_ERR);
  EXPECT_EQ(qmi_client_send_msg_sync(handle, 2, nullptr, 524, &resp, 524, 9), QMI_INTERNAL_ERR);
  EXPECT_EQ(qmi_client_send_msg_sync(handle, 5, &req, 524, &resp, 524, 9), QMI_INTERNAL_ERR);
  EXPECT_EQ(qmi_client_send_msg_sync(handle, 0x10002, &req, 524, &resp, 524, 9), QMI_INTERNAL_ERR);
  EXPECT_TRUE(modem.requests().empty());
  uint32_t len = 1;
  EXPECT_EQ(qmi_idl_get_message_c_struct_len(kService, QMI_IDL_INDICATION, 6, &len), QMI_NO_ERR);
  EXPECT_EQ(len, 1288u);
  EXPECT_NE(qmi_idl_get_message_c_struct_len(kService, QMI_IDL_INDICATION, 4, &len), QMI_NO_ERR);
  EXPECT_EQ(len, 0u);
}

TEST_F(Qcci, OnlyTheResponseToItsOwnTransactionEndsARequest) {
  modem.add_service(kExtensionId, kPort);
  const qmi_client_type handle = open();
  modem.on_request([](const Bytes& request) {
    Bytes other = answer(request, {1});
    other[1] ^= 0x40;
    Bytes other_message = answer(request, {2});
    other_message[3] = 3;
    return Replies{other, other_message, answer(request, {4}), answer(request, {5})};
  });
  EXPECT_EQ(send(handle), QMI_NO_ERR);
  EXPECT_EQ(resp.data[0], 4);
  EXPECT_EQ(send(handle), QMI_NO_ERR);
  EXPECT_EQ(resp.data[0], 4);
}

TEST_F(Qcci, AMalformedResponseIsAnInternalErrorAndClearsTheStructure) {
  modem.add_service(kExtensionId, kPort);
  const qmi_client_type handle = open();
  modem.on_request([](const Bytes& request) {
    return Replies{packet(qmi::Kind::Response, transaction_of(request), 2,
                          bytes("01 0400 01000000 02 0300 000000"))};
  });
  EXPECT_EQ(send(handle), QMI_INTERNAL_ERR);
  EXPECT_EQ(resp.result, 0u);
  modem.on_request([](const Bytes& request) {  // one byte short of what its header says
    Bytes cut = answer(request, {3});
    cut.pop_back();
    return Replies{cut};
  });
  EXPECT_EQ(send(handle), QMI_INTERNAL_ERR);
}

TEST_F(Qcci, ALateResponseIsDroppedAndTheNextRequestWorks) {
  modem.add_service(kExtensionId, kPort);
  const qmi_client_type handle = open();
  Bytes late;
  modem.on_request([&](const Bytes& request) {
    if (late.empty()) {
      late = answer(request, {1});
      return Replies{};
    }
    return Replies{late, answer(request, {2})};
  });
  resp.data[0] = 0;
  EXPECT_EQ(send(handle, 0, 20), QMI_TIMEOUT_ERR);
  EXPECT_EQ(resp.data[0], 0);
  EXPECT_EQ(send(handle), QMI_NO_ERR);
  EXPECT_EQ(resp.data[0], 2);
}

TEST_F(Qcci, IndicationsComeInOrderAndBeforeReleaseReturns) {
  modem.add_service(kExtensionId, kPort);
  Events events;
  const qmi_client_type handle = open(on_indication, &events);
  modem.on_request([](const Bytes& request) {
    return Replies{packet(qmi::Kind::Indication, 0, 7, two_words(1)),
                   packet(qmi::Kind::Indication, 0, 7, two_words(2)), answer(request, {}),
                   packet(qmi::Kind::Indication, 0, 9, {})};
  });
  EXPECT_EQ(send(handle), QMI_NO_ERR);
  EXPECT_EQ(qmi_client_release(handle), QMI_NO_ERR);
  const std::string all = events.when("");
  EXPECT_EQ(all.substr(0, 14), "ind7:1 ind7:2 ");
  std::this_thread::sleep_for(milliseconds(20));
  EXPECT_EQ(events.when(""), all);
}

TEST_F(Qcci, WhatArrivedBeforeAnAnswerHasBeenHeardWhenTheSenderGoesOn) {
  modem.add_service(kExtensionId, kPort);
  modem.on_request([](const Bytes& request) {
    return Replies{packet(qmi::Kind::Indication, 1, 7, two_words(1)),
                   packet(qmi::Kind::Indication, 2, 7, two_words(2)), answer(request, {})};
  });
  for (int i = 0; i < 20; ++i) {
    Events events;
    const qmi_client_type handle = open(on_indication, &events);
    EXPECT_EQ(send(handle), QMI_NO_ERR);
    EXPECT_EQ(events.when(""), "ind7:1 ind7:2 ");
    qmi_client_release(handle);
  }
}

// A callback that sends does not wait for the callbacks behind it.
TEST_F(Qcci, ACallbackMaySendAndHearsWhatComesLater) {
  modem.add_service(kExtensionId, kPort);
  modem.on_request([](const Bytes& request) {
    return Replies{packet(qmi::Kind::Indication, 1, 7, two_words(request[qmi::kHeaderBytes + 17])),
                   answer(request, {})};
  });
  Events events;
  const qmi_client_type handle = open(
      [](qmi_client_type self, unsigned int id, void* buf, unsigned int len, void* data) {
        on_indication(self, id, buf, len, data);
        if (static_cast<uint8_t*>(buf)[10] == 2) return;
        velmor_extend_send_data_req_msg_v01 req{};
        req.data_valid = 1;
        req.data[0] = 2;
        velmor_extend_send_data_resp_msg_v01 got{};
        const int error =
            qmi_client_send_msg_sync(self, 2, &req, sizeof req, &got, sizeof got, 900);
        static_cast<Events*>(data)->add("sent" + std::to_string(error));
      },
      &events);
  EXPECT_EQ(send(handle, 1), QMI_NO_ERR);
  EXPECT_EQ(events.when("ind7:1 sent0 ind7:2 "), "ind7:1 sent0 ind7:2 ");
  qmi_client_release(handle);
}

TEST_F(Qcci, IndicationsAreDeliveredWhileNobodyWaits) {
  modem.add_service(kExtensionId, kPort);
  Events events;
  const qmi_client_type handle = open(on_indication, &events);
  echo();
  EXPECT_EQ(send(handle), QMI_NO_ERR);
  modem.send(kPort, packet(qmi::Kind::Indication, 0, 7, two_words(3)));
  EXPECT_EQ(events.when("ind7:3 "), "ind7:3 ");
  EXPECT_EQ(send(handle, 3), QMI_NO_ERR);
  EXPECT_EQ(resp.data[0], 3);
  qmi_client_release(handle);
}

// A callback that does not end holds up a thousand others; the news that the service left still
// come.
TEST_F(Qcci, IndicationsThatNobodyHearsAreDroppedAndThatIsSaidOnce) {
  modem.add_service(kExtensionId, kPort);
  struct Hearer {
    std::promise<void> may_go_on;
    std::shared_future<void> gate{may_go_on.get_future()};
    std::atomic<int> heard = 0;
  } hearer;
  Events events;
  const qmi_client_type handle = open(
      [](qmi_client_type, unsigned int, void*, unsigned int, void* data) {
        auto* const self = static_cast<Hearer*>(data);
        self->gate.wait();
        ++self->heard;
      },
      &hearer);
  EXPECT_EQ(qmi_client_register_error_cb(handle, on_error, &events), QMI_NO_ERR);
  echo();
  EXPECT_EQ(send(handle), QMI_NO_ERR);
  testing::internal::CaptureStderr();
  for (int i = 0; i < 1500; ++i) modem.send(kPort, packet(qmi::Kind::Indication, 0, 7, {}));
  modem.remove_service(kPort);
  EXPECT_EQ(send(handle), QMI_SERVICE_ERR);
  hearer.may_go_on.set_value();
  EXPECT_EQ(events.when("error-2 "), "error-2 ");
  EXPECT_NEAR(hearer.heard, 1000, 1);  // one of them does not wait
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(said.ends_with(": indications are dropped: 1000 wait for a callback\n")) << said;
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
  qmi_client_release(handle);
}

TEST_F(Qcci, OfANodeAsManyServersAreKnownAsTheKernelHas) {
  for (uint32_t port = 1; port <= 300; ++port) modem.add_service(kExtensionId, port);
  unsigned int entries = 0, services = 0;
  EXPECT_EQ(qmi_client_get_service_list(kService, nullptr, &entries, &services), QMI_NO_ERR);
  EXPECT_EQ(services, 256u);
}

TEST_F(Qcci, AServiceThatLeavesEndsRequestsAndTellsTheErrorCallbackOnce) {
  for (const bool hang_up : {false, true}) {
    modem.add_service(kExtensionId, kPort);
    Events events, late_events;
    const qmi_client_type handle = open();
    EXPECT_EQ(qmi_client_register_error_cb(handle, on_error, &events), QMI_NO_ERR);
    modem.on_request([](const Bytes&) { return Replies{}; });
    auto sent = std::async(std::launch::async, [&] { return send(handle); });
    while (modem.requests().empty()) std::this_thread::yield();
    hang_up ? modem.stop() : modem.remove_service(kPort);
    EXPECT_EQ(sent.get(), QMI_SERVICE_ERR);
    EXPECT_EQ(events.when("error-2 "), "error-2 ");
    EXPECT_EQ(send(handle), QMI_SERVICE_ERR);
    EXPECT_EQ(qmi_client_register_error_cb(handle, on_error, &late_events), QMI_NO_ERR);
    EXPECT_EQ(late_events.when("error-2 "), "error-2 ");
    EXPECT_EQ(qmi_client_release(handle), QMI_NO_ERR);
    EXPECT_EQ(events.when(""), "error-2 ");
    if (hang_up) modem.start();
  }
}

TEST_F(Qcci, ANotifierHearsOfEveryChangeAcrossAHangUp) {
  Events events;
  qmi_client_os_params params{};
  qmi_client_type notifier = nullptr;
  ASSERT_EQ(qmi_client_notifier_init(kService, &params, &notifier), QMI_NO_ERR);
  EXPECT_EQ(qmi_client_register_notify_cb(notifier, on_notify, &events), QMI_NO_ERR);
  auto waited = std::async(std::launch::async, [&] { qmi_cci_os_signal_wait(&params, 500000); });
  usleep(20000);  // so that it waits already
  modem.add_service(kExtensionId, kPort);
  waited.get();
  EXPECT_EQ(events.when("event0 "), "event0 ");
  modem.remove_service(kPort);
  EXPECT_EQ(events.when("event0 event1 "), "event0 event1 ");
  modem.add_service(kExtensionId, kPort);
  events.when("event0 event1 event0 ");
  modem.stop();
  EXPECT_EQ(events.when("event0 event1 event0 event1 "), "event0 event1 event0 event1 ");
  modem.start();
  const std::string all = "event0 event1 event0 event1 event0 ";
  EXPECT_EQ(events.when(all), all);
  Events again;
  EXPECT_EQ(qmi_client_register_notify_cb(notifier, on_notify, &again), QMI_NO_ERR);
  EXPECT_EQ(again.when("event0 "), "event0 ");
  EXPECT_EQ(qmi_client_release(notifier), QMI_NO_ERR);
  modem.remove_service(kPort);
}

void release_own_client(qmi_client_type handle, unsigned int, void*, unsigned int, void* data) {
  static_cast<Events*>(data)->add("released" + std::to_string(qmi_client_release(handle)));
}

TEST_F(Qcci, AClientMayBeReleasedFromItsCallbackAndDuringARequest) {
  modem.add_service(kExtensionId, kPort);
  Events events;
  qmi_client_type handle = open(release_own_client, &events);
  modem.on_request([](const Bytes&) {
    return Replies{packet(qmi::Kind::Indication, 0, 7, {}),
                   packet(qmi::Kind::Indication, 0, 7, {})};
  });
  EXPECT_EQ(send(handle), QMI_PORT_NOT_OPEN_ERR);
  EXPECT_EQ(events.when("released0 "), "released0 ");
  EXPECT_EQ(send(handle), QMI_PORT_NOT_OPEN_ERR);
}

TEST_F(Qcci, RequestsOfManyThreadsOnOneClientAreNotMixed) {
  modem.add_service(kExtensionId, kPort);
  echo();
  const qmi_client_type handle = open();
  std::atomic<int> good = 0;
  std::vector<std::thread> threads;
  for (uint8_t t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 100; ++i) {
        velmor_extend_send_data_req_msg_v01 req{};
        velmor_extend_send_data_resp_msg_v01 got{};
        req.data_valid = 1;
        req.data[0] = t;
        const int error =
            qmi_client_send_msg_sync(handle, 2, &req, sizeof req, &got, sizeof got, 500000);
        good += error == 0 && got.data[0] == t;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, 800);
  qmi_client_release(handle);
}

}  // namespace
