// Asks the statistics service for records, again and again, on one client; outlives a modem that
// goes away.
#pragma once

#include <memory>
#include <vector>

#include "modem_api/vs/vs_service.h"
#include "named_statistics.h"
#include "qmi_client.h"
#include "verdict.h"

namespace ctl {

class Sampler {
 public:
  // At most kVsMaxStats at a time, of one subscription.
  Sampler(std::vector<const NamedStatistic*> wanted, unsigned int sub, uint32_t answer_ms);
  ~Sampler();
  Sampler(const Sampler&) = delete;
  Sampler& operator=(const Sampler&) = delete;

  // Connects, waiting up to `ms` for the service, and switches the statistics on.
  Verdict connect(uint32_t ms);

  // One exchange: the values of each statistic in the order wanted; null for one that the modem has
  // no record of, or a short one. NoAnswer when the modem is away: connect again.
  Verdict take(std::vector<std::optional<Values>>& samples);

 private:
  void disconnect();
  Verdict failure(int error);

  const std::vector<const NamedStatistic*> wanted_;
  const uint32_t answer_ms_;
  qmi_client_type client_ = nullptr;
  const std::unique_ptr<vs_get_stats_req_msg_v01> req_;
  const std::unique_ptr<vs_get_stats_resp_msg_v01> resp_;
};

}  // namespace ctl
