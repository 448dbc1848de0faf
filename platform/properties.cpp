#include "properties.h"

#include <string.h>
#include <sys/stat.h>

#include "environment.h"
#include "mutex.h"
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
  std::string get(const char* key, const char* fallback) {
    MutexLock hold(lock_);
    refresh();
    const std::string* value = state_files::find(values_, key);
    return value != nullptr && !value->empty() ? *value : fallback;
  }

 private:
  // One look at the file serves the questions of one message: asking for both print flags takes
  // less than this.
  static constexpr std::chrono::microseconds kOneMessage{5};

  void refresh() REQUIRES(lock_) {
    const auto time = timing::Clock::now();
    if (time - looked_ < kOneMessage) return;
    looked_ = time;
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
  timing::Deadline looked_ GUARDED_BY(lock_){};
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

int property_get(const char* key, char* value, const char* default_value) {
  const std::string found = property_file().get(key, default_value != nullptr ? default_value : "");
  const size_t length = std::min(found.size(), size_t{PROPERTY_VALUE_MAX - 1});
  memcpy(value, found.data(), length);
  value[length] = '\0';
  return static_cast<int>(length);
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

int property_set(const char* key, const char* value) {
  const std::string* folder = environment::state_folder();
  if (folder == nullptr || property_problem(key, value) != nullptr) return -1;
  if (!state_files::make_folder(*folder + "/tmp")) return -1;
  return state_files::set_value(*folder, *folder + "/properties", key, value) ? 0 : -1;
}
