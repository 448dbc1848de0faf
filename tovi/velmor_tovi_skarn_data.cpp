// Module 9: radio statistics by carrier and antenna, from the statistics service.
#include "velmor_tovi_skarn_data.h"

#include <stdio.h>
#include <string.h>

#include <optional>
#include <string>

#include "modem_api/modem_api.h"
#include "utilities/velmor_log.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"
#include "velmor_utils.h"

namespace {

constexpr int kModule = 9;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: velmor modem stats qmi test", {kModule}},
  {"   tovi %d %d sub                   /* 4G PCC rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 0}},
  {"   tovi %d %d sub                   /* 4G SCC1 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 1}},
  {"   tovi %d %d sub                   /* 4G SCC2 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 2}},
  {"   tovi %d %d sub                   /* 4G SCC3 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 3}},
  {"   tovi %d %d sub                   /* 4G SCC4 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 4}},
  {"   tovi %d %d sub                   /* 4G SCC5 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 5}},
  {"   tovi %d %d sub                   /* 4G SCC6 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 6}},
  {"   tovi %d %d sub                   /* 5G PCC rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 7}},
  {"   tovi %d %d sub                   /* 5G PCC snr, sub: 0 - sub0; 1 - sub1 */", {kModule, 8}},
  {"   tovi %d %d sub                   /* 5G ANT diversity, sub: 0 - sub0; 1 - sub1 */", {kModule, 9}},
  {"   tovi %d %d sub                  /* 5G PCC rsrp, sub: 0 - sub0; 1 - sub1 */", {kModule, 10}},
  {"   tovi %d %d sub                  /* 5G SCC1 rsrp, sub: 0 - sub0; 1 - sub1 */", {kModule, 11}},
  {"   tovi %d %d sub                  /* 5G SCC2 rsrp, sub: 0 - sub0; 1 - sub1 */", {kModule, 12}},
  {"   tovi %d %d sub                  /* WCDMA rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 20}},
  {"   tovi %d %d sub                  /* GSM rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 21}},
  {"   tovi %d %d 0                    /* Ant info */", {kModule, 30}},
};
// clang-format on

int g_skarn_client_id = -1;  // -1: none

using enum FieldType;
constexpr RecordField kVersion8 = {U8, "version", nullptr};
constexpr RecordField kVersion32 = {U32, "version", nullptr};

constexpr RecordField kLteCell[] = {
    kVersion8,
    {U8, "version_ssmr", nullptr},
    {U32, "earfcn"},
    {U16, "pci"},
    {U8, "is_srv_cell", nullptr},
    {U16, "rx_valid"},
    {Float, "rsrp_rx0"},
    {Float, "rsrq_rx0"},
    {Float, "rssi_rx0"},
    {Float, "snr_rx0"},
    {Float, "rsrp_rx1"},
    {Float, "rsrq_rx1"},
    {Float, "rssi_rx1"},
    {Float, "snr_rx1"},
    {Float, "rsrp_rx2"},
    {Float, "rsrq_rx2"},
    {Float, "rssi_rx2"},
    {Float, "snr_rx2"},
    {Float, "rsrp_rx3"},
    {Float, "rsrq_rx3"},
    {Float, "rssi_rx3"},
    {Float, "snr_rx3"},
};
constexpr RecordField k5gRssi[] = {
    kVersion32,
    {Float, "rssi0", "rssi_rx0"},
    {Float, "rssi1", "rssi_rx1"},
    {Float, "rssi2", "rssi_rx2"},
    {Float, "rssi3", "rssi_rx3"},
};
constexpr RecordField k5gSnr[] = {
    kVersion32,
    {Float, "snr0", "snr_rx0"},
    {Float, "snr1", "snr_rx1"},
    {Float, "snr2", "snr_rx2"},
    {Float, "snr3", "snr_rx3"},
};
constexpr RecordField k5gAntennas[] = {
    kVersion32,           {U8, "ant_rx_0_old"}, {U8, "ant_rx_0_new"}, {U8, "ant_rx_1_old"},
    {U8, "ant_rx_1_new"}, {U8, "ant_rx_2_old"}, {U8, "ant_rx_2_new"}, {U8, "ant_rx_3_old"},
    {U8, "ant_rx_3_new"}, {U8, "ant_tx_0_old"}, {U8, "ant_tx_0_new"}, {U8, "ant_tx_1_old"},
    {U8, "ant_tx_1_new"},
};
constexpr RecordField k5gRsrp[] = {
    kVersion32,          {Float, "rsrp_rx0"}, {Float, "rsrp_rx1"},
    {Float, "rsrp_rx2"}, {Float, "rsrp_rx3"}, {Float, "rsrq"},
};
constexpr RecordField kWcdma[] = {
    kVersion8,
    {Float, "rx_agc_0"},
    {Float, "rx_agc_1"},
};
constexpr RecordField kGsm[] = {
    kVersion8,
    {Float, "rx_prx"},
    {Float, "rx_drx"},
};
constexpr RecordField kAntennaInfo[] = {
    kVersion8,
    {U8, "ant_number", "ant_num"},
    {U16, "ant_switch_path", "ant_path"},
    {U16, "sig_path"},
    {U8, "old_config"},
    {U8, "new_config"},
};

constexpr StatisticLine kData = {"ASDIV DATA: ", ": "};
constexpr StatisticLine kAssigned = {"ASDIV DATA: ", " = "};
constexpr StatisticLine kInfo = {"ANT INFO: ", ": "};

// clang-format off
constexpr Statistic kStatistics[] = {
    {0, 0x52, kLteCell, kData},  // 4G primary carrier
    {1, 0x67, kLteCell, kData},  // 4G secondary carriers
    {2, 0x68, kLteCell, kData},
    {3, 0x69, kLteCell, kData},
    {4, 0x6A, kLteCell, kData},
    {5, 0x6B, kLteCell, kData},
    {6, 0x6C, kLteCell, kData},
    {7, 0x5E, k5gRssi, kData},
    {8, 0x70, k5gSnr, kData},
    {9, 0x71, k5gAntennas, kAssigned},
    {10, 0x87, k5gRsrp, kData},  // 5G primary carrier
    {11, 6, k5gRsrp, kData},     // 5G secondary carriers
    {12, 7, k5gRsrp, kData},
    {20, 0x6E, kWcdma, kData},
    {21, 0x6F, kGsm, kData},
    {30, 0x64, kAntennaInfo, kInfo, Subscription::First},
};
// clang-format on

// The record that was fetched, read from front to back.
class Record {
 public:
  Record(uint32_t id, const uint8_t* bytes, uint32_t len) : id_(id), left_(static_cast<int>(len)) {
    memcpy(bytes_, bytes, len);
  }

  // Reads the next field as text; false, with a line why, when the record ends before it.
  bool read(const RecordField& field, char* text, size_t room) {
    const int bytes = static_cast<int>(field.bytes());
    if (left_ < bytes) {
      printf("g_skarn_data_left(%d) is not enough for %s, id(0x%x)\n", left_, field.name, id_);
      return false;
    }
    if (offset_ < 0) {
      printf("g_pK_DATA_CNT(%d) is can not < 0 for %s, id(0x%x)\n", offset_, field.name, id_);
      return false;
    }
    uint32_t number = 0;
    memcpy(&number, bytes_ + offset_, field.bytes());
    offset_ += bytes;
    left_ -= bytes;
    if (field.type == Float) {
      float value;
      memcpy(&value, &number, sizeof value);
      snprintf(text, room, "%.2f", static_cast<double>(value));
    } else {
      snprintf(text, room, "%d", static_cast<int>(number));
    }
    return true;
  }

 private:
  const uint32_t id_;
  uint8_t bytes_[kStatsValueMax];
  int left_;
  int offset_ = 0;
};

// Fetches one record; null, after a line in the log, when that fails.
std::optional<Record> velmor_test_qmi_modem_stats_get(unsigned int sub, uint32_t id) {
  static int number = 0;
  const int id_shown = static_cast<int>(id), sub_shown = static_cast<int>(sub);
  if (g_skarn_client_id == -1) {
    VELMOR_LOG_DEBUG("skarn qmi is not yet inited");
    return std::nullopt;
  }
  if (sub >= 2) {
    VELMOR_LOG_DEBUG("modem_api_get_stats_parameter, sub(%d) is invalid", sub_shown);
    return std::nullopt;
  }
  ++number;
  modem_stats_para_data data{};
  data.para_num = 1;
  data.entries[0].id = id;
  const int ret = modem_api_get_stats_parameter(g_skarn_client_id, static_cast<uint16_t>(sub),
                                                static_cast<uint16_t>(number), &data);
  const int id_num = static_cast<int>(data.para_num);
  const modem_stats_para_entry& entry = data.entries[0];
  if (ret != 0) {
    VELMOR_LOG_DEBUG("Fail to get data fail, number = %d, ret = %d, sub = %d, id = %d", number, ret,
                     sub_shown, id_shown);
  } else if (id_num == 0) {
    VELMOR_LOG_DEBUG("Fail to get data, empty, number = %d, sub = %d, ret id_num = %d, id = %d",
                     number, sub_shown, id_num, id_shown);
  } else if (id_num != 1) {
    VELMOR_LOG_DEBUG(
        "Fail to get data, id num error, number = %d, sub = %d, ret id_num = %d, id = %d", number,
        sub_shown, id_num, id_shown);
  } else if (entry.id != id) {
    VELMOR_LOG_DEBUG(
        "Fail to get data, ret_id(%d) is invalid, number = %d, sub = %d, ret id_num = %d, id = %d",
        static_cast<int>(entry.id), number, sub_shown, id_num, id_shown);
  } else if (entry.sub != sub) {
    VELMOR_LOG_DEBUG(
        "Fail to get data, ret_sub(%d) is invalid, number = %d, sub = %d, ret id_num = %d, id = %d",
        entry.sub, number, sub_shown, id_num, id_shown);
  } else if (entry.value_len < 1 || entry.value_len > kStatsValueMax) {
    VELMOR_LOG_DEBUG(
        "Fail to get data, data_len(%d) is invalid, should be in (0, %d], number = %d, sub = %d, "
        "ret id_num = %d, id = %d",
        static_cast<int>(entry.value_len), static_cast<int>(kStatsValueMax), number, sub_shown,
        id_num, id_shown);
  } else {
    VELMOR_LOG_DEBUG(
        "Success to get data, number = %d, sub = %d, ret id_num = %d, id = %d, data_len = %d",
        number, sub_shown, id_num, id_shown, static_cast<int>(entry.value_len));
    return Record(id, entry.value, entry.value_len);
  }
  return std::nullopt;
}

// Fetches a statistic and prints its line while the echo is on.
void show_statistic(const Statistic& statistic, unsigned int sub) {
  const bool first = statistic.sub == Subscription::First;
  auto record = velmor_test_qmi_modem_stats_get(first ? 0 : sub, statistic.id);
  if (!record) return;
  std::string line = statistic.line.heading;
  const char* comma = "";
  for (const RecordField& field : statistic.fields) {
    char value[64];  // the longest float has 43 characters
    if (!record->read(field, value, sizeof value)) return;
    if (field.label == nullptr) continue;
    line += comma;
    line += field.label;
    line += statistic.line.separator;
    line += value;
    comma = ", ";
  }
  if (velmor_utils_get_shell_print_flag() != 0) puts(line.c_str());
}

void velmor_test_qmi_modem_stats_hdl(int opt, unsigned int sub) {
  VELMOR_LOG_DEBUG("opt = %d, sub = %d, g_skarn_client_id = %d", opt, static_cast<int>(sub),
                   g_skarn_client_id);
  for (const Statistic& statistic : kStatistics) {
    if (statistic.opt == opt) {
      show_statistic(statistic, sub);
      return;
    }
  }
  VELMOR_LOG_DEBUG("velmor_test_qmi_modem_stats_hdl: Unknown opt(%d), sub(%d)", opt,
                   static_cast<int>(sub));
}

void velmor_test_qmi_modem_stats_callback_event_cb(int, void*, int) {}
void velmor_test_qmi_modem_stats_operational_status_cb(int, int) {}

void free_client() {
  if (g_skarn_client_id != -1) modem_api_free_client(g_skarn_client_id);
  g_skarn_client_id = -1;
}

void velmor_qmi_modem_stats_api_init() {
  free_client();
  modem_api_release();
  modem_api_init();
  modem_api_init_client(MODEM_API_VS, velmor_test_qmi_modem_stats_callback_event_cb,
                        velmor_test_qmi_modem_stats_operational_status_cb, &g_skarn_client_id);
}

void velmor_qmi_modem_stats_api_deinit() {
  free_client();
  modem_api_release();
}

void velmor_test_qmi_modem_stats_start() {
  const int result = modem_api_set_skarn_feature_status(g_skarn_client_id, 2, 1, 1, 1);
  if (result != 0) {
    VELMOR_LOG_DEBUG("modem_api_set_skarn_feature_status, start fail, result = %d", result);
  }
}

}  // namespace

std::span<const Statistic> velmor_statistics() {
  return kStatistics;
}

// This function and that of module 7 carry each other's names.
void velmor_test_modem_stats_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_qmi_modem_stats_do(int argc, char** argv) {
  if (!velmor_check_module_args(argc, argv, kModule, 4)) return 0;
  const int opt = velmor_atoi(argv[2]);
  const int sub = velmor_atoi(argv[3]);
  velmor_qmi_modem_stats_api_init();
  velmor_test_qmi_modem_stats_start();
  velmor_test_qmi_modem_stats_hdl(opt, static_cast<unsigned int>(sub));
  velmor_qmi_modem_stats_api_deinit();
  return 0;
}
