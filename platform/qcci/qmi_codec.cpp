#include "qcci/qmi_codec.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

namespace qmi {
namespace {

static_assert(std::endian::native == std::endian::little, "scalars are copied, not swapped");

constexpr size_t kTlvHeaderBytes = 3;

uint32_t load_u32(const uint8_t* at) {
  uint32_t value;
  memcpy(&value, at, sizeof value);
  return value;
}

class Writer {
 public:
  explicit Writer(std::span<uint8_t> out) : out_(out) {}

  size_t size() const { return size_; }

  bool bytes(const void* from, size_t n) {
    if (n > out_.size() - size_) return false;
    memcpy(out_.data() + size_, from, n);
    size_ += n;
    return true;
  }

  // Leaves room for `n` bytes that `patch` fills in later.
  bool skip(size_t n) {
    if (n > out_.size() - size_) return false;
    size_ += n;
    return true;
  }

  void patch(size_t at, const void* from, size_t n) { memcpy(out_.data() + at, from, n); }

 private:
  std::span<uint8_t> out_;
  size_t size_ = 0;
};

class Reader {
 public:
  explicit Reader(std::span<const uint8_t> in) : in_(in) {}

  size_t left() const { return in_.size(); }

  bool bytes(void* to, size_t n) {
    if (n > in_.size()) return false;
    memcpy(to, in_.data(), n);
    in_ = in_.subspan(n);
    return true;
  }

  std::optional<std::span<const uint8_t>> take(size_t n) {
    if (n > in_.size()) return std::nullopt;
    auto taken = in_.first(n);
    in_ = in_.subspan(n);
    return taken;
  }

