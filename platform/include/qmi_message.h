// Message tables: a QMI message is described by one constant row a field, and a service by the
// list of its messages. One encoder and one decoder (platform/qcci/qmi_codec.h) walk these tables,
// so no message has code of its own.
//
// A row reads like a line of a protocol page: TLV number, presence, shape, member of the C
// structure. Rows are checked while compiling: a shape must fill its member exactly, an optional
// row needs the member's `_valid` flag, a counted row its `_len`, and no row may reach past the
// structure. Decoding can therefore never write outside the structure it was given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qmi {

enum class Kind : uint8_t { Request = 0, Response = 2, Indication = 4 };

enum Presence : uint8_t { Required, Optional };

// How the elements of a field stand on the wire.
enum class Form : uint8_t {
  One,        // a single element
  Fixed,      // always `bound` elements
  Counted8,   // a one-byte element count, then the elements
  Counted16,  // a two-byte element count, then the elements
};

struct Field;
struct Payload;

// Tells what the bytes of a field carry in a message of that kind. `request` is the body of the
// request: that message itself, or the one it answers; empty when it is not known.
using PayloadOf = Payload (*)(Kind kind, std::span<const uint8_t> request);

// The type of a field: one element, and how many of them.
struct Shape {
  uint8_t wire_bytes = 0;  // width of a scalar on the wire; 0 for a structure
  uint32_t c_bytes = 0;    // width of one element in C; a wider C side is zero-extended
  Form form = Form::One;
  uint16_t bound = 1;
  const Field* members = nullptr;
  uint16_t member_count = 0;
  bool hidden = false;
  bool lenient = false;
  bool clipped = false;
  bool text = false;
  bool is_signed = false;  // for the trace
  PayloadOf payload = nullptr;

  constexpr bool counted() const { return form == Form::Counted8 || form == Form::Counted16; }
  constexpr size_t count_bytes() const {
    return form == Form::Counted8 ? 1 : form == Form::Counted16 ? 2 : 0;
  }
};

inline constexpr Shape U8{1, 1};
inline constexpr Shape U16{2, 2};
inline constexpr Shape U32{4, 4};
inline constexpr Shape U64{8, 8};
inline constexpr Shape I32{.wire_bytes = 4, .c_bytes = 4, .is_signed = true};
inline constexpr Shape U8as32{1, 4};
inline constexpr Shape U16as32{2, 4};

constexpr Shape array_of(Shape element, Form form, uint16_t bound) {
  element.form = form;
  element.bound = bound;
  return element;
}
constexpr Shape Array(Shape element, uint16_t n) {
  return array_of(element, Form::Fixed, n);
}
constexpr Shape Counted8(Shape element, uint16_t n) {
  return array_of(element, Form::Counted8, n);
}
constexpr Shape Counted16(Shape element, uint16_t n) {
  return array_of(element, Form::Counted16, n);
}
constexpr Shape Bytes(uint16_t n) {
  return Array(U8, n);
}
// A value that identifies a person or a device: the trace shows it, and what follows it in its TLV,
// as "..".
constexpr Shape Hidden(Shape shape) {
  shape.hidden = true;
  return shape;
}
// Bytes that are readable text, for the trace.
constexpr Shape Text(Shape bytes) {
  bytes.text = true;
  return bytes;
}
// Bytes that carry something of their own, whose parts the trace names and hides.
constexpr Shape Carries(Shape bytes, PayloadOf payload) {
  bytes.payload = payload;
  return bytes;
}
// A counted list, last of its TLV, that real modems send with more in it than is known here: the
// elements that can be read are kept, at most `bound`, and the rest of the TLV is skipped.
constexpr Shape Lenient(Shape list) {
  list.lenient = true;
  return list;
}
// A counted list of which modems may send more than `bound` elements: those are skipped, and what
// follows the list is read.
constexpr Shape Clipped(Shape list) {
  list.clipped = true;
  return list;
}
template <size_t N>
constexpr Shape Struct(const Field (&members)[N], size_t c_bytes) {
  return {
      .c_bytes = static_cast<uint32_t>(c_bytes), .members = members, .member_count = uint16_t{N}};
}

inline constexpr uint32_t kNoOffset = UINT32_MAX;

// Where a field lives in the C structure; made by the four macros below.
struct Member {
  const char* name;
  size_t offset;
  size_t bytes;
  size_t valid_offset = kNoOffset;
  size_t count_offset = kNoOffset;
};

// Never defined: naming it while a table is computed stops the compilation at the wrong row.
void this_row_does_not_fit_its_member();

struct Field {
  uint8_t tlv;  // 0 for the members of a structure
  Presence presence;
  Shape shape;
  const char* name;
  uint32_t offset;
  uint32_t valid_offset;  // of the uint8 flag of an optional field
  uint32_t count_offset;  // of the uint32 element count of a counted field

