#include "device_path.h"

#include <unistd.h>

#include "environment.h"
#include "simulated_device.h"
#include "state_files.h"

namespace {

bool modem_is_simulated() {
  const environment::ModemChoice* modem = environment::modem();
  return modem != nullptr && modem->kind == environment::ModemKind::Simulated;
}

// A port that a killed process left in the state folder is removed: the pseudo-terminal that its
// link names may be somebody else's by now.
void remove_stale_port(const char* path) {
  using state_files::FolderLock;
  const std::string* folder = environment::state_folder();
  if (folder == nullptr || environment::device_root() != *folder + "/device") return;
  if (FolderLock::is_held(*folder, state_files::LockPart::Ports)) return;
  unlink((environment::device_root() + path).c_str());
}

}  // namespace

std::string velmor_device_path(const char* path) {
  if (modem_is_simulated()) open_simulated_device();
  return environment::device_root() + path;
}

std::string velmor_device_port(const char* path) {
  if (modem_is_simulated()) open_simulated_ports();
  remove_stale_port(path);
  return environment::device_root() + path;
}
