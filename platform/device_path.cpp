#include "device_path.h"

#include "environment.h"
#include "simulated_ports.h"

std::string velmor_device_path(const char* path) {
  return environment::device_root() + path;
}

std::string velmor_device_port(const char* path) {
  const environment::ModemChoice* modem = environment::modem();
  if (modem != nullptr && modem->kind == environment::ModemKind::Simulated) open_simulated_ports();
  return velmor_device_path(path);
}
