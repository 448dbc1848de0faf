// tovictl restore: makes a modem hold what a backup holds.
#include <algorithm>

#include "backup.h"
#include "catalogue.h"
#include "results.h"
#include "velmor_efs_files.h"
#include "write_lock.h"

namespace ctl {
namespace {

struct Arguments {
  std::string folder;
  bool other_device = false;
};

// What says which device it is stays with the device.
bool is_identity(const Target& target) {
  for (const KnownNvItem& item : known_nv_items()) {
    if (target.is_nv && item.id == target.id) return item.identity;
  }
  for (const velmor_efs_file& file : kKnownEfsFiles) {
    if (!target.is_nv && target.path == file.path) return file.hidden;
  }
  return false;
}

Verdict restore_one(ModemFiles& files, const Difference& difference) {
  const Target& target = difference.target;
  if (!difference.before) return files.remove(target);
  if (Verdict written = files.write(target, *difference.before); !written.ok()) return written;
  std::string back;
  if (Verdict read = files.read(target, back); !read.ok()) return read;
  if (back == *difference.before) return {};
  return {Status::Differs, target.text() + ": reads back otherwise than it was written"};
}

Outcome restore(const Arguments& arguments, const Settings& settings) {
  Manifest manifest;
  Content content;
  if (Verdict read = read_backup(arguments.folder, manifest, content); !read.ok()) {
    return Outcome(read);
  }
  ModemFiles files(settings.timeout_ms());
  std::string imei;
  if (Verdict known = read_imei(files, imei); !known.ok()) return Outcome(known);
  const bool same_device = imei == manifest.imei;
  if (!same_device && !arguments.other_device) {
    return Outcome({Status::Differs, "the backup is of IMEI " + manifest.imei + ", the modem has " +
                                         imei + ": --other-device restores all but the identity"});
  }
  WriteLock lock;
  const std::string question = "restore " + arguments.folder + "?";
  if (Verdict may = may_change(settings, question.c_str(), lock); !may.ok()) return Outcome(may);

  std::vector<Difference> differences;
  Outcome outcome(compare_modem(files, manifest, content, differences));
  if (!outcome.verdict.ok()) return outcome;
  if (!same_device) {
    std::erase_if(differences, [](const Difference& one) { return is_identity(one.target); });
  }
  outcome.values = {{"folder", arguments.folder}, {"restored", 0}, {"failed", Json::array()}};
  size_t restored = 0;
  for (const Difference& difference : differences) {
    show_progress("restored", restored, differences.size());
    Verdict one = restore_one(files, difference);
    if (one.ok()) {
      ++restored;
      continue;
    }
    outcome.values["failed"].push_back({{"target", difference.target.name()},
                                        {"sub", difference.target.sub},
                                        {"cause", one.cause}});
    outcome.verdict = worse(std::move(outcome.verdict), one);
    if (one.status == Status::NoAnswer || one.status == Status::NoService) break;
  }
  results::progress("");
  outcome.values["restored"] = restored;
  if (restored > 0) outcome.verdict = worse(std::move(outcome.verdict), files.commit());
  if (outcome.verdict.ok()) outcome.verdict.cause = std::to_string(restored) + " restored";
  return outcome;
}

}  // namespace

Run declare_restore(Words& words, const Settings& settings) {
  const auto arguments = std::make_shared<Arguments>();
  words.required("folder", "DIR", arguments->folder, "a complete backup");
  words.flag("--other-device", arguments->other_device,
             "also to a modem with another IMEI, which keeps its identity");
  return [arguments, &settings] { return restore(*arguments, settings); };
}

}  // namespace ctl
