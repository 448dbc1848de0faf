#include "sim_vs.h"

namespace sim {
namespace {

constexpr uint32_t kStatisticsFeature = 2;
constexpr uint16_t kGetFeature = 0x0002;
constexpr uint16_t kReportStats = 0x0208;
constexpr uint16_t kStart = 0x0400;
constexpr uint16_t kStop = 0x0401;
constexpr uint16_t kReportWords = 0x0202;

constexpr uint32_t kIndicationMs = 20;

}  // namespace

const qmi_idl_service_object& VsService::description() const {
  return *vs_get_service_object_internal_v01(1, 2, 6);
}

// The four indications are raised by requests: a feature's state by asking for it, a report by
// 0x0208, bytes by 0x0202, the state of the service by 0x0400 and 0x0401.
uint32_t VsService::answer(qmi::Address client, uint16_t message, const void* request,
                           void* response, Aftermath& aftermath) {
  switch (message) {
    case kVsSetFeatureMsg:
      return set_feature(client, *static_cast<const vs_set_feature_req_msg_v01*>(request));
    case kVsGetStatsMsg:
      return get_stats(client, *static_cast<const vs_get_stats_req_msg_v01*>(request),
                       *static_cast<vs_get_stats_resp_msg_v01*>(response));
    case kReportStats:
      return report_stats(client, *static_cast<const vs_ids_req_msg_v01*>(request), aftermath);
    case kGetFeature: {
      const vs_feature_ind_msg_v01 ind{static_cast<const vs_word_req_msg_v01*>(request)->field_01,
                                       enabled_.contains(client), 1};
      static_cast<vs_flags_resp_msg_v01*>(response)->field_03 = ind.status;
      aftermath.indicate(kVsFeatureInd, &ind, kIndicationMs);
      return 0;
    }
    case kReportWords: {
      const auto& req = *static_cast<const vs_words_req_msg_v01*>(request);
      vs_bytes_ind_msg_v01 ind{};
      ind.field_01 = req.field_01;
      for (uint32_t i = 0; i < req.words_len; ++i) {
        ind.data[ind.data_len++] = static_cast<uint8_t>(req.words[i]);
      }
      aftermath.indicate(kVsBytesInd, &ind, kIndicationMs);
      return 0;
    }
    case kStart:
    case kStop: {
      const vs_state_ind_msg_v01 ind{static_cast<uint8_t>(message == kStart ? 1 : 0)};
      aftermath.indicate(kVsStateInd, &ind, kIndicationMs);
      return 0;
    }
    default: return kQmiNotSupported;
  }
}

uint32_t VsService::set_feature(qmi::Address client, const vs_set_feature_req_msg_v01& req) {
  if (req.feature != kStatisticsFeature || req.status > 1) return kQmiInvalidArgument;
  if (req.status == 1) {
    enabled_.insert(client);
  } else {
    enabled_.erase(client);
  }
  return 0;
}

bool VsService::put_stat(uint16_t sub, uint32_t id, vs_stat_v01& stat) const {
  const auto record = statistics_.record(sub, id);
  if (!record) return false;
  stat.sub = sub;
  stat.id = id;
  stat.value_len =
      static_cast<uint32_t>(record->copy(reinterpret_cast<char*>(stat.value), sizeof stat.value));
  return true;
}

// Ids without a record are left out.
uint32_t VsService::get_stats(qmi::Address client, const vs_get_stats_req_msg_v01& req,
                              vs_get_stats_resp_msg_v01& resp) {
  if (!enabled_.contains(client)) return kQmiDeviceNotReady;
  if (req.sub >= 2 || req.stats_len == 0) return kQmiInvalidArgument;
  resp.stats_valid = 1;
  for (uint32_t i = 0; i < req.stats_len; ++i) {
    if (put_stat(req.sub, req.stats[i].id, resp.stats[resp.stats_len])) ++resp.stats_len;
  }
  return 0;
}

uint32_t VsService::report_stats(qmi::Address client, const vs_ids_req_msg_v01& req,
                                 Aftermath& aftermath) {
  if (!enabled_.contains(client)) return kQmiDeviceNotReady;
  if (req.sub >= 2) return kQmiInvalidArgument;
  vs_report_ind_msg_v01 ind{};
  ind.field_01 = req.sub;
  for (uint32_t i = 0; i < req.ids_len; ++i) {
    if (put_stat(req.sub, req.ids[i], ind.stats[ind.stats_len])) ++ind.stats_len;
  }
  aftermath.indicate(kVsReportInd, &ind, kIndicationMs);
  return 0;
}

}  // namespace sim
