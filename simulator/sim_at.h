// The AT twin: what the modem answers on its AT port.
#pragma once

#include <string>
#include <string_view>

namespace sim {

class Modem;

// The answer to one command line: an information text, if there is one, and the final OK or ERROR,
// each between line breaks. Nothing for a line without a command.
std::string at_answer(const Modem& modem, std::string_view line);

}  // namespace sim
