#include "velmor_tovi_skarn_unpk.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>

uint64_t g_unpk_version_not_support_num;

namespace {

constexpr int kRecordId = 0;
constexpr int kWordBits = 64;

constexpr int kVersions = 4;
constexpr uint32_t kKnownVersions[kVersions] = {4, 0x30000, 0x30001, 0x30002};

using Record = modem_stats_single_data_common_type;

Record g_record;

// One field: its place in the record that is filled, its width in bits, and its position in each
// version, in bits after the version.
struct UnpkField {
  const char* name;
  size_t offset;
  int width;
  int pos[kVersions];
};

// In the order in which they are printed.
// clang-format off
constexpr UnpkField kFields[] = {
  // versions:                                            4, 0x30000, 0x30001, 0x30002
  { "mcc",           offsetof(Record, mcc),           16, { 176, 240, 250, 264 } },
  { "mnc_num",       offsetof(Record, mnc_num),        8, { 192, 256, 266, 280 } },
  { "mnc",           offsetof(Record, mnc),           16, { 200, 264, 274, 288 } },
  { "tac",           offsetof(Record, tac),           32, { 224, 288, 298, 312 } },
  { "cgi",           offsetof(Record, cgi),           64, { 112, 176, 186, 200 } },
  { "pci",           offsetof(Record, pci),           16, {   0,   0,  10,  24 } },
  { "freq_band_ind", offsetof(Record, freq_band_ind), 16, { 256, 320, 330, 344 } },
  { "dl_earfcn",     offsetof(Record, dl_earfcn),     32, {  16,  80,  90, 104 } },
  { "dl_bw",         offsetof(Record, dl_bw),         16, {  80, 144, 154, 168 } },
  { "ul_earfcn",     offsetof(Record, ul_earfcn),     32, {  48, 112, 122, 136 } },
  { "ul_bw",         offsetof(Record, ul_bw),         16, {  96, 160, 170, 184 } },
  { "allow_access",  offsetof(Record, allow_access),   8, { 216, 280, 290, 304 } },
};
// clang-format on

void store(const UnpkField& field, uint64_t value, Record& record) {
  memcpy(reinterpret_cast<uint8_t*>(&record) + field.offset, &value,
         static_cast<size_t>(field.width / 8));
}

// "0x" and two digits a byte, without leading zero bytes.
struct HexText {
  char text[50];

  explicit HexText(uint64_t value) {
    int bytes = 1;
    while (bytes < 8 && value >> 8 * bytes != 0) ++bytes;
    snprintf(text, sizeof text, "0x%0*llX", 2 * bytes, static_cast<unsigned long long>(value));
  }
};

unsigned long long as_llu(uint64_t value) {
  return static_cast<unsigned long long>(value);
}

constexpr uint64_t low_bits(int count) {
  return count >= kWordBits ? UINT64_MAX : (uint64_t{1} << count) - 1;
}

}  // namespace

bool Unpacker::check_read(const char* name) const {
  if (payload_ == nullptr) {
    printf("DATA_UNPK, g_unpk_data_ptr is NULL, name: %s, id(0x%x)\n", name, kRecordId);
    return false;
  }
  if (base_ + cnt_ >= limit_) {
    printf("DATA_UNPK, (base + cnt)(%d) is can not >= %d for %s, id(0x%x)\n", base_ + cnt_, limit_,
           name, kRecordId);
    return false;
  }
  return true;
}

bool Unpacker::read(const char* name, int size, uint64_t& value) {
  if (!check_read(name)) return false;
  value = 0;
  memcpy(&value, payload_ + base_ + cnt_, static_cast<size_t>(size));
  cnt_ += size;
  if (trace_) {
    printf(
        "    UNPK_I, name: %s, val: %llu(%s), val_size: %d, unpk_cnt: %d, data_base: %d, base_bit: "
        "%d\n",
        name, as_llu(value), HexText(value).text, size, cnt_, base_, base_bit_);
  }
  return true;
}

