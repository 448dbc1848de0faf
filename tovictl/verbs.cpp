#include "verbs.h"

namespace ctl {
namespace {

// clang-format off
constexpr Verb kVerbs[] = {
  { "run", "run a command of tovi and tell whether it worked",
    "Its bytes go to standard output, the verdict to standard error and into the exit status. What\n"
    "deletes, switches, restarts or changes a configuration needs --yes. Words for numbers and other\n"
    "arguments that tovi would misread are refused before anything is sent.",
    declare_run },
  { "get", "read an NV item or a whole EFS file",
    "Hexadecimal on a terminal, the bytes themselves to a file or a pipe.",
    declare_get },
  { "put", "write an NV item or a whole EFS file",
    "It is read back and compared; then the modem is asked to commit.",
    declare_put },
  { "rm", "delete an NV item or an EFS file",
    "Needs --yes. What is absent already is said, and done.",
    declare_rm },
  { "save", "back up NV items and EFS files into a folder",
    "The folder is a state folder of the simulated modem: TOVI_STATE=DIR tovi answers out of it. A\n"
    "save that was interrupted continues.",
    declare_save },
  { "diff", "compare the modem, or another backup, with a backup",
    "What differs is listed; the status is then 7.",
    declare_diff },
  { "restore", "make the modem hold what a backup holds",
    "Needs --yes. Only what differs is written, and read back; diff tells it beforehand.",
    declare_restore },
  { "watch", "show radio statistics as they change",
    "A restart of the modem is told and outlived. Ends with Ctrl-C, or after --count.",
    declare_watch },
  { "doctor", "find out what is wrong between here and the modem",
    "The last line names the cause. Nothing is changed; without --ask no service is asked anything.",
    declare_doctor },
};
// clang-format on

}  // namespace

std::span<const Verb> verbs() {
  return kVerbs;
}

}  // namespace ctl
