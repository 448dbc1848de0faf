// The library's threads in many orders: a few pieces of work at a time, of which some make the
// modem restart or a service leave, against the simulated modem of this process. Which ones, and
// which of the threads goes on whenever one of them could give way, is decided by a seed and by
// what was done since the first one.
//
//   schedules COUNT [FIRST]
//
// Built with the thread sanitizer, that sees the product's locks and not the turns. A seed has
// failed when that reports a race, all threads wait for ever, a callback runs after its release has
// returned, or a call returns what it never should.
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "fuzz.h"
#include "mbn/pdc_utils.h"
#include "modem_api/modem_api.h"
#include "modem_api/nas/nas_0_client.h"
#include "modem_api/nas/nas_service.h"
#include "modem_api/sar/sar_service.h"
#include "modem_api/vs/vs_service.h"
#include "qmi_client.h"
#include "timing.h"
#include "turns.h"
#include "uim_service.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_cmn_uim.h"

extern "C" void __sanitizer_set_death_callback(void (*)());

namespace {

constexpr const char* kFaults =
    "nas/21=restart:30;sar=down:25;uim/2f=delay:15;pdc/22=ind-first;vs/207=twice";

using Service = qmi_idl_service_object_type;

Service uim() {
  return uim_get_service_object_internal_v01(1, 109, 6);
}
Service pdc() {
  return pdc_get_service_object_internal_v01(1, 16, 6);
}
Service nas() {
  return nas_get_service_object_internal_v01(1, 397, 6);
}
Service sar() {
  return sar_get_service_object_internal_v01(1, 15, 6);
}

// What has happened so far, lest nothing does.
struct {
  std::atomic<uint64_t> answered, lost, timed_out, callbacks, releases_from_one;
} g_count;

class Dice {
 public:
  explicit Dice(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15 | 1) {}
  uint32_t below(uint32_t count) {
    state_ = state_ * 6364136223846793005 + 1442695040888963407;
    return static_cast<uint32_t>(state_ >> 33) % count;
  }

 private:
  uint64_t state_;
};

// A client or notifier, and what must not be heard of it any more. Nobody waits for a callback that
// has released its own client, so it may still be here when the next seed begins.
struct Handle {
  std::atomic<qmi_client_type> number{nullptr};
  std::atomic<bool> is_over{false};
  std::atomic<bool> ends_itself{false};  // at the next callback

  std::atomic<int> releases{0};

  void begin() {
    is_over = ends_itself = false;
    releases = 0;
  }
  void hear() {
    fuzz::require(!is_over);
    ++g_count.callbacks;
    if (!ends_itself.exchange(false)) return;
    ++g_count.releases_from_one;
    end();
  }
  void release() {
    if (end()) is_over = true;
  }

