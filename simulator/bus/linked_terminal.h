// A raw pseudo-terminal with a link to it: a character device for whoever opens the link, whose
// other end is the modem's.
#pragma once

#include <string>

#include "descriptor.h"

namespace sim {

class LinkedTerminal {
 public:
  LinkedTerminal() = default;
  ~LinkedTerminal();  // removes the link, unless it leads elsewhere by now
  LinkedTerminal(const LinkedTerminal&) = delete;
  LinkedTerminal& operator=(const LinkedTerminal&) = delete;

  // Makes it, and the link in place of one that is there. False, with `problem` in words, when that
  // fails.
  bool open(const std::string& link, std::string& problem);

  // The modem's end, which does not block; -1 unless it was opened.
  int descriptor() const { return modem_end_.get(); }

  // Drops what the modem has written and nobody has read.
  void drop_unread();

 private:
  std::string link_;
  std::string name_;
  qmi::Descriptor modem_end_;
  qmi::Descriptor tty_;  // the other end, held so that it outlives its users
};

}  // namespace sim
