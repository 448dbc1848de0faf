// The modem's side of the NAS service: network scans.
#pragma once

#include "service.h"

namespace sim {

class Modem;

class NasService final : public Service {
 public:
  explicit NasService(const Modem& modem) : modem_(modem) {}

  const qmi_idl_service_object& description() const override;
  uint32_t answer(qmi::Address client, uint16_t message, const void* request, void* response,
                  Aftermath& aftermath) override;
  void client_gone(qmi::Address) override {}
  void all_clients_gone() override {}

 private:
  const Modem& modem_;
};

}  // namespace sim
