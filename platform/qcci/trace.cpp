#include "qcci/trace.h"

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "environment.h"
#include "qcci/qmi_codec.h"
#include "timing.h"

namespace qmi::trace {
namespace {

const char* word(Kind kind) {
  switch (kind) {
    case Kind::Request: return "req";
    case Kind::Response: return "rsp";
    case Kind::Indication: return "ind";
  }
  return "???";
}

constexpr size_t kHexBytes = 32;  // in a line

void append_hex(std::string& out, uint8_t byte) {
  constexpr const char* kDigits = "0123456789abcdef";
  out += kDigits[byte >> 4];
  out += kDigits[byte & 15];
}

// A character of a text in quotes.
void append_character(std::string& out, uint8_t byte) {
  if (byte == '"' || byte == '\\') out += '\\';
  if (byte >= 0x20 && byte < 0x7f) {
    out += static_cast<char>(byte);
  } else {
    out += "\\x";
    append_hex(out, byte);
  }
}

// Whether a message may tell an identity: one that is known does where its table says so, one that
// is not known wherever its service can.
bool may_identify(const qmi_idl_service_object& service, const Message* message,
                  std::span<const uint8_t> request) {
  const auto row_does = [&](const Field& row, Kind kind) {
    if (row.shape.hidden) return true;
    if (row.shape.payload == nullptr) return false;
    return message == nullptr || row.shape.payload(kind, request).hidden_from != SIZE_MAX;
  };
  for (const Message& one : service.messages) {
    if (message != nullptr && message != &one) continue;
    for (const Field& row : one.fields) {
      if (row_does(row, one.kind)) return true;
    }
  }
  return false;
}

// Puts the fields of one packet into words and remembers which bytes must not be shown. A value
// that is cut short ends the words of its TLV; the bytes follow anyway. In a guarded packet, whose
// message may tell an identity, nothing is shown that does not stand where it should.
class Words {
 public:
  // `message` is null for one that is not known.
  Words(std::span<const uint8_t> packet, const Message* message, std::span<const uint8_t> request,
        bool guarded)
      : packet_(packet),
        message_(message),
        request_(request),
        hidden_(packet.size()),
        guarded_(guarded) {}

  std::string tlvs() {
    at_ = kHeaderBytes;
    while (packet_.size() - at_ >= 3) {
      const uint8_t tlv = packet_[at_];
      const size_t length = packet_[at_ + 1] | size_t{packet_[at_ + 2]} << 8;
      at_ += 3;
      end_ = std::min(packet_.size(), at_ + length);
      out_ += "  ";
      if (const Field* row = find_row(tlv)) {
        value(*row);
      } else {
        char name[16];
        snprintf(name, sizeof name, "0x%02x = ", tlv);
        out_ += name;
        hide_from(at_);
        bytes(end_ - at_);
      }
      out_ += '\n';
      if (guarded_ && (cut_ || at_ != end_)) break;
      cut_ = false;
      hide_from_ = SIZE_MAX;
      at_ = end_;
    }
    hide_from(at_);
    cover(at_, packet_.size());
    return std::move(out_);
  }

  // After `tlvs`.
  std::vector<bool> hidden() && { return std::move(hidden_); }

  // Lines of 32 bytes; "*" stands for any number of lines like the one above it.
  std::string hex() const {
    std::string out, above;
    bool folded = false;
    for (size_t at = 0; at < packet_.size(); at += kHexBytes) {
      std::string line = " ";
      for (size_t i = at; i < std::min(at + kHexBytes, packet_.size()); ++i) {
        line += ' ';
        if (hidden_[i]) {
          line += "..";
        } else {
          append_hex(line, packet_[i]);
        }
      }
      line += '\n';
      const bool repeats = line == above;
      if (!repeats) {
        out += line;
      } else if (!folded) {
        out += "  *\n";
      }
      folded = repeats;
      above = std::move(line);
    }
    return out;
  }

