// The diag twin: what the modem answers on its diag port.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sim {

class Modem;

// What the modem says when it has got one command, to every client of the port, without framing:
// something that it logs, an answer to somebody else, and the answer. A command that is not known
// is answered with 0x13 and itself, one of a wrong length with 0x15 and itself.
std::vector<std::string> diag_packets(const Modem& modem, std::span<const uint8_t> command);

}  // namespace sim
