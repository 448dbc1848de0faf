// The one encoder and the one decoder of QMI message bodies. Both walk the tables of
// qmi_message.h; a body is TLVs (type, 16-bit length, value), everything little-endian.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "qmi_message.h"

namespace qmi {

// Encodes the C structure at `c_struct` into `out`. The number of bytes written, or nothing when
// they do not fit, a count is above its bound, or a value is too wide for its place on the wire.
std::optional<size_t> encode(const Message& message, const void* c_struct, std::span<uint8_t> out);

// Decodes `body` into the C structure at `c_struct`, `message.c_bytes` long. Unknown TLVs are
// skipped. False, with the structure cleared, when a required TLV is missing or anything is
// malformed: a length or count that does not fit, bytes left over inside a known TLV.
bool decode(const Message& message, std::span<const uint8_t> body, void* c_struct);

// Where a body stops being what its message's rows say.
struct Flaw {
  uint8_t tlv;
  bool missing;  // required, and not there; else malformed
};
std::optional<Flaw> find_flaw(const Message& message, std::span<const uint8_t> body);

// The largest body the rows can produce.
size_t largest_body(const Message& message);

}  // namespace qmi
