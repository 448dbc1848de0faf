#include "state_folder.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <string_view>

#include "simulated_device.h"
#include "state_files.h"
#include "statistics.h"

namespace sim {
namespace {

using namespace std::string_view_literals;
using state_files::FolderLock;
using state_files::LockPart;

// The file `version`: "VERSION REVISION". Another version is another layout, which is refused. The
// revision counts what was added to the factory content; a folder of a lower one gets the factory
// files of the higher ones that it lacks. Builds that had no revision wrote the version alone: 0.
constexpr std::string_view kVersion = "1";
constexpr unsigned int kRevision = 2;
constexpr unsigned int kStatisticsRevision = 1;

struct FactoryFile {
  unsigned int revision;  // the one that it came with
  const char* path;
  std::string_view bytes;
};

constexpr std::string_view kSlot1 =
    "# holds: sim or esim; sim: present, absent or error; power: on or off\n"
    "holds=sim\n"
    "sim=present\n"
    "power=on\n";
constexpr std::string_view kSlot2 =
    "# What it holds is decided anew at every power-up, by the EFS file esim_enable.\n"
    "holds=esim\n"
    "sim=present\n"
    "power=on\n";
constexpr std::string_view kEuicc =
    "# profiles: the ICCIDs, with commas between\n"
    "eid=89049032123451234512345678901235\n"
    "profiles=8901990000000000017,8901990000000000025\n";

constexpr std::string_view kConfigs =
    "# type/id=version size description\n"
    "platform/a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3=0x01000100 4096 Platform\n"
    "software/0102030405060708090a0b0c0d0e0f1011121314=0x0a010001 51200 Commercial 1\n"
    "software/1112131415161718191a1b1c1d1e1f2021222324=0x0a010002 50176 Commercial 2\n"
    "software/2122232425262728292a2b2c2d2e2f3031323334=0x0a010003 20480 Lab\n";
constexpr std::string_view kPlatform =
    "selected=a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3\n"
    "active=a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3\n"
    "pending=\n";
constexpr std::string_view kSoftware0 =
    "selected=0102030405060708090a0b0c0d0e0f1011121314\n"
    "active=0102030405060708090a0b0c0d0e0f1011121314\n"
    "pending=\n";
constexpr std::string_view kSoftware1 =
    "selected=1112131415161718191a1b1c1d1e1f2021222324\n"
    "active=1112131415161718191a1b1c1d1e1f2021222324\n"
    "pending=\n";

constexpr std::string_view kNetworks =
    "# mcc/mnc=radio flags name\n"
    "# radio: gsm, umts, lte, td-scdma, nr; flags: serving, home, forbidden, preferred, or -\n"
    "1/1=lte serving,home TEST 1\n"
    "1/2=lte - TEST 2\n"
    "1/3=umts forbidden TEST 3\n"
    "999/99=nr - Lab 5G\n";
constexpr std::string_view kAt =
    "# command -> the lines of its answer, with | between; OK follows unless the last is an error\n"
    "# command sim -> only when a card in slot 1 answers; no-sim: only when none does\n"
    "AT ->\n"
    "ATI -> tovi simulated modem\n"
    "AT+CSQ -> +CSQ: 24,99\n"
    "AT+CGSN -> {imei}\n"
    "AT+COPS? sim -> +CREG: 0,1 | +COPS: 0,0,\"TEST 1\",7\n"
    "AT+COPS? no-sim -> +CREG: 0,0 | +COPS: 0\n"
    "AT+CPIN? sim -> +CPIN: READY\n"
    "AT+CPIN? no-sim -> ERROR\n";

// Read by whoever maps it; the first five bytes are the ones that are shown.
constexpr std::array<char, 100> kShareMemory = {1, 2, 3, 4, 5};

// clang-format off
constexpr FactoryFile kFactoryFiles[] = {
  // NV 10: preferred mode, automatic. NV 550: the IMEI, one digit a nibble.
  { 1, "nv/0/10",                                             "\x00\x04\x00"sv                         },
  { 1, "nv/0/550",                                            "\x08\x0a\x10\x10\x32\x54\x76\x98\x20"sv },
  { 1, "nv/1/10",                                             "\x00\x04\x00"sv                         },
  { 1, "nv/1/550",                                            "\x08\x0a\x10\x10\x32\x54\x76\x98\x01"sv },
  { 1, "efs/0/nv/item_files/modem/mmode/device_mode",         "\x02"sv                                 },
  { 1, "efs/0/nv/item_files/modem/mmode/lte_bandpref",        "\xdf\x18\x0a\x00\x42\x00\x00\x00"sv     },
  { 1, "efs/0/nv/item_files/ims/IMS_enable",                  "\x01"sv                                 },
  { 1, "efs/1/nv/item_files/modem/mmode/device_mode",         "\x02"sv                                 },
  { 1, "efs/1/nv/item_files/modem/mmode/lte_bandpref",        "\x05\x00\x08\x00\x40\x00\x00\x00"sv     },
  { 1, "efs/1/nv/item_files/ims/IMS_enable",                  "\x00"sv                                 },
  { 1, "efs/1/nv/item_files/modem/uim/uimdrv/esim_enable",    "\x01\x00\x00\x00"sv                     },
  { 1, "slot/1",                                              kSlot1                                   },
  { 1, "slot/2",                                              kSlot2                                   },
  { 1, "euicc",                                               kEuicc                                   },
  { 1, "pdc/configs",                                         kConfigs                                 },
  { 1, "pdc/platform/0",                                      kPlatform                                },
  { 1, "pdc/platform/1",                                      kPlatform                                },
  { 1, "pdc/software/0",                                      kSoftware0                               },
  { 1, "pdc/software/1",                                      kSoftware1                               },
  { 1, "device/data/vendor/modem/share_memory",               {kShareMemory.data(), kShareMemory.size()} },
  { 1, "sar",                                                 "# DSI, 0 to 20\ndsi=3\n"sv              },
  { 1, "properties",                                          "# One property a line: name=value\n"sv  },
  { 2, "networks",                                            kNetworks                                },
  { 2, "at",                                                  kAt                                      },
};
// clang-format on
static_assert(std::all_of(std::begin(kFactoryFiles), std::end(kFactoryFiles),
                          [](const FactoryFile& file) { return file.revision <= kRevision; }));

std::string failure(const std::string& path) {
  return path + ": " + strerror(errno);
}

// What nobody can tell is taken to exist: nothing is put in its place.
bool exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0 || !state_files::means_absent(errno);
}

// The revision of what a folder holds, 0 where there is nothing yet. False for another version.
bool read_revision(const std::string& folder, unsigned int& revision, std::string& problem) {
  revision = 0;
  const auto content = state_files::read(folder + "/version");
  if (!content && state_files::means_absent(errno)) return true;
  if (!content) {
    problem = failure(folder + "/version");
    return false;
  }
  const std::string_view words = state_files::trim(*content);
  const size_t blank = std::min(words.find(' '), words.size());
  const char* const end = words.data() + words.size();
  if (words.substr(0, blank) == kVersion) {
    if (blank == words.size()) return true;
    const auto [rest, error] = std::from_chars(words.data() + blank + 1, end, revision);
    if (error == std::errc() && rest == end) return true;
  }
  problem = folder + ": holds the state of another version of this program";
  return false;
}

// Whether all that a folder holds belongs to a modem's state. A folder of somebody's own must not
// become a state folder: a reset would empty it. False with errno set when nobody knows.
bool holds_only_state(const std::string& folder) {
  constexpr std::string_view kOwn[] = {".",   "..",     "version",    "tmp",      "lock",  "nv",
                                       "efs", "sar",    "properties", "slot",     "euicc", "stats",
                                       "pdc", "device", "faults",     "networks", "at"};
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
  if (entries == nullptr) return state_files::means_absent(errno);
  errno = 0;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string_view name = entry->d_name;
    if (std::find(std::begin(kOwn), std::end(kOwn), name) == std::end(kOwn)) return false;
  }
  return errno == 0;
}

