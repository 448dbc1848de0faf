#include "sim_at.h"

#include <strings.h>

#include "modem.h"
#include "state_files.h"

namespace sim {
namespace {

std::string nothing(const Modem&) {
  return "";
}

std::string identity(const Modem&) {
  return "tovi simulated modem";
}

std::string signal_quality(const Modem&) {
  return "+CSQ: 24,99";
}

// NV item 550: a length byte, then one digit a nibble, low nibble first; the first nibble says what
// kind of identity it is.
std::string imei(const Modem& modem) {
  const std::string item = modem.nv_read(0, 550).value_or("");
  std::string digits;
  for (size_t i = 1; i < item.size(); ++i) {
    const auto byte = static_cast<unsigned char>(item[i]);
    if (i > 1) digits += static_cast<char>('0' + (byte & 15));
    digits += static_cast<char>('0' + (byte >> 4));
  }
  return digits;
}

std::string network(const Modem&) {
  return "+COPS: 0,0,\"TEST 1\",7";
}

std::string pin(const Modem& modem) {
  return modem.slot(1).answers() ? "+CPIN: READY" : "";
}

struct Command {
  const char* name;
  std::string (*text)(const Modem& modem);
  bool needs_text;  // without it the command fails
};
constexpr Command kCommands[] = {
    {"AT", nothing, false},  {"ATI", identity, true},     {"AT+CSQ", signal_quality, true},
    {"AT+CGSN", imei, true}, {"AT+COPS?", network, true}, {"AT+CPIN?", pin, true},
};

}  // namespace

std::string at_answer(const Modem& modem, std::string_view line) {
  const std::string command(state_files::trim(line));
  if (command.empty()) return "";
  for (const Command& known : kCommands) {
    if (strcasecmp(known.name, command.c_str()) != 0) continue;
    const std::string text = known.text(modem);
    if (text.empty() && known.needs_text) break;
    return (text.empty() ? "" : "\r\n" + text + "\r\n") + "\r\nOK\r\n";
  }
  return "\r\nERROR\r\n";
}

}  // namespace sim
