#include "qcci/qmux_link.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

#include "qcci/packet.h"

namespace qmi {
namespace {

using qmux::ControlId;
using qmux::ControlKind;

constexpr uint32_t kLeaveLimitMs = 500;
constexpr int kMostStaleReads = 256;  // a device that never runs dry is not waited for
constexpr size_t kVersionEntryBytes = 5;

bool succeeded(std::span<const uint8_t> answer) {
  const auto result = find_tlv(answer, qmux::kControlResultTlv);
  return result.size() >= 2 && result[0] == 0 && result[1] == 0;
}

std::optional<QmuxLink::Services> read_services(std::span<const uint8_t> answer) {
  const auto list = find_tlv(answer, qmux::kControlTlv);
  if (!succeeded(answer) || list.empty()) return std::nullopt;
  if (list.size() - 1 < list[0] * kVersionEntryBytes) return std::nullopt;
  QmuxLink::Services services;
  for (size_t i = 0; i < list[0]; ++i) {
    const auto entry = list.subspan(1 + i * kVersionEntryBytes, kVersionEntryBytes);
    if (entry[0] == qmux::kControlService) continue;
    services[entry[0]] = static_cast<uint16_t>(entry[1] | entry[2] << 8);
  }
  return services;
}

std::vector<uint8_t> tlv_of(std::span<const uint8_t> value) {
  std::vector<uint8_t> body;
  qmux::append_tlv(body, qmux::kControlTlv, value);
  return body;
}

}  // namespace

// Transactions begin at a number of the process's own: a late answer to one that was killed meets
// nobody.
QmuxLink::QmuxLink(Descriptor stream)
    : stream_(std::move(stream)), last_transaction_(static_cast<uint8_t>(getpid())) {
  uint8_t stale[4096];
  for (int i = 0; i<kMostStaleReads&& ::read(stream_.get(), stale, sizeof stale)> 0; ++i) {
  }
}

QmuxLink::Greeting QmuxLink::open_proxied(const std::string& path, timing::Deadline deadline) {
  Question question{.id = ControlId::OpenProxied};
  const auto* name = reinterpret_cast<const uint8_t*>(path.data());
  ask(question, tlv_of({name, path.size()}), deadline);
  const Greeting greeting = await(question, deadline);
  forget(question);
  const bool refused = greeting == Greeting::Answered && !succeeded(question.answer);
  return refused ? Greeting::Refused : greeting;
}

QmuxLink::Greeting QmuxLink::greet(timing::Deadline deadline) {
  {
    MutexLock hold(lock_);
    if (!services_.empty()) return Greeting::Answered;
  }
  if (hello_.transaction == 0) ask(hello_, {}, deadline);
  const Greeting greeting = await(hello_, deadline);
  if (greeting != Greeting::Answered) return greeting;
  const auto services = read_services(hello_.answer);
  MutexLock hold(lock_);
  if (services) services_ = *services;
  return services ? Greeting::Answered : Greeting::Refused;
}

QmuxLink::Services QmuxLink::services() {
  MutexLock hold(lock_);
  return services_;
}

void QmuxLink::attach(Port& port) {
  MutexLock hold(lock_);
  ports_.push_back(&port);
}

void QmuxLink::detach(Port& port) {
  std::vector<ClientId> its;
  {
    MutexLock hold(lock_);
    std::erase(ports_, &port);
    for (const ClientId& id : ids_) {
      if (id.port == &port) its.push_back(id);
    }
  }
  for (const ClientId& id : its) release(id);
}

int QmuxLink::send(Port& port, uint8_t service, std::span<const uint8_t> message,
                   timing::Deadline deadline) {
  uint8_t client = 0;
  if (!find_id(port, service, client)) {
    const int error = allocate(port, service, client, deadline);
    while (is_leaving()) pause();
    if (error != 0) return error;
  }
  return write(qmux::make_frame(qmux::Sender::Host, {service, client, message}), deadline);
}

bool QmuxLink::is_leaving() {
  MutexLock hold(lock_);
  return leaving_;
}

bool QmuxLink::find_id(const Port& port, uint8_t service, uint8_t& number) {
  MutexLock hold(lock_);
  for (const ClientId& id : ids_) {
    if (id.port != &port || id.service != service) continue;
    number = id.number;
    return true;
  }
  return false;
}

// The answer makes an id that is nobody's. One whose request ran out of time serves the next.
int QmuxLink::allocate(Port& port, uint8_t service, uint8_t& number, timing::Deadline deadline) {
  const auto take = [&] {
    MutexLock hold(lock_);
    for (ClientId& id : ids_) {
      if (id.port != nullptr || id.service != service) continue;
      id.port = &port;
      number = id.number;
      return true;
    }
    return false;
  };
  if (take()) return 0;
  Question question{.id = ControlId::AllocateClientId};
  int error = ask(question, tlv_of({&service, 1}), deadline);
  if (error == 0) {
    switch (await(question, deadline)) {
      case Greeting::Answered: error = take() ? 0 : EDQUOT; break;
      case Greeting::Lost: error = ENODEV; break;
      default: error = ETIMEDOUT;
    }
  }
  forget(question);
  return error;
}

void QmuxLink::release(const ClientId& id) {
  uint8_t transaction;
  {
    MutexLock hold(lock_);
    std::erase_if(ids_, [&](const ClientId& mine) {
      return mine.service == id.service && mine.number == id.number;
    });
    being_released_.push_back(id);
    if (++last_transaction_ == 0) ++last_transaction_;
    transaction = last_transaction_;
  }
  const uint8_t whose[] = {id.service, id.number};
  const auto body = tlv_of(whose);
  write(qmux::make_control_frame(qmux::Sender::Host, {ControlKind::Request, transaction,
                                                      ControlId::ReleaseClientId, body}),
        timing::kPast);
}

int QmuxLink::ask(Question& question, std::span<const uint8_t> body, timing::Deadline deadline) {
  {
    MutexLock hold(lock_);
    if (leaving_) return ECANCELED;
    if (++last_transaction_ == 0) ++last_transaction_;
    question.transaction = last_transaction_;
    questions_.push_back(&question);
    if (question.id == ControlId::AllocateClientId) {
      being_allocated_.push_back(question.transaction);
    }
  }
  return write(
      qmux::make_control_frame(qmux::Sender::Host,
                               {ControlKind::Request, question.transaction, question.id, body}),
      deadline);
}

QmuxLink::Greeting QmuxLink::await(Question& question, timing::Deadline deadline) {
  for (;;) {
    const bool there = read();
    {
      MutexLock hold(lock_);
      if (question.answered) return Greeting::Answered;
      if (!there) return Greeting::Lost;
      if (timing::Clock::now() >= deadline) {
        return reader_.has_skipped() ? Greeting::Strange : Greeting::Silent;
      }
    }
    pollfd fds[] = {{stream_.get(), POLLIN, 0}, {question.wake.descriptor(), POLLIN, 0}};
    poll_until(fds, 2, deadline);
  }
}

void QmuxLink::forget(Question& question) {
  MutexLock hold(lock_);
  std::erase(questions_, &question);
}

// A device takes a frame only when it comes in one piece.
int QmuxLink::write(std::span<const uint8_t> frame, timing::Deadline deadline) {
  if (frame.empty()) return EMSGSIZE;
  MutexLock whole(writing_);
  for (bool begun = false; !frame.empty();) {
    const ssize_t n = ::write(stream_.get(), frame.data(), frame.size());
    if (n > 0) {
      begun = true;
      frame = frame.subspan(static_cast<size_t>(n));
      continue;
    }
    const bool full = n < 0 && (errno == EAGAIN || errno == EINTR);
    const bool late = timing::Clock::now() >= deadline;
    if (full && !late) {
      pollfd room{stream_.get(), POLLOUT, 0};
      poll_until(&room, 1, deadline);
      continue;
    }
    if (full && !begun) return ETIMEDOUT;
    MutexLock hold(lock_);
    lose();  // also when half a frame was taken
    return ENODEV;
  }
  return 0;
}

bool QmuxLink::read() {
  MutexLock hold(lock_);
  if (lost_) return false;
  const auto room = reader_.room();
  const ssize_t n = ::read(stream_.get(), room.data(), room.size());
  if (n > 0) {
    reader_.filled(static_cast<size_t>(n));
    while (const auto frame = reader_.next()) on_frame(*frame);
  } else if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
    lose();
  }
  return !lost_;
}

