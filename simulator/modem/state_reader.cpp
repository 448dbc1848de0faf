#include "state_reader.h"

#include "environment.h"

namespace sim {

std::optional<std::string> read_state(const std::string& path, size_t max_bytes) {
  auto bytes = state_files::read(path, max_bytes);
  if (!bytes && !state_files::means_absent(errno)) throw StateError();
  return bytes;
}

state_files::KeyValues read_state_values(const std::string& path) {
  return state_files::parse(read_state(path).value_or(""));
}

state_files::FolderLock lock_state(const std::string& folder) {
  state_files::FolderLock lock(folder, state_files::LockPart::Writing);
  if (lock.held()) return lock;
  static std::atomic_flag said;
  environment::complain_once(said, "the modem's state cannot be changed: %s",
                             lock.problem().c_str());
  throw StateError();
}

}  // namespace sim
