// A backup of a modem's NV items and EFS files: a state folder of the simulated modem, so that
// `TOVI_STATE=FOLDER tovi` answers as the phone did, and a manifest.json beside it.
//
//   manifest.json      format, complete, done, time, modem, nv, paths, unread,
//                      subscriptions: their sizes
//   nv/<sub>/<id>      items, raw bytes
//   efs/<sub>/<path>   files, raw bytes
//   version            what makes it a state folder; comes last
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "modem_files.h"
#include "verbs.h"

namespace ctl {

inline constexpr unsigned int kSubs = 2;

// What is saved: a range of items and some files, of both subscriptions, in one order.
struct BackupPlan {
  unsigned int first = 0, last = 7232;
  std::vector<std::string> paths;

  size_t size() const { return kSubs * (items() + paths.size()); }
  size_t items() const { return last - first + 1; }
  Target target(size_t index) const;
};

// The files that are known, and those that the lines of `file` name ("" for none). `range` is
// "first-last".
Verdict make_plan(const std::string& range, const std::string& file, BackupPlan& plan);

// What the manifest says.
struct Manifest {
  bool complete = false;
  size_t done = 0;  // so many of the plan's targets
  std::string time;
  std::string imei;   // "" when it could not be read
  std::string modem;  // TOVI_MODEM
  BackupPlan plan;
  Json unread = Json::array();  // {target, sub, cause}
  Json sizes = Json::array();   // {sub, items, files, bytes}, of a complete one
};

Verdict read_manifest(const std::string& folder, Manifest& manifest);
Verdict write_manifest(const std::string& folder, const Manifest& manifest);

std::string file_of(const std::string& folder, const Target& target);

// By subscription and name.
using Content = std::map<std::pair<unsigned int, std::string>, std::string>;
std::pair<unsigned int, std::string> key_of(const Target& target);

// All that a folder holds of a plan; and of a backup, which must be complete.
Verdict read_content(const std::string& folder, const BackupPlan& plan, Content& content);
Verdict read_backup(const std::string& folder, Manifest& manifest, Content& content);

// The modem's IMEI in digits, "" when there is none.
Verdict read_imei(ModemFiles& files, std::string& imei);

struct Difference {
  Target target;
  std::optional<std::string> before, after;  // null: not there

  const char* change() const { return !before ? "added" : !after ? "removed" : "changed"; }
};

// Compares the modem with a backup. What could not be read then is left out; what cannot be read
// now ends it.
Verdict compare_modem(ModemFiles& files, const Manifest& manifest, const Content& content,
                      std::vector<Difference>& differences);

// "nv 550 (IMEI ...)": counts what is done on standard error.
void show_progress(const char* what, size_t done, size_t all);

}  // namespace ctl
