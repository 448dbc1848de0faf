// Module 9: radio statistics by carrier and antenna, from the statistics service.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

int velmor_test_qmi_modem_stats_do(int argc, char** argv);
void velmor_test_modem_stats_show_help(int module);

enum class FieldType : uint8_t { U8 = 1, U16 = 2, U32 = 4, Float = 0 };

// A field of a record; fields are packed. What has no label is not printed.
struct RecordField {
  FieldType type;
  const char* name;
  const char* label;

  constexpr RecordField(FieldType type, const char* name) : type(type), name(name), label(name) {}
  constexpr RecordField(FieldType type, const char* name, const char* label)
      : type(type), name(name), label(label) {}
  constexpr size_t bytes() const {
    return type == FieldType::Float ? 4 : static_cast<size_t>(type);
  }
};

// How a record becomes a line: what stands in front, and between a label and its value.
struct StatisticLine {
  const char* heading;
  const char* separator;
};

enum class Subscription { Asked, First };

// A command: the statistic that it fetches, and how that is shown.
struct Statistic {
  int opt;
  uint32_t id;
  std::span<const RecordField> fields;
  StatisticLine line;
  Subscription sub = Subscription::Asked;
};

// The commands of the module.
std::span<const Statistic> velmor_statistics();
