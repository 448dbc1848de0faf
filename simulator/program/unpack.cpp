// tovi-modem unpack: a diagnostic statistics record, field by field.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "hex.h"
#include "state_files.h"
#include "velmor_tovi_skarn_unpk.h"
#include "verbs.h"

namespace program {
namespace {

// The bytes that digits stand for, blanks between them left out; nothing for anything else.
std::optional<std::string> bytes_from(std::string digits) {
  std::erase_if(digits, [](char c) { return strchr(" \t\r\n", c) != nullptr; });
  return sim::from_hex(digits);
}

// What a person names: a file, of bytes or of digits, or the digits themselves.
std::optional<std::string> record_from(const std::string& word, std::string& problem) {
  if (access(word.c_str(), F_OK) != 0) {
    auto record = bytes_from(word);
    if (!record) problem = word + ": neither a file nor hexadecimal digits, two a byte";
    return record;
  }
  const auto content = state_files::read(word);
  if (!content) {
    problem = word + ": " + strerror(errno);
    return std::nullopt;
  }
  const auto digits = bytes_from(*content);
  return digits ? digits : content;
}

}  // namespace

int unpack(const Args& args) {
  if (args.empty()) return wrong_usage();
  std::string word = args[0];
  for (size_t i = 1; i < args.size(); ++i) word += " " + args[i];
  std::string problem;
  const auto record = record_from(word, problem);
  if (!record) return failed(problem);
  uint8_t payload[kUnpkBufBytes] = {};
  if (record->size() < 4 || record->size() > kUnpkDataMax) {
    return failed("a record has 4 to " + std::to_string(kUnpkDataMax) + " bytes, not " +
                  std::to_string(record->size()));
  }
  memcpy(payload, record->data(), record->size());
  modem_stats_single_data_common_type unpacked;
  if (!velmor_unpack_record(payload, false, unpacked)) return kFailed;  // it has said why
  printf("%-14s %5s %5s  %s\n", "field", "bit", "width", "value");
  printf("%-14s %5d %5d  %u (0x%x)\n", "version", 0, 32, unpacked.version, unpacked.version);
  for (const UnpkValue& field : velmor_unpacked_values(unpacked)) {
    printf("%-14s %5d %5d  ", field.name, field.bit, field.width);
    if (static_cast<size_t>(field.bit + field.width) > 8 * record->size()) {
      puts("is not in the record");
    } else {
      printf("%llu (0x%llx)\n", static_cast<unsigned long long>(field.value),
             static_cast<unsigned long long>(field.value));
    }
  }
  return kDone;
}

}  // namespace program
