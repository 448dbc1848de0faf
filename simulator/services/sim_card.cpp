#include "sim_card.h"

#include <algorithm>

namespace sim {
namespace {

using Bytes = std::vector<uint8_t>;

enum : uint16_t {
  kOk = 0x9000,
  kWrongLength = 0x6700,
  kWrongData = 0x6A80,
  kNoFile = 0x6A82,
  kWrongParameters = 0x6A86,
  kNoData = 0x6A88,
  kUnknownInstruction = 0x6D00,
  kUnknownClass = 0x6E00,
};

Bytes with_status(Bytes data, uint16_t status) {
  data.push_back(static_cast<uint8_t>(status >> 8));
  data.push_back(static_cast<uint8_t>(status & 0xFF));
  return data;
}

Bytes select(Card card, bool& isd_r, uint8_t p1, std::span<const uint8_t> aid) {
  if (p1 != 0x04) return with_status({}, kWrongParameters);
  Bytes information = select_application(card, aid);
  if (information.empty()) return with_status({}, kNoFile);
  isd_r = card == Card::Euicc;
  return with_status(std::move(information), kOk);
}

// EuiccMemoryReset: BF34, with the options as a bit string whose first bit means the operational
// profiles. Answers 0 when something was deleted, 1 when there was nothing to delete.
Bytes memory_reset(Modem& modem, std::span<const uint8_t> data) {
  constexpr uint8_t kHead[] = {0xBF, 0x34, 0x04, 0x82, 0x02, 0x05};
  if (data.size() != sizeof kHead + 1 || !std::equal(kHead, std::end(kHead), data.begin())) {
    return with_status({}, kWrongData);
  }
  const bool deletes_profiles = (data.back() & 0x80) != 0;
  const bool deleted = deletes_profiles && modem.reset_euicc();
  return with_status({0xBF, 0x34, 0x03, 0x80, 0x01, static_cast<uint8_t>(deleted ? 0 : 1)}, kOk);
}

Bytes store_data(Modem& modem, uint8_t p1, uint8_t p2, std::span<const uint8_t> data) {
  if (p1 != 0x91 || p2 != 0) return with_status({}, kWrongParameters);  // one block, the last
  if (data.size() >= 2 && data[0] == 0xBF && data[1] == 0x34) return memory_reset(modem, data);
  return with_status({}, kNoData);
}

}  // namespace

Bytes select_application(Card card, std::span<const uint8_t> aid) {
  const auto is = [&](std::span<const uint8_t> known) { return std::ranges::equal(aid, known); };
  if (!(card == Card::Sim && is(kUsimAid)) && !(card == Card::Euicc && is(kIsdRAid))) return {};
  const auto size = static_cast<uint8_t>(aid.size());
  Bytes information = {0x6F, static_cast<uint8_t>(size + 2), 0x84, size};
  information.resize(4u + size);
  std::copy(aid.begin(), aid.end(), information.begin() + 4);
  return information;
}

Bytes card_answer(Modem& modem, Card card, bool& isd_r, std::span<const uint8_t> apdu) {
  if (apdu.size() < 4) return with_status({}, kWrongLength);
  std::span<const uint8_t> data;
  if (apdu.size() > 5) {
    const size_t length = apdu[4];
    if (apdu.size() != 5 + length && apdu.size() != 6 + length) {  // the last: what to expect
      return with_status({}, kWrongLength);
    }
    data = apdu.subspan(5, length);
  }
  const auto class_without_channel = static_cast<uint8_t>(apdu[0] & ~0x03);
  const uint8_t instruction = apdu[1];
  if (class_without_channel == 0x00 && instruction == 0xA4) {
    return select(card, isd_r, apdu[2], data);
  }
  if (class_without_channel == 0x80 && instruction == 0xE2 && isd_r) {
    return store_data(modem, apdu[2], apdu[3], data);
  }
  const bool known_class = class_without_channel == 0x00 || class_without_channel == 0x80;
  return with_status({}, known_class ? kUnknownInstruction : kUnknownClass);
}

}  // namespace sim
