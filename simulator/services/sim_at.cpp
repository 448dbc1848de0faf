#include "sim_at.h"

#include <string.h>
#include <strings.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "modem.h"
#include "state_reader.h"

namespace sim {
namespace {

// NV item 550: a length byte, then one digit a nibble, low nibble first; the first nibble says what
// kind of identity it is.
std::string imei(const AtTwin& port) {
  const std::string item = port.modem.nv_read(0, 550).value_or("");
  std::string digits;
  for (size_t i = 1; i < item.size(); ++i) {
    const auto byte = static_cast<unsigned char>(item[i]);
    if (i > 1) digits += static_cast<char>('0' + (byte & 15));
    digits += static_cast<char>('0' + (byte >> 4));
  }
  return digits;
}

constexpr std::string_view kImei = "{imei}";

std::string framed(std::string_view text) {
  return text.empty() ? "" : "\r\n" + std::string(text) + "\r\n";
}

bool is_final(std::string_view text) {
  return text == "ERROR" || text.starts_with("+CME ERROR") || text.starts_with("+CMS ERROR");
}

// The lines of an answer, `|` between them, as they are sent; nothing when one has no value.
std::optional<std::string> said(const AtTwin& port, std::string_view lines) {
  std::string out;
  bool ended = false;
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('|'), lines.size());
    std::string line(state_files::trim(lines.substr(0, end)));
    lines.remove_prefix(std::min(end + 1, lines.size()));
    if (const size_t at = line.find(kImei); at != std::string::npos) {
      const std::string digits = imei(port);
      if (digits.empty()) return std::nullopt;
      line.replace(at, kImei.size(), digits);
    }
    out += framed(line);
    ended = is_final(line);
  }
  return ended ? out : out + framed("OK");
}

// Whether the words before an arrow are `command`, in any case, and what stands behind them, sim or
// no-sim, is so.
bool matches(const AtTwin& port, std::string_view words, const std::string& command) {
  for (const auto& [condition, wanted] : {std::pair(" no-sim", false), std::pair(" sim", true)}) {
    if (!words.ends_with(condition)) continue;
    words = state_files::trim(words.substr(0, words.size() - strlen(condition)));
    return matches(port, words, command) && port.modem.slot(1).answers() == wanted;
  }
  return words.size() == command.size() &&
         strncasecmp(words.data(), command.data(), words.size()) == 0;
}

// The answer of the file `at`, of which each line is a command, an arrow, an answer.
std::optional<std::string> answer_in_file(const AtTwin& port, const std::string& command) {
  constexpr std::string_view kArrow = "->";
  const std::string text = read_state(port.modem.folder() + "/at").value_or("");
  for (std::string_view rest = text; !rest.empty();) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = state_files::trim(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    const size_t arrow = line.find(kArrow);
    if (line.starts_with('#') || arrow == line.npos) continue;
    if (!matches(port, state_files::trim(line.substr(0, arrow)), command)) continue;
    return said(port, line.substr(arrow + kArrow.size()));
  }
  return std::nullopt;
}

std::string response(AtTwin& port, const std::string& command) {
  if (command.empty()) return "";
  for (const auto& [name, echo] : {std::pair("ATE0", false), std::pair("ATE1", true)}) {
    if (strcasecmp(name, command.c_str()) != 0) continue;
    port.echo = echo;
    return framed("OK");
  }
  try {
    return answer_in_file(port, command).value_or(framed("ERROR"));
  } catch (const StateError&) {
    return framed("ERROR");
  }
}

}  // namespace

std::string AtTwin::answer(std::string_view line) {
  if (line.starts_with('\n')) line.remove_prefix(1);  // of the line break before
  const std::string echoed = echo ? std::string(line) + "\r" : "";
  return echoed + response(*this, std::string(state_files::trim(line)));
}

}  // namespace sim
