// The statistics by the names that RF engineers use, and the values in their records.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "velmor_tovi_skarn_data.h"

namespace ctl {

struct NamedStatistic {
  const char* name;   // "nr-snr"
  const char* title;  // "5G primary carrier, SNR"
  int opt;            // its command of module 9
  const char* unit;   // of its levels, or ""
};
std::span<const NamedStatistic> named_statistics();
const NamedStatistic* find_named_statistic(std::string_view name);

// The record of a command of module 9, and of an id.
const Statistic& statistic_of(const NamedStatistic& named);
const Statistic* find_statistic(uint32_t id);

// The fields that module 9 prints; null when the record ends before one of them.
using Values = std::vector<std::pair<std::string, double>>;
std::optional<Values> record_values(const Statistic& statistic, std::string_view record);

}  // namespace ctl
