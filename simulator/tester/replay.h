// Answers from a record in the modem's place: equal requests in the recorded order, with what came
// of them then and, unless it is to be fast, when.
#pragma once

#include "exchange.h"
#include "record_file.h"

namespace sim {

class Replay final : public Script {
 public:
  // Answers from `record` from now on; with `fast` at once.
  void play(Record record, bool fast);

  std::optional<Exchange> answer(const qmi_idl_service_object& service,
                                 std::span<const uint8_t> request) override;
  std::vector<Change> sought(uint32_t service) override;

  // Says on standard error what was never asked. Whether all that was asked stands in the record.
  bool finish() const;

 private:
  uint32_t milliseconds(uint32_t recorded_us) const;
  std::vector<Change> changes_of(const std::vector<RecordedChange>& recorded) const;
  void say_difference(const qmi_idl_service_object& service,
                      std::span<const uint8_t> request) const;

  bool fast_ = false;
  Record record_;
  std::vector<bool> asked_;   // of the exchanges
  std::vector<bool> sought_;  // of the searches
  bool differs_ = false;
};

}  // namespace sim