 private:
  const Field* find_row(uint8_t tlv) const {
    if (message_ == nullptr) return nullptr;
    for (const Field& row : message_->fields) {
      if (row.tlv == tlv) return &row;
    }
    return nullptr;
  }

  void value(const Field& field) {
    const Shape& shape = field.shape;
    if (shape.hidden) hide_from(at_);
    out_ += field.name;
    out_ += " = ";
    size_t count = shape.bound;
    if (shape.counted() && !number(shape.count_bytes(), count)) return;
    if (shape.payload != nullptr) {
      payload(shape.payload(message_->kind, request_), count);
    } else if (shape.members == nullptr && shape.wire_bytes == 1 && shape.form != Form::One) {
      shape.text ? text(count) : bytes(count);
    } else if (shape.form == Form::One) {
      element(shape);
    } else {
      list(shape, count);
    }
  }

  void list(const Shape& shape, size_t count) {
    out_ += '[';
    for (size_t i = 0; i < count && !cut_; ++i) {
      if (i > 0) out_ += ", ";
      element(shape);
    }
    out_ += ']';
  }

  void payload(const Payload& payload, size_t count) {
    if (payload.hidden_from < end_ - at_) hide_from(at_ + payload.hidden_from);
    if (payload.name[0] != '\0') {
      out_ += payload.name;
      out_ += ' ';
    }
    if (payload.members == nullptr) {
      bytes(count);
    } else {
      members(payload.members, payload.member_count);
    }
  }

  void element(const Shape& shape) {
    if (shape.members != nullptr) return members(shape.members, shape.member_count);
    const size_t start = at_;
    size_t scalar = 0;
    const bool whole = number(shape.wire_bytes, scalar);
    if (!whole) at_ = end_;
    const bool hidden = cover(start, at_);
    if (!whole || hidden) {
      out_ += "..";
    } else if (shape.is_signed) {
      out_ += std::to_string(static_cast<int32_t>(scalar));
    } else {
      out_ += std::to_string(scalar);
    }
  }

  void members(const Field* members, uint16_t count) {
    out_ += '{';
    for (uint16_t i = 0; i < count; ++i) {
      if (i > 0) out_ += ", ";
      value(members[i]);
    }
    out_ += '}';
  }

  bool number(size_t width, size_t& value) {
    cut_ = cut_ || end_ - at_ < width;
    if (cut_) return false;
    value = 0;
    for (size_t i = 0; i < width; ++i) value |= size_t{packet_[at_ + i]} << 8 * i;
    at_ += width;
    return true;
  }

  // The next `count` bytes, or what there is of them. More than a few zeros at the end are counted,
  // not listed.
  void bytes(size_t count) {
    const auto value = take(count);
    out_ += std::to_string(value.size()) + " bytes:";
    if (cover(at_ - value.size(), at_)) {
      out_ += " ..";
      return;
    }
    size_t listed = without_zeros(value);
    if (value.size() - listed < 4) listed = value.size();
    for (const uint8_t byte : value.first(listed)) {
      out_ += ' ';
      append_hex(out_, byte);
    }
    if (listed < value.size()) out_ += " 00*" + std::to_string(value.size() - listed);
  }

  // The same as text, without the zeros that fill it up.
  void text(size_t count) {
    const auto value = take(count);
    out_ += '"';
    if (cover(at_ - value.size(), at_)) {
      out_ += "..";
    } else {
      for (const uint8_t byte : value.first(without_zeros(value))) append_character(out_, byte);
    }
    out_ += '"';
  }

  std::span<const uint8_t> take(size_t count) {
    const auto taken = packet_.subspan(at_, std::min(count, end_ - at_));
    cut_ = cut_ || taken.size() < count;
    at_ += taken.size();
    return taken;
  }

  static size_t without_zeros(std::span<const uint8_t> value) {
    size_t listed = value.size();
    while (listed > 0 && value[listed - 1] == 0) --listed;
    return listed;
  }

