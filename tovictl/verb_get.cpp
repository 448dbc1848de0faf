// tovictl get: an NV item or a whole EFS file.
#include "hex_text.h"
#include "local_files.h"
#include "modem_files.h"
#include "results.h"
#include "verbs.h"

namespace ctl {
namespace {

struct Arguments {
  std::string target;
  unsigned int sub = 0;
  std::string file;
};

Outcome get(const Arguments& arguments, const Settings& settings) {
  Target target;
  std::string problem;
  if (!parse_target(arguments.target, arguments.sub, target, problem)) {
    return {{Status::Usage, problem}};
  }
  Outcome outcome;
  outcome.values = {{"target", arguments.target}, {"sub", arguments.sub}};
  std::string bytes;
  outcome.verdict = ModemFiles(settings.timeout_ms()).read(target, bytes);
  if (!outcome.verdict.ok()) return outcome;
  outcome.values["bytes"] = bytes.size();
  if (!arguments.file.empty()) {
    outcome.values["file"] = arguments.file;
    outcome.verdict = write_local_file(arguments.file, bytes);
  } else if (settings.json) {
    outcome.values["hex"] = hex_text(bytes);
  } else if (results::to_terminal()) {
    results::print(hex_lines(bytes));
  } else {
    results::print(bytes);
  }
  return outcome;
}

}  // namespace

Run declare_get(Words& words, const Settings& settings) {
  const auto arguments = std::make_shared<Arguments>();
  words.target(arguments->target, arguments->sub);
  words.optional("-o,--output", "FILE", arguments->file, "write the bytes to FILE");
  return [arguments, &settings] { return get(*arguments, settings); };
}

}  // namespace ctl
