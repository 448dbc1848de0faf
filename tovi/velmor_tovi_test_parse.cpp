#include "velmor_tovi_test_parse.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "utilities/velmor_log.h"

namespace {

uint32_t digit_value(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint32_t>(c - '0');
  if (c >= 'A' && c <= 'F') return static_cast<uint32_t>(c - 'A' + 10);
  if (c >= 'a' && c <= 'f') return static_cast<uint32_t>(c - 'a' + 10);
  return 0;
}

}  // namespace

int velmor_hex_string_to_int(char* text) {
  if (text == nullptr) {
    VELMOR_LOG_DEBUG("\ninput is null\n");
    return 0;
  }
  constexpr size_t kDigitsOfAnInt = 8;
  const size_t count = strlen(text);
  uint32_t sum = 0;
  for (size_t k = 0; k < count; ++k) {
    const uint64_t digit = digit_value(text[k]);
    const size_t place = count - 1 - k;
    const uint64_t term = place < kDigitsOfAnInt ? digit << 4 * place : digit * UINT32_MAX;
    sum += static_cast<uint32_t>(std::min<uint64_t>(term, INT32_MAX));
  }
  return static_cast<int>(sum);
}

int velmor_string_to_int(char* text) {
  if (text == nullptr) {
    VELMOR_LOG_DEBUG("\ninput is null\n");
    return 0;
  }
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    return velmor_hex_string_to_int(text + 2);
  }
  return velmor_atoi(text);
}

int velmor_atoi(const char* text) {
  return static_cast<int>(strtol(text, nullptr, 10));
}

void velmor_byte_to_hex(unsigned char* bytes, int count, char* out) {
  if (bytes == nullptr) return;
  constexpr char kDigits[] = "0123456789abcdef";
  for (int i = 0; i < count; ++i) {
    *out++ = kDigits[bytes[i] >> 4];
    *out++ = kDigits[bytes[i] & 15];
  }
}
