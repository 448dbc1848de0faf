// The modem's log: what it was asked and did, one JSON object a line. docs/simulator.md lists the
// fields.
#pragma once

#include "exchange.h"
#include "line_file.h"

namespace sim {

class Log final : public Witness {
 public:
  // False, with `problem` in words, when the file cannot be opened.
  bool open(const std::string& path, std::string& problem) { return file_.open(path, problem); }

  void saw(const qmi_idl_service_object& service, qmi::Address client,
           std::span<const uint8_t> request, const Exchange& exchange) override;
  void saw_diag(std::span<const uint8_t> command, std::string_view answer) override;
  void saw_at(std::string_view line, std::string_view answer) override;

 private:
  LineFile file_;
};

}  // namespace sim
