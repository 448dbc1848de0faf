#include "router.h"

#include <algorithm>

namespace sim {
namespace {

using qmi::Control;
using qmi::ControlPacket;

constexpr size_t kMaxLookups = 128;  // of a client, as the kernel's name service allows

constexpr qmi::Address kNameService{kClientNode, qmi::kControlPort};

}  // namespace

Router::Router(Modem& modem, Behaviour behaviour) : Network(modem, std::move(behaviour)) {
  MutexLock hold(lock_);
  start_services();
}

uint32_t Router::attach(Peer& peer) {
  MutexLock hold(lock_);
  while (clients_.contains(next_client_port_) || next_client_port_ < 0x4000) ++next_client_port_;
  clients_[next_client_port_] = {&peer, {}};
  return next_client_port_++;
}

void Router::detach(uint32_t port) {
  MutexLock hold(lock_);
  clients_.erase(port);
  forget_client({kClientNode, port});
}

void Router::send(uint32_t from_port, qmi::Address to, std::span<const uint8_t> packet) {
  MutexLock hold(lock_);
  const auto from = clients_.find(from_port);
  if (from == clients_.end()) return;
  if (to == kNameService) {
    control(from->second, packet);
    return;
  }
  for (Running& running : services_) {
    if (running.up && to == qmi::Address{kModemNode, running.port}) {
      request(running, {kClientNode, from_port}, packet);
      return;
    }
  }
}

void Router::publish(Running& running) {
  running.port = next_service_port_++;
  tell_watchers(Control::NewServer, running);
}

void Router::withdraw(Running& running) {
  tell_watchers(Control::DelServer, running);
}

void Router::deliver(Running& running, qmi::Address client, std::span<const uint8_t> packet) {
  const auto found = clients_.find(client.port);
  if (found != clients_.end()) found->second.peer->deliver({kModemNode, running.port}, packet);
}

void Router::control(Attached& client, std::span<const uint8_t> bytes) {
  const auto packet = qmi::read_control(bytes);
  if (!packet) return;
  if (packet->command == Control::DelLookup) std::erase(client.lookups, packet->service);
  if (packet->command != Control::NewLookup || client.lookups.size() >= kMaxLookups) return;
  service_sought(packet->service);
  client.lookups.push_back(packet->service);
  for (const Running& running : services_) {
    const bool asked = packet->service == 0 || packet->service == running.id();
    if (asked && running.up) tell(client, Control::NewServer, running);
  }
  const ControlPacket end{.command = Control::NewServer};
  client.peer->deliver(kNameService, qmi::bytes_of(end));
}

void Router::tell(const Attached& client, Control command, const Running& running) {
  const ControlPacket server{command, running.id(), running.service->description().major_version,
                             kModemNode, running.port};
  client.peer->deliver(kNameService, qmi::bytes_of(server));
}

void Router::tell_watchers(Control command, const Running& running) {
  for (const auto& [port, client] : clients_) {
    const bool watches =
        std::any_of(client.lookups.begin(), client.lookups.end(),
                    [&](uint32_t service) { return service == 0 || service == running.id(); });
    if (watches) tell(client, command, running);
  }
}

}  // namespace sim
