#include "statistics.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <span>

#include "state_reader.h"

namespace sim {
namespace {

// A value in a record: its width in bytes, 0 for a float; what a new modem has in it.
struct Value {
  const char* name;
  int bytes;
  double initial;
};

constexpr Value kLte[] = {
    {"version", 1, 1},      {"version_ssmr", 1, 1}, {"earfcn", 4, 1850},    {"pci", 2, 101},
    {"is_srv_cell", 1, 1},  {"rx_valid", 2, 15},    {"rsrp_rx0", 0, -94.5}, {"rsrq_rx0", 0, -10.25},
    {"rssi_rx0", 0, -66},   {"snr_rx0", 0, 17.5},   {"rsrp_rx1", 0, -96},   {"rsrq_rx1", 0, -10.75},
    {"rssi_rx1", 0, -67.5}, {"snr_rx1", 0, 16},     {"rsrp_rx2", 0, -99},   {"rsrq_rx2", 0, -11.5},
    {"rssi_rx2", 0, -70},   {"snr_rx2", 0, 12.25},  {"rsrp_rx3", 0, -101},  {"rsrq_rx3", 0, -12},
    {"rssi_rx3", 0, -71.5}, {"snr_rx3", 0, 11},
};
constexpr Value kNrRssi[] = {{"version", 4, 1},
                             {"rssi0", 0, -61},
                             {"rssi1", 0, -62.5},
                             {"rssi2", 0, -64.5},
                             {"rssi3", 0, -66.25}};
constexpr Value kNrSnr[] = {
    {"version", 4, 1}, {"snr0", 0, 21.5}, {"snr1", 0, 20.25}, {"snr2", 0, 18}, {"snr3", 0, 17.5}};
constexpr Value kNrAntennas[] = {
    {"version", 4, 1},      {"ant_rx_0_old", 1, 0}, {"ant_rx_0_new", 1, 1}, {"ant_rx_1_old", 1, 1},
    {"ant_rx_1_new", 1, 0}, {"ant_rx_2_old", 1, 2}, {"ant_rx_2_new", 1, 2}, {"ant_rx_3_old", 1, 3},
    {"ant_rx_3_new", 1, 3}, {"ant_tx_0_old", 1, 0}, {"ant_tx_0_new", 1, 1}, {"ant_tx_1_old", 1, 2},
    {"ant_tx_1_new", 1, 2}};
constexpr Value kNrRsrp[] = {{"version", 4, 1},    {"rsrp_rx0", 0, -88},    {"rsrp_rx1", 0, -89.5},
                             {"rsrp_rx2", 0, -92}, {"rsrp_rx3", 0, -93.75}, {"rsrq", 0, -10.5}};
constexpr Value kWcdma[] = {{"version", 1, 1}, {"rx_agc_0", 0, -71}, {"rx_agc_1", 0, -73.5}};
constexpr Value kGsm[] = {{"version", 1, 1}, {"rx_prx", 0, -68.25}, {"rx_drx", 0, -70.5}};
constexpr Value kAntennas[] = {{"version", 1, 1},  {"ant_number", 1, 4}, {"ant_switch_path", 2, 3},
                               {"sig_path", 2, 2}, {"old_config", 1, 0}, {"new_config", 1, 1}};

constexpr size_t kMaxRecord = 700;

struct Layout {
  uint32_t id;
  std::span<const Value> values;
};
constexpr Layout kLayouts[] = {
    {6, kNrRsrp},     {7, kNrRsrp},  {82, kLte},         {94, kNrRssi},
    {100, kAntennas}, {103, kLte},   {104, kLte},        {105, kLte},
    {106, kLte},      {107, kLte},   {108, kLte},        {110, kWcdma},
    {111, kGsm},      {112, kNrSnr}, {113, kNrAntennas}, {135, kNrRsrp},
};

// Each carrier and subscription differs a little from the others.
double initial(const Value& value, uint32_t id, unsigned int sub) {
  if (value.bytes == 0) return value.initial - 0.25 * (id % 8) - 3 * sub;
  const bool is_channel = strcmp(value.name, "earfcn") == 0 || strcmp(value.name, "pci") == 0;
  return is_channel ? value.initial + id + 100 * sub : value.initial;
}

void append(std::string& bytes, const void* value, int size) {
  bytes.append(static_cast<const char*>(value), static_cast<size_t>(size));
}

void append_number(std::string& bytes, const std::string& text, int size) {
  const uint64_t number = strtoull(text.c_str(), nullptr, 0);
  append(bytes, &number, size);
}

// A counter of the debug information, and the version that brought it.
struct Counter {
  const char* name;
  int bytes;
  int since;
};
constexpr Counter kMain[] = {
    {"feature_enable_status", 1, 0},
    {"version_not_support_num", 8, 0},
    {"cmd_ok_count", 8, 0},
    {"cmd_fail_count", 8, 0},
    {"mem_max_num", 8, 2},
    {"mem_cur_num", 8, 2},
    {"cmd_q_count", 4, 2},
    {"cmd_free_q_count", 4, 2},
    {"log_mask", 4, 4},
    {"log_stats_mask", 4, 4},
};
constexpr Counter kDiag[] = {
    {"diag_init_state", 1, 0},      {"diag_event_num", 4, 0},       {"diag_event_state", 1, 0},
    {"diag_event_call_num", 4, 0},  {"diag_event_parse_num", 4, 0}, {"diag_log_num", 4, 0},
    {"diag_log_state", 1, 0},       {"diag_log_call_num", 8, 0},    {"diag_log_parse_num", 8, 0},
    {"diag_poll_call_num", 4, 0},   {"diag_poll_parse_num", 4, 0},  {"diag_event_cb_num", 8, 1},
    {"diag_log_cb_num", 8, 1},      {"lte_cell_id_invalid", 4, 1},  {"nr5g_cell_id_invalid", 4, 1},
    {"event_duration_max", 4, 2},   {"log_duration_max", 4, 2},     {"do_duration_max", 4, 2},
    {"debug_call_num", 4, 2},       {"debug_parse_num", 4, 2},      {"cust_event_call_num", 4, 3},
    {"cust_event_parse_num", 4, 3},
};
constexpr Counter kCm[] = {
    {"cm_init_state", 1, 0},      {"cm_listener_state", 1, 0}, {"cm_call_call_num", 4, 0},
    {"cm_call_parse_num", 4, 0},  {"cm_subs_call_num", 4, 0},  {"cm_subs_parse_num", 4, 0},
    {"cm_ss_call_num", 4, 0},     {"cm_ss_parse_num", 4, 0},   {"cm_stats_call_num", 4, 0},
    {"cm_stats_parse_num", 4, 0}, {"cm_rf_call_num", 4, 0},    {"cm_rf_parse_num", 4, 0},
    {"cm_lte_call_num", 4, 0},    {"cm_lte_parse_num", 4, 0},  {"cm_nr5g_call_num", 4, 0},
    {"cm_nr5g_parse_num", 4, 0},
};
constexpr Counter kUim[] = {{"uim_init_state", 1, 0},
                            {"uim_listener_state", 1, 0},
                            {"uim_event_call_num", 4, 0},
                            {"uim_event_parse_num", 4, 0}};

constexpr const char* kFactoryDebug =
    "# version: 0 to 4. feature_enable_status 0: closed. Where version_not_support_num is not 0,\n"
    "# unsupported lists the ids of the diag logs. Counters that are not here are 0.\n"
    "version=4\n"
    "feature_enable_status=1\n"
    "version_not_support_num=0\n"
    "cmd_ok_count=128\n"
    "cmd_fail_count=0\n"
    "mem_max_num=96\n"
    "mem_cur_num=12\n"
    "cmd_q_count=0\n"
    "cmd_free_q_count=32\n"
    "diag_init_state=1\n"
    "diag_event_num=6\n"
    "diag_log_num=18\n"
    "diag_log_call_num=4096\n"
    "diag_log_parse_num=4096\n"
    "cm_init_state=1\n"
    "cm_listener_state=1\n"
    "uim_init_state=1\n"
    "uim_listener_state=1\n"
    "unsupported=0xB193,0xB97F\n";

}  // namespace

std::optional<std::string> Statistics::record(unsigned int sub, uint32_t id) const {
  const auto* layout = std::find_if(std::begin(kLayouts), std::end(kLayouts),
                                    [&](const Layout& known) { return known.id == id; });
  const auto text =
      read_state(folder_ + "/stats/" + std::to_string(sub) + "/" + std::to_string(id));
  if (layout == std::end(kLayouts) || !text) return std::nullopt;
  const auto values = state_files::parse(*text);
  std::string bytes;
  for (const Value& value : layout->values) {
    const std::string number = state_files::find_or(values, value.name, "0");
    if (value.bytes > 0) {
      append_number(bytes, number, value.bytes);
    } else {
      const float real = strtof(number.c_str(), nullptr);
      append(bytes, &real, sizeof real);
    }
  }
  if (const std::string* length = state_files::find(values, "length")) {
    bytes.resize(std::min<size_t>(strtoul(length->c_str(), nullptr, 10), kMaxRecord));
  }
  return bytes;
}

std::string Statistics::debug_info() const {
  const auto values = read_state_values(folder_ + "/stats/debug");
  const int version = atoi(state_files::find_or(values, "version", "0").c_str());
  std::string bytes;
  append(bytes, &version, 1);
  for (const std::span<const Counter> block :
       {std::span<const Counter>(kMain), {kDiag}, {kCm}, {kUim}}) {
    for (const Counter& counter : block) {
      if (version < counter.since) continue;
      append_number(bytes, state_files::find_or(values, counter.name, "0"), counter.bytes);
    }
  }
  return bytes;
}

std::vector<uint16_t> Statistics::unsupported_logs() const {
  const auto values = read_state_values(folder_ + "/stats/debug");
  const std::string list = state_files::find_or(values, "unsupported", "");
  std::vector<uint16_t> logs;
  for (const char* at = list.c_str(); *at != '\0';) {
    char* end;
    logs.push_back(static_cast<uint16_t>(strtoul(at, &end, 0)));
    if (*end != ',') break;
    at = end + 1;
  }
  return logs;
}

std::vector<std::pair<std::string, std::string>> Statistics::factory_files() {
  std::vector<std::pair<std::string, std::string>> files = {{"stats/debug", kFactoryDebug}};
  for (unsigned int sub = 0; sub < 2; ++sub) {
    for (const Layout& layout : kLayouts) {
      std::string text;
      for (const Value& value : layout.values) {
        char line[64];
        snprintf(line, sizeof line, "%s=%.*f\n", value.name, value.bytes == 0 ? 2 : 0,
                 initial(value, layout.id, sub));
        text += line;
      }
      files.emplace_back("stats/" + std::to_string(sub) + "/" + std::to_string(layout.id), text);
    }
  }
  return files;
}

}  // namespace sim
