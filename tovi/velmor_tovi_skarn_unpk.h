// The unpacker of bit-packed diagnostic statistics records: the LTE serving cell.
//
// A record is a 32-bit version and then fields at bit positions that depend on it. A field is read
// as part of a 128-bit little-endian frame that begins at the field's first byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// What a record holds.
struct modem_stats_single_data_common_type {
  uint16_t mcc;
  uint16_t mnc;
  uint32_t tac;
  uint64_t cgi;
  uint32_t version;
  uint8_t mnc_num;
  uint16_t pci;
  uint16_t freq_band_ind;
  uint32_t dl_earfcn;
  uint16_t dl_bw;
  uint32_t ul_earfcn;
  uint16_t ul_bw;
  uint8_t allow_access;
};

inline constexpr int kUnpkDataMax = 2000;   // no read begins at or past this byte
inline constexpr int kUnpkBufBytes = 2016;  // what a payload's buffer must have, zero-filled

// Records of an unknown version so far.
extern uint64_t g_unpk_version_not_support_num;

// The steps, on a payload of kUnpkBufBytes bytes of which the first `limit` may be read from. Each
// prints why it ended the parse and gives false; with tracing on it also prints what it did.
class Unpacker {
 public:
  Unpacker(const uint8_t* payload, int limit, bool trace)
      : payload_(payload), limit_(limit), trace_(trace) {}

  // DATA_UNPK and UNPK_I: reads `size` (4 or 8) bytes at the current byte and moves past them.
  bool read(const char* name, int size, uint64_t& value);
  // BASE_WITH_BIT: positions are counted from `bits` bits further on.
  void move_base(int bits);
  // UNPK_SET_BIT and PRINT_CNT: goes to a field of `width` bits, 1 to 64, at `pos`.
  bool go_to(const char* name, int pos, int width);
  // Reads the frame of the field gone to, one word or two, and extracts it.
  bool extract(const char* name, int pos, int width, uint64_t& value);

  // The steps of an extraction, bits counted from 1. UNPK_MID takes bits `low` to `high` of a word;
  // UNPK_HIGH what a field that ends at bit `bit_num` of the frame has
  // in its second word; UNPK_LOW the lowest `bit_num` bits, which a destination of `width` bits
  // must have room for.
  bool mid(const char* name, int low, int high, uint64_t word, uint64_t& value) const;
  bool high(const char* name, int bit_num, uint64_t word, uint64_t& value) const;
  bool low(const char* name, int bit_num, int width, uint64_t& value) const;

 private:
  bool check_read(const char* name) const;

  const uint8_t* const payload_;
  const int limit_;
  const bool trace_;
  int base_ = 0;      // byte
  int base_bit_ = 0;  // the same in bits
  int cnt_ = 0;       // bytes read since
  int low_ = 0;       // of the field gone to, in its frame
  int high_ = 0;
};

// Unpacks a record into `record` and prints it in two lines; false, with a line why, when it cannot
// be. `payload` has kUnpkBufBytes bytes.
bool modem_stats_parse_xxxx_diag_xxxx(const uint8_t* payload, bool trace,
                                      modem_stats_single_data_common_type& record);

// The same without the two lines.
bool velmor_unpack_record(const uint8_t* payload, bool trace,
                          modem_stats_single_data_common_type& record);

// A field of an unpacked record: where it stood, from the version's first bit on, and its value.
struct UnpkValue {
  const char* name;
  int bit;
  int width;
  uint64_t value;
};

// All fields of an unpacked record but its version, in the order in which they are printed.
std::vector<UnpkValue> velmor_unpacked_values(const modem_stats_single_data_common_type& record);

// Unpacks the record at `payload`, which may be null, and keeps it.
void velmor_test_modem_stats_parsing_process_do(const uint8_t* payload, bool trace);