 private:
  // Of all that release a handle it is one who has done it.
  bool end() {
    const auto result = qmi_client_release(number);
    fuzz::require(result == QMI_NO_ERR || result == QMI_PORT_NOT_OPEN_ERR);
    if (result == QMI_NO_ERR) fuzz::require(++releases == 1);
    return result == QMI_NO_ERR;
  }
};

void on_indication(qmi_client_type, unsigned int, void*, unsigned int, void* data) {
  static_cast<Handle*>(data)->hear();
}
void on_error(qmi_client_type, qmi_client_error_type error, void* data) {
  fuzz::require(error == QMI_SERVICE_ERR);
  static_cast<Handle*>(data)->hear();
}
void on_presence(qmi_client_type, Service, qmi_client_notify_event_type, void* data) {
  static_cast<Handle*>(data)->hear();
}

void require_outcome(int result) {
  switch (result) {
    case QMI_NO_ERR: ++g_count.answered; break;
    case QMI_TIMEOUT_ERR: ++g_count.timed_out; break;
    case QMI_SERVICE_ERR:
    case QMI_PORT_NOT_OPEN_ERR: ++g_count.lost; break;
    default: abort();
  }
}

bool open(Handle& handle, Service service) {
  handle.begin();
  qmi_client_type number = nullptr;
  const auto result = qmi_client_init_instance(service, QMI_CLIENT_INSTANCE_ANY, on_indication,
                                               &handle, nullptr, 100, &number);
  require_outcome(result);
  if (result != QMI_NO_ERR) return false;
  handle.number = number;
  qmi_client_register_error_cb(handle.number, on_error, &handle);
  return true;
}

void ask(const Handle& handle, Service service, Dice& dice) {
  if (service == uim()) {
    uim_get_card_status_req_msg_v01 req{};
    const auto resp = std::make_unique<uim_get_card_status_resp_msg_v01>();
    require_outcome(qmi_client_send_msg_sync(handle.number, QMI_UIM_GET_CARD_STATUS_REQ_V01, &req,
                                             sizeof req, resp.get(), sizeof *resp,
                                             dice.below(2) == 0 ? 10 : 1000));
  } else if (service == pdc()) {
    pdc_get_selected_config_req_msg_v01 req{};
    pdc_resp_msg_v01 resp{};
    require_outcome(qmi_client_send_msg_sync(handle.number, QMI_PDC_GET_SELECTED_CONFIG_REQ_V01,
                                             &req, sizeof req, &resp, sizeof resp, 1000));
  }
}

// The pieces of work, each with handles of its own.
using Handles = Handle[2];

void own_client(Handles& handles, Dice& dice) {
  Handle& handle = handles[dice.below(2)];
  const Service service = dice.below(2) == 0 ? uim() : pdc();
  if (!open(handle, service)) return;
  const uint32_t exchanges = dice.below(4);
  for (uint32_t i = 0; i < exchanges; ++i) {
    ask(handle, service, dice);
    if (dice.below(4) == 0) handle.ends_itself = true;
    if (dice.below(3) == 0) timing::sleep_ms(dice.below(60));
  }
  handle.release();
}

void shared_client(Handles& handles, Dice& dice) {
  Handle& handle = handles[0];
  if (!open(handle, uim())) return;
  Dice others(dice.below(UINT16_MAX));
  std::thread other([&] {
    for (int i = 0; i < 2; ++i) ask(handle, uim(), others);
  });
  if (dice.below(2) == 0) ask(handle, uim(), dice);
  if (dice.below(2) == 0) timing::sleep_ms(dice.below(30));
  handle.release();
  other.join();
}

void notifier(Handles& handles, Dice& dice) {
  Handle& handle = handles[0];
  qmi_client_os_params signal{};
  const Service service = dice.below(2) == 0 ? sar() : nas();
  handle.begin();
  qmi_client_type number = nullptr;
  require_outcome(qmi_client_notifier_init(service, &signal, &number));
  handle.number = number;
  handle.ends_itself = dice.below(3) == 0;
  qmi_client_register_notify_cb(handle.number, on_presence, &handle);
  for (uint32_t i = dice.below(3); i > 0; --i) qmi_cci_os_signal_wait(&signal, 40);
  unsigned int entries = 0, services = 0;
  qmi_client_get_service_list(service, nullptr, &entries, &services);
  handle.release();
}

// The framework's clients recover, and can be freed from what they report.
std::atomic<int> g_frees_itself{-1};

void on_status(int, int) {
  const int id = g_frees_itself.exchange(-1);
  if (id >= 0) modem_api_free_client(id);
}

void framework(Handles&, Dice& dice) {
  const int type = dice.below(2) == 0 ? MODEM_API_VS : MODEM_API_SAR;
  int id = -1;
  const auto event = [](int, void*, int) {};
  if (modem_api_init_client(type, event, on_status, &id) == MODEM_API_OK) {
    const auto data = std::make_unique<modem_stats_para_data>();
    data->para_num = 1;
    for (uint32_t i = dice.below(3); i > 0; --i) {
      if (type == MODEM_API_VS) modem_api_get_stats_parameter(id, 0, 1, data.get());
      timing::sleep_ms(dice.below(60));
    }
    if (dice.below(3) == 0) g_frees_itself = id;
    timing::sleep_ms(dice.below(100));
    // Unless the callback has taken it.
    if (g_frees_itself.exchange(-1) >= 0) modem_api_free_client(id);
  }
}

// One of them without the framework: of a life that is over nothing is heard, and nothing is left.
std::atomic<bool> g_nas_is_over;
std::atomic<bool> g_nas_ends_itself;

void end_nas() {
  nas_0_client_release();
  g_nas_is_over = true;
}

void on_nas_status(int, int status) {
  fuzz::require(!g_nas_is_over);
  if (status == MODEM_API_SUSPENDED || status == MODEM_API_RESUMING) {
    if (g_nas_ends_itself.exchange(false)) end_nas();
  }
}

void recovering_nas(Handles&, Dice& dice) {
  nas_0_init();
  g_nas_is_over = false;
  nas_0_client_set_operational_status_callback(on_nas_status);
  const bool there = nas_0_client_init([](int, void*, int) {});
  g_nas_ends_itself = dice.below(3) == 0;
  const bool armed = g_nas_ends_itself;
  timing::sleep_ms(there ? dice.below(120) : 0);
  if (!armed || g_nas_ends_itself.exchange(false)) {
    end_nas();
  } else {
    while (!g_nas_is_over) timing::sleep_ms(10);
  }
  for (int i = 0; i < 2; ++i) {
    nas_indication_register_req_msg_v01 req{};
    nas_indication_register_resp_msg_v01 resp{};
    fuzz::require(nas_0_client_send_msg_sync(QMI_NAS_INDICATION_REGISTER_REQ_MSG_V01, &req,
                                             sizeof req, &resp,
                                             sizeof resp) == QMI_PORT_NOT_OPEN_ERR);
    timing::sleep_ms(1500);
  }
}

void recovering_uim(Handles&, Dice& dice) {
  for (uint32_t i = dice.below(3) + 1; i > 0; --i) {
    UimCardStatus status{};
    velmor_uim_get_card_status(&status);
    timing::sleep_ms(dice.below(40));
  }
}

void configurations(Handles&, Dice& dice) {
  if (pdc_init() != 0) return;
  const auto config = std::make_unique<pdc_config_pdc_info>();
  for (uint32_t i = dice.below(3) + 1; i > 0; --i) {
    if (pdc_get_current_config(config.get(), PDC_CONFIG_TYPE_MODEM_SW_V01, 0) != 0) continue;
    pdc_select_config(config.get(), PDC_CONFIG_TYPE_MODEM_SW_V01, 0);
  }
  pdc_clean();
}

void trouble(Handles&, Dice& dice) {
  for (uint32_t i = dice.below(3) + 1; i > 0; --i) {
    timing::sleep_ms(dice.below(50));
    if (dice.below(3) == 0) {
      qmi_client_type number = nullptr;
      if (qmi_client_init_instance(nas(), QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr, nullptr, 50,
                                   &number) != QMI_NO_ERR) {
        continue;
      }
      const auto resp = std::make_unique<nas_perform_network_scan_resp_msg_v01>();
      nas_perform_network_scan_req_msg_v01 req{};
      require_outcome(qmi_client_send_msg_sync(number, QMI_NAS_PERFORM_NETWORK_SCAN_REQ_MSG_V01,
                                               &req, sizeof req, resp.get(), sizeof *resp, 100));
      qmi_client_release(number);
    } else {
      velmor_get_sar_dsi();
    }
  }
}

constexpr void (*kWorks[])(Handles&, Dice&) = {own_client,     own_client,     shared_client,
                                               notifier,       framework,      recovering_nas,
                                               recovering_uim, configurations, trouble};

void run(uint64_t seed) {
  Dice dice(seed);
  turns::begin(seed);
  uint32_t chosen = 1U << (std::size(kWorks) - 1);
  for (int i = 0; i < 3; ++i) chosen |= 1U << dice.below(std::size(kWorks));
  static Handles handles[std::size(kWorks)];
  std::vector<std::thread> threads;
  for (size_t i = 0; i < std::size(kWorks); ++i) {
    if ((chosen >> i & 1) == 0) continue;
    threads.emplace_back([seed, i] {
      Dice its(seed * 31 + i);
      kWorks[i](handles[i], its);
    });
  }
  for (std::thread& thread : threads) thread.join();
  turns::pass(3000);  // what was planned, and the last callbacks
}

uint64_t g_first, g_seed;

// What was done before belongs to it: the library goes on from there.
void say_seed() {
  char text[128];
  const int length =
      snprintf(text, sizeof text, "FAILED: seed %llu: ./check --schedules %llu %llu\n",
               static_cast<unsigned long long>(g_seed),
               static_cast<unsigned long long>(g_seed - g_first + 1),
               static_cast<unsigned long long>(g_first));
  [[maybe_unused]] const auto n = write(STDERR_FILENO, text, static_cast<size_t>(length));
}

}  // namespace

