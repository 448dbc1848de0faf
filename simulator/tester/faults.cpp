#include "faults.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>

#include "environment.h"
#include "state_files.h"
#include "timing.h"

namespace sim {
namespace {

using Action = Fault::Action;

enum class Value { None, Optional, Decimal, Signed, AnyBase };

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
    {"result", Action::Result, Value::Signed, ":N"},
    {"len", Action::Len, Value::Decimal, ":N"},
    {"stray", Action::Stray, Value::None},
    {"short", Action::Short, Value::Decimal, ":N"},
    {"garbage", Action::Garbage, Value::None},
    {"twice", Action::Twice, Value::None},
    {"ind-first", Action::IndFirst, Value::None},
    {"ind-delay", Action::IndDelay, Value::Decimal, ":MS"},
    {"ind-twice", Action::IndTwice, Value::None},
    {"ind-other", Action::IndOther, Value::AnyBase, ":ID"},
    {"no-ind", Action::NoInd, Value::None},
    {"absent", Action::Absent, Value::Optional, "[:MS]"},
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
        return Fault{known.action, std::nullopt, ""};
      }
      problem = quoted(word) + " needs a value: " + form;
      return std::nullopt;
    }
    if (known.value == Value::None) {
      problem = quoted(word) + " takes no value";
      return std::nullopt;
    }
    const bool hex = known.value == Value::AnyBase && has_hex_prefix(text);
    const bool negative = known.value == Value::Signed && text.starts_with('-');
    auto value = number(text.substr(negative ? 1 : 0), hex ? 16 : 10);
    if (value && negative) value = -*value;
    if (value) return Fault{known.action, value, ""};
    problem = quoted(text) + " is no number: " + form;
    return std::nullopt;
  }
  problem = quoted(word) + " is no action; tovi-modem --help names them";
  return std::nullopt;
}

bool is_about_a_payload(Action action) {
  return action == Action::Result || action == Action::Len;
}

// Whether what is written in a file at `changed` may change once more without another time.
bool is_fresh(const timespec& changed) {
  constexpr long kCoarse = 20'000'000;  // no clock of a file system is as coarse
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return (now.tv_sec - changed.tv_sec) * 1'000'000'000 + now.tv_nsec - changed.tv_nsec < kCoarse;
}

}  // namespace

std::optional<Faults::Rule> Faults::parse_rule(std::string_view text, std::string& problem) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    problem = "it has no =";
    return std::nullopt;
  }
  std::string_view which = text.substr(0, equals);
  std::string_view message_word = take_until(which, '#');
  const bool numbered = message_word.size() < equals;
  const bool one_message = message_word.find('/') != std::string_view::npos;
  const std::string_view service_word = take_until(message_word, '/');
  const auto nth = numbered ? number(which, 10) : 0;

  const qmi_idl_service_object* known = service_named(service_word);
  const auto service = known != nullptr ? known->service_id : number(service_word, 16);
  if (!service) {
    problem = quoted(service_word) + " is no service, by name or in hexadecimal";
    return std::nullopt;
  }
  if (known == nullptr) known = service_of(*service);
  Rule rule{.service = *service, .message = std::nullopt, .operation = "", .fault = {}};
  if (one_message && known != nullptr) rule.operation = operation_named(*known, message_word);
  if (one_message && rule.operation.empty()) {
    const qmi::Message* named = known != nullptr ? request_named(*known, message_word) : nullptr;
    const auto message = named != nullptr ? named->id : number(message_word, 16);
    if (!message || *message > UINT16_MAX) {
      problem = quoted(message_word) +
                " is no message of the service, by name or in hexadecimal, nor an operation";
      return std::nullopt;
    }
    rule.message = static_cast<uint16_t>(*message);
  }
  if (!nth || (numbered && *nth == 0)) {
    problem = quoted(which) + " behind # is no decimal number above 0";
    return std::nullopt;
  }
  rule.which = *nth;
  const auto fault = parse_action(text.substr(equals + 1), problem);
  if (!fault) return std::nullopt;
  rule.fault = *fault;
  rule.fault.rule = text;
  if (fault->action == Action::Absent && (one_message || numbered)) {
    problem = "'absent' is about a whole service";
    return std::nullopt;
  }
  if (is_about_a_payload(fault->action) && !has_payloads(*service)) {
    problem = "only the extension service has a payload for that";
    return std::nullopt;
  }
  return rule;
}