void Unpacker::move_base(int bits) {
  base_bit_ += bits;
  base_ = base_bit_ / 8;
  cnt_ = 0;
  if (trace_) {
    printf(
        "BASE_WITH_BIT, g_unpk_data_base_bit(%d), g_unpk_data_base(%d), g_unpk_data_cnt(%d), "
        "bit(%d), id(0x%x)\n",
        base_bit_, base_, cnt_, bits, kRecordId);
  }
}

bool Unpacker::go_to(const char* name, int pos, int width) {
  uint64_t no_value = 0;
  if (width < 1 || width > kWordBits) return low(name, width, kWordBits, no_value);
  const int64_t cnt = (int64_t{base_bit_} + pos) / 8 - base_;
  if (cnt < 0 || cnt >= limit_) {
    printf("UNPK_SET_BIT, pos(%d) should be[0, %d), id(0x%x)\n", static_cast<int>(cnt), limit_,
           kRecordId);
    return false;
  }
  cnt_ = static_cast<int>(cnt);
  if (trace_) {
    printf(
        "UNPK_SET_BIT, g_unpk_data_base_bit(%d), g_unpk_data_base(%d), g_unpk_data_cnt(%d), "
        "bit(%d), id(0x%x)\n",
        base_bit_, base_, cnt_, pos, kRecordId);
  }
  low_ = base_bit_ + pos - (base_ + cnt_) * 8 + 1;
  high_ = low_ + width - 1;
  if (trace_) {
    printf(
        "PRINT_CNT, base_bit: %d, base_byte: %d, data_cnt: %d, low: %d, high: %d, param: %d, name: "
        "%s\n",
        base_bit_, base_, cnt_, low_, high_, pos, name);
  }
  return true;
}

bool Unpacker::mid(const char* name, int low, int high, uint64_t word, uint64_t& value) const {
  if (low < 1 || low > 128) {
    printf("UNPK_MID, low(%d) should be in [1, 128] for %s, id(0x%x)\n", low, name, kRecordId);
    return false;
  }
  if (high < 1 || high > 128) {
    printf("UNPK_MID, high(%d) should be in [1, 128] for %s, id(0x%x)\n", high, name, kRecordId);
    return false;
  }
  if (high > kWordBits) {
    printf("UNPK_MID, high(%d) should be in [1, %d] for %s, id(0x%x)\n", high, kWordBits, name,
           kRecordId);
    return false;
  }
  if (low > high) {
    printf("UNPK_MID, low(%d) should <= high(%d) for %s, id(0x%x)\n", low, high, name, kRecordId);
    return false;
  }
  value = word >> (low - 1) & low_bits(high - low + 1);
  if (trace_) {
    printf("UNPK_MID, old_val: %llu, new_val: %llu, low: %d, high: %d, name: %s, id(0x%x)\n",
           as_llu(word), as_llu(value), low, high, name, kRecordId);
  }
  return true;
}

bool Unpacker::high(const char* name, int bit_num, uint64_t word, uint64_t& value) const {
  if (bit_num < 64 || bit_num > 128) {
    printf("UNPK_HIGH, bit_num(%d) should be in [64, 128] for %s, id(0x%x)\n", bit_num, name,
           kRecordId);
    return false;
  }
  value = word & low_bits(bit_num - kWordBits);
  if (trace_) {
    printf("UNPK_HIGH, old_val: %llu, new_val: %llu, bit_num: %d, name: %s, id(0x%x)\n",
           as_llu(word), as_llu(value), bit_num, name, kRecordId);
  }
  return true;
}

bool Unpacker::low(const char* name, int bit_num, int width, uint64_t& value) const {
  if (bit_num < 1 || bit_num > width) {
    printf("UNPK_LOW, bit_num(%d) should be in [1, %d] for %s, id(0x%x)\n", bit_num, width, name,
           kRecordId);
    return false;
  }
  const uint64_t before = value;
  const uint64_t mask = low_bits(bit_num);
  value &= mask;
  if (trace_) {
    printf(
        "UNPK_LOW, old_val: %llu, new_val: %llu, bit_num: %d, mask_max(0x%llx), old_size(%d), "
        "name: "
        "%s, id(0x%x)\n",
        as_llu(before), as_llu(value), bit_num, as_llu(mask), width / 8, name, kRecordId);
  }
  return true;
}

