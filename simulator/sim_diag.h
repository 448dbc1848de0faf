// The diag twin: what the modem answers on its diag port.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace sim {

class Modem;

// The answer to one command, without framing. A command that is not known is answered with 0x13
// and itself, one of a wrong length with 0x15 and itself.
std::string diag_answer(const Modem& modem, std::span<const uint8_t> command);

}  // namespace sim
