#include "backup.h"

#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <set>

#include "catalogue.h"
#include "local_files.h"
#include "results.h"
#include "state_files.h"
#include "velmor_efs_files.h"
#include "velmor_extend_nvefs.h"

namespace ctl {
namespace {

constexpr int kFormat = 1;

// Nothing is ever read or written outside the folder.
bool is_plain(const std::string& path) {
  for (size_t at = 0; at < path.size();) {
    const size_t end = std::min(path.find('/', at + 1), path.size());
    const std::string part = path.substr(at + 1, end - at - 1);
    if (part.empty() || part == "." || part == "..") return false;
    at = end;
  }
  return true;
}

Verdict add_path(const std::string& path, BackupPlan& plan) {
  Target target;
  std::string problem = path + ": not a path of the modem";
  if (path[0] != '/' || !is_plain(path) || !parse_target(path, 0, target, problem)) {
    return {Status::Usage, problem};
  }
  const bool known = std::find(plan.paths.begin(), plan.paths.end(), path) != plan.paths.end();
  if (!known) plan.paths.push_back(path);
  return {};
}

Verdict parse_range(const std::string& range, BackupPlan& plan) {
  const char* const end = range.data() + range.size();
  const auto [middle, error] = std::from_chars(range.data(), end, plan.first);
  bool good = error == std::errc() && middle != end && *middle == '-';
  if (good) {
    const auto [rest, wrong] = std::from_chars(middle + 1, end, plan.last);
    good = wrong == std::errc() && rest == end;
  }
  if (good && plan.first <= plan.last && plan.last <= kNvIdMax) return {};
  return {Status::Usage, range + ": not a range of NV items in 0-" + std::to_string(kNvIdMax)};
}

std::string range_of(const BackupPlan& plan) {
  return std::to_string(plan.first) + "-" + std::to_string(plan.last);
}

// Names of the files in a folder, which may not be there. False, with errno set, when nobody knows.
bool names_in(const std::string& folder, std::set<std::string>& names) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
  if (entries == nullptr) return state_files::means_absent(errno);
  errno = 0;
  while (const dirent* entry = readdir(entries.get())) names.insert(entry->d_name);
  return errno == 0;
}

// The digits of NV item 550: a length, then two digits a byte, the lower first; the first of all is
// no digit.
std::string imei_of(std::string_view item) {
  std::string digits;
  for (size_t i = 1; i < item.size(); ++i) {
    const auto byte = static_cast<unsigned char>(item[i]);
    if (i > 1) digits += static_cast<char>('0' + (byte & 15));
    digits += static_cast<char>('0' + (byte >> 4));
  }
  const bool good = std::all_of(digits.begin(), digits.end(), [](char c) { return c <= '9'; });
  return good ? digits : "";
}

}  // namespace

Target BackupPlan::target(size_t index) const {
  const size_t of_one = items() + paths.size();
  const auto sub = static_cast<unsigned int>(index / of_one);
  const size_t at = index % of_one;
  if (at < items()) return {true, first + static_cast<unsigned int>(at), "", sub};
  return {false, 0, paths[at - items()], sub};
}

Verdict make_plan(const std::string& range, const std::string& file, BackupPlan& plan) {
  if (Verdict parsed = parse_range(range, plan); !parsed.ok()) return parsed;
  for (const velmor_efs_file& known : kKnownEfsFiles) plan.paths.push_back(known.path);
  if (file.empty()) return {};
  std::string text;
  if (Verdict read = read_local_file(file, 1 << 20, text); !read.ok()) return read;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string line(state_files::trim(std::string_view(text).substr(at, end - at)));
    at = end + 1;
    if (line.empty() || line[0] == '#') continue;
    if (Verdict added = add_path(line, plan); !added.ok()) return added;
  }
  return {};
}

