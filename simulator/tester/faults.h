// The ways a simulated modem can misbehave, as a list of rules separated by `;`:
//
//   service[/message][#n]=action
//
// Service and message are names or hexadecimal, the message may be an operation of it as the trace
// names it; `#n` picks the n-th matching request, else all are meant; the first rule that matches a
// request wins. docs/simulator.md lists the actions.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "words.h"

namespace sim {

struct Fault {
  enum class Action {
    Drop,      // the response is lost
    Delay,     // the response comes `value` ms late
    Error,     // refused with the error `value`
    Result,    // refused by the modem behind the service, with the result `value` in the payload
    Len,       // the response claims `value` meaningful bytes
    Stray,     // the response has the transaction of another request
    Short,     // the response is cut to `value` bytes after the header
    Garbage,   // the response is random bytes of the same length after the header
    Twice,     // the response comes twice
    IndFirst,  // indications come before the response
    IndDelay,  // indications come `value` ms late
    IndTwice,
    IndOther,  // indications have the id `value`
    NoInd,
    Absent,   // the service is not there from the start, but `value` ms after it if given
    Down,     // the service goes away, for `value` ms if given
    Restart,  // all services go away, and come back on other ports after `value` ms
  };
  Action action;
  std::optional<uint32_t> value;
  std::string rule;  // as it was written
};

class Faults {
 public:
  Faults() = default;

  // Nothing, with `problem` in words, for a rule that cannot be read.
  static std::optional<Faults> parse(std::string_view rules, std::string& problem);

  // Puts the rules in the file `path` before the others, and from now on looks at it for each
  // request; a file that is not there has none. False, with `problem` in words, when it cannot be
  // read now. Later that is said on standard error, and there are no rules in it.
  bool follow(std::string path, std::string& problem);

  // The actions with the values they take, for a person: "drop", "delay:MS", "down[:MS]".
  static std::vector<std::string> actions();

  // What happens to the next request of this kind, or null. Counts the request.
  const Fault* meet(const Asked& asked);

  // The rule that keeps a service away from the start, or null.
  const Fault* absence(uint32_t service);

 private:
  struct Rule {
    uint32_t service;
    std::optional<uint16_t> message;
    std::string operation;  // or "": any
    uint32_t which = 0;     // 0: every one
    Fault fault;
    uint32_t met = 0;

    bool matches(const Asked& asked) const;
  };
  using Rules = std::vector<Rule>;

  // What a look at the file tells of it.
  struct Look {
    ino_t inode;
    off_t size;
    time_t seconds;
    long nanoseconds;
    bool operator==(const Look&) const = default;
  };

  static std::optional<Rule> parse_rule(std::string_view text, std::string& problem);
  static std::optional<Rules> parse_rules(std::string_view text, std::string& problem);
  std::string read_file();
  void look_again();

  Rules given_;
  Rules in_file_;
  std::string path_;
  std::optional<Look> look_;  // of the content below; nothing while it may change unseen
  std::string text_;
  std::string problem_;  // the last one that was said
};

}  // namespace sim
