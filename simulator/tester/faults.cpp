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
  const char* value_name = "";
};
constexpr ActionWord kActionWords[] = {
    {"drop", Action::Drop, Value::None},
    {"delay", Action::Delay, Value::Decimal, ":MS"},
    {"error", Action::Error, Value::AnyBase, ":CODE"},
    {"short", Action::Short, Value::Decimal, ":N"},
    {"garbage", Action::Garbage, Value::None},
    {"twice", Action::Twice, Value::None},
    {"ind-first", Action::IndFirst, Value::None},
    {"ind-delay", Action::IndDelay, Value::Decimal, ":MS"},
    {"ind-twice", Action::IndTwice, Value::None},
    {"ind-other", Action::IndOther, Value::AnyBase, ":ID"},
    {"no-ind", Action::NoInd, Value::None},
    {"down", Action::Down, Value::Optional, "[:MS]"},
    {"restart", Action::Restart, Value::Optional, "[:MS]"},
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

std::string quoted(std::string_view word) {
  return std::string("'").append(word).append("'");
}

std::optional<Fault> parse_action(std::string_view text, std::string& problem) {
  const bool has_value = text.find(':') != std::string_view::npos;
  const std::string_view word = take_until(text, ':');
  for (const ActionWord& known : kActionWords) {
    if (known.word != word) continue;
    const std::string form = std::string(word) + known.value_name;
    if (!has_value) {
      if (known.value == Value::None || known.value == Value::Optional) {
        return Fault{known.action, std::nullopt};
      }
      problem = quoted(word) + " needs a value: " + form;
      return std::nullopt;
    }
    if (known.value == Value::None) {
      problem = quoted(word) + " takes no value";
      return std::nullopt;
    }
    const bool hex = known.value == Value::AnyBase && has_hex_prefix(text);
    const auto value = number(text, hex ? 16 : 10);
    if (value) return Fault{known.action, value};
    problem = quoted(text) + " is no number: " + form;
    return std::nullopt;
  }
  problem = quoted(word) + " is no action; tovi-modem --help names them";
  return std::nullopt;
}

}  // namespace

std::optional<Faults::Rule> Faults::parse_rule(std::string_view text, std::string& problem) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    problem = "it has no =";
    return std::nullopt;
  }
  std::string_view which = text.substr(0, equals);
  std::string_view kind = take_until(which, '#');
  const bool numbered = kind.size() < equals;
  const auto nth = numbered ? number(which, 10) : 0;
  const bool one_message = kind.find('/') != std::string_view::npos;
  const std::string_view service_word = take_until(kind, '/');
  const auto service = number(service_word, 16);
  const auto message = one_message ? number(kind, 16) : 0;
  if (!service) {
    problem = quoted(service_word) + " is no service in hexadecimal";
  } else if (!message || *message > UINT16_MAX) {
    problem = quoted(kind) + " is no message in hexadecimal, ffff at most";
  } else if (!nth || (numbered && *nth == 0)) {
    problem = quoted(which) + " behind # is no decimal number above 0";
  } else if (const auto fault = parse_action(text.substr(equals + 1), problem)) {
    Rule rule{.service = *service, .message = std::nullopt, .which = *nth, .fault = *fault};
    if (one_message) rule.message = static_cast<uint16_t>(*message);
    return rule;
  }
  return std::nullopt;
}

std::optional<Faults> Faults::parse(std::string_view rules, std::string& problem) {
  Faults faults;
  while (!rules.empty()) {
    const std::string_view text = take_until(rules, ';');
    if (text.empty()) continue;
    std::string why;
    const auto rule = parse_rule(text, why);
    if (!rule) {
      problem = "the fault rule " + quoted(text) + " cannot be read: " + why;
      return std::nullopt;
    }
    faults.rules_.push_back(*rule);
  }
  return faults;
}

std::vector<std::string> Faults::actions() {
  std::vector<std::string> all;
  for (const ActionWord& known : kActionWords) {
    all.push_back(std::string(known.word) + known.value_name);
  }
  return all;
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
