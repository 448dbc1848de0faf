// tovictl save: a backup of the modem's NV items and EFS files.
#include <errno.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>

#include "backup.h"
#include "descriptor.h"
#include "environment.h"
#include "local_files.h"
#include "results.h"
#include "state_files.h"

namespace ctl {
namespace {

constexpr size_t kMark = 512;  // targets between two marks of how far it is

// What makes a folder the simulated modem's, with all that its factory content would add.
constexpr const char* kVersion = "1 1\n";

struct Arguments {
  std::string folder;
  std::string range = "0-7232";
  std::string paths;
};

std::string now() {
  const time_t seconds = time(nullptr);
  tm parts{};
  gmtime_r(&seconds, &parts);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

// Keeps the bytes of a target; of none what an earlier run has left is taken away. Not through a
// temporary file: what comes after the last mark is read again.
Verdict keep(const std::string& folder, const Target& target, const std::string* bytes,
             bool resumed) {
  const std::string path = file_of(folder, target);
  if (bytes == nullptr) {
    if (resumed) unlink(path.c_str());
    return {};
  }
  if (!target.is_nv && !state_files::make_folder(path.substr(0, path.rfind('/')))) {
    return local_failure(path);
  }
  const qmi::Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  const auto size = static_cast<ssize_t>(bytes->size());
  if (!file || write(file.get(), bytes->data(), bytes->size()) != size) return local_failure(path);
  return {};
}

// Reads a target; a modem that is away for a moment is waited for.
ModemFiles::Done read_patiently(ModemFiles& files, const Target& target, uint32_t ms,
                                std::string& bytes) {
  const timing::Deadline deadline = timing::peer_deadline(ms);
  for (;;) {
    ModemFiles::Done done = files.read(target, bytes);
    const bool away = done.status == Status::NoAnswer || done.status == Status::NoService ||
                      done.status == Status::Unreachable;
    if (!away || timing::Clock::now() >= deadline) return done;
    timing::sleep_ms(100);
  }
}

// Whether a folder has files, but for those that were being written when a save was interrupted.
bool holds_files(const std::string& folder) {
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, error)) {
    const std::string path = entry.path();
    if (!entry.is_directory(error) && !path.starts_with(folder + "/tmp/")) return true;
  }
  return error && error != std::errc::no_such_file_or_directory;
}

// A new folder, or one that an interrupted save has left.
Verdict open_folder(const Arguments& arguments, const std::string& imei, Manifest& manifest) {
  const std::string& folder = arguments.folder;
  BackupPlan plan;
  if (Verdict made = make_plan(arguments.range, arguments.paths, plan); !made.ok()) return made;
  if (access((folder + "/manifest.json").c_str(), F_OK) == 0) {
    if (Verdict read = read_manifest(folder, manifest); !read.ok()) return read;
    if (manifest.complete) return {Status::Usage, folder + ": is a complete backup already"};
    if (manifest.imei != imei) {
      return {Status::Differs, folder + " was begun with another modem"};
    }
    if (manifest.plan.first != plan.first || manifest.plan.last != plan.last ||
        manifest.plan.paths != plan.paths) {
      return {Status::Usage, folder + ": was begun with other items or paths"};
    }
    return {};
  }
  if (holds_files(folder)) return {Status::Usage, folder + ": holds other things"};
  for (const char* part : {"/nv/0", "/nv/1", "/efs/0", "/efs/1", "/tmp"}) {
    if (!state_files::make_folder(folder + part)) return local_failure(folder + part);
  }
  manifest.time = now();
  manifest.imei = imei;
  manifest.modem = environment::modem()->text;
  manifest.plan = plan;
  return write_manifest(folder, manifest);
}

// From where it stands to the end of the plan.
Verdict read_all(const std::string& folder, ModemFiles& files, uint32_t ms, Manifest& manifest) {
  const BackupPlan& plan = manifest.plan;
  const bool resumed = manifest.done > 0 || !manifest.unread.empty();
  while (manifest.done < plan.size()) {
    const Target target = plan.target(manifest.done);
    std::string bytes;
    const ModemFiles::Done done = read_patiently(files, target, ms, bytes);
    const bool unread =
        (done.status == Status::Refused && !done.absent) || done.status == Status::Malformed;
    if (unread) {
      manifest.unread.push_back(
          {{"target", target.name()}, {"sub", target.sub}, {"cause", done.cause}});
    } else if (!done.ok() && !done.absent) {
      write_manifest(folder, manifest);
      return done;
    }
    const Verdict kept = keep(folder, target, done.ok() ? &bytes : nullptr, resumed);
    if (!kept.ok()) return kept;
    ++manifest.done;
    show_progress("saved", manifest.done, plan.size());
    if (manifest.done % kMark == 0) {
      if (Verdict marked = write_manifest(folder, manifest); !marked.ok()) return marked;
    }
  }
  results::progress("");
  return {};
}

// How many items and files of each subscription, and their bytes.
Json sizes_of(const Content& content) {
  Json sizes = Json::array();
  for (unsigned int sub = 0; sub < kSubs; ++sub) {
    size_t items = 0, files = 0, bytes = 0;
    for (const auto& [key, value] : content) {
      if (key.first != sub) continue;
      ++(key.second[0] == '/' ? files : items);
      bytes += value.size();
    }
    sizes.push_back({{"sub", sub}, {"items", items}, {"files", files}, {"bytes", bytes}});
  }
  return sizes;
}

// The manifest comes last: until it says so the backup is not complete, and is continued.
Verdict finish(const std::string& folder, Manifest& manifest) {
  Content content;
  if (Verdict read = read_content(folder, manifest.plan, content); !read.ok()) return read;
  // What was being written when an earlier save was killed.
  std::error_code ignored;
  std::filesystem::remove_all(folder + "/tmp", ignored);
  if (!state_files::make_folder(folder + "/tmp")) return local_failure(folder + "/tmp");
  const std::string version = folder + "/version";
  if (!state_files::write(folder, version, kVersion)) return local_failure(version);
  manifest.sizes = sizes_of(content);
  manifest.complete = true;
  return write_manifest(folder, manifest);
}

Outcome save(const Arguments& arguments, const Settings& settings) {
  ModemFiles files(settings.timeout_ms());
  std::string imei;
  if (Verdict known = read_imei(files, imei); !known.ok()) return Outcome(known);
  Manifest manifest;
  if (Verdict open = open_folder(arguments, imei, manifest); !open.ok()) return Outcome(open);
  const size_t resumed_at = manifest.done;
  Outcome outcome(read_all(arguments.folder, files, settings.timeout_ms(), manifest));
  if (outcome.verdict.ok()) outcome.verdict = finish(arguments.folder, manifest);
  outcome.values = {{"folder", arguments.folder},
                    {"imei", imei},
                    {"resumed_at", resumed_at},
                    {"read", manifest.done},
                    {"of", manifest.plan.size()}};
  if (!outcome.verdict.ok()) return outcome;
  outcome.values["subscriptions"] = manifest.sizes;
  outcome.values["unread"] = manifest.unread;
  std::string& said = outcome.verdict.cause;
  for (const Json& sub : outcome.values["subscriptions"]) {
    said += "subscription " + sub["sub"].dump() + ": " + sub["items"].dump() + " items, " +
            sub["files"].dump() + " files, " + sub["bytes"].dump() + " bytes; ";
  }
  said += std::to_string(manifest.unread.size()) + " not read";
  return outcome;
}

}  // namespace

Run declare_save(Words& words, const Settings& settings) {
  const auto arguments = std::make_shared<Arguments>();
  words.required("folder", "DIR", arguments->folder,
                 "a new folder, or that of an interrupted save");
  words.optional("--nv", "FIRST-LAST", arguments->range, "the NV items; all, 0-7232, by default");
  words.optional("--paths", "FILE", arguments->paths,
                 "EFS files beside the known ones, a path a line");
  return [arguments, &settings] { return save(*arguments, settings); };
}

}  // namespace ctl
