#include "values.h"

#include <stdio.h>

#include <algorithm>

namespace sim {
namespace {

using qmi::Field;
using qmi::Form;
using qmi::Shape;

class Walk {
 public:
  Walk(std::span<const uint8_t> packet, const qmi::Message* message,
       std::span<const uint8_t> request)
      : packet_(packet), message_(message), request_(request) {}

  std::vector<Value> values() {
    while (packet_.size() - at_ >= 3) {
      const uint8_t tlv = packet_[at_];
      const size_t length = packet_[at_ + 1] | size_t{packet_[at_ + 2]} << 8;
      at_ += 3;
      end_ = std::min(packet_.size(), at_ + length);
      char number[8];
      snprintf(number, sizeof number, "0x%02x", tlv);
      const Field* row = find_row(tlv);
      if (row != nullptr) field(*row, "");
      if (at_ != end_ || row == nullptr) add(number, Value::Form::Bytes, end_ - at_);
    }
    return std::move(values_);
  }

 private:
  const Field* find_row(uint8_t tlv) const {
    if (message_ == nullptr) return nullptr;
    for (const Field& row : message_->fields) {
      if (row.tlv == tlv) return &row;
    }
    return nullptr;
  }

  void field(const Field& field, const std::string& prefix) {
    const Shape& shape = field.shape;
    const std::string path = prefix + field.name;
    size_t count = shape.bound;
    if (shape.counted()) {
      if (end_ - at_ < shape.count_bytes()) return;
      count = packet_[at_] | (shape.count_bytes() == 2 ? size_t{packet_[at_ + 1]} << 8 : 0);
      add(path + "_len", Value::Form::Unsigned, shape.count_bytes());
    }
    if (shape.payload != nullptr) {
      payload(shape.payload(message_->kind, request_), path, count);
    } else if (shape.members == nullptr && shape.wire_bytes == 1 && shape.form != Form::One) {
      add(path, shape.text ? Value::Form::Text : Value::Form::Bytes, std::min(count, end_ - at_));
    } else if (shape.form == Form::One) {
      element(shape, path);
    } else {
      for (size_t i = 0; i < count && at_ < end_; ++i) {
        const size_t before = at_;
        element(shape, path + "[" + std::to_string(i) + "]");
        if (at_ == before) break;  // cut short
      }
    }
  }

  void payload(const qmi::Payload& payload, const std::string& path, size_t count) {
    if (payload.members == nullptr) {
      return add(path, Value::Form::Bytes, std::min(count, end_ - at_));
    }
    name_at_ = path.size() + 1;
    members(payload.members, payload.member_count, path);
    name_at_ = 0;
  }

  void element(const Shape& shape, const std::string& path) {
    if (shape.members != nullptr) return members(shape.members, shape.member_count, path);
    if (end_ - at_ < shape.wire_bytes) return;
    add(path, shape.is_signed ? Value::Form::Signed : Value::Form::Unsigned, shape.wire_bytes);
  }

  void members(const Field* members, uint16_t count, const std::string& path) {
    for (uint16_t i = 0; i < count; ++i) field(members[i], path + ".");
  }

  void add(std::string path, Value::Form form, size_t size) {
    values_.push_back({std::move(path), name_at_, form, at_, size});
    at_ += size;
  }

  const std::span<const uint8_t> packet_;
  const qmi::Message* const message_;
  const std::span<const uint8_t> request_;
  std::vector<Value> values_;
  size_t at_ = qmi::kHeaderBytes;
  size_t end_ = 0;  // of the TLV
  size_t name_at_ = 0;
};

}  // namespace

uint64_t Value::number(std::span<const uint8_t> packet) const {
  uint64_t number = 0;
  for (size_t i = 0; i < size; ++i) number |= uint64_t{packet[at + i]} << 8 * i;
  return number;
}

std::vector<Value> values_of(const qmi_idl_service_object& service, std::span<const uint8_t> packet,
                             std::span<const uint8_t> request) {
  const auto header = qmi::read_header(packet);
  if (!header) return {};
  return Walk(packet, service.find(header->kind, header->message), request).values();
}

}  // namespace sim