bool QmuxLink::is_lost() {
  MutexLock hold(lock_);
  return lost_;
}

void QmuxLink::on_frame(const qmux::Frame& frame) {
  if (frame.service == qmux::kControlService) {
    const qmux::ControlMessage message = qmux::read_control(frame.message);
    if (message.kind == ControlKind::Response) on_answer(message);
    // The modem has restarted: what it gave out is void.
    if (message.kind == ControlKind::Indication && message.id == ControlId::Sync) lose();
    return;
  }
  for (const ClientId& id : ids_) {
    const bool meant = frame.client == id.number || frame.client == qmux::kAllClients;
    if (meant && id.service == frame.service && id.port != nullptr) {
      id.port->on_message(frame.service, frame.message);
    }
  }
}

void QmuxLink::on_answer(const qmux::ControlMessage& message) {
  const auto whose = find_tlv(message.body, qmux::kControlTlv);
  if (message.id == ControlId::AllocateClientId &&
      std::erase(being_allocated_, message.transaction) > 0 && succeeded(message.body) &&
      whose.size() >= 2) {
    ids_.push_back({whose[0], whose[1], nullptr});
  }
  if (message.id == ControlId::ReleaseClientId && whose.size() >= 2) {
    std::erase_if(being_released_, [&](const ClientId& id) {
      return id.service == whose[0] && id.number == whose[1];
    });
  }
  for (Question* question : questions_) {
    const bool asks = question->id == message.id && question->transaction == message.transaction;
    if (!asks || question->answered) continue;
    question->answer.assign(message.body.begin(), message.body.end());
    question->answered = true;
    question->wake.set();
  }
  if (leaving_) leaver_.set();
}

void QmuxLink::lose() {
  if (lost_) return;
  lost_ = true;
  ids_.clear();
  being_allocated_.clear();
  being_released_.clear();
  for (Port* port : ports_) port->on_lost();
  for (Question* question : questions_) question->wake.set();
  leaver_.set();
}

void QmuxLink::leave() {
  const timing::Deadline deadline = timing::peer_deadline(kLeaveLimitMs);
  for (;;) {
    std::vector<ClientId> left;
    {
      MutexLock hold(lock_);
      leaving_ = true;
      left = ids_;
    }
    for (const ClientId& id : left) release(id);
    const bool there = read();
    {
      MutexLock hold(lock_);
      const bool owed = !ids_.empty() || !being_allocated_.empty() || !being_released_.empty();
      if (!there || !owed || timing::Clock::now() >= deadline) return;
      leaver_.clear();
    }
    pollfd fds[] = {{stream_.get(), POLLIN, 0}, {leaver_.descriptor(), POLLIN, 0}};
    poll_until(fds, 2, deadline);
  }
}

}  // namespace qmi
