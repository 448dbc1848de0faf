// The ways a simulated modem can misbehave, as a list of rules separated by `;`:
//
//   service[/message][#n]=action
//
// Service and message are hexadecimal; `#n` picks the n-th matching request, else all are meant;
// the first rule that matches a request wins. docs/simulator.md lists the actions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct Fault {
  enum class Action {
    Drop,      // the response is lost
    Delay,     // the response comes `value` ms late
    Error,     // refused with the error `value`
    Short,     // the response is cut to `value` bytes after the header
    Garbage,   // the response is random bytes of the same length after the header
    Twice,     // the response comes twice
    IndFirst,  // indications come before the response
    IndDelay,  // indications come `value` ms late
    IndTwice,
    IndOther,  // indications have the id `value`
    NoInd,
    Down,     // the service goes away, for `value` ms if given
    Restart,  // all services go away, and come back on other ports after `value` ms
  };
  Action action;
  std::optional<uint32_t> value;
};

class Faults {
 public:
  Faults() = default;

  // Nothing, with `problem` in words, for a rule that cannot be read.
  static std::optional<Faults> parse(std::string_view rules, std::string& problem);

  // The actions with the values they take, for a person: "drop", "delay:MS", "down[:MS]".
  static std::vector<std::string> actions();

  // What happens to the next request of this kind, or null. Counts the request.
  const Fault* meet(uint32_t service, uint16_t message);

 private:
  struct Rule {
    uint32_t service;
    std::optional<uint16_t> message;
    uint32_t which = 0;  // 0: every one
    Fault fault;
    uint32_t met = 0;
  };
  static std::optional<Rule> parse_rule(std::string_view text, std::string& problem);

  std::vector<Rule> rules_;
};

}  // namespace sim
