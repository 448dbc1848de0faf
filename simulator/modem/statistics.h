// The radio statistics of the simulated modem and the counters of its statistics framework. They
// live in the state folder as named values: stats/<sub>/<id>, one record each, and stats/debug.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

class Statistics {
 public:
  explicit Statistics(std::string folder) : folder_(std::move(folder)) {}

  // One record as the modem sends it; nothing when it has none. A value that is not in the file
  // is 0; the value `length` makes the record shorter or longer.
  std::optional<std::string> record(unsigned int sub, uint32_t id) const;

  // The framework's debug information, and the diag logs that it cannot decode.
  std::string debug_info() const;
  std::vector<uint16_t> unsupported_logs() const;

  // The files that a new state folder begins with: paths in it, and their texts.
  static std::vector<std::pair<std::string, std::string>> factory_files();

 private:
  const std::string folder_;
};

}  // namespace sim
