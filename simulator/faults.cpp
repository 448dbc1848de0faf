#include "faults.h"

#include <charconv>

namespace sim {
namespace {

using Action = Fault::Action;

enum class Value { None, Optional, Decimal, AnyBase };

struct ActionWord {
  std::string_view word;
  Action action;
  Value value;
};
constexpr ActionWord kActionWords[] = {
    {"drop", Action::Drop, Value::None},           {"delay", Action::Delay, Value::Decimal},
    {"error", Action::Error, Value::AnyBase},      {"short", Action::Short, Value::Decimal},
    {"garbage", Action::Garbage, Value::None},     {"twice", Action::Twice, Value::None},
    {"ind-first", Action::IndFirst, Value::None},  {"ind-delay", Action::IndDelay, Value::Decimal},
    {"ind-twice", Action::IndTwice, Value::None},  {"ind-other", Action::IndOther, Value::AnyBase},
    {"no-ind", Action::NoInd, Value::None},        {"down", Action::Down, Value::Optional},
    {"restart", Action::Restart, Value::Optional},
};

bool has_hex_prefix(std::string_view text) {
  return text.starts_with("0x") || text.starts_with("0X");
}

std::optional<uint32_t> number(std::string_view text, int base) {
  if (base == 16 && has_hex_prefix(text)) text.remove_prefix(2);
  uint32_t value;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// What stands before `mark`, which is taken off `text` with it; all of it when there is no mark.
std::string_view take_until(std::string_view& text, char mark) {
  const size_t end = text.find(mark);
  const std::string_view head = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return head;
}

std::optional<Fault> parse_action(std::string_view text) {
  const bool has_value = text.find(':') != std::string_view::npos;
  const std::string_view word = take_until(text, ':');
  for (const ActionWord& known : kActionWords) {
    if (known.word != word) continue;
    if (!has_value) {
      if (known.value == Value::Decimal || known.value == Value::AnyBase) return std::nullopt;
      return Fault{known.action, std::nullopt};
    }
    if (known.value == Value::None) return std::nullopt;
    const bool hex = known.value == Value::AnyBase && has_hex_prefix(text);
    const auto value = number(text, hex ? 16 : 10);
    if (!value) return std::nullopt;
    return Fault{known.action, value};
  }
  return std::nullopt;
}

}  // namespace

std::optional<Faults::Rule> Faults::parse_rule(std::string_view text) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  std::string_view which = text.substr(0, equals);
  const auto fault = parse_action(text.substr(equals + 1));
  std::string_view kind = take_until(which, '#');
  const bool numbered = kind.size() < equals;
  const auto nth = numbered ? number(which, 10) : 0;
  const bool one_message = kind.find('/') != std::string_view::npos;
  const auto service = number(take_until(kind, '/'), 16);
  const auto message = one_message ? number(kind, 16) : 0;
  if (!fault || !service || !nth || (numbered && *nth == 0)) return std::nullopt;
  if (!message || *message > UINT16_MAX) return std::nullopt;
  Rule rule{.service = *service, .message = std::nullopt, .which = *nth, .fault = *fault};
  if (one_message) rule.message = static_cast<uint16_t>(*message);
  return rule;
}

std::optional<Faults> Faults::parse(std::string_view rules, std::string& problem) {
  Faults faults;
  while (!rules.empty()) {
    const std::string_view text = take_until(rules, ';');
    if (text.empty()) continue;
    const auto rule = parse_rule(text);
    if (!rule) {
      problem = "the fault rule '" + std::string(text) + "' cannot be read";
      return std::nullopt;
    }
    faults.rules_.push_back(*rule);
  }
  return faults;
}

const Fault* Faults::meet(uint32_t service, uint16_t message) {
  const Fault* met = nullptr;
  for (Rule& rule : rules_) {
    if (rule.service != service || (rule.message && *rule.message != message)) continue;
    ++rule.met;
    if (met == nullptr && (rule.which == 0 || rule.which == rule.met)) met = &rule.fault;
  }
  return met;
}

}  // namespace sim
