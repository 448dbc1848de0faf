// The AT twin: what the modem answers on its AT port.
#pragma once

#include <string>
#include <string_view>

namespace sim {

class Modem;

struct AtTwin {
  explicit AtTwin(const Modem& modem) : modem(modem) {}

  // What the modem says to one command line. First the line's echo, while that is on; then, each
  // between line breaks, what it says unasked, an information text, and the final OK or ERROR.
  // Nothing but the echo for a line without a command.
  std::string answer(std::string_view line);

  const Modem& modem;
  bool echo = true;
};

}  // namespace sim
