#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "environment.h"
#include "mutex.h"
#include "properties.h"
#include "property_store.h"
#include "simulated_device.h"
#include "state_files.h"

namespace {

std::string properties_path() {
  const std::string* folder = environment::state_folder();
  return folder != nullptr ? *folder + "/properties" : std::string();
}

// The file as it was last read. Another process may change it at any time, so every question
// looks at its time and inode again.
class PropertyFile {
 public:
  property_store::Pair get(const char* first, const char* second) {
    MutexLock hold(lock_);
    refresh();
    return {state_files::find_or(values_, first, ""), state_files::find_or(values_, second, "")};
  }

 private:
  void refresh() REQUIRES(lock_) {
    struct stat now {};
    if (path_.empty() || stat(path_.c_str(), &now) != 0) {
      values_.clear();
      seen_ = {};
      return;
    }
    if (now.st_ino == seen_.st_ino && now.st_mtim.tv_sec == seen_.st_mtim.tv_sec &&
        now.st_mtim.tv_nsec == seen_.st_mtim.tv_nsec) {
      return;
    }
    seen_ = now;
    values_ = state_files::read_values(path_);
  }

  const std::string path_ = properties_path();
  Mutex lock_;
  struct stat seen_ GUARDED_BY(lock_) {};
  state_files::KeyValues values_ GUARDED_BY(lock_);
};

PropertyFile& property_file() {
  static auto* file = new PropertyFile;  // callbacks may still log while the process exits
  return *file;
}

bool is_name_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '_' || c == '-' || c == '@' || c == ':';
}

}  // namespace

std::string property_store::get(const char* key) {
  return property_file().get(key, key).first;
}

property_store::Pair property_store::get_both(const char* first, const char* second) {
  return property_file().get(first, second);
}

const char* property_problem(const std::string& key, const std::string& value) {
  if (key.empty()) return "a property needs a name";
  for (const char c : key) {
    if (!is_name_character(c)) return "a property's name has only letters, digits and . _ - @ :";
  }
  if (value.size() >= PROPERTY_VALUE_MAX) return "a property's value has at most 91 bytes";
  if (value.find_first_of("\n#") != std::string::npos || value != state_files::trim(value)) {
    return "a property's value has no line break, no # and no blanks around it";
  }
  return nullptr;
}

bool property_store::set(const char* key, const char* value, std::string& problem) {
  const std::string* folder = environment::state_folder();
  const char* impossible = property_problem(key, value);
  if (folder == nullptr) impossible = "there is no folder for the modem's state";
  if (impossible != nullptr) {
    problem = impossible;
    return false;
  }
  if (!is_simulated_state(*folder, problem)) return false;
  const std::string path = properties_path();
  if (!state_files::make_folder(*folder)) {
    problem = *folder + ": " + strerror(errno);
    return false;
  }
  const state_files::FolderLock lock(*folder, state_files::LockPart::Writing);
  if (lock.held() && state_files::set_value(*folder, path, key, value)) return true;
  problem = lock.held() ? path + ": " + strerror(errno) : lock.problem();
  return false;
}
