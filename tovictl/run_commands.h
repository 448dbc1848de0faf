// The commands of tovi as `run` takes them: what their arguments must be, lest tovi misread them
// without a word; which of them need a --yes; which failures belong to their normal course.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "verdict.h"
#include "witness.h"

namespace ctl {

struct RunArgument {
  const char* name;
  enum Form {
    Decimal,
    AnyNumber,  // decimal, or hexadecimal after 0x
    Path,
    AtCommand,
  } form;
  uint64_t min = 0, max = 0;  // of a number; of a path's or text's length
};

struct RunCommand {
  int module;
  int command;  // -1: the module has none, and its arguments follow the module
  std::vector<RunArgument> arguments;
  // What follows them: from `least` to `most` of `rest`.
  RunArgument rest = {};
  size_t least = 0, most = 0;
  // What it changes, when it needs a --yes; and the values of its first argument for which it does,
  // "" for all.
  const char* changes = nullptr;
  const char* changes_for = "";
  std::vector<Excuse> excuses = {};
};

const std::vector<RunCommand>& run_commands();

// The command that the words behind "run" name. Null with a problem when they name none, or when
// tovi would not take them as they are meant.
const RunCommand* find_run_command(const std::vector<std::string>& words, std::string& problem);

// What it changes that needs a --yes, or null.
const char* needs_yes(const RunCommand& command, const std::vector<std::string>& words);

}  // namespace ctl
