#include "qmux_server.h"

#include <errno.h>

#include <algorithm>

namespace sim {
namespace {

using qmi::qmux::ControlId;
using qmi::qmux::ControlKind;
using qmi::qmux::ControlMessage;
using qmi::qmux::Sender;

constexpr int kMaxClientIds = 8;  // of a service
constexpr uint8_t kLastId = 0xFE;
constexpr size_t kMaxWaiting = 4096;
constexpr uint16_t kControlVersion[] = {1, 5};

// Published QMI errors that only the control service has.
constexpr uint16_t kClientIdsExhausted = 0x05;
constexpr uint16_t kInvalidClientId = 0x07;
constexpr uint16_t kInvalidServiceType = 0x1F;

void append_version(std::vector<uint8_t>& list, uint8_t service, uint16_t major, uint16_t minor) {
  list.push_back(service);
  for (const uint16_t word : {major, minor}) {
    list.push_back(static_cast<uint8_t>(word));
    list.push_back(static_cast<uint8_t>(word >> 8));
  }
}

}  // namespace

bool QmuxServer::listen(const std::string& link, std::string& problem) {
  MutexLock hold(lock_);
  start_services();
  return terminal_.open(link, problem);
}

void QmuxServer::publish(Running& running) {
  running.port = next_port_++;  // tells one life of the service from the next
  if (!has_been_down_) return;
  has_been_down_ = false;
  const ControlMessage restarted{ControlKind::Indication, 0, ControlId::Sync, {}};
  send(qmi::qmux::make_control_frame(Sender::Modem, restarted));
}

void QmuxServer::withdraw(Running& running) {
  std::erase_if(clients_, [&](qmi::Address client) { return client.node == running.id(); });
  if (is_down()) has_been_down_ = true;
}

// Without a service there is no modem behind the device.
bool QmuxServer::is_down() {
  return std::none_of(services_.begin(), services_.end(),
                      [](const Running& running) { return running.up; });
}

void QmuxServer::deliver(Running&, qmi::Address client, std::span<const uint8_t> packet) {
  if (!clients_.contains(client)) return;
  send(qmi::qmux::make_frame(Sender::Modem, {static_cast<uint8_t>(client.node),
                                             static_cast<uint8_t>(client.port), packet}));
}

void QmuxServer::run(int stop_descriptor) {
  for (;;) {
    pollfd fds[] = {{stop_descriptor, POLLIN, 0}, {terminal_.descriptor(), POLLIN, 0}};
    {
      MutexLock hold(lock_);
      if (!waiting_.empty()) fds[1].events = POLLIN | POLLOUT;
    }
    qmi::poll_until(fds, 2, next_due());
    if (fds[0].revents != 0) return;
    run_due();
    if ((fds[1].revents & POLLIN) != 0) {
      uint8_t bytes[4096];
      const ssize_t n = read(terminal_.descriptor(), bytes, sizeof bytes);
      if (n > 0) take({bytes, static_cast<size_t>(n)});
    }
    MutexLock hold(lock_);
    send_waiting();
  }
}

void QmuxServer::take(std::span<const uint8_t> bytes) {
  MutexLock hold(lock_);
  while (!bytes.empty()) {
    const auto room = reader_.room();
    const size_t count = std::min(room.size(), bytes.size());
    std::copy_n(bytes.begin(), count, room.begin());
    reader_.filled(count);
    bytes = bytes.subspan(count);
    while (const auto frame = reader_.next()) take(*frame);
  }
}

void QmuxServer::take(const qmi::qmux::Frame& frame) {
  if (is_down()) return;
  if (frame.service == qmi::qmux::kControlService) {
    const ControlMessage message = qmi::qmux::read_control(frame.message);
    if (message.kind == ControlKind::Request) control(message);
    return;
  }
  Running* running = find_running(frame.service);
  if (running == nullptr) return;
  const qmi::Address client{frame.service, frame.client};
  if (clients_.contains(client)) {
    request(*running, client, frame.message);
    return;
  }
  const auto header = qmi::read_header(frame.message);
  const auto refusal = running->service->refusal(*header, kInvalidClientId);
  send(qmi::qmux::make_frame(Sender::Modem, {frame.service, frame.client, refusal}));
}

void QmuxServer::control(const ControlMessage& request) {
  Bytes answer;
  const uint16_t error = carry_out(request, answer);
  Bytes body;
  const uint8_t result[] = {error != 0, 0, static_cast<uint8_t>(error),
                            static_cast<uint8_t>(error >> 8)};
  qmi::qmux::append_tlv(body, qmi::qmux::kControlResultTlv, result);
  if (error == 0 && !answer.empty()) {
    qmi::qmux::append_tlv(body, qmi::qmux::kControlTlv, answer);
  }
  send(qmi::qmux::make_control_frame(
      Sender::Modem, {ControlKind::Response, request.transaction, request.id, body}));
}

// 0, or a published QMI error; `answer` becomes the value of the response's TLV.
uint16_t QmuxServer::carry_out(const ControlMessage& request, Bytes& answer) {
  const auto value = qmi::find_tlv(request.body, qmi::qmux::kControlTlv);
  switch (request.id) {
    case ControlId::GetVersionInfo: answer = versions(); return 0;
    case ControlId::AllocateClientId: return allocate(value, answer);
    case ControlId::ReleaseClientId: return release(value, answer);
    case ControlId::Sync: revoke_all(); return 0;
    default: return kQmiNotSupported;
  }
}

QmuxServer::Bytes QmuxServer::versions() {
  Bytes list = {1};
  append_version(list, qmi::qmux::kControlService, kControlVersion[0], kControlVersion[1]);
  for (const Running& running : services_) {
    if (!running.up || running.id() > UINT8_MAX) continue;
    const qmi_idl_service_object& service = running.service->description();
    append_version(list, static_cast<uint8_t>(running.id()), service.major_version,
                   service.minor_version);
    ++list[0];
  }
  return list;
}

uint16_t QmuxServer::allocate(std::span<const uint8_t> whose, Bytes& answer) {
  if (whose.size() != 1) return kQmiMalformedMessage;
  const uint8_t service = whose[0];
  if (find_running(service) == nullptr) return kInvalidServiceType;
  const auto given = std::count_if(clients_.begin(), clients_.end(),
                                   [&](qmi::Address client) { return client.node == service; });
  if (given >= kMaxClientIds) return kClientIdsExhausted;
  // In turn: what is late for one that was released does not meet the next.
  uint8_t& id = last_ids_[service];
  do {
    id = id < kLastId ? static_cast<uint8_t>(id + 1) : 1;
  } while (clients_.contains({service, id}));
  clients_.insert({service, id});
  answer = {service, id};
  return 0;
}

uint16_t QmuxServer::release(std::span<const uint8_t> whose, Bytes& answer) {
  if (whose.size() != 2) return kQmiMalformedMessage;
  const qmi::Address client{whose[0], whose[1]};
  if (clients_.erase(client) == 0) return kInvalidClientId;
  forget_client(client);
  answer.assign(whose.begin(), whose.end());
  return 0;
}

void QmuxServer::revoke_all() {
  for (const qmi::Address client : clients_) forget_client(client);
  clients_.clear();
}

Network::Running* QmuxServer::find_running(uint8_t service) {
  const auto found = std::find_if(services_.begin(), services_.end(), [&](const Running& running) {
    return running.up && running.id() == service;
  });
  return found != services_.end() ? &*found : nullptr;
}

void QmuxServer::send(Bytes frame) {
  if (frame.empty() || waiting_.size() == kMaxWaiting) return;  // nobody reads: lost
  waiting_.push_back(std::move(frame));
  send_waiting();
}

void QmuxServer::send_waiting() {
  while (!waiting_.empty()) {
    Bytes& first = waiting_.front();
    const ssize_t n = write(terminal_.descriptor(), first.data(), first.size());
    if (n <= 0) return;
    first.erase(first.begin(), first.begin() + n);
    if (first.empty()) waiting_.pop_front();
  }
}

}  // namespace sim
