// Prints the words of the shell completion: the help of every module, and the known EFS files.
#include <stdio.h>
#include <stdlib.h>

#include "velmor_efs_files.h"
#include "velmor_tovi_test_modules.h"

int main() {
  // The help is there whatever the settings of this machine say.
  setenv("TOVI_STATE", "/nonexistent", 1);
  puts("IFS= read -r -d '' _tovi_help <<'END'");
  for (const TestModule& module : velmor_test_modules()) {
    if (module.show_help != nullptr) module.show_help(module.number);
  }
  puts("END");
  puts("IFS= read -r -d '' _tovi_efs_files <<'END'");
  for (const velmor_efs_file& file : kKnownEfsFiles) printf("%s %s\n", file.path, file.help);
  puts("END");
  return 0;
}