 private:
  std::span<const uint8_t> in_;
};

bool is_plain(const Shape& shape) {
  return shape.members == nullptr && shape.wire_bytes == shape.c_bytes;
}

size_t largest_value(const Shape& shape);

// The bytes of an element on the wire, at most.
size_t largest_element(const Shape& shape) {
  size_t bytes = shape.wire_bytes;
  for (const Field& member : std::span(shape.members, shape.member_count)) {
    bytes += largest_value(member.shape);
  }
  return bytes;
}

size_t largest_value(const Shape& shape) {
  return shape.count_bytes() + largest_element(shape) * shape.bound;
}

bool write_value(const Field& field, const uint8_t* c_struct, Writer& out);
bool read_value(const Field& field, Reader& in, uint8_t* c_struct);

bool write_element(const Shape& shape, const uint8_t* element, Writer& out) {
  if (shape.members != nullptr) {
    for (const Field& member : std::span(shape.members, shape.member_count)) {
      if (!write_value(member, element, out)) return false;
    }
    return true;
  }
  for (uint32_t i = shape.wire_bytes; i < shape.c_bytes; ++i) {
    if (element[i] != 0) return false;
  }
  return out.bytes(element, shape.wire_bytes);
}

bool write_value(const Field& field, const uint8_t* c_struct, Writer& out) {
  const Shape& shape = field.shape;
  size_t count = shape.bound;
  if (shape.counted()) {
    const uint32_t wanted = load_u32(c_struct + field.count_offset);
    if (wanted > shape.bound || !out.bytes(&wanted, shape.count_bytes())) return false;
    count = wanted;
  }
  const uint8_t* element = c_struct + field.offset;
  if (is_plain(shape)) return out.bytes(element, count * shape.c_bytes);
  for (; count > 0; --count, element += shape.c_bytes) {
    if (!write_element(shape, element, out)) return false;
  }
  return true;
}

bool read_element(const Shape& shape, Reader& in, uint8_t* element) {
  if (shape.members == nullptr) return in.bytes(element, shape.wire_bytes);
  for (const Field& member : std::span(shape.members, shape.member_count)) {
    if (!read_value(member, in, element)) return false;
  }
  return true;
}

// Keeps the leading elements that can be read; where one that cannot be read ends is not known.
void read_leniently(const Field& field, uint32_t told, Reader& in, uint8_t* c_struct) {
  const Shape& shape = field.shape;
  uint32_t kept = 0;
  for (; kept < told && kept < shape.bound; ++kept) {
    uint8_t* element = c_struct + field.offset + size_t{kept} * shape.c_bytes;
    if (read_element(shape, in, element)) continue;
    memset(element, 0, shape.c_bytes);
    break;
  }
  memcpy(c_struct + field.count_offset, &kept, sizeof kept);
  in.take(in.left());
}

bool read_value(const Field& field, Reader& in, uint8_t* c_struct) {
  const Shape& shape = field.shape;
  size_t count = shape.bound, beyond = 0;
  if (shape.counted()) {
    uint32_t told = 0;
    if (!in.bytes(&told, shape.count_bytes())) return false;
    if (shape.lenient) {
      read_leniently(field, told, in, c_struct);
      return true;
    }
    const uint32_t kept = shape.clipped ? std::min<uint32_t>(told, shape.bound) : told;
    if (kept > shape.bound) return false;
    memcpy(c_struct + field.count_offset, &kept, sizeof kept);
    count = kept;
    beyond = told - kept;
  }
  uint8_t* element = c_struct + field.offset;
  if (is_plain(shape)) {
    if (!in.bytes(element, count * shape.c_bytes)) return false;
  } else {
    for (; count > 0; --count, element += shape.c_bytes) {
      if (!read_element(shape, in, element)) return false;
    }
  }
  if (shape.members == nullptr) return in.take(beyond * shape.wire_bytes).has_value();
  std::vector<uint8_t> skipped(beyond > 0 ? shape.c_bytes : 0);
  for (; beyond > 0; --beyond) {
    if (!read_element(shape, in, skipped.data())) return false;
  }
  return true;
}

const Field* find_row(std::span<const Field> rows, uint8_t tlv) {
  for (const Field& row : rows) {
    if (row.tlv == tlv) return &row;
  }
  return nullptr;
}

// What is wrong with the body, or nothing.
std::optional<Flaw> decode_tlvs(const Message& message, Reader in, uint8_t* c_struct) {
  uint64_t seen = 0;
  while (in.left() > 0) {
    uint8_t tlv = 0;
    uint16_t length;
    if (!in.bytes(&tlv, 1) || !in.bytes(&length, 2)) return Flaw{tlv, false};
    const auto value = in.take(length);
    if (!value) return Flaw{tlv, false};
    const Field* row = find_row(message.fields, tlv);
    if (row == nullptr) continue;
    const uint64_t bit = uint64_t{1} << (row - message.fields.data());
    // Of a TLV that comes again the last one counts, and nothing of the one before it.
    if ((seen & bit) != 0) {
      memset(c_struct + row->offset, 0, size_t{row->shape.c_bytes} * row->shape.bound);
    }
    Reader inside(*value);
    if (!read_value(*row, inside, c_struct) || inside.left() > 0) return Flaw{tlv, false};
    if (row->presence == Optional) c_struct[row->valid_offset] = 1;
    seen |= bit;
  }
  for (const Field& row : message.fields) {
    const bool arrived = (seen >> (&row - message.fields.data()) & 1) != 0;
    if (row.presence == Required && !arrived) return Flaw{row.tlv, true};
  }
  return std::nullopt;
}

}  // namespace

std::optional<size_t> encode(const Message& message, const void* c_struct, std::span<uint8_t> out) {
  const auto* c_bytes = static_cast<const uint8_t*>(c_struct);
  Writer writer(out);
  for (const Field& row : message.fields) {
    if (row.presence == Optional && c_bytes[row.valid_offset] == 0) continue;
    const size_t header = writer.size();
    if (!writer.bytes(&row.tlv, 1) || !writer.skip(2)) return std::nullopt;
    if (!write_value(row, c_bytes, writer)) return std::nullopt;
    const size_t length = writer.size() - header - kTlvHeaderBytes;
    if (length > UINT16_MAX) return std::nullopt;
    writer.patch(header + 1, &length, 2);
  }
  return writer.size();
}

bool decode(const Message& message, std::span<const uint8_t> body, void* c_struct) {
  const auto clear = [&] {
    if (message.c_bytes > 0) memset(c_struct, 0, message.c_bytes);
  };
  clear();
  const bool good = !decode_tlvs(message, Reader(body), static_cast<uint8_t*>(c_struct));
  if (!good) clear();
  return good;
}

std::optional<Flaw> find_flaw(const Message& message, std::span<const uint8_t> body) {
  std::vector<uint64_t> c_struct((message.c_bytes + 7) / 8);
  return decode_tlvs(message, Reader(body), reinterpret_cast<uint8_t*>(c_struct.data()));
}

size_t largest_body(const Message& message) {
  size_t total = 0;
  for (const Field& row : message.fields) total += kTlvHeaderBytes + largest_value(row.shape);
  return total;
}

}  // namespace qmi