  // From here to the end of the TLV, in a guarded packet.
  void hide_from(size_t at) {
    if (guarded_) hide_from_ = std::min(hide_from_, at);
  }

  // Hides what of these bytes is to be hidden; whether there was any.
  bool cover(size_t from, size_t to) {
    for (size_t i = std::max(from, hide_from_); i < to; ++i) hidden_[i] = true;
    return to > hide_from_;
  }

  const std::span<const uint8_t> packet_;
  const Message* const message_;
  const std::span<const uint8_t> request_;
  std::vector<bool> hidden_;
  const bool guarded_;
  std::string out_;
  size_t at_ = 0;
  size_t end_ = 0;  // of the TLV
  bool cut_ = false;
  size_t hide_from_ = SIZE_MAX;
};

// Null for one that is not known, or goes the other way.
const Message* message_of(char direction, const qmi_idl_service_object& service,
                          const Header& header) {
  const bool is_expected = (direction == '>') == (header.kind == Kind::Request);
  return is_expected ? service.find(header.kind, header.message) : nullptr;
}

// A line for a message that cannot be decoded: where that stopped.
std::string flaw(const Message& message, std::span<const uint8_t> body) {
  const auto found = find_flaw(message, body);
  if (!found) return "";
  char line[40];
  snprintf(line, sizeof line, "  not decoded: 0x%02x %s\n", found->tlv,
           found->missing ? "is missing" : "is malformed");
  return line;
}

class Writer final : public Observer {
 public:
  void on_crossing(const Crossing& crossing) override {
    const auto now = timing::Clock::now().time_since_epoch();
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    char time[40];
    snprintf(time, sizeof time, "%lld.%06lld ", static_cast<long long>(us / 1'000'000),
             static_cast<long long>(us % 1'000'000));
    const std::string out = time + text(crossing.direction, crossing.service, crossing.packet,
                                        crossing.request, environment::trace_full());
    [[maybe_unused]] const ssize_t n = write(environment::trace().fd, out.data(), out.size());
  }
};

}  // namespace

Observer* observer() {
  static auto* writer = new Writer;  // outlives main, like the threads that may call it
  return environment::trace().sink != environment::Sink::None ? writer : nullptr;
}

std::string text(char direction, const qmi_idl_service_object& service,
                 std::span<const uint8_t> packet, std::span<const uint8_t> request,
                 bool show_hidden) {
  const auto header = read_header(packet);
  char line[160];
  if (!header || !is_whole(*header, packet)) {
    snprintf(line, sizeof line, "%c %s malformed len %zu\n", direction, service.name,
             packet.size());
    // What a value would be is not known, so none is shown.
    const size_t shown = show_hidden ? packet.size() : std::min(packet.size(), kHeaderBytes);
    return line + Words(packet.first(shown), nullptr, {}, false).hex();
  }
  const Message* message = message_of(direction, service, *header);
  snprintf(line, sizeof line, "%c %s 0x%04x %s %s #%u len %u\n", direction, service.name,
           header->message, message != nullptr ? message->name : "unknown", word(header->kind),
           header->transaction, header->length);
  Words words(packet, message, request, !show_hidden && may_identify(service, message, request));
  std::string out = line;
  out += words.tlvs();
  if (message != nullptr) out += flaw(*message, packet.subspan(kHeaderBytes));
  return out + words.hex();
}

std::vector<bool> hidden_bytes(char direction, const qmi_idl_service_object& service,
                               std::span<const uint8_t> packet, std::span<const uint8_t> request) {
  if (environment::trace_full()) return {};
  const auto header = read_header(packet);
  if (!header || !is_whole(*header, packet)) {
    std::vector<bool> hidden(packet.size(), true);
    std::fill_n(hidden.begin(), std::min(packet.size(), kHeaderBytes), false);
    return hidden;
  }
  const Message* message = message_of(direction, service, *header);
  if (!may_identify(service, message, request)) return {};
  Words words(packet, message, request, true);
  words.tlvs();
  return std::move(words).hidden();
}

}  // namespace qmi::trace
