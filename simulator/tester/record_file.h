// Reads what TOVI_RECORD wrote: packets and their times, put together to exchanges.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qmi_message.h"

namespace sim {

// Two digits, as an identity may have them: zeros would often stand for none.
inline constexpr uint8_t kFiller = 0x11;

// A packet, of which some bytes may not be known.
struct RecordedPacket {
  std::vector<uint8_t> bytes;  // kFiller where hidden
  std::vector<bool> hidden;
};

// Something that happened after a request, or after a service was sought, by the same process.
struct RecordedAnswer {
  uint32_t after_us;
  RecordedPacket packet;
};
struct RecordedChange {
  uint32_t after_us;
  uint32_t service;
  bool there;
};

struct RecordedExchange {
  size_t line;  // of the request
  const qmi_idl_service_object* service;
  RecordedPacket request;
  std::vector<RecordedAnswer> answers;
  std::vector<RecordedChange> changes;
};

struct RecordedSearch {
  uint32_t service;
  std::vector<RecordedChange> changes;
};

struct Record {
  std::vector<RecordedExchange> exchanges;
  std::vector<RecordedSearch> searches;

  // Nothing, with `problem` in words, for a file that cannot be read or is no record. One that is
  // damaged is read as far as it goes, and `problem` says how far that is.
  static std::optional<Record> read(const std::string& path, std::string& problem);
};

}  // namespace sim
