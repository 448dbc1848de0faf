#include <errno.h>

#include "environment.h"
#include "machine.h"

const char* const machine::kModem = "sim";
const bool machine::kScalesTime = true;

// Without a folder there is no device: this machine's own /dev is none.
std::string machine::device_root() {
  const std::string* state = environment::state_folder();
  return state != nullptr ? *state + "/device" : "/nonexistent";
}

int machine::connect_diag_router(int) {
  return ECONNREFUSED;
}
