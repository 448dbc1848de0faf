// A process that clears up behind this one, however that ends: it has a folder for what is not to
// stay, and removes it when nobody is left at the other end of a pipe.
#pragma once

#include <sys/types.h>

#include <string>

#include "descriptor.h"

namespace program {

class Caretaker {
 public:
  // Makes the folder. `state`, unless empty, is a state folder that stays, but for the ports that a
  // killed modem leaves in it. To be called before there are threads. False, with `problem` in
  // words, when that fails.
  bool start(const std::string& state, std::string& problem);
  ~Caretaker();

  const std::string& folder() const { return folder_; }

 private:
  [[noreturn]] static void take_care(const qmi::Descriptor& alive, const std::string& state);

  std::string folder_;
  pid_t pid_ = -1;
  qmi::Descriptor alive_;  // closed by whatever ends this process
};

}  // namespace program
