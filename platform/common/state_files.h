// Files of the state folder: whole reads, writes that a kill in the middle cannot spoil, the one
// lock file, and the one parser of `key=value` lines.
#pragma once

#include <errno.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "descriptor.h"

namespace state_files {

// The most that a file of `key=value` lines may hold.
inline constexpr size_t kMaxTextBytes = 1 << 20;

// Whether an errno value says that a file is not there. Any other says that nobody knows.
constexpr bool means_absent(int error) {
  return error == ENOENT || error == ENOTDIR;
}

// The whole file. Nothing, with errno set, when it cannot be read, is no regular file (EISDIR,
// EINVAL) or holds more than `max_bytes` (EFBIG).
std::optional<std::string> read(const std::string& path, size_t max_bytes = kMaxTextBytes);

// The same file, opened for reading, and its size.
qmi::Descriptor open_regular(const std::string& path, size_t max_bytes, size_t& size);

// Replaces `path`, a file somewhere in `folder`, through a temporary file in folder/tmp. The
// folders on the way are made. False, with errno set, when that fails.
bool write(const std::string& folder, const std::string& path, std::string_view bytes);

// Removes a file. False, with errno set, when that fails.
bool remove(const std::string& path);

// From now on what was written or removed is on the disk when the call returns.
void sync_to_disk();

// Removes what killed processes have left in folder/tmp.
void remove_leftovers(const std::string& folder);

// Makes a folder and those above it, for their owner alone. True when it is there afterwards.
bool make_folder(const std::string& path);

using KeyValues = std::vector<std::pair<std::string, std::string>>;

// Lines of `key=value`; `#` begins a comment, blanks around keys and values do not count, lines
// without `=` are passed over.
KeyValues parse(std::string_view text);

// The same of a whole file; nothing for one that cannot be read.
KeyValues read_values(const std::string& path);

// The last value of a key, or null; or `fallback`.
const std::string* find(const KeyValues& values, std::string_view key);
std::string find_or(const KeyValues& values, std::string_view key, const char* fallback);

// `text` with the line of `key` set to `value`; everything else, comments included, stays.
std::string with_value(std::string_view text, std::string_view key, std::string_view value);

std::string_view trim(std::string_view text);

// The parts of the lock file.
enum class LockPart {
  Writing = 0,      // held for a moment by whoever changes several things at once
  Serving = 1,      // by servers, as long as they live
  Ports = 2,        // by the one process that has the device ports
  ServedPorts = 3,  // by that one too when it is a server
};

// Holds a part of folder/lock as long as it lives. Waits for it at most 5 s.
class FolderLock {
 public:
  enum class Mode { Shared, Exclusive };
  enum class Wait { Yes, No };

  FolderLock(const std::string& folder, LockPart part, Mode mode = Mode::Exclusive,
             Wait wait = Wait::Yes);

  bool held() const { return static_cast<bool>(file_); }
  const std::string& problem() const { return problem_; }  // why it is not held, in words
  bool is_busy() const { return busy_; }                   // another process holds it

  // Whether anybody holds a part.
  static bool is_held(const std::string& folder, LockPart part);

 private:
  qmi::Descriptor file_;
  std::string problem_;
  bool busy_ = false;
};

// Sets one key of a file of `key=value` lines in `folder`, whose part Writing the caller holds.
// False, with errno set, when that fails.
bool set_value(const std::string& folder, const std::string& path, std::string_view key,
               std::string_view value);

}  // namespace state_files
