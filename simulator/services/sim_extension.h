// The modem's side of the vendor extension service: NV and EFS operations, common requests.
#pragma once

#include <deque>
#include <string>

#include "modem.h"
#include "service.h"
#include "velmor_efs_files.h"
#include "velmor_extend_payload.h"
#include "velmor_extend_service.h"

namespace sim {

class ExtensionService final : public Service {
 public:
  explicit ExtensionService(Modem& modem) : modem_(modem) {}

  const qmi_idl_service_object& description() const override;
  uint32_t answer(qmi::Address client, uint16_t message, const void* request, void* response,
                  Aftermath& aftermath) override;
  std::vector<uint8_t> refusal(const qmi::Header& request, uint32_t error) const override;
  std::vector<uint8_t> refusal_inside(std::span<const uint8_t> request,
                                      int32_t result) const override;
  void client_gone(qmi::Address client) override;
  void all_clients_gone() override { open_writes_.clear(); }

 private:
  // A file that arrives in chunks; it is stored when the last one is there.
  struct OpenWrite {
    int instance;
    qmi::Address client;
    unsigned int sub;
    std::string path;
    size_t file_size;
    std::string bytes;
  };

  // A response of the one message that is answered.
  std::vector<uint8_t> packet_of(const qmi::Header& request,
                                 const velmor_extend_send_data_resp_msg_v01& response) const;

  using Payload = std::span<const uint8_t, kExtendDataBytes>;

  void answer_nvefs(qmi::Address client, Payload payload,
                    velmor_extend_send_data_resp_msg_v01& response);
  void answer_common(Payload payload, velmor_extend_send_data_resp_msg_v01& response,
                     Aftermath& aftermath);

  int common(uint32_t type, std::span<const uint8_t> value, std::vector<uint32_t>& words,
             Aftermath& aftermath);

  int set_gpio(std::span<const uint8_t> value);
  int set_tx(std::span<const uint8_t> value);
  int store(const velmor_efs_file& file, const void* bytes, size_t size);
  size_t put_unsupported_logs(velmor_common_rsp& rsp);

  int nv_read(const velmor_nvefs_req& req, velmor_nvefs_rsp& rsp, size_t& data_bytes);
  int nv_write(const velmor_nvefs_req& req);
  int efs_read(const velmor_nvefs_req& req, velmor_nvefs_rsp& rsp, size_t& data_bytes);
  int efs_write(qmi::Address client, const velmor_nvefs_req& req);
  OpenWrite* begin_write(qmi::Address client, const velmor_nvefs_req& req);
  OpenWrite* continue_write(qmi::Address client, const velmor_nvefs_req& req);
  void end_write(int instance);

  Modem& modem_;
  std::deque<OpenWrite> open_writes_;  // the oldest first
  int last_instance_ = 999;            // the first is 1000
};

}  // namespace sim
