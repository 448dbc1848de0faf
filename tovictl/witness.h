// Sees all that a command of tovi exchanges with the modem and judges it: by the messages and the
// client library's results, never by what is printed.
#pragma once

#include <chrono>
#include <map>
#include <vector>

#include "mutex.h"
#include "qcci/observer.h"
#include "verbs.h"

namespace ctl {

// A failure that belongs to the normal course of a command, and why.
struct Excuse {
  const char* exchange;  // its name, as Exchange has it
  enum When {
    Absent,         // refused because there is no such item or file
    LaterSucceeds,  // whatever the failure, if the same exchange succeeds afterwards
  } when;
  const char* reason;
};

struct Exchange {
  const char* service;  // its name in the tables
  std::string name;     // what is asked for: "get_eid", "nv_read 550", "efs_read /path"
  Verdict verdict;
  double milliseconds = 0;
  const char* excuse = nullptr;  // why its failure does not count
};

class Witness final : public qmi::Observer {
 public:
  // Begins to look on; lives as long as the process.
  static Witness& begin();

  // The command is over, with this result: what it still waited for has not come in time.
  void end_command(int result) EXCLUDES(qmi::bus_lock);

  // Waits up to `ms` for the outcomes that the modem still owes.
  void wait_for_outcomes(uint32_t ms) EXCLUDES(qmi::bus_lock);

  // What all of it comes to; the outcomes that are still owed are missing from now on.
  Verdict judge(std::span<const Excuse> excuses) EXCLUDES(qmi::bus_lock);

  std::vector<Exchange> exchanges() EXCLUDES(qmi::bus_lock);
  // What the modem has told, by name.
  Json values() EXCLUDES(qmi::bus_lock);

 private:
  struct Seen : Exchange {
    const qmi_idl_service_object* object;
    uint16_t message;
    uint16_t transaction;
    bool open = true;
    bool absent = false;
    timing::Clock::time_point begun;
  };

  Witness() = default;
  void on_crossing(const qmi::Crossing& crossing) override REQUIRES(qmi::bus_lock);
  void on_outcome(const qmi_idl_service_object& service, const qmi::Message& request,
                  qmi_client_error_type result) override REQUIRES(qmi::bus_lock);
  void on_opened(const qmi_idl_service_object& service, qmi_client_error_type result) override
      REQUIRES(qmi::bus_lock);
  void on_request(const qmi::Crossing& crossing) REQUIRES(qmi::bus_lock);
  void on_response(const qmi::Crossing& crossing) REQUIRES(qmi::bus_lock);
  void on_indication(const qmi::Crossing& crossing) REQUIRES(qmi::bus_lock);
  void give_up_waiting() REQUIRES(qmi::bus_lock);
  Verdict missing_services() EXCLUDES(qmi::bus_lock);

  std::vector<Seen> seen_ GUARDED_BY(qmi::bus_lock);
  // Indications that tell an outcome: how many are owed, by service and message.
  std::map<std::pair<uint32_t, uint16_t>, int> owed_ GUARDED_BY(qmi::bus_lock);
  std::map<const qmi_idl_service_object*, qmi_client_error_type> opened_ GUARDED_BY(qmi::bus_lock);
  Verdict indicated_ GUARDED_BY(qmi::bus_lock);
  int command_result_ GUARDED_BY(qmi::bus_lock) = 0;
  Json values_ GUARDED_BY(qmi::bus_lock) = Json::object();
  Condition changed_;
};

}  // namespace ctl
