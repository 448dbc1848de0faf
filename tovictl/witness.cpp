#include "witness.h"

#include "bus_survey.h"
#include "judgement.h"

namespace ctl {
namespace {

Verdict transport_verdict(qmi_client_error_type result) {
  switch (result) {
    case QMI_NO_ERR: return {};
    case QMI_INTERNAL_ERR: return {Status::Malformed, "the answer cannot be decoded"};
    case QMI_SERVICE_ERR: return {Status::NoAnswer, "the service went away"};
    case QMI_TIMEOUT_ERR: return {Status::NoAnswer, "no answer in time"};
    case QMI_PORT_NOT_OPEN_ERR: return {Status::NoAnswer, "the client is closed"};
    default: return {Status::Unreachable, "the system refused to send"};
  }
}

}  // namespace

Witness& Witness::begin() {
  static auto* const witness = new Witness;
  qmi::add_observer(*witness);
  return *witness;
}

void Witness::on_crossing(const qmi::Crossing& crossing) {
  if (crossing.direction == '>') {
    on_request(crossing);
  } else if (crossing.message != nullptr) {
    crossing.message->kind == qmi::Kind::Response ? on_response(crossing) : on_indication(crossing);
  }
  changed_.notify_all();
}

// An outcome that tovi waits for has come before it goes on, or too late.
void Witness::give_up_waiting() {
  for (auto& [what, count] : owed_) {
    if (count <= 0 || is_left_behind(what.first, what.second)) continue;
    indicated_ =
        worse(std::move(indicated_), {Status::NoAnswer, "an outcome did not come in time"});
    count = 0;
  }
}

void Witness::end_command(int result) {
  MutexLock hold(qmi::bus_lock);
  give_up_waiting();
  command_result_ = result;
}

void Witness::on_request(const qmi::Crossing& crossing) {
  give_up_waiting();
  const auto header = qmi::read_header(crossing.packet);
  Seen seen{};
  seen.service = crossing.service.name;
  seen.name = request_name(crossing.service, header->message, crossing.request);
  seen.object = &crossing.service;
  seen.message = header->message;
  seen.transaction = header->transaction;
  seen.begun = timing::Clock::now();
  seen_.push_back(std::move(seen));
}

void Witness::on_response(const qmi::Crossing& crossing) {
  if (crossing.c_struct == nullptr) return;  // on_outcome tells, or nobody waits
  const auto header = qmi::read_header(crossing.packet);
  for (Seen& seen : seen_) {
    if (!seen.open || seen.object != &crossing.service || seen.transaction != header->transaction) {
      continue;
    }
    const Judgement judgement = judge_response(crossing, values_);
    seen.verdict = judgement.verdict;
    seen.absent = judgement.absent;
    if (seen.verdict.ok() && owes_indication(crossing.service, seen.message)) {
      ++owed_[{crossing.service.service_id, seen.message}];
    }
  }
}

void Witness::on_indication(const qmi::Crossing& crossing) {
  if (!owes_indication(crossing.service, crossing.message->id)) return;
  indicated_ = worse(std::move(indicated_), judge_indication(crossing, values_));
  if (is_last_indication(crossing)) {
    --owed_[{crossing.service.service_id, crossing.message->id}];
  }
}

void Witness::on_outcome(const qmi_idl_service_object& service, const qmi::Message& request,
                         qmi_client_error_type result) {
  for (Seen& seen : seen_) {
    if (!seen.open || seen.object != &service || seen.message != request.id) continue;
    seen.open = false;
    const std::chrono::duration<double, std::milli> took = timing::Clock::now() - seen.begun;
    seen.milliseconds = took.count();
    if (result != QMI_NO_ERR) seen.verdict = transport_verdict(result);
    changed_.notify_all();
    return;
  }
  if (result == QMI_NO_ERR) return;
  // It never left: the client has no server any more.
  Seen unsent{};
  unsent.service = service.name;
  unsent.name = request.name;
  unsent.object = &service;
  unsent.open = false;
  unsent.verdict = transport_verdict(result);
  seen_.push_back(std::move(unsent));
}

void Witness::on_opened(const qmi_idl_service_object& service, qmi_client_error_type result) {
  opened_[&service] = result;
}

void Witness::wait_for_outcomes(uint32_t ms) {
  const timing::Deadline deadline = timing::peer_deadline(ms);
  MutexLock hold(qmi::bus_lock);
  const auto all_told = [&]() REQUIRES(qmi::bus_lock) {
    for (const auto& [what, count] : owed_) {
      if (count > 0) return false;
    }
    return true;
  };
  while (!all_told() && changed_.wait_until(qmi::bus_lock, deadline)) {
  }
}

// Why the services could not be opened that could not be opened in the end.
Verdict Witness::missing_services() {
  std::vector<const qmi_idl_service_object*> missing;
  {
    MutexLock hold(qmi::bus_lock);
    for (const auto& [service, result] : opened_) {
      if (result != QMI_NO_ERR) missing.push_back(service);
    }
  }
  Verdict verdict;
  for (const auto* service : missing) {
    verdict = worse(std::move(verdict), why_no_client(*service));
  }
  return verdict;
}

Verdict Witness::judge(std::span<const Excuse> excuses) {
  Verdict verdict = missing_services();
  MutexLock hold(qmi::bus_lock);
  const auto succeeds_later = [&](size_t from) REQUIRES(qmi::bus_lock) {
    for (size_t i = from + 1; i < seen_.size(); ++i) {
      if (seen_[i].name == seen_[from].name && seen_[i].verdict.ok()) return true;
    }
    return false;
  };
  for (size_t i = 0; i < seen_.size(); ++i) {
    Seen& seen = seen_[i];
    if (seen.verdict.ok()) continue;
    for (const Excuse& excuse : excuses) {
      const bool fits = excuse.when == Excuse::Absent ? seen.absent : succeeds_later(i);
      if (seen.name == excuse.exchange && fits) seen.excuse = excuse.reason;
    }
    if (seen.excuse != nullptr) continue;
    Verdict one = seen.verdict;
    one.cause = std::string(seen.service) + " " + seen.name + ": " + one.cause;
    verdict = worse(std::move(verdict), std::move(one));
  }
  verdict = worse(std::move(verdict), indicated_);
  for (const auto& [what, count] : owed_) {
    if (count > 0) {
      verdict = worse(std::move(verdict), {Status::NoAnswer, "the modem has not told the outcome"});
    }
  }
  if (!verdict.ok() || command_result_ == 0) return verdict;
  // An outcome came too late for the command, if in time for its witness.
  return {Status::NoAnswer, "the command failed with " + std::to_string(command_result_)};
}

std::vector<Exchange> Witness::exchanges() {
  MutexLock hold(qmi::bus_lock);
  return {seen_.begin(), seen_.end()};
}

Json Witness::values() {
  MutexLock hold(qmi::bus_lock);
  return values_;
}

}  // namespace ctl
