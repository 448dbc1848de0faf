#include "verdict.h"

#include <utility>

namespace ctl {
namespace {

// clang-format off
constexpr struct { const char* word; const char* meaning; int badness; } kWords[kStatuses] = {
  { "ok",              "done",                                                              0 },
  { "refused",         "the modem refused; its code and the code's name follow",            2 },
  { "usage",           "wrong arguments, or a local file that cannot be read or written",   9 },
  { "unreachable",     "no modem there: no kernel QRTR, no permission, no socket",          7 },
  { "no such service", "the modem is there, but not the service that is needed",            6 },
  { "no answer",       "no answer, or no outcome, in time",                                 5 },
  { "malformed",       "an answer that is malformed or too short",                          4 },
  { "differs",         "modem and files differ, or what was written reads back otherwise",  1 },
  { "needs --yes",     "deletes, switches, restarts or changes a configuration: say --yes", 8 },
  { "busy",            "another tovictl is changing this modem; --wait waits for it",       8 },
};
// clang-format on

int badness(const Verdict& verdict) {
  return kWords[static_cast<int>(verdict.status)].badness;
}

}  // namespace

const char* status_word(Status status) {
  return kWords[static_cast<int>(status)].word;
}

const char* status_meaning(Status status) {
  return kWords[static_cast<int>(status)].meaning;
}

std::string Verdict::text() const {
  return cause.empty() ? status_word(status) : status_word(status) + (": " + cause);
}

Verdict worse(Verdict first, Verdict second) {
  return badness(second) > badness(first) ? std::move(second) : std::move(first);
}

}  // namespace ctl
