// A card as its reader sees it: command APDUs in, response APDUs out.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "modem.h"

namespace sim {

// The applications of the simulated cards: a removable SIM has the first, the eUICC the second.
inline constexpr std::array<uint8_t, 7> kUsimAid = {0xA0, 0x00, 0x00, 0x00, 0x87, 0x10, 0x02};
inline constexpr std::array<uint8_t, 16> kIsdRAid = {
    0xA0, 0x00, 0x00, 0x05, 0x59, 0x10, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x89, 0x00, 0x00, 0x01, 0x00};

// What follows a successful SELECT of `aid`: the file control information; empty when the card
// has no such application.
std::vector<uint8_t> select_application(Card card, std::span<const uint8_t> aid);

// The answer to one command, status words included. `isd_r` is whether the eUICC's root application
// is selected on the command's channel; a SELECT changes it.
std::vector<uint8_t> card_answer(Modem& modem, Card card, bool& isd_r,
                                 std::span<const uint8_t> apdu);

}  // namespace sim