Verdict read_manifest(const std::string& folder, Manifest& manifest) {
  const std::string path = folder + "/manifest.json";
  std::string text;
  if (Verdict read = read_local_file(path, 64 << 20, text); !read.ok()) return read;
  const Json json = Json::parse(text, nullptr, false);
  const Verdict bad = {Status::Usage, path + ": not a manifest of format 1"};
  try {
    if (json.at("format") != kFormat) return bad;
    manifest.complete = json.at("complete");
    manifest.done = json.at("done");
    manifest.time = json.at("time");
    manifest.imei = json.at("modem").at("imei");
    manifest.modem = json.at("modem").at("at");
    manifest.unread = json.at("unread");
    manifest.plan.paths.clear();
    for (const std::string path_on_modem : json.at("paths")) {
      if (Verdict added = add_path(path_on_modem, manifest.plan); !added.ok()) return added;
    }
    if (Verdict range = parse_range(json.at("nv"), manifest.plan); !range.ok()) return range;
  } catch (const nlohmann::json::exception&) {
    return bad;
  }
  return manifest.done <= manifest.plan.size() ? Verdict{} : bad;
}

Verdict write_manifest(const std::string& folder, const Manifest& manifest) {
  const Json json = {{"format", kFormat},
                     {"complete", manifest.complete},
                     {"done", manifest.done},
                     {"time", manifest.time},
                     {"modem", {{"imei", manifest.imei}, {"at", manifest.modem}}},
                     {"nv", range_of(manifest.plan)},
                     {"paths", manifest.plan.paths},
                     {"unread", manifest.unread},
                     {"subscriptions", manifest.sizes}};
  const std::string path = folder + "/manifest.json";
  return state_files::write(folder, path, json.dump(1) + "\n") ? Verdict{} : local_failure(path);
}

std::string file_of(const std::string& folder, const Target& target) {
  const std::string sub = std::to_string(target.sub);
  return target.is_nv ? folder + "/nv/" + sub + "/" + std::to_string(target.id)
                      : folder + "/efs/" + sub + target.path;
}

std::pair<unsigned int, std::string> key_of(const Target& target) {
  return {target.sub, target.name()};
}

Verdict read_content(const std::string& folder, const BackupPlan& plan, Content& content) {
  std::set<std::string> items[kSubs];
  for (unsigned int sub = 0; sub < kSubs; ++sub) {
    const std::string nv = folder + "/nv/" + std::to_string(sub);
    if (!names_in(nv, items[sub])) return local_failure(nv);
  }
  for (size_t i = 0; i < plan.size(); ++i) {
    const Target target = plan.target(i);
    if (target.is_nv && items[target.sub].count(std::to_string(target.id)) == 0) continue;
    const std::string path = file_of(folder, target);
    auto bytes = state_files::read(path, kFileMax);
    if (bytes) {
      content[key_of(target)] = std::move(*bytes);
    } else if (!state_files::means_absent(errno)) {
      return local_failure(path);
    }
  }
  return {};
}

Verdict read_backup(const std::string& folder, Manifest& manifest, Content& content) {
  if (Verdict read = read_manifest(folder, manifest); !read.ok()) return read;
  if (manifest.complete) return read_content(folder, manifest.plan, content);
  return {Status::Usage, folder + ": not complete; tovictl save " + folder + " continues it"};
}

Verdict read_imei(ModemFiles& files, std::string& imei) {
  std::string item;
  const ModemFiles::Done done = files.read({true, kImeiItem, "", 0}, item);
  imei = done.ok() ? imei_of(item) : "";
  if (done.ok() || done.absent) return {};
  return done;
}

Verdict compare_modem(ModemFiles& files, const Manifest& manifest, const Content& content,
                      std::vector<Difference>& differences) {
  std::set<std::pair<unsigned int, std::string>> unread;
  for (const Json& one : manifest.unread) {
    unread.emplace(one.value("sub", 0u), one.value("target", std::string()));
  }
  for (size_t i = 0; i < manifest.plan.size(); ++i) {
    const Target target = manifest.plan.target(i);
    if (unread.count(key_of(target)) > 0) continue;
    show_progress("compared", i, manifest.plan.size());
    std::string bytes;
    const ModemFiles::Done done = files.read(target, bytes);
    if (!done.ok() && !done.absent) return done;
    const auto saved = content.find(key_of(target));
    Difference difference{target, std::nullopt, std::nullopt};
    if (saved != content.end()) difference.before = saved->second;
    if (done.ok()) difference.after = std::move(bytes);
    if (difference.before != difference.after) differences.push_back(std::move(difference));
  }
  results::progress("");
  return {};
}

void show_progress(const char* what, size_t done, size_t all) {
  if (done % 256 != 0) return;
  results::progress(std::to_string(done) + " of " + std::to_string(all) + " " + what);
}

}  // namespace ctl
