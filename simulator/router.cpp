#include "router.h"

#include <algorithm>

#include "sim_extension.h"

namespace sim {
namespace {

using qmi::Control;
using qmi::ControlPacket;

constexpr qmi::Address kNameService{kClientNode, qmi::kControlPort};

}  // namespace

std::vector<std::unique_ptr<Service>> make_services(Modem& modem) {
  std::vector<std::unique_ptr<Service>> services;
  services.push_back(std::make_unique<ExtensionService>(modem));
  return services;
}

Router::Router(std::vector<std::unique_ptr<Service>> services) {
  uint32_t port = 1;
  for (auto& service : services) services_.push_back({std::move(service), port++});
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
  for (Running& running : services_) running.service->client_gone({kClientNode, port});
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
    if (to != qmi::Address{kModemNode, running.port}) continue;
    const auto answer = answer_packet(*running.service, {kClientNode, from_port}, packet);
    if (!answer.empty()) from->second.peer->deliver(to, answer);
  }
}

void Router::control(Attached& client, std::span<const uint8_t> bytes) {
  const auto packet = qmi::read_control(bytes);
  if (!packet) return;
  if (packet->command == Control::DelLookup) std::erase(client.lookups, packet->service);
  if (packet->command != Control::NewLookup) return;
  client.lookups.push_back(packet->service);
  for (const Running& running : services_) {
    const qmi_idl_service_object& object = running.service->description();
    if (packet->service != 0 && packet->service != object.service_id) continue;
    const ControlPacket server{Control::NewServer, object.service_id, object.major_version,
                               kModemNode, running.port};
    client.peer->deliver(kNameService, qmi::bytes_of(server));
  }
  const ControlPacket end{.command = Control::NewServer};
  client.peer->deliver(kNameService, qmi::bytes_of(end));
}

}  // namespace sim
