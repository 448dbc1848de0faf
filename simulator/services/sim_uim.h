// The UIM twin: two card slots, and an eUICC with logical channels.
#pragma once

#include <vector>

#include "modem.h"
#include "service.h"
#include "uim_service.h"

namespace sim {

class UimService final : public Service {
 public:
  explicit UimService(Modem& modem) : modem_(modem) {}

  const qmi_idl_service_object& description() const override;
  uint32_t answer(qmi::Address client, uint16_t message, const void* request, void* response,
                  Aftermath& aftermath) override;
  void client_gone(qmi::Address client) override;
  void all_clients_gone() override { channels_.clear(); }

 private:
  // A logical channel of a card, with the application that was selected on it.
  struct Channel {
    uint32_t slot;
    uint8_t id;
    qmi::Address client;
    bool isd_r;
  };

  // Each carries out one request: 0, or the QMI error that it is refused with.
  uint32_t card_status(qmi::Address client, const uim_get_card_status_req_msg_v01& req,
                       uim_get_card_status_resp_msg_v01& resp);
  uint32_t power_down(qmi::Address client, const uim_power_down_req_msg_v01& req,
                      uim_power_down_resp_msg_v01& resp);
  uint32_t power_up(qmi::Address client, const uim_power_up_req_msg_v01& req,
                    uim_power_up_resp_msg_v01& resp);
  uint32_t open_channel(qmi::Address client, const uim_open_logical_channel_req_msg_v01& req,
                        uim_open_logical_channel_resp_msg_v01& resp);
  uint32_t close_channel(qmi::Address client, const uim_logical_channel_req_msg_v01& req,
                         uim_logical_channel_resp_msg_v01& resp);
  uint32_t send_apdu(qmi::Address client, const uim_send_apdu_req_msg_v01& req,
                     uim_send_apdu_resp_msg_v01& resp);
  uint32_t eid(qmi::Address client, const uim_get_eid_req_msg_v01& req,
               uim_get_eid_resp_msg_v01& resp);

  bool is_open(uint32_t slot, uint8_t id) const;
  // The client's own channel, or null.
  Channel* find_channel(qmi::Address client, uint32_t slot, uint8_t id);

  Modem& modem_;
  std::vector<Channel> channels_;
};

}  // namespace sim