// Whether the folder may be written into, and the revision of what it holds.
bool is_ours(const std::string& folder, unsigned int& revision, std::string& problem) {
  if (!read_revision(folder, revision, problem)) return false;
  if (exists(folder + "/version") || holds_only_state(folder)) return true;
  problem = errno != 0 ? failure(folder) : folder + ": holds other things than a modem's state";
  return false;
}

// Adds the factory files that came after what the folder holds. The version comes last: until it is
// there, the next process begins again, and it does not come while one of them may be there or not.
bool write_factory_content(const std::string& folder, std::string& problem) {
  if (!state_files::make_folder(folder + "/tmp")) {
    problem = failure(folder);
    return false;
  }
  const FolderLock lock(folder, LockPart::Writing);
  if (!lock.held()) {
    problem = lock.problem();
    return false;
  }
  unsigned int held = 0;
  if (!read_revision(folder, held, problem)) return false;
  if (held >= kRevision) return true;  // another process was faster
  bool all_known = true;
  const auto add = [&](unsigned int revision, const std::string& name, std::string_view bytes) {
    const std::string path = folder + "/" + name;
    if (revision <= held || access(path.c_str(), F_OK) == 0) return true;
    if (!state_files::means_absent(errno)) {
      all_known = false;
      return true;
    }
    if (state_files::write(folder, path, bytes)) return true;
    problem = failure(path);
    return false;
  };
  for (const FactoryFile& file : kFactoryFiles) {
    if (!add(file.revision, file.path, file.bytes)) return false;
  }
  for (const auto& [name, text] : Statistics::factory_files()) {
    if (!add(kStatisticsRevision, name, text)) return false;
  }
  if (!all_known) return true;
  const std::string version = std::string(kVersion) + " " + std::to_string(kRevision) + "\n";
  if (state_files::write(folder, folder + "/version", version)) return true;
  problem = failure(folder + "/version");
  return false;
}

