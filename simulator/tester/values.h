// A message in single values, each with its name and its place in the packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "qcci/packet.h"
#include "qmi_message.h"

namespace sim {

struct Value {
  enum class Form { Unsigned, Signed, Bytes, Text };

  std::string path;    // "result", "resp.error", "networks[1].mcc", "data.sub_id", "0x3f"
  size_t name_at = 0;  // in the path, behind the field that carries a payload
  Form form = Form::Bytes;
  size_t at = 0;  // in the packet
  size_t size = 0;

  std::string name() const { return path.substr(name_at); }

  // Of a form that is a number.
  uint64_t number(std::span<const uint8_t> packet) const;
};

// All values of a whole packet, in its order. What no table has is one of its TLV's bytes; so is
// what is left of a TLV whose value is cut short or followed by more. `request` is the body of the
// request that the packet is or answers.
std::vector<Value> values_of(const qmi_idl_service_object& service, std::span<const uint8_t> packet,
                             std::span<const uint8_t> request);

}  // namespace sim
