// The modules of the command line, as one table that the dispatch and the help both walk, and what
// every module shares: its help lines, the checks of its arguments.
#pragma once

#include <span>

#include "utilities/velmor_log.h"

// A line of help: a printf format with at most two %d, and their values.
struct HelpLine {
  const char* format;
  int values[2];
};

// One module. `enter` gets the process's arguments unchanged; `tovi` does not look at its result,
// which is 0 unless a command of module 10 has failed.
// `show_help` prints the module's section when its argument is 0 or the module's number.
struct TestModule {
  int number;
  int (*enter)(int argc, char** argv);  // null: "Not support"
  void (*show_help)(int module);        // null: no help
};

// In the order of the help.
std::span<const TestModule> velmor_test_modules();

// Prints the help of every module (0) or of one between two banners, while the echo is on.
void show_help(int module);

// Prints `lines` while the echo is on, if `asked` is 0 or `own`.
void velmor_show_help_lines(int asked, int own, std::span<const HelpLine> lines);

// The checks every module begins with: at least `least` arguments, argv[1] its own number `module`.
// When one fails, says so with the module's help and gives false.
bool velmor_check_module_args(int argc, char** argv, int module, int least,
                              Speaker speaker = Speaker::here());

// A command of a module, by its number on the command line.
struct TestCommand {
  int number;
  int (*run)(int argc, char** argv);  // 0, or a code that is noted with the module's help
};

// What most modules do: checks the arguments, the module number before a missing command, and runs
// the command that argv[2] names. Says what is wrong, with the module's help. Always 0.
int velmor_run_test_command(int argc, char** argv, int module,
                            std::span<const TestCommand> commands,
                            Speaker speaker = Speaker::here());

// Logs each byte as a message of its own, then an empty message.
void velmor_log_bytes(std::span<const unsigned char> bytes, Speaker speaker = Speaker::here());

// How a command fared at what it reaches past QMI: the diag and AT ports, properties, local files.
// `tovi` prints what it has to say of that; this is for callers in the same process. Set by the
// modules, on the thread of the command.
struct TestOutcome {
  enum Kind { Done, NoPort, NoAnswer, Refused, LocalFailure } kind = Done;
  const char* what = "";  // a port, a property, a file
  int code = 0;           // of a refusal
};
extern TestOutcome g_velmor_test_outcome;

// Notes a refusal: the text, then the module's help.
void velmor_refuse_command(int module, Speaker speaker = Speaker::here());
