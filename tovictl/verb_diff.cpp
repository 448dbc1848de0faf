// tovictl diff: what a modem, or another backup, has otherwise than a backup.
#include "backup.h"
#include "results.h"

namespace ctl {
namespace {

struct Arguments {
  std::string folder;
  std::string other;
};

// Of two backups, what both were asked to hold.
Verdict compare_folders(const std::string& other, const Manifest& manifest, const Content& content,
                        std::vector<Difference>& differences) {
  Manifest other_manifest;
  Content others;
  if (Verdict read = read_backup(other, other_manifest, others); !read.ok()) return read;
  const auto find = [](const Content& in, const Target& target) {
    const auto found = in.find(key_of(target));
    return found != in.end() ? std::optional(found->second) : std::nullopt;
  };
  for (size_t i = 0; i < manifest.plan.size(); ++i) {
    const Target target = manifest.plan.target(i);
    Difference difference{target, find(content, target), find(others, target)};
    if (difference.before != difference.after) differences.push_back(std::move(difference));
  }
  return {};
}

std::string size_text(const std::optional<std::string>& bytes) {
  return bytes ? std::to_string(bytes->size()) + " bytes" : "nothing";
}

Outcome diff(const Arguments& arguments, const Settings& settings) {
  Manifest manifest;
  Content content;
  std::vector<Difference> differences;
  if (Verdict read = read_backup(arguments.folder, manifest, content); !read.ok()) {
    return Outcome(read);
  }
  ModemFiles files(settings.timeout_ms());
  Outcome outcome(arguments.other.empty()
                      ? compare_modem(files, manifest, content, differences)
                      : compare_folders(arguments.other, manifest, content, differences));
  if (!outcome.verdict.ok()) return outcome;
  outcome.values["differences"] = Json::array();
  for (const Difference& difference : differences) {
    const Target& target = difference.target;
    Json one = {{"target", target.name()}, {"sub", target.sub}, {"change", difference.change()}};
    if (difference.before) one["before_bytes"] = difference.before->size();
    if (difference.after) one["after_bytes"] = difference.after->size();
    outcome.values["differences"].push_back(one);
    if (settings.json) continue;
    results::print(std::string(difference.change()) + " " + target.text() + ": " +
                   size_text(difference.before) + ", now " + size_text(difference.after) + "\n");
  }
  if (!differences.empty()) {
    const size_t count = differences.size();
    outcome.verdict = {Status::Differs,
                       std::to_string(count) + (count == 1 ? " difference" : " differences")};
  }
  return outcome;
}

}  // namespace

Run declare_diff(Words& words, const Settings& settings) {
  const auto arguments = std::make_shared<Arguments>();
  words.required("folder", "DIR", arguments->folder, "a backup");
  words.optional("other", "DIR2", arguments->other, "another one in place of the modem");
  return [arguments, &settings] { return diff(*arguments, settings); };
}

}  // namespace ctl
