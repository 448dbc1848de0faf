// Bytes as hexadecimal digits.
#pragma once

#include <stdio.h>

#include <optional>
#include <string>
#include <string_view>

namespace ctl {

inline void append_hex(std::string& out, char byte) {
  constexpr const char* kDigits = "0123456789abcdef";
  out += kDigits[static_cast<unsigned char>(byte) >> 4];
  out += kDigits[byte & 15];
}

inline std::string hex_text(std::string_view bytes) {
  std::string out;
  for (const char byte : bytes) append_hex(out, byte);
  return out;
}

// For people: lines of 16 bytes behind their offset.
inline std::string hex_lines(std::string_view bytes) {
  std::string out;
  for (size_t at = 0; at < bytes.size(); at += 16) {
    char offset[24];
    snprintf(offset, sizeof offset, "%05zx ", at);
    out += offset;
    for (const char byte : bytes.substr(at, 16)) {
      out += ' ';
      append_hex(out, byte);
    }
    out += '\n';
  }
  return out;
}

// The bytes of pairs of digits; nothing for what is none.
inline std::optional<std::string> from_hex(std::string_view text) {
  const auto digit = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  if (text.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = digit(text[i]), low = digit(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes += static_cast<char>(high << 4 | low);
  }
  return bytes;
}

}  // namespace ctl
