// Hostile bytes for the unpacker of diagnostic statistics records: whole records, and its steps one
// by one.
#include "fuzz.h"
#include "velmor_tovi_skarn_unpk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  // Of a known version: others only cost a line of output.
  constexpr uint32_t kVersions[] = {4, 0x30000, 0x30001, 0x30002};
  const uint32_t version = kVersions[input.byte() % std::size(kVersions)];
  const int limit = std::min<int>(input.byte() * 8, kUnpkDataMax);
  int numbers[3][2];
  for (auto& [pos, width] : numbers) {
    pos = input.byte() * 64 + input.byte();
    width = static_cast<int8_t>(input.byte());
  }
  const auto bytes = input.rest();
  const std::unique_ptr<uint8_t[]> payload(new uint8_t[kUnpkBufBytes]());
  std::copy_n(bytes.begin(), std::min<size_t>(bytes.size(), kUnpkDataMax), payload.get());

  Unpacker unpacker(payload.get(), limit, false);
  uint64_t value = 0;
  for (const auto& [pos, width] : numbers) {
    if ((width & 1) != 0) {
      unpacker.move_base(pos);
    } else if ((width & 2) != 0) {
      unpacker.read("f", (width & 4) != 0 ? 4 : 8, value);
    }
    const int at = (width & 64) != 0 ? pos : -pos;
    if (!unpacker.go_to("f", at, width) || !unpacker.extract("f", at, width, value)) continue;
    fuzz::require(width >= 64 || value >> width == 0);
  }

  memcpy(payload.get(), &version, sizeof version);
  modem_stats_single_data_common_type record;
  if (!velmor_unpack_record(payload.get(), (numbers[0][0] & 64) != 0, record)) return 0;
  for (const UnpkValue& field : velmor_unpacked_values(record)) {
    fuzz::require(field.width == 64 || field.value >> field.width == 0);
  }
  return 0;
}
