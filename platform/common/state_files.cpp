#include "state_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <memory>

#include "retry.h"

namespace state_files {
namespace {

constexpr std::chrono::seconds kLockLimit{5};
constexpr time_t kLeftoverAge = 60;  // seconds
constexpr int kMaxNames = 10000;

std::atomic<bool> g_syncs = false;

bool write_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

std::string parent_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

// The key of a line, and its value; an empty key for a line that holds none.
std::pair<std::string_view, std::string_view> split(std::string_view line) {
  line = line.substr(0, line.find('#'));
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) return {};
  return {trim(line.substr(0, equals)), trim(line.substr(equals + 1))};
}

std::string_view take_line(std::string_view& text) {
  const size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

}  // namespace

std::optional<std::string> read(const std::string& path, size_t max_bytes) {
  size_t size;
  const qmi::Descriptor file = open_regular(path, max_bytes, size);
  if (!file) return std::nullopt;
  std::string bytes(size, '\0');
  size_t filled = 0;
  while (filled < size) {
    const ssize_t n = ::read(file.get(), bytes.data() + filled, size - filled);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return std::nullopt;
    if (n == 0) break;
    filled += static_cast<size_t>(n);
  }
  bytes.resize(filled);
  return bytes;
}

// Without O_NONBLOCK a FIFO would wait for its writer.
qmi::Descriptor open_regular(const std::string& path, size_t max_bytes, size_t& size) {
  qmi::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return qmi::Descriptor();
  size = static_cast<size_t>(status.st_size);
  const int problem = S_ISDIR(status.st_mode)    ? EISDIR
                      : !S_ISREG(status.st_mode) ? EINVAL
                      : size > max_bytes         ? EFBIG
                                                 : 0;
  if (problem == 0) return file;
  file = qmi::Descriptor();
  errno = problem;
  return file;
}

namespace {

// A new file in `folder`, locked as long as it is open: so nobody takes it for a leftover.
qmi::Descriptor open_temporary(const std::string& folder, std::string& path) {
  static std::atomic<unsigned int> last = 0;
  for (int tries = 0; tries < kMaxNames; ++tries) {
    path = folder + "/" + std::to_string(getpid()) + "." + std::to_string(++last);
    qmi::Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file) flock(file.get(), LOCK_EX | LOCK_NB);
    if (file || errno != EEXIST) return file;
  }
  return qmi::Descriptor();
}

// What a folder holds is on the disk when this returns true.
bool sync_folder(const std::string& path) {
  if (!g_syncs) return true;
  const qmi::Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && fsync(folder.get()) == 0;
}

}  // namespace

bool write(const std::string& folder, const std::string& path, std::string_view bytes) {
  std::string temporary;
  qmi::Descriptor file = open_temporary(folder + "/tmp", temporary);
  if (!file && errno == ENOENT && make_folder(folder + "/tmp")) {
    file = open_temporary(folder + "/tmp", temporary);
  }
  if (!file) return false;
  const bool stored = write_all(file.get(), bytes) && (!g_syncs || fsync(file.get()) == 0) &&
                      make_folder(parent_of(path)) && rename(temporary.c_str(), path.c_str()) == 0;
  if (stored) return sync_folder(parent_of(path));
  const int error = errno;
  unlink(temporary.c_str());
  errno = error;
  return false;
}

bool remove(const std::string& path) {
  return unlink(path.c_str()) == 0 && sync_folder(parent_of(path));
}

void sync_to_disk() {
  g_syncs = true;
}

void remove_leftovers(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir((folder + "/tmp").c_str()), closedir);
  if (entries == nullptr) return;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string path = folder + "/tmp/" + entry->d_name;
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (time(nullptr) - status.st_mtim.tv_sec < kLeftoverAge) continue;
    const qmi::Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file && flock(file.get(), LOCK_EX | LOCK_NB) == 0) unlink(path.c_str());
  }
}

bool make_folder(const std::string& path) {
  int made = mkdir(path.c_str(), 0700);
  if (made != 0 && errno == ENOENT && make_folder(parent_of(path)))
    made = mkdir(path.c_str(), 0700);
  if (made == 0) return sync_folder(parent_of(path));
  struct stat status {};
  if (errno != EEXIST || stat(path.c_str(), &status) != 0) return false;
  if (S_ISDIR(status.st_mode)) return true;
  errno = ENOTDIR;
  return false;
}

std::string_view trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

KeyValues parse(std::string_view text) {
  KeyValues values;
  while (!text.empty()) {
    const auto [key, value] = split(take_line(text));
    if (!key.empty()) values.emplace_back(key, value);
  }
  return values;
}

const std::string* find(const KeyValues& values, std::string_view key) {
  const std::string* found = nullptr;
  for (const auto& [known, value] : values) {
    if (known == key) found = &value;
  }
  return found;
}

KeyValues read_values(const std::string& path) {
  return parse(read(path).value_or(""));
}

std::string find_or(const KeyValues& values, std::string_view key, const char* fallback) {
  const std::string* found = find(values, key);
  return found != nullptr ? *found : fallback;
}

std::string with_value(std::string_view text, std::string_view key, std::string_view value) {
  const std::string line = std::string(key) + "=" + std::string(value) + "\n";
  std::string out;
  bool replaced = false;
  while (!text.empty()) {
    const std::string_view old = take_line(text);
    if (split(old).first != key) {
      out += std::string(old) + "\n";
    } else if (!replaced) {
      out += line;
      replaced = true;
    }
  }
  return replaced ? out : out + line;
}

namespace {

struct flock range_of(LockPart part, FolderLock::Mode mode) {
  struct flock range {};
  range.l_type = static_cast<short>(mode == FolderLock::Mode::Shared ? F_RDLCK : F_WRLCK);
  range.l_whence = SEEK_SET;
  range.l_start = static_cast<off_t>(part);
  range.l_len = 1;
  return range;
}

}  // namespace

FolderLock::FolderLock(const std::string& folder, LockPart part, Mode mode, Wait wait) {
  const std::string path = folder + "/lock";
  file_ = qmi::Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666));
  int error = errno;
  const auto try_to_lock = [&] {
    struct flock range = range_of(part, mode);
    error = fcntl(file_.get(), F_OFD_SETLK, &range) == 0 ? 0 : errno;
    return error != EAGAIN;
  };
  const auto limit = wait == Wait::Yes ? timing::Clock::now() + kLockLimit : timing::kPast;
  if (file_) retry::until(limit, try_to_lock);
  if (file_ && error == 0) return;
  busy_ = error == EAGAIN;
  problem_ = path + ": " + (busy_ ? "another process holds it" : strerror(error));
  file_ = qmi::Descriptor();
}

bool FolderLock::is_held(const std::string& folder, LockPart part) {
  const qmi::Descriptor file(open((folder + "/lock").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  struct flock range = range_of(part, Mode::Exclusive);
  return file && fcntl(file.get(), F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}

bool set_value(const std::string& folder, const std::string& path, std::string_view key,
               std::string_view value) {
  const auto text = read(path);
  if (!text && !means_absent(errno)) return false;
  return write(folder, path, with_value(text.value_or(""), key, value));
}

}  // namespace state_files