  constexpr Field(uint8_t tlv, Presence presence, Shape shape, Member member)
      : tlv(tlv),
        presence(presence),
        shape(shape),
        name(member.name),
        offset(static_cast<uint32_t>(member.offset)),
        valid_offset(static_cast<uint32_t>(member.valid_offset)),
        count_offset(static_cast<uint32_t>(member.count_offset)) {
    if (member.bytes != size_t{shape.c_bytes} * shape.bound ||
        (presence == Optional) != (valid_offset != kNoOffset) ||
        shape.counted() != (count_offset != kNoOffset) || (shape.clipped && !shape.counted())) {
      this_row_does_not_fit_its_member();
    }
  }
  // A member of a structure: sent in order, with nothing in front.
  constexpr Field(Shape shape, Member member) : Field(0, Required, shape, member) {}

  // The first byte after everything this row writes.
  constexpr size_t end() const {
    size_t end = offset + size_t{shape.c_bytes} * shape.bound;
    if (valid_offset != kNoOffset && valid_offset + 1 > end) end = valid_offset + 1;
    if (count_offset != kNoOffset && count_offset + 4 > end) end = count_offset + 4;
    return end;
  }
};

// What a field carries.
struct Payload {
  const char* name = "";  // or "": nothing more to say than its bytes
  const Field* members = nullptr;
  uint16_t member_count = 0;
  size_t hidden_from = SIZE_MAX;  // from this byte on it identifies a person or a device
};

// The value of the first TLV of that number in a message body, or an empty one.
inline std::span<const uint8_t> find_tlv(std::span<const uint8_t> body, uint8_t tlv) {
  while (body.size() >= 3) {
    const size_t length = body[1] | size_t{body[2]} << 8;
    if (length > body.size() - 3) break;
    if (body[0] == tlv) return body.subspan(3, length);
    body = body.subspan(3 + length);
  }
  return {};
}

// clang-format off
#define QMI_MEMBER(type, member) #member, offsetof(type, member), sizeof(type::member)
#define QMI_FIELD(type, member) ::qmi::Member{QMI_MEMBER(type, member)}
#define QMI_OPTIONAL(type, member) \
  ::qmi::Member{QMI_MEMBER(type, member), offsetof(type, member##_valid)}
#define QMI_LIST(type, member) \
  ::qmi::Member{QMI_MEMBER(type, member), ::qmi::kNoOffset, offsetof(type, member##_len)}
#define QMI_OPTIONAL_LIST(type, member) \
  ::qmi::Member{QMI_MEMBER(type, member), offsetof(type, member##_valid), offsetof(type, member##_len)}
// clang-format on

struct Message {
  Kind kind;
  uint16_t id;
  const char* name;   // for the trace
  uint32_t wire_max;  // largest encoded size, the 7-byte header not counted
  uint32_t c_bytes;   // size of the C structure; 0 when the message has no fields
  std::span<const Field> fields;

  template <size_t N>
  constexpr Message(Kind kind, uint16_t id, const char* name, uint32_t wire_max, size_t c_bytes,
                    const Field (&rows)[N])
      : kind(kind),
        id(id),
        name(name),
        wire_max(wire_max),
        c_bytes(static_cast<uint32_t>(c_bytes)),
        fields(rows, N) {
    static_assert(N <= 64, "the decoder keeps one bit a row");
    for (const Field& row : rows) {
      if (row.end() > c_bytes) this_row_does_not_fit_its_member();
    }
  }
  // A message that is known, but none of whose fields is read.
  constexpr Message(Kind kind, uint16_t id, const char* name, size_t c_bytes)
      : kind(kind), id(id), name(name), wire_max(0), c_bytes(static_cast<uint32_t>(c_bytes)) {}
  // A message without a body.
  constexpr Message(Kind kind, uint16_t id, const char* name)
      : kind(kind), id(id), name(name), wire_max(0), c_bytes(0) {}
};

}  // namespace qmi

// The description of one service, as the QMI client library takes it.
struct qmi_idl_service_object {
  const char* name;  // for the trace
  uint32_t service_id;
  uint8_t major_version;
  uint16_t minor_version;
  uint8_t library_version;
  uint32_t wire_max;  // largest message of the service, the 7-byte header not counted
  std::span<const qmi::Message> messages;

  // This description when it has that version, else null.
  constexpr const qmi_idl_service_object* if_version(int64_t major, int64_t minor,
                                                     int64_t library) const {
    const bool same =
        major == major_version && minor == minor_version && library == library_version;
    return same ? this : nullptr;
  }

  // The message of that kind and id, or null.
  const qmi::Message* find(qmi::Kind kind, uint32_t id) const {
    for (const qmi::Message& message : messages) {
      if (message.kind == kind && message.id == id) return &message;
    }
    return nullptr;
  }
};
using qmi_idl_service_object_type = const qmi_idl_service_object*;

// The standard result of the published services: two 16-bit words on the wire, 32-bit in C.
struct qmi_response_type_v01 {
  uint32_t result;  // 0 success, 1 failure
  uint32_t error;   // QMI error number, 0 on success
};

namespace qmi {
inline constexpr Field kResponseTypeMembers[] = {
    {U16as32, QMI_FIELD(qmi_response_type_v01, result)},
    {U16as32, QMI_FIELD(qmi_response_type_v01, error)},
};
inline constexpr Shape Result = Struct(kResponseTypeMembers, sizeof(qmi_response_type_v01));
}  // namespace qmi
