#include "run_commands.h"

#include <limits.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "velmor_extend_nvefs.h"
#include "velmor_tovi_skarn_data.h"

namespace ctl {
namespace {

using Form = RunArgument::Form;

// clang-format off

const RunArgument kSub      = {"sub", Form::Decimal, 0, 1};
const RunArgument kSwitch   = {"opt", Form::Decimal, 0, 1};
const RunArgument kMask     = {"sub_mask", Form::Decimal, 1, 3};
const RunArgument kItem     = {"nv_id", Form::Decimal, 0, kNvIdMax};
const RunArgument kPath     = {"path", Form::Path, 1, 70};
const RunArgument kReadPath = {"path", Form::Path, 1, 71};
const RunArgument kByte     = {"byte", Form::Decimal, 0, 255};
const RunArgument kAnyByte  = {"byte", Form::AnyNumber, 0, 255};
const RunArgument kInt      = {"number", Form::Decimal, 0, INT_MAX};

constexpr const char* kReadEid  = "efs_read /nv/item_files/modem/uim/uimdrv/esim_eid";
constexpr const char* kReadDump = "efs_read /nv/item_files/modem/velmor/ssr_update_count";

const std::vector<RunCommand>& table() {
  static const auto* const commands = new std::vector<RunCommand>{
    {3, 0, {}, kInt, 0, 50},
    {3, 1, {}},
    {3, 2, {}, {}, 0, 0, "delete the GPIO setting"},
    {3, 3, {{"v_ant", Form::Decimal, 0, 1}, {"v_sys", Form::Decimal, 0, 4}, {"v_band_list", Form::AnyNumber, 0, UINT64_MAX}}},
    {3, 4, {}},
    {3, 5, {}, {}, 0, 0, "delete the TX setting"},

    {4, 1, {kSub, kItem}},
    {4, 2, {kSub, kItem}, kByte, 1, 365},
    {4, 3, {kSub, kItem}, {}, 0, 0, "delete the NV item"},
    {4, 4, {kSub, kReadPath}},
    {4, 5, {kSub, kPath}, kByte, 1, 365},
    {4, 6, {kSub, kPath}, {}, 0, 0, "delete the EFS file"},

    {5, 0, {{"mode", Form::Decimal, 0, 1}, {"type", Form::Decimal, 0, 1}, {"time_out", Form::Decimal, 0, INT_MAX}}, kAnyByte, 1, 4096},
    {5, 1, {}},
    {5, 2, {kSub}},
    {5, 3, {kSub, {"mode", Form::Decimal, 0, 1}, {"set_val", Form::Decimal, 0, 1}}, {}, 0, 0, "switch the card"},
    {5, 4, {}},
    {5, 5, {}},
    {5, 6, {kSwitch}, kInt, 0, 3, "push and pull the card", "1"},
    {5, 10, {{"esim_on", Form::Decimal, 1, 5}, {"debug_on", Form::Decimal, 0, 1}}, {}, 0, 0,
     "switch slot 2, or delete the profiles of the eUICC", "125",
     {{"get_eid", Excuse::LaterSucceeds, "a card needs its time after it was powered up"},
      {kReadEid, Excuse::Absent, "no EID is stored yet: it is stored now"}}},

    {6, -1, {{"qmi_id", Form::Decimal, 0, 5}}, kAnyByte, 1, 500},

    {7, 0, {kInt}},
    {7, 1, {kInt}},

    {8, -1, {{"at command", Form::AtCommand, 1, 100}}},

    {9, -1, {{"statistic", Form::Decimal, 0, 30}, kSub}},

    {10, 0, {kMask}, {}, 0, 0, "refresh the configuration"},
    {10, 1, {kMask}, {}, 0, 0, "deactivate and activate the configuration"},

    {11, 0, {}, {}, 0, 0, "restart the modem"},
    {11, 1, {}, {}, 0, 0, "dump the modem's memory and end it", "",
     {{kReadDump, Excuse::Absent, "no dump was triggered before"}}},
    {11, 2, {}},
    {11, 3, {kSwitch}},
    {11, 4, {kSwitch}, {}, 0, 0, "switch the modem's printing and restart it"},
    {11, 5, {kSwitch}, {}, 0, 0, "switch the modem's printing and restart it"},
    {11, 6, {kSwitch}, {}, 0, 0, "switch the modem's printing and restart it"},
    {11, 7, {}},
    {11, 8, {kInt}},

    {12, 0, {}},
    {12, 1, {}},
  };
  return *commands;
}

// clang-format on

bool read_number(std::string_view text, Form form, uint64_t& number) {
  int base = 10;
  if (form == Form::AnyNumber && (text.starts_with("0x") || text.starts_with("0X"))) {
    text.remove_prefix(2);
    base = 16;
  }
  // One of the numbers is read as octal after a 0.
  if (base == 10 && text.size() > 1 && text[0] == '0') return false;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number, base);
  return error == std::errc() && rest == end;
}

// What is wrong with a word, or "".
std::string flaw_of(const std::string& word, const RunArgument& argument) {
  const std::string what = word + ": " + argument.name;
  if (argument.form == Form::Path || argument.form == Form::AtCommand) {
    if (word.size() < argument.min || word.size() > argument.max) {
      return what + " has 1 to " + std::to_string(argument.max) + " characters";
    }
    if (argument.form == Form::Path) return word[0] == '/' ? "" : what + " begins with /";
    // The command passes a shell, in double quotes, and ends at its first blank.
    const bool plain = std::all_of(word.begin(), word.end(), [](char c) {
      return c > ' ' && c < 0x7f && std::string_view("\"$`\\").find(c) == std::string_view::npos;
    });
    return plain ? "" : what + R"( has no blank and none of " $ ` \)";
  }
  uint64_t number = 0;
  if (!read_number(word, argument.form, number) || number < argument.min || number > argument.max) {
    return what + " is a " + (argument.form == Form::Decimal ? "decimal number" : "number") +
           " from " + std::to_string(argument.min) + " to " + std::to_string(argument.max);
  }
  return "";
}

std::string signature(const RunCommand& command) {
  std::string text = std::to_string(command.module);
  if (command.command >= 0) text += " " + std::to_string(command.command);
  for (const RunArgument& argument : command.arguments) text += std::string(" ") + argument.name;
  if (command.most > 0) text += std::string(" ") + command.rest.name + "...";
  return text;
}

bool is_statistic(const std::string& word) {
  const auto all = velmor_statistics();
  return std::any_of(all.begin(), all.end(), [&](const Statistic& statistic) {
    return std::to_string(statistic.opt) == word;
  });
}

std::string flaw_of(const std::vector<std::string>& words, const RunCommand& command) {
  const size_t first = command.command >= 0 ? 2 : 1;
  const size_t given = words.size() - first, fixed = command.arguments.size();
  if (given < fixed + command.least || given > fixed + command.most) {
    std::string flaw = "run " + signature(command) + ": " + std::to_string(given) + " arguments";
    if (command.most > 1) flaw += ", at most " + std::to_string(fixed + command.most);
    return flaw;
  }
  for (size_t i = 0; i < given; ++i) {
    const RunArgument& argument = i < fixed ? command.arguments[i] : command.rest;
    if (std::string flaw = flaw_of(words[first + i], argument); !flaw.empty()) return flaw;
  }
  if (command.module == 9 && !is_statistic(words[1])) return words[1] + ": no statistic";
  if (command.module == 9 && words[1] == "30" && words[2] != "0") {
    return "30 is of subscription 0 only";
  }
  // A start takes three numbers more, a stop none.
  if (command.module == 5 && command.command == 6 && given != (words[2] == "1" ? 4 : 1)) {
    return "run 5 6 0, or run 5 6 1 and three numbers";
  }
  return "";
}

}  // namespace

const std::vector<RunCommand>& run_commands() {
  return table();
}

const RunCommand* find_run_command(const std::vector<std::string>& words, std::string& problem) {
  bool known_module = false;
  for (const RunCommand& command : table()) {
    if (words.empty() || words[0] != std::to_string(command.module)) continue;
    known_module = true;
    if (command.command >= 0) {
      if (words.size() < 2 || words[1] != std::to_string(command.command)) continue;
    }
    problem = flaw_of(words, command);
    return problem.empty() ? &command : nullptr;
  }
  problem = known_module
                ? (words.size() < 2 ? "module " + words[0] + ": which command?"
                                    : words[1] + ": no command of module " + words[0])
                : (words.empty() ? std::string("which module?") : words[0] + ": no module");
  return nullptr;
}

const char* needs_yes(const RunCommand& command, const std::vector<std::string>& words) {
  if (command.changes == nullptr) return nullptr;
  const std::string_view values = command.changes_for;
  if (values.empty()) return command.changes;
  return words.size() > 2 && values.find(words[2]) != std::string_view::npos ? command.changes
                                                                             : nullptr;
}

}  // namespace ctl