int main(int argc, char** argv) {
  const uint64_t count = argc > 1 ? strtoull(argv[1], nullptr, 10) : 1000;
  const uint64_t first = argc > 2 ? strtoull(argv[2], nullptr, 10) : 1;
  static const fuzz::Folder folder;
  setenv("TOVI_STATE", (folder.path + "/state").c_str(), 1);
  setenv("TOVI_SIM_FAULTS", kFaults, 1);
  setenv("TOVI_LOG", "/dev/null", 1);
  unsetenv("TOVI_MODEM");
  unsetenv("TOVI_TIME_SCALE");
  __sanitizer_set_death_callback(say_seed);
  for (const int sign : {SIGABRT, SIGALRM}) {
    signal(sign, [](int) {
      say_seed();
      _exit(1);
    });
  }
  fuzz::require(freopen("/dev/null", "w", stdout) != nullptr);
  modem_api_init();
  g_first = first;
  for (g_seed = first; g_seed < first + count; ++g_seed) {
    alarm(60);
    run(g_seed);
  }
  const uint64_t told[] = {count,
                           first,
                           turns::changes(),
                           g_count.answered,
                           g_count.lost,
                           g_count.timed_out,
                           g_count.callbacks,
                           g_count.releases_from_one};
  const char* const words[] = {
      "seeds",      "from",      "changes of threads", "calls succeeded",
      "met a loss", "timed out", "callbacks",          "releases from one"};
  for (size_t i = 0; i < std::size(told); ++i) {
    fprintf(stderr, "%s%s %llu", i > 0 ? ", " : "", words[i],
            static_cast<unsigned long long>(told[i]));
  }
  fputc('\n', stderr);
  _exit(0);
}
