#include "sim_diag.h"

#include <algorithm>

#include "modem.h"
#include "state_reader.h"

namespace sim {
namespace {

enum : uint8_t {
  kVersion = 0x00,
  kBadCommand = 0x13,
  kBadLength = 0x15,
  kNvRead = 0x26,
  kExtendedBuildId = 0x7C,
};

constexpr char kNvFail = 4;
constexpr char kNvNotActive = 5;

using namespace std::string_literals;

std::string refused(uint8_t code, std::span<const uint8_t> command) {
  return static_cast<char>(code) + std::string(command.begin(), command.end());
}

// Times of compilation and release, the branch, then from station class to chip version.
std::string version(const Modem&, std::span<const uint8_t>) {
  return "\0"
         "Jan 01 202600:00:00"
         "Jan 01 202600:00:00"
         "TOVI.SIM"
         "\x2a\x06\xff\x01\x00\x00\x01\x01"s;
}

// Layout version, chip version, model, then the build and the model as text.
std::string extended_build_id(const Modem&, std::span<const uint8_t>) {
  return "\x7c\x02\x00\x00"
         "\x01\x00\x00\x00"
         "\x01\x00\x00\x00"
         "TOVI.SIM.1.0-00001\0"
         "Simulated modem\0"s;
}

constexpr size_t kNvValueBytes = 128;

// The command, the item's number, its value, a status: 0, or 5 for an item that is not active. A
// request may end after the number.
std::string nv_read(const Modem& modem, std::span<const uint8_t> command) {
  std::string answer(1 + 2 + kNvValueBytes + 2, '\0');
  if (command.size() < 3 || command.size() > answer.size()) return refused(kBadLength, command);
  std::copy(command.begin(), command.begin() + 3, answer.begin());
  try {
    const auto value = modem.nv_read(0, command[1] | uint32_t{command[2]} << 8);
    const std::string bytes = value.value_or("");
    std::copy_n(bytes.begin(), std::min(bytes.size(), kNvValueBytes), answer.begin() + 3);
    if (!value) answer[3 + kNvValueBytes] = kNvNotActive;
  } catch (const StateError&) {
    answer[3 + kNvValueBytes] = kNvFail;
  }
  return answer;
}

struct Command {
  uint8_t code;
  std::string (*answer)(const Modem& modem, std::span<const uint8_t> command);
};
constexpr Command kCommands[] = {
    {kVersion, version},
    {kNvRead, nv_read},
    {kExtendedBuildId, extended_build_id},
};

std::string answer(const Modem& modem, std::span<const uint8_t> command) {
  for (const Command& known : kCommands) {
    if (!command.empty() && command[0] == known.code) return known.answer(modem, command);
  }
  return refused(kBadCommand, command);
}

// A log packet without data: twice its length, which log it is, when it was made.
std::string log_packet() {
  return "\x10\x00\x0c\x00\x0c\x00\x01\x10\x00\x00\x00\x00\x00\x00\x00\x00"s;
}

// One that cannot be taken for the answer to `command`.
std::string answer_to_somebody_else(const Modem& modem, std::span<const uint8_t> command) {
  const bool asks_version = !command.empty() && command[0] == kVersion;
  return asks_version ? extended_build_id(modem, {}) : version(modem, {});
}

}  // namespace

std::vector<std::string> diag_packets(const Modem& modem, std::span<const uint8_t> command) {
  return {log_packet(), answer_to_somebody_else(modem, command), answer(modem, command)};
}

}  // namespace sim
