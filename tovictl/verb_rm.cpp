// tovictl rm: deletes an NV item or an EFS file.
#include "modem_files.h"
#include "verbs.h"
#include "write_lock.h"

namespace ctl {
namespace {

struct Arguments {
  std::string target;
  unsigned int sub = 0;
};

Outcome remove(const Arguments& arguments, const Settings& settings) {
  Target target;
  std::string problem;
  if (!parse_target(arguments.target, arguments.sub, target, problem)) {
    return {{Status::Usage, problem}};
  }
  WriteLock lock;
  const std::string question = "delete " + target.text() + "?";
  if (Verdict may = may_change(settings, question.c_str(), lock); !may.ok()) return Outcome(may);
  Outcome outcome;
  outcome.values = {{"target", arguments.target}, {"sub", arguments.sub}};
  ModemFiles files(settings.timeout_ms());
  const ModemFiles::Done done = files.remove(target);
  outcome.values["was_there"] = done.ok();
  outcome.verdict = done;
  if (done.absent) outcome.verdict = {Status::Ok, target.text() + " was absent already"};
  if (done.ok()) outcome.verdict = files.commit();
  return outcome;
}

}  // namespace

Run declare_rm(Words& words, const Settings& settings) {
  const auto arguments = std::make_shared<Arguments>();
  words.target(arguments->target, arguments->sub);
  return [arguments, &settings] { return remove(*arguments, settings); };
}

}  // namespace ctl
