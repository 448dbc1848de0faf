// The PDC client with indications in any order: calls of one or two threads, a list and infos that
// are being filled in, time that passes, and a hostile modem. The first byte tells whether threads
// change at random; then a block of calls; the rest is what the modem does.
#include <stdio.h>

#include <thread>

#include "fuzz.h"
#include "hostile_modem.h"
#include "mbn/pdc_utils_info.h"
#include "turns.h"
#include "utilities/qcril_memory_management.h"

namespace {

// What a caller lends to the handlers, each a block of its own.
struct Lent {
  std::unique_ptr<pdc_config_list_node*> list = std::make_unique<pdc_config_list_node*>(nullptr);
  std::unique_ptr<uint32_t> count = std::make_unique<uint32_t>(0);
  std::unique_ptr<pdc_config_info_holder> info = std::make_unique<pdc_config_info_holder>();
  std::unique_ptr<pdc_config_info_holder> fallback = std::make_unique<pdc_config_info_holder>();

  ~Lent() {
    size_t nodes = 0;
    while (*list != nullptr) {
      pdc_config_list_node* const first = *list;
      *list = first->next;
      fuzz::require(first->config_id_len <= kPdcMaxId);
      qcril_free_adv(first, __func__, __LINE__);
      ++nodes;
    }
    fuzz::require(nodes == *count);
  }
  void lend() const {
    MutexLock hold(g_pdc_info.mutex);
    g_pdc_info.config_list_holder = list.get();
    g_pdc_info.num_of_configs = count.get();
    g_pdc_info.config_info = info.get();
    g_pdc_info.default_config_info = fallback.get();
    g_pdc_info.holder(PDC_LIST).is_handling = 1;
  }
};

void call(uint8_t which) {
  const auto type = static_cast<pdc_config_type_enum_v01>(which >> 4 & 1);
  const auto any_type = static_cast<pdc_config_type_enum_v01>(which >> 4 & 3);
  const uint32_t sub = which >> 5 & 1;
  const auto config = std::make_unique<pdc_config_pdc_info>();
  switch (which & 7) {
    case 0:
      pdc_get_current_config(config.get(), type, sub);
      fuzz::require(config->config_id_len <= kPdcMaxId);
      break;
    case 1:
      config->config_id_len = which >> 1;
      pdc_select_config(config.get(), type, sub);
      break;
    case 2: pdc_activate_config(any_type, sub); break;
    case 3: pdc_activate_config_ex(any_type, PDC_ACTIVATION_REFRESH_ONLY_V01, sub, sub); break;
    case 4: pdc_deactivate_config(sub, type); break;
    case 5: turns::pass(which * 50U); break;
    case 6: fuzz::HostileModem::instance().act(); break;
    case 7: {
      uint32_t timer = which >> 3;
      qmi_pdc_list_configs_follow_up_request(&timer);
    }
  }
}

void call_all(std::span<const uint8_t> calls) {
  for (const uint8_t which : calls) call(which);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::keep_apart();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  turns::begin(input.byte());
  const auto calls = input.block();
  const auto here = calls.first(std::min<size_t>(calls.size(), 8));
  const auto there =
      calls.subspan(here.size()).first(std::min<size_t>(calls.size() - here.size(), 8));
  fuzz::HostileModem& modem = fuzz::HostileModem::instance();
  modem.begin(input);
  {
    const Lent lent;
    if (pdc_init() == 0) {
      lent.lend();
      std::thread other;
      if (!there.empty()) other = std::thread(call_all, there);
      call_all(here);
      if (other.joinable()) other.join();
    }
    modem.end();
    turns::pass(20000);  // timers that ask for more of the list
    pdc_clean();
    qmi_pdc_init_pdc_info();
  }
  turns::pass(1000);
  return 0;
}
