// Bytes as hexadecimal digits, two a byte, the way the state folder's files show them.
#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

inline std::string to_hex(std::string_view bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string hex;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
  }
  return hex;
}

// Nothing for what are no such digits.
inline std::optional<std::string> from_hex(std::string_view hex) {
  std::string bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    unsigned char byte = 0;
    const std::string_view pair = hex.substr(i, 2);
    const auto read = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
    if (pair.size() != 2 || read.ptr != pair.data() + 2) return std::nullopt;
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

}  // namespace sim