// Whether there is no such folder yet, or nothing in it but the lock file.
bool is_new(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
  if (entries == nullptr) return errno == ENOENT;
  errno = 0;
  while (const dirent* entry = readdir(entries.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != ".." && name != "lock") return false;
  }
  return errno == 0;
}

// Removes a file or a folder with all it holds; links are removed, not followed. False, with
// `problem` in words, when something is left.
bool remove_tree(const std::string& path, std::string& problem) {
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return true;
  const std::string file_problem = failure(path);
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
  if (folder == nullptr) {
    problem = errno == ENOTDIR ? file_problem : failure(path);
    return false;
  }
  while (const dirent* entry = readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != ".." && !remove_tree(path + "/" + name, problem)) return false;
  }
  if (rmdir(path.c_str()) == 0) return true;
  problem = errno == ENOTEMPTY ? path + ": a command is writing into it" : failure(path);
  return false;
}

}  // namespace

bool prepare_state_folder(const std::string& folder, std::string& problem) {
  unsigned int revision = 0;
  if (!is_ours(folder, revision, problem)) return false;
  return revision >= kRevision || write_factory_content(folder, problem);
}

bool empty_state_folder(const std::string& folder, std::string& problem) {
  if (is_new(folder)) return true;
  if (!exists(folder + "/version")) {
    problem = folder + ": not a state folder (it has no file version)";
    return false;
  }
  unsigned int revision = 0;
  if (!read_revision(folder, revision, problem)) return false;
  const FolderLock no_server(folder, LockPart::Serving, FolderLock::Mode::Exclusive,
                             FolderLock::Wait::No);
  if (!no_server.held()) {
    problem = no_server.is_busy() ? folder + ": a server is using it" : no_server.problem();
    return false;
  }
  const FolderLock lock(folder, LockPart::Writing);
  if (!lock.held()) {
    problem = lock.problem();
    return false;
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
  if (entries == nullptr) {
    problem = failure(folder);
    return false;
  }
  // What a kill leaves behind lacks files, as its version says, and goes with the next reset. Where
  // there is no room for that, the version goes first: then it is no state folder any more.
  const std::string version = folder + "/version";
  if (!state_files::write(folder, version, std::string(kVersion) + "\n") &&
      !remove_tree(version, problem)) {
    return false;
  }
  bool ok = true;
  const dirent* entry;
  while (errno = 0, (entry = readdir(entries.get())) != nullptr) {
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || name == "lock" || name == "version") continue;
    ok = remove_tree(folder + "/" + name, problem) && ok;
  }
  if (errno != 0) {
    problem = failure(folder);
    return false;
  }
  return ok && remove_tree(version, problem);
}

}  // namespace sim

bool is_simulated_state(const std::string& folder, std::string& problem) {
  unsigned int revision = 0;
  return sim::is_ours(folder, revision, problem);
}
