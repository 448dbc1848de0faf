// The modem's side of the SAR service: the RF state, a number in the state folder.
#pragma once

#include "modem.h"
#include "service.h"

namespace sim {

class SarService final : public Service {
 public:
  explicit SarService(const Modem& modem) : modem_(modem) {}

  const qmi_idl_service_object& description() const override;
  uint32_t answer(qmi::Address client, uint16_t message, const void* request, void* response,
                  Aftermath& aftermath) override;
  void client_gone(qmi::Address) override {}
  void all_clients_gone() override {}

 private:
  const Modem& modem_;
};

}  // namespace sim
