// In place of the simulated modem, on a device: there is none inside the program.
#include "environment.h"
#include "qcci/endpoint.h"
#include "qmi_client.h"
#include "simulated_device.h"

namespace qmi {

Opened open_loopback_endpoint() {
  static std::atomic_flag said;
  environment::complain_once(said, "TOVI_MODEM=sim: this build has no simulated modem inside");
  return {nullptr, QMI_PORT_NOT_OPEN_ERR};
}

}  // namespace qmi

bool is_simulated_state(const std::string&, std::string&) {
  return false;
}
void open_simulated_device() {}
void open_simulated_ports() {}
