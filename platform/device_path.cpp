#include "device_path.h"

#include "environment.h"
#include "simulated_device.h"

namespace {

bool modem_is_simulated() {
  const environment::ModemChoice* modem = environment::modem();
  return modem != nullptr && modem->kind == environment::ModemKind::Simulated;
}

}  // namespace

std::string velmor_device_path(const char* path) {
  if (modem_is_simulated()) open_simulated_device();
  return environment::device_root() + path;
}

std::string velmor_device_port(const char* path) {
  if (modem_is_simulated()) open_simulated_ports();
  return environment::device_root() + path;
}
