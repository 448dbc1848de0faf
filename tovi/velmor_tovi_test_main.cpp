// The program's entry: picks the module that the first argument names. The exit status is always
// 0; whether a command worked is visible only in what it printed.
#include <signal.h>
#include <stdio.h>

#include "standard_descriptors.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"

namespace {

const TestModule* find_module(int number) {
  for (const TestModule& module : velmor_test_modules()) {
    if (module.number == number) return &module;
  }
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  fill_standard_descriptors();
  // What was done is seen when it was done, through a pipe too; a reader that leaves early does
  // not end the work.
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  signal(SIGPIPE, SIG_IGN);
  // A caller that ignores the end of its children hands that on: how a program that this one runs
  // has ended would be lost.
  signal(SIGCHLD, SIG_DFL);

  const TestModule* module = argc >= 2 ? find_module(velmor_atoi(argv[1])) : nullptr;
  if (module == nullptr) {
    show_help(0);
  } else if (module->enter == nullptr) {
    VELMOR_LOG_DEBUG("Not support");
  } else {
    module->enter(argc, argv);
  }
  // Whoever would still print, a late callback, waits from here to the end of the process: what is
  // flushed at the exit is then neither torn nor printed twice.
  fflush(stdout);
  flockfile(stdout);
  return 0;
}
