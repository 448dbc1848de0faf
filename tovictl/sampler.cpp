#include "sampler.h"

#include "bus_survey.h"
#include "catalogue.h"

namespace ctl {
namespace {

constexpr uint32_t kStatisticsFeature = 2;

qmi_idl_service_object_type service() {
  return vs_get_service_object_internal_v01(1, 2, 6);
}

}  // namespace

Sampler::Sampler(std::vector<const NamedStatistic*> wanted, unsigned int sub, uint32_t answer_ms)
    : wanted_(std::move(wanted)),
      answer_ms_(answer_ms),
      req_(std::make_unique<vs_get_stats_req_msg_v01>()),
      resp_(std::make_unique<vs_get_stats_resp_msg_v01>()) {
  req_->sub = static_cast<uint16_t>(sub);
  req_->stats_len = static_cast<uint32_t>(wanted_.size());
  for (size_t i = 0; i < wanted_.size(); ++i) {
    req_->stats[i].sub = req_->sub;
    req_->stats[i].id = statistic_of(*wanted_[i]).id;
  }
}

Sampler::~Sampler() {
  disconnect();
}

void Sampler::disconnect() {
  if (client_ != nullptr) qmi_client_release(client_);
  client_ = nullptr;
}

Verdict Sampler::failure(int error) {
  if (error == QMI_INTERNAL_ERR) return {Status::Malformed, "an answer that cannot be decoded"};
  disconnect();
  return {Status::NoAnswer, error == QMI_TIMEOUT_ERR ? "the statistics service does not answer"
                                                     : "the statistics service went away"};
}

Verdict Sampler::connect(uint32_t ms) {
  disconnect();
  qmi_client_os_params os_params{};
  const auto opened = qmi_client_init_instance(service(), QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr,
                                               &os_params, ms, &client_);
  if (opened != QMI_NO_ERR) {
    client_ = nullptr;
    return why_no_client(*service());
  }
  vs_set_feature_req_msg_v01 on{
      .feature = kStatisticsFeature, .status = 1, .option_valid = 1, .option = 1};
  vs_resp_msg_v01 resp{};
  const auto error = qmi_client_send_msg_sync(client_, kVsSetFeatureMsg, &on, sizeof on, &resp,
                                              sizeof resp, answer_ms_);
  if (error != QMI_NO_ERR) return failure(error);
  if (resp.resp.result == 0) return {};
  return {Status::Refused, "switching statistics on: " + qmi_error_text(resp.resp.error)};
}

Verdict Sampler::take(std::vector<std::optional<Values>>& samples) {
  ++req_->slot;
  const auto error = qmi_client_send_msg_sync(client_, kVsGetStatsMsg, req_.get(), sizeof *req_,
                                              resp_.get(), sizeof *resp_, answer_ms_);
  if (error != QMI_NO_ERR) return failure(error);
  if (resp_->resp.result != 0) return {Status::Refused, qmi_error_text(resp_->resp.error)};
  samples.assign(wanted_.size(), std::nullopt);
  for (uint32_t i = 0; resp_->stats_valid != 0 && i < resp_->stats_len; ++i) {
    const vs_stat_v01& record = resp_->stats[i];
    for (size_t k = 0; k < wanted_.size(); ++k) {
      if (req_->stats[k].id != record.id) continue;
      samples[k] = record_values(statistic_of(*wanted_[k]),
                                 {reinterpret_cast<const char*>(record.value), record.value_len});
    }
  }
  return {};
}

}  // namespace ctl
