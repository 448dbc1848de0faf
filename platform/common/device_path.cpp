#include "device_path.h"

#include <sys/stat.h>
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
// link names may be somebody else's by now. With the lock nobody makes one meanwhile.
void remove_stale_port(const char* path) {
  using state_files::FolderLock;
  const std::string* folder = environment::state_folder();
  if (folder == nullptr || environment::device_root() != *folder + "/device") return;
  const std::string port = environment::device_root() + path;
  struct stat status {};
  std::string problem;
  if (lstat(port.c_str(), &status) != 0 || !is_simulated_state(*folder, problem)) return;
  const FolderLock nobodys(*folder, state_files::LockPart::Ports, FolderLock::Mode::Exclusive,
                           FolderLock::Wait::No);
  if (nobodys.held()) unlink(port.c_str());
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
