#include "qrtr_server.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

namespace sim {
namespace {

using qmi::Control;
using qmi::ControlPacket;

constexpr uint32_t kDelClient = 6;  // a socket somewhere has closed: node, port
constexpr uint32_t kRoomPauseMs = 1;
constexpr size_t kMaxWaiting = 4096;
constexpr size_t kMaxClientBytes = size_t{1} << 20;  // that wait for one client
constexpr size_t kMaxBytes = size_t{64} << 20;       // for all

}  // namespace

bool QrtrServer::listen(std::string& problem) {
  MutexLock hold(lock_);
  start_services();
  if (registration_error_ == 0) return true;
  problem = registration_error_ == EAFNOSUPPORT ? "this kernel has no QRTR"
                                                : strerror(registration_error_);
  return false;
}

void QrtrServer::publish(Running& running) {
  qmi::QrtrSocket& socket = sockets_[running.id()];
  if (!socket.open()) {
    registration_error_ = errno;
    return;
  }
  running.port = next_port_++;  // tells one life of the service from the next
  const ControlPacket server{.command = Control::NewServer,
                             .service = running.id(),
                             .instance = running.service->description().major_version};
  const int error = socket.send(socket.name_service(), qmi::bytes_of(server));
  if (error != 0) registration_error_ = error;
}

void QrtrServer::withdraw(Running& running) {
  sockets_.erase(running.id());  // the kernel tells whoever watches
  std::erase_if(waiting_, [&](const Waiting& packet) { return packet.service == running.id(); });
}

int QrtrServer::send(uint32_t service, qmi::Address to, std::span<const uint8_t> packet) {
  const int error = sockets_[service].send(to, packet);
  if (error == ENETRESET) forgotten_.insert(service);
  return error;
}

void QrtrServer::deliver(Running& running, qmi::Address client, std::span<const uint8_t> packet) {
  if (!sockets_.contains(running.id())) return;
  size_t all_bytes = packet.size();
  size_t client_bytes = 0;
  for (const Waiting& earlier : waiting_) {
    all_bytes += earlier.packet.size();
    if (earlier.client == client) client_bytes += earlier.packet.size();
  }
  if (client_bytes == 0 && send(running.id(), client, packet) != EAGAIN) return;
  const bool has_room = waiting_.size() < kMaxWaiting && all_bytes <= kMaxBytes &&
                        client_bytes + packet.size() <= kMaxClientBytes;
  if (!has_room) return;  // nobody reads: lost, as on a real network
  waiting_.push_back({running.id(), client, {packet.begin(), packet.end()}});
}

// A client that still has no room holds up only its own packets.
void QrtrServer::send_waiting() {
  std::vector<qmi::Address> full;
  std::erase_if(waiting_, [&](const Waiting& packet) REQUIRES(lock_) {
    if (std::find(full.begin(), full.end(), packet.client) != full.end()) return false;
    if (send(packet.service, packet.client, packet.packet) != EAGAIN) return true;
    full.push_back(packet.client);
    return false;
  });
}

// Takes one packet: a request, or the news that a client has gone.
void QrtrServer::receive(Running& running) {
  static uint8_t buffer[qmi::kMaxPacketBytes];
  const auto socket = sockets_.find(running.id());
  if (socket == sockets_.end()) return;
  qmi::Address source;
  const ssize_t n = socket->second.receive(source, buffer);
  if (n < 0 && errno == ENETRESET) forgotten_.insert(running.id());
  if (n < 0) return;
  const std::span packet(buffer, static_cast<size_t>(n));
  if (source.port != qmi::kControlPort) {
    request(running, source, packet);
    return;
  }
  uint32_t words[3];
  if (packet.size() < sizeof words) return;
  memcpy(words, packet.data(), sizeof words);
  if (words[0] == kDelClient) running.service->client_gone({words[1], words[2]});
}

void QrtrServer::run(int stop_descriptor) {
  for (;;) {
    std::vector<pollfd> fds = {{stop_descriptor, POLLIN, 0}};
    std::vector<Running*> owners;
    timing::Deadline due = next_due();
    {
      MutexLock hold(lock_);
      for (Running& running : services_) {
        const auto socket = sockets_.find(running.id());
        if (socket == sockets_.end()) continue;
        fds.push_back({socket->second.descriptor(), POLLIN, 0});
        owners.push_back(&running);
      }
      if (!waiting_.empty()) {
        due = std::min(due, timing::Clock::now() + std::chrono::milliseconds(kRoomPauseMs));
      }
    }
    qmi::poll_until(fds.data(), fds.size(), due);
    if (fds[0].revents != 0) return;
    run_due();
    MutexLock hold(lock_);
    send_waiting();
    for (size_t i = 0; i < owners.size(); ++i) {
      if (fds[i + 1].revents != 0) receive(*owners[i]);
    }
    for (Running* const running : owners) {
      if (forgotten_.erase(running->id()) > 0) renew(*running);
    }
  }
}

}  // namespace sim
