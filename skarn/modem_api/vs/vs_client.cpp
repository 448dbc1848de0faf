#include "modem_api/vs/vs_client.h"

#include <string.h>

#include <algorithm>

#include "modem_api/service_client_functions.h"
#include "modem_api/vs/vs_service.h"

namespace {

template <typename Event>
void deliver(vs_event_id id, Event& event, modem_api_event_cb event_cb) {
  event_cb(id, &event, sizeof event);
}

void on_feature(const vs_feature_ind_msg_v01& ind, modem_api_event_cb event_cb) {
  vs_feature_event event{};
  event.feature = ind.feature;
  event.status = ind.status != 0 ? 1 : 0;
  event.option = ind.option != 0 ? 1 : 0;
  deliver(VS_EVENT_FEATURE, event, event_cb);
}

// Copies as many statistics as there is room for; their number.
template <size_t N>
uint32_t copy_stats(const vs_stat_v01* stats, uint32_t count, vs_report_entry (&entries)[N]) {
  const uint32_t copied = std::min(count, static_cast<uint32_t>(N));
  for (uint32_t i = 0; i < copied; ++i) {
    entries[i].id = stats[i].id;
    entries[i].sub = stats[i].sub;
    entries[i].word = stats[i].word;
    entries[i].value_len = std::min(stats[i].value_len, kVsMaxValue);
    memcpy(entries[i].value, stats[i].value, entries[i].value_len);
  }
  return copied;
}

void on_report(const vs_report_ind_msg_v01& ind, modem_api_event_cb event_cb) {
  vs_report_event event{};
  event.field_01 = ind.field_01;
  event.entry_count = copy_stats(ind.stats, ind.stats_len, event.entries);
  if (ind.more_stats_valid != 0) {
    event.more_count = copy_stats(ind.more_stats, ind.more_stats_len, event.more_entries);
  }
  event.field_11 = ind.field_11_valid != 0 ? ind.field_11 : UINT32_MAX;
  deliver(VS_EVENT_REPORT, event, event_cb);
}

void on_bytes(const vs_bytes_ind_msg_v01& ind, modem_api_event_cb event_cb) {
  vs_bytes_event event{};
  event.field_01 = ind.field_01;
  event.count = std::min(ind.data_len, kVsMaxItems);
  std::copy_n(ind.data, event.count, event.words);
  event.field_03 = ind.field_03;
  event.field_04 = ind.field_04;
  deliver(VS_EVENT_BYTES, event, event_cb);
}

void on_state(const vs_state_ind_msg_v01& ind, modem_api_event_cb event_cb) {
  uint8_t state = ind.state;
  deliver(VS_EVENT_STATE, state, event_cb);
}

extern ServiceClient g_vs;

}  // namespace

bool vs_client_handle_indication(unsigned int msg_id, const void* decoded,
                                 modem_api_event_cb event_cb) {
  switch (msg_id) {
    case kVsFeatureInd:
      on_feature(*static_cast<const vs_feature_ind_msg_v01*>(decoded), event_cb);
      return true;
    case kVsReportInd:
      on_report(*static_cast<const vs_report_ind_msg_v01*>(decoded), event_cb);
      return true;
    case kVsBytesInd:
      on_bytes(*static_cast<const vs_bytes_ind_msg_v01*>(decoded), event_cb);
      return true;
    case kVsStateInd:
      on_state(*static_cast<const vs_state_ind_msg_v01*>(decoded), event_cb);
      return true;
    default: return false;
  }
}

SKARN_CLIENT_FUNCTIONS(vs, g_vs)
SKARN_CLIENT_REQUESTS(vs, g_vs)

namespace {

constinit ServiceClient g_vs({
    .client_type = MODEM_API_VS,
    .service = [] { return vs_get_service_object_internal_v01(1, 2, 6); },
    .indication = vs_client_unsol_ind_cb,
    .service_down = vs_client_service_down_event,
    .service_up = nullptr,
    .connect_name = "vs_client_init",
    .suspend_name = nullptr,
    .after_attempt = nullptr,
    .after_connect = nullptr,
    .handle_indication = vs_client_handle_indication,
});

}  // namespace
