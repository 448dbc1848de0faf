// The PDC twin: reads, selects, activates, lists, loads and deletes the modem's configurations.
#pragma once

#include <map>

#include "configurations.h"
#include "pdc_service.h"
#include "service.h"

namespace sim {

class PdcService final : public Service {
 public:
  explicit PdcService(Configurations& configurations) : configurations_(configurations) {}

  const qmi_idl_service_object& description() const override;
  uint32_t answer(qmi::Address client, uint16_t message, const void* request, void* response,
                  Aftermath& aftermath) override;
  void client_gone(qmi::Address client) override;
  void all_clients_gone() override {
    lists_.clear();
    loads_.clear();
  }

 private:
  // Each takes up one request: 0, or the QMI error that it is refused with. The outcome goes into
  // the indication.
  uint32_t get_selected(qmi::Address client, const pdc_get_selected_config_req_msg_v01& req,
                        pdc_get_selected_config_ind_msg_v01& ind);
  uint32_t set_selected(qmi::Address client, const pdc_set_selected_config_req_msg_v01& req,
                        pdc_result_ind_msg_v01& ind);
  uint32_t list(qmi::Address client, const pdc_list_configs_req_msg_v01& req,
                pdc_list_configs_ind_msg_v01& ind);
  uint32_t remove(qmi::Address client, const pdc_delete_config_req_msg_v01& req,
                  pdc_result_ind_msg_v01& ind);
  uint32_t load(qmi::Address client, const pdc_load_config_req_msg_v01& req,
                pdc_load_config_ind_msg_v01& ind);
  uint32_t activate(qmi::Address client, const pdc_activate_config_req_msg_v01& req,
                    pdc_result_ind_msg_v01& ind);
  uint32_t get_info(qmi::Address client, const pdc_get_config_info_req_msg_v01& req,
                    pdc_get_config_info_ind_msg_v01& ind);
  uint32_t get_default_info(qmi::Address client, const pdc_type_req_msg_v01& req,
                            pdc_get_default_config_info_ind_msg_v01& ind);
  uint32_t deactivate(qmi::Address client, const pdc_deactivate_config_req_msg_v01& req,
                      pdc_result_ind_msg_v01& ind);
  uint32_t set_feature(qmi::Address client, const pdc_type_req_msg_v01& req,
                       pdc_result_ind_msg_v01& ind);

  struct ListPosition {
    uint32_t token = 0;
    size_t done = 0;
  };

  Configurations& configurations_;
  // How much of the list of a token each client has had.
  std::map<qmi::Address, ListPosition> lists_;
  std::map<qmi::Address, Configuration> loads_;  // what each client has loaded so far
};

}  // namespace sim
