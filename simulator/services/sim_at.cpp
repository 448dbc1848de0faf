#include "sim_at.h"

#include <strings.h>

#include "modem.h"
#include "state_reader.h"

namespace sim {
namespace {

std::string nothing(AtTwin&) {
  return "";
}

std::string echo_off(AtTwin& port) {
  port.echo = false;
  return "";
}

std::string echo_on(AtTwin& port) {
  port.echo = true;
  return "";
}

std::string identity(AtTwin&) {
  return "tovi simulated modem";
}

std::string signal_quality(AtTwin&) {
  return "+CSQ: 24,99";
}

// NV item 550: a length byte, then one digit a nibble, low nibble first; the first nibble says what
// kind of identity it is.
std::string imei(AtTwin& port) {
  const std::string item = port.modem.nv_read(0, 550).value_or("");
  std::string digits;
  for (size_t i = 1; i < item.size(); ++i) {
    const auto byte = static_cast<unsigned char>(item[i]);
    if (i > 1) digits += static_cast<char>('0' + (byte & 15));
    digits += static_cast<char>('0' + (byte >> 4));
  }
  return digits;
}

// Without a SIM the modem is not registered and has chosen no operator.
bool has_network(AtTwin& port) {
  return port.modem.slot(1).answers();
}

std::string registration(AtTwin& port) {
  return has_network(port) ? "+CREG: 0,1" : "+CREG: 0,0";
}

std::string network(AtTwin& port) {
  return has_network(port) ? "+COPS: 0,0,\"TEST 1\",7" : "+COPS: 0";
}

std::string pin(AtTwin& port) {
  return port.modem.slot(1).answers() ? "+CPIN: READY" : "";
}

using Text = std::string (*)(AtTwin& port);
struct Command {
  const char* name;
  Text text;
  bool needs_text = false;  // without it the command fails
  Text unasked = nothing;   // what happens to be said before the answer
};
constexpr Command kCommands[] = {
    {"AT", nothing},
    {"ATE0", echo_off},
    {"ATE1", echo_on},
    {"ATI", identity},
    {"AT+CSQ", signal_quality},
    {"AT+CGSN", imei, true},
    {"AT+COPS?", network, true, registration},
    {"AT+CPIN?", pin, true},
};

std::string framed(const std::string& text) {
  return text.empty() ? "" : "\r\n" + text + "\r\n";
}

std::string response(AtTwin& port, const std::string& command) {
  if (command.empty()) return "";
  for (const Command& known : kCommands) {
    if (strcasecmp(known.name, command.c_str()) != 0) continue;
    try {
      const std::string text = known.text(port);
      if (text.empty() && known.needs_text) break;
      return framed(known.unasked(port)) + framed(text) + framed("OK");
    } catch (const StateError&) {
      break;
    }
  }
  return framed("ERROR");
}

}  // namespace

std::string AtTwin::answer(std::string_view line) {
  if (line.starts_with('\n')) line.remove_prefix(1);  // of the line break before
  const std::string echoed = echo ? std::string(line) + "\r" : "";
  return echoed + response(*this, std::string(state_files::trim(line)));
}

}  // namespace sim
