#include "named_statistics.h"

#include <string.h>

namespace ctl {
namespace {

// clang-format off
constexpr NamedStatistic kNamed[] = {
  { "lte",     "4G primary carrier",                0,  "dBm" },
  { "lte1",    "4G secondary carrier 1",            1,  "dBm" },
  { "lte2",    "4G secondary carrier 2",            2,  "dBm" },
  { "lte3",    "4G secondary carrier 3",            3,  "dBm" },
  { "lte4",    "4G secondary carrier 4",            4,  "dBm" },
  { "lte5",    "4G secondary carrier 5",            5,  "dBm" },
  { "lte6",    "4G secondary carrier 6",            6,  "dBm" },
  { "nr-rssi", "5G primary carrier, RSSI",          7,  "dBm" },
  { "nr-snr",  "5G primary carrier, SNR",           8,  "dB"  },
  { "nr-ant",  "5G antennas, before and after a switch", 9, "" },
  { "nr",      "5G primary carrier, RSRP and RSRQ", 10, "dBm" },
  { "nr1",     "5G secondary carrier 1, RSRP and RSRQ", 11, "dBm" },
  { "nr2",     "5G secondary carrier 2, RSRP and RSRQ", 12, "dBm" },
  { "wcdma",   "WCDMA, AGC of both receivers",      20, "dBm" },
  { "gsm",     "GSM, level of both receivers",      21, "dBm" },
  { "ant",     "antenna info, of subscription 0",   30, ""    },
};
// clang-format on

}  // namespace

std::span<const NamedStatistic> named_statistics() {
  return kNamed;
}

const NamedStatistic* find_named_statistic(std::string_view name) {
  for (const NamedStatistic& named : kNamed) {
    if (name == named.name) return &named;
  }
  return nullptr;
}

const Statistic& statistic_of(const NamedStatistic& named) {
  const auto all = velmor_statistics();
  size_t at = 0;
  while (all[at].opt != named.opt) ++at;
  return all[at];
}

const Statistic* find_statistic(uint32_t id) {
  for (const Statistic& statistic : velmor_statistics()) {
    if (statistic.id == id) return &statistic;
  }
  return nullptr;
}

std::optional<Values> record_values(const Statistic& statistic, std::string_view record) {
  Values values;
  for (const RecordField& field : statistic.fields) {
    if (record.size() < field.bytes()) return std::nullopt;
    uint32_t number = 0;
    memcpy(&number, record.data(), field.bytes());
    record.remove_prefix(field.bytes());
    if (field.label == nullptr) continue;
    float level;
    memcpy(&level, &number, sizeof level);
    const bool is_level = field.type == FieldType::Float;
    values.emplace_back(field.label, is_level ? double{level} : static_cast<double>(number));
  }
  return values;
}

}  // namespace ctl