// Of a rule a line, or with ; between; a line that begins with # is a comment.
std::optional<Faults::Rules> Faults::parse_rules(std::string_view text, std::string& problem) {
  Rules rules;
  while (!text.empty()) {
    std::string_view line = take_until(text, '\n');
    if (state_files::trim(line).starts_with('#')) continue;
    while (!line.empty()) {
      const std::string_view words = state_files::trim(take_until(line, ';'));
      if (words.empty()) continue;
      std::string why;
      const auto rule = parse_rule(words, why);
      if (!rule) {
        problem = "the fault rule " + quoted(words) + " cannot be read: " + why;
        return std::nullopt;
      }
      rules.push_back(*rule);
    }
  }
  return rules;
}

std::optional<Faults> Faults::parse(std::string_view rules, std::string& problem) {
  auto given = parse_rules(rules, problem);
  if (!given) return std::nullopt;
  Faults faults;
  faults.given_ = std::move(*given);
  return faults;
}

bool Faults::follow(std::string path, std::string& problem) {
  path_ = std::move(path);
  problem = problem_ = read_file();
  return problem.empty();
}

// Reads the file if it has changed. What is wrong with it, in words, or "".
std::string Faults::read_file() {
  struct stat status {};
  if (stat(path_.c_str(), &status) != 0) {
    look_.reset();
    text_.clear();
    in_file_.clear();
    return state_files::means_absent(errno) ? "" : path_ + ": " + strerror(errno);
  }
  const Look look{status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  if (look == look_) return problem_;
  look_.reset();
  const auto text = state_files::read(path_);
  if (!text) {
    text_.clear();
    in_file_.clear();
    return path_ + ": " + strerror(errno);
  }
  if (!is_fresh(status.st_mtim)) look_ = look;
  if (*text == text_) return problem_;
  text_ = *text;
  std::string problem;
  in_file_ = parse_rules(text_, problem).value_or(Rules());
  return problem.empty() ? "" : path_ + ": " + problem;
}

void Faults::look_again() {
  if (path_.empty()) return;
  std::string problem = read_file();
  if (problem == problem_) return;
  problem_ = std::move(problem);
  if (!problem_.empty()) environment::complain("%s", problem_.c_str());
}

std::vector<std::string> Faults::actions() {
  std::vector<std::string> all;
  for (const ActionWord& known : kActionWords) {
    all.push_back(std::string(known.word) + known.value_name);
  }
  return all;
}

bool Faults::Rule::matches(const Asked& asked) const {
  return fault.action != Action::Absent && service == asked.service.service_id &&
         (!message || *message == asked.message) &&
         (operation.empty() || operation == asked.operation);
}

const Fault* Faults::meet(const Asked& asked) {
  look_again();
  const Fault* met = nullptr;
  for (Rules* rules : {&in_file_, &given_}) {
    for (Rule& rule : *rules) {
      if (!rule.matches(asked)) continue;
      ++rule.met;
      if (met == nullptr && (rule.which == 0 || rule.which == rule.met)) met = &rule.fault;
    }
  }
  return met;
}

const Fault* Faults::absence(uint32_t service) {
  look_again();
  for (const Rules* rules : {&in_file_, &given_}) {
    for (const Rule& rule : *rules) {
      if (rule.fault.action == Action::Absent && rule.service == service) return &rule.fault;
    }
  }
  return nullptr;
}

}  // namespace sim
