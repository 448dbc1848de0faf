#include "qcci/connection.h"

#include <errno.h>

#include <algorithm>
#include <utility>

namespace qmi {

Mutex bus_lock;

Connection::~Connection() {
  if (thread_ != nullptr) thread_->wake();
}

qmi_client_error_type Connection::open(timing::Deadline deadline) {
  Opened opened = open_endpoint(deadline);
  if (opened.endpoint == nullptr) return opened.error;
  endpoint_ = std::move(opened.endpoint);
  clients_.clear();  // of another port
  return QMI_NO_ERR;
}

void Connection::close() {
  if (endpoint_ == nullptr) return;
  if (thread_ != nullptr) thread_->forget(endpoint_->descriptor());
  served_ = false;
  endpoint_->interrupt();
  endpoint_.reset();
  changed();
}

void Connection::interrupt() {
  if (endpoint_ != nullptr) endpoint_->interrupt();
  changed();
}

bool Connection::claim(Address server, Receiver& client) {
  for (const Client& known : clients_) {
    if (known.server == server) return false;
  }
  clients_.push_back({server, &client});
  return true;
}

void Connection::forget(const Receiver& client) {
  for (Client& known : clients_) {
    if (known.receiver == &client) known.receiver = nullptr;
  }
}

uint16_t Connection::next_transaction() {
  if (++last_transaction_ == 0) ++last_transaction_;
  return last_transaction_;
}

int Connection::send(Address to, std::span<const uint8_t> packet, timing::Deadline deadline) {
  if (endpoint_ == nullptr) return ENOTCONN;
  keep_thread_away();
  const std::shared_ptr<Endpoint> endpoint = endpoint_;
  bus_lock.unlock();
  const int error = endpoint->send(to, packet, deadline);
  bus_lock.lock();
  return error;
}

int Connection::ask_name_service(std::span<const uint8_t> packet, timing::Deadline deadline) {
  if (endpoint_ == nullptr) return ENOTCONN;
  keep_thread_away();
  return endpoint_->send(endpoint_->name_service(), packet, deadline);
}

void Connection::take(Endpoint::Received received, Address source,
                      std::span<const uint8_t> packet) {
  if (received == Endpoint::Received::Packet) {
    if (source.port == kControlPort) {
      if (control_ != nullptr) control_->on_packet(packet);
    } else {
      const auto known = std::find_if(clients_.begin(), clients_.end(), [&](const Client& client) {
        return client.server == source;
      });
      if (known != clients_.end() && known->receiver != nullptr) known->receiver->on_packet(packet);
    }
  } else if (received == Endpoint::Received::Closed) {
    close();
    for (const Client& client : std::exchange(clients_, {})) {
      if (client.receiver != nullptr) client.receiver->on_closed();
    }
    if (control_ != nullptr) control_->on_closed();
  }
  changed();
}

bool Connection::read_one(timing::Deadline deadline) {
  if (reading_) {
    ++sleepers_;
    const bool in_time = changed_.wait_until(bus_lock, deadline);
    --sleepers_;
    return in_time;
  }
  keep_thread_away();
  reading_ = true;
  const std::shared_ptr<Endpoint> endpoint = endpoint_;
  Address source;
  std::span<const uint8_t> packet;
  bus_lock.unlock();
  const Endpoint::Received received = endpoint->receive(source, packet, deadline);
  bus_lock.lock();
  reading_ = false;
  if (endpoint == endpoint_) take(received, source, packet);
  changed();
  return received != Endpoint::Received::TimedOut;
}

void Connection::drain() {
  for (int taken = 0; is_open() && !reading_ && taken < kFlood; ++taken) {
    Address source;
    std::span<const uint8_t> packet;
    const std::shared_ptr<Endpoint> endpoint = endpoint_;
    const auto received = endpoint->receive(source, packet, timing::kPast);
    if (received == Endpoint::Received::TimedOut) return;
    take(received, source, packet);
  }
}

void Connection::keep_thread_away() {
  if (served_) thread_->leave_alone(endpoint_->descriptor());
  served_ = false;
}

void Connection::hand_over() {
  if (!is_open() || reading_ || served_ || sleepers_ > 0) return;
  thread().serve_when_readable(endpoint_->descriptor());
  served_ = true;
}

void Connection::call_at(timing::Deadline when) {
  call_at_ = when;
  thread().call_at(when);
}

ReadingThread& Connection::thread() {
  if (thread_ == nullptr) thread_ = ReadingThread::start(weak_from_this());
  return *thread_;
}

void Connection::serve() {
  MutexLock hold(bus_lock);
  if (!reading_) {
    keep_thread_away();
    drain();
  }
  if (call_at_ <= timing::Clock::now()) {
    call_at_ = timing::kNever;
    control_->on_time();
  }
  hand_over();
}

}  // namespace qmi