bool Unpacker::extract(const char* name, int pos, int width, uint64_t& value) {
  const std::string frame = name;
  uint64_t first, second, upper;
  if (!read((frame + "_tmp1").c_str(), 8, first)) return false;
  if (high_ > kWordBits && !read((frame + "_tmp2").c_str(), 8, second)) return false;
  if (!mid(name, low_, std::min(high_, kWordBits), first, value)) return false;
  if (high_ > kWordBits) {
    if (!high(name, high_, second, upper)) return false;
    value |= upper << (kWordBits - low_ + 1);
  }
  if (!low(name, width, width, value)) return false;
  if (trace_) {
    printf("    UNPK_AT, name: %s, val: %llu(%s), low: %d, high: %d, bit_start: %d, bit_num: %d\n",
           name, as_llu(value), HexText(value).text, low_, high_, pos, width);
  }
  return true;
}

namespace {

// The table's column for a version, or -1.
int column_of(uint64_t version) {
  for (int column = 0; column < kVersions; ++column) {
    if (kKnownVersions[column] == version) return column;
  }
  return -1;
}

}  // namespace

bool velmor_unpack_record(const uint8_t* payload, bool trace,
                          modem_stats_single_data_common_type& record) {
  Unpacker unpacker(payload, kUnpkDataMax, trace);
  uint64_t version;
  if (!unpacker.read("version", 4, version)) return false;
  unpacker.move_base(32);
  const int column = column_of(version);
  if (column < 0) {
    ++g_unpk_version_not_support_num;
    printf("VERSION_NOT_SUPPORT[%s:%d], version(%d), not_support_num(%llu), name(%s), id(0x%x)\n",
           "modem_stats_parse_xxxx_diag_xxxx", __LINE__, static_cast<int>(version),
           as_llu(g_unpk_version_not_support_num), "root", kRecordId);
    return false;
  }
  modem_stats_single_data_common_type unpacked{};
  unpacked.version = static_cast<uint32_t>(version);
  for (const UnpkField& field : kFields) {
    const int pos = field.pos[column];
    uint64_t value;
    if (!unpacker.go_to(field.name, pos, field.width) ||
        !unpacker.extract(field.name, pos, field.width, value)) {
      return false;
    }
    store(field, value, unpacked);
  }
  record = unpacked;
  return true;
}

bool modem_stats_parse_xxxx_diag_xxxx(const uint8_t* payload, bool trace,
                                      modem_stats_single_data_common_type& record) {
  if (!velmor_unpack_record(payload, trace, record)) return false;
  constexpr int kSubcarrierSpacing = 0;  // no record has it
  printf("version = %d, mcc = %d, mnc_num %d, mnc %d, tac %d, cgi %llu, pci %d\n",
         static_cast<int>(record.version), record.mcc, record.mnc_num, record.mnc,
         static_cast<int>(record.tac), as_llu(record.cgi), record.pci);
  printf(
      "freq_band_ind = %d, dl_earfcn = %d, dl_bw %d, ul_earfcn %d, ul_bw %d, allow_access %d, scs "
      "%d\n",
      record.freq_band_ind, static_cast<int>(record.dl_earfcn), record.dl_bw,
      static_cast<int>(record.ul_earfcn), record.ul_bw, record.allow_access, kSubcarrierSpacing);
  return true;
}

void velmor_test_modem_stats_parsing_process_do(const uint8_t* payload, bool trace) {
  if (payload == nullptr) {
    printf("UNPK_START, payload is NULL, id(0x%x)\n", kRecordId);
    return;
  }
  modem_stats_parse_xxxx_diag_xxxx(payload, trace, g_record);
}

std::vector<UnpkValue> velmor_unpacked_values(const modem_stats_single_data_common_type& record) {
  constexpr int kVersionBits = 32;
  const int column = column_of(record.version);
  std::vector<UnpkValue> values;
  if (column < 0) return values;
  for (const UnpkField& field : kFields) {
    UnpkValue value{field.name, kVersionBits + field.pos[column], field.width, 0};
    memcpy(&value.value, reinterpret_cast<const uint8_t*>(&record) + field.offset,
           static_cast<size_t>(field.width / 8));
    values.push_back(value);
  }
  return values;
}
