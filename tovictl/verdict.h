// What became of a call, as the exit status says it.
#pragma once

#include <string>

namespace ctl {

// The exit statuses. They are relied on by scripts: none ever changes its meaning.
enum class Status : int {
  Ok = 0,
  Refused = 1,      // the modem said no
  Usage = 2,        // wrong arguments, or a file of this machine that cannot be read or written
  Unreachable = 3,  // no modem where TOVI_MODEM says
  NoService = 4,
  NoAnswer = 5,   // or no outcome in time
  Malformed = 6,  // an answer that cannot be read, or too short a one
  Differs = 7,
  NeedsYes = 8,
  Busy = 9,  // another tovictl is changing this modem
};

inline constexpr int kStatuses = 10;

// A status in a word or two, and what it means in one line.
const char* status_word(Status status);
const char* status_meaning(Status status);

struct Verdict {
  Status status = Status::Ok;
  std::string cause;  // in words; of Ok usually empty

  bool ok() const { return status == Status::Ok; }
  // "refused: 5 (not active)"
  std::string text() const;
};

// The worse of two, the first of two that are equal: a modem that is not there tells more than an
// answer that cannot be read, and that more than a refusal.
Verdict worse(Verdict first, Verdict second);

}  // namespace ctl
