// The twin of the vendor statistics service: statistics by subscription and id, for clients that
// have switched the feature on.
#pragma once

#include <set>

#include "modem_api/vs/vs_service.h"
#include "service.h"
#include "statistics.h"

namespace sim {

class VsService final : public Service {
 public:
  explicit VsService(const Statistics& statistics) : statistics_(statistics) {}

  const qmi_idl_service_object& description() const override;
  uint32_t answer(qmi::Address client, uint16_t message, const void* request, void* response,
                  Aftermath& aftermath) override;
  void client_gone(qmi::Address client) override { enabled_.erase(client); }
  void all_clients_gone() override { enabled_.clear(); }

 private:
  uint32_t set_feature(qmi::Address client, const vs_set_feature_req_msg_v01& req);
  uint32_t get_stats(qmi::Address client, const vs_get_stats_req_msg_v01& req,
                     vs_get_stats_resp_msg_v01& resp);
  uint32_t report_stats(qmi::Address client, const vs_ids_req_msg_v01& req, Aftermath& aftermath);
  bool put_stat(uint16_t sub, uint32_t id, vs_stat_v01& stat) const;

  const Statistics& statistics_;
  std::set<qmi::Address> enabled_;
};

}  // namespace sim
