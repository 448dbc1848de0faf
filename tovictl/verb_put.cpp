// tovictl put: writes an NV item or a whole EFS file, reads it back, has it committed.
#include "hex_text.h"
#include "local_files.h"
#include "modem_files.h"
#include "verbs.h"
#include "write_lock.h"

namespace ctl {
namespace {

constexpr const char* kHexPrefix = "hex:";

struct Arguments {
  std::string target;
  std::string source;
  unsigned int sub = 0;
};

Verdict read_source(const std::string& source, std::string& bytes) {
  if (!source.starts_with(kHexPrefix)) return read_local_file(source, kFileMax, bytes);
  const auto given = from_hex(source.substr(4));
  if (!given) return {Status::Usage, source + ": not pairs of hexadecimal digits"};
  bytes = *given;
  return {};
}

Verdict write_and_compare(ModemFiles& files, const Target& target, const std::string& bytes) {
  if (Verdict written = files.write(target, bytes); !written.ok()) return written;
  std::string back;
  if (Verdict read = files.read(target, back); !read.ok()) {
    read.cause = "written, but read back: " + read.cause;
    return read;
  }
  if (back != bytes) {
    return {Status::Differs, target.text() + ": " + std::to_string(bytes.size()) +
                                 " bytes written, " + std::to_string(back.size()) +
                                 " others read back"};
  }
  return files.commit();
}

Outcome put(const Arguments& arguments, const Settings& settings) {
  Target target;
  std::string problem, bytes;
  if (!parse_target(arguments.target, arguments.sub, target, problem)) {
    return {{Status::Usage, problem}};
  }
  if (Verdict read = read_source(arguments.source, bytes); !read.ok()) return Outcome(read);
  WriteLock lock;
  if (Verdict may = may_change(settings, nullptr, lock); !may.ok()) return Outcome(may);
  Outcome outcome;
  outcome.values = {{"target", arguments.target}, {"sub", arguments.sub}, {"bytes", bytes.size()}};
  ModemFiles files(settings.timeout_ms());
  outcome.verdict = write_and_compare(files, target, bytes);
  return outcome;
}

}  // namespace

Run declare_put(Words& words, const Settings& settings) {
  const auto arguments = std::make_shared<Arguments>();
  words.target(arguments->target, arguments->sub);
  words.required("source", "FILE|-|hex:..", arguments->source,
                 "a file, - for standard input, or hex:0102...");
  return [arguments, &settings] { return put(*arguments, settings); };
}

}  // namespace ctl
