#include "qcci/trace.h"

#include <stdio.h>
#include <unistd.h>

#include <vector>

#include "environment.h"
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

void append_hex(std::string& out, uint8_t byte) {
  constexpr const char* kDigits = "0123456789abcdef";
  out += kDigits[byte >> 4];
  out += kDigits[byte & 15];
}

// Puts the fields of one packet into words and remembers which bytes must not be shown. A value
// that is cut short ends the words of its TLV; the bytes follow anyway.
class Words {
 public:
  Words(std::span<const uint8_t> packet, bool show_hidden)
      : packet_(packet), hidden_(packet.size()), show_hidden_(show_hidden) {}

  std::string tlvs(const Message* message) {
    at_ = kHeaderBytes;
    while (packet_.size() - at_ >= 3) {
      const uint8_t tlv = packet_[at_];
      const size_t length = packet_[at_ + 1] | size_t{packet_[at_ + 2]} << 8;
      at_ += 3;
      end_ = std::min(packet_.size(), at_ + length);
      const Field* row = nullptr;
      if (message != nullptr) {
        for (const Field& field : message->fields) {
          if (field.tlv == tlv) row = &field;
        }
      }
      out_ += "  ";
      if (row != nullptr) {
        value(*row, !show_hidden_ && row->shape.hidden);
      } else {
        char name[16];
        snprintf(name, sizeof name, "0x%02x = ", tlv);
        out_ += name;
        bytes(end_ - at_, false);
      }
      out_ += '\n';
      at_ = end_;
    }
    return std::move(out_);
  }

  std::string hex() const {
    std::string out;
    for (size_t i = 0; i < packet_.size(); ++i) {
      out += i % 32 == 0 ? "  " : " ";
      if (hidden_[i]) {
        out += "..";
      } else {
        append_hex(out, packet_[i]);
      }
      if (i % 32 == 31 || i + 1 == packet_.size()) out += '\n';
    }
    return out;
  }

 private:
  void value(const Field& field, bool hide) {
    const Shape& shape = field.shape;
    out_ += field.name;
    out_ += " = ";
    size_t count = shape.bound;
    if (shape.counted() && !number(shape.count_bytes(), count)) return;
    if (shape.members == nullptr && shape.wire_bytes == 1 && shape.form != Form::One) {
      bytes(std::min(count, end_ - at_), hide);
      return;
    }
    if (shape.form != Form::One) out_ += '[';
    for (size_t i = 0; i < count && at_ < end_; ++i) {
      if (i > 0) out_ += ", ";
      element(shape, hide);
    }
    if (shape.form != Form::One) out_ += ']';
  }

  void element(const Shape& shape, bool hide) {
    if (shape.members != nullptr) {
      out_ += '{';
      for (uint16_t i = 0; i < shape.member_count; ++i) {
        if (i > 0) out_ += ", ";
        const Field& member = shape.members[i];
        value(member, hide || (!show_hidden_ && member.shape.hidden));
      }
      out_ += '}';
      return;
    }
    const size_t start = at_;
    size_t scalar = 0;
    if (!number(shape.wire_bytes, scalar)) at_ = end_;  // cut short
    out_ += hide || at_ - start < shape.wire_bytes ? ".." : std::to_string(scalar);
    if (hide) cover(start, at_);
  }

  bool number(size_t width, size_t& value) {
    if (end_ - at_ < width) return false;
    value = 0;
    for (size_t i = 0; i < width; ++i) value |= size_t{packet_[at_ + i]} << 8 * i;
    at_ += width;
    return true;
  }

  // Trailing zeros are counted, not listed.
  void bytes(size_t count, bool hide) {
    out_ += std::to_string(count) + " bytes:";
    if (hide) {
      out_ += " ..";
      cover(at_, at_ + count);
    } else {
      size_t listed = count;
      while (listed > 0 && packet_[at_ + listed - 1] == 0) --listed;
      for (size_t i = 0; i < listed; ++i) {
        out_ += ' ';
        append_hex(out_, packet_[at_ + i]);
      }
      if (listed < count) out_ += " 00*" + std::to_string(count - listed);
    }
    at_ += count;
  }

  void cover(size_t from, size_t to) {
    for (size_t i = from; i < to; ++i) hidden_[i] = true;
  }

  std::span<const uint8_t> packet_;
  std::vector<bool> hidden_;
  bool show_hidden_;
  std::string out_;
  size_t at_ = 0;
  size_t end_ = 0;
};

}  // namespace

bool is_on() {
  return environment::trace().sink != environment::Sink::None;
}

std::string text(char direction, const qmi_idl_service_object& service,
                 std::span<const uint8_t> packet, bool show_hidden) {
  const auto header = read_header(packet);
  char line[160];
  if (!header || !is_whole(*header, packet)) {
    snprintf(line, sizeof line, "%c %s malformed len %zu\n", direction, service.name,
             packet.size());
    // What a value would be is not known, so none is shown.
    const size_t shown = show_hidden ? packet.size() : std::min(packet.size(), kHeaderBytes);
    return line + Words(packet.first(shown), true).hex();
  }
  const Message* message = service.find(header->kind, header->message);
  snprintf(line, sizeof line, "%c %s 0x%04x %s %s #%u len %u\n", direction, service.name,
           header->message, message != nullptr ? message->name : "unknown", word(header->kind),
           header->transaction, header->length);
  Words words(packet, show_hidden);
  std::string out = line;
  out += words.tlvs(message);
  return out + words.hex();
}

void record(char direction, const qmi_idl_service_object& service,
            std::span<const uint8_t> packet) {
  const auto now = timing::Clock::now().time_since_epoch();
  const auto us = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  char time[40];
  snprintf(time, sizeof time, "%lld.%06lld ", static_cast<long long>(us / 1'000'000),
           static_cast<long long>(us % 1'000'000));
  const std::string out = time + text(direction, service, packet, environment::trace_full());
  [[maybe_unused]] const ssize_t n = write(environment::trace().fd, out.data(), out.size());
}

}  // namespace qmi::trace
