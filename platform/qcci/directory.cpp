#include "qcci/directory.h"

#include <algorithm>
#include <atomic>

#include "environment.h"

namespace qmi {
namespace {

constexpr uint32_t kLookupLimitMs = 1000;
constexpr uint32_t kReconnectMs = 100;
constexpr uint32_t kNoService = UINT32_MAX;
constexpr size_t kMaxNodeServers = 256;  // that are kept, as many as the kernel's name service has
constexpr size_t kMaxServers = 16384;

bool has_version(const Server& server, uint8_t major_version) {
  return (server.instance & 0xFF) == major_version;
}

}  // namespace

Directory& Directory::instance() {
  static auto* const directory = new Directory;
  return *directory;
}

Directory::Service& Directory::service_of(uint32_t id) {
  for (Service& service : services_) {
    if (service.id == id) return service;
  }
  return services_.emplace_back(Service{.id = id, .servers = {}, .watches = {}});
}

qmi_client_error_type Directory::connect(timing::Deadline deadline) {
  if (connection_->is_open()) return QMI_NO_ERR;
  const auto error = connection_->open(waited_to_connect_ ? timing::kPast : deadline);
  if (error != QMI_NO_ERR) {
    waited_to_connect_ = waited_to_connect_ || timing::Clock::now() >= deadline;
    return error;
  }
  waited_to_connect_ = false;
  for (Service& service : services_) {
    if (service.asked) ask(service);
  }
  return QMI_NO_ERR;
}

bool Directory::ask(Service& service) {
  service.asked = true;
  if (service.id != kNoService) show(service, Observer::Presence::Sought);
  const ControlPacket lookup{.command = Control::NewLookup, .service = service.id};
  if (connection_->ask_name_service(bytes_of(lookup), timing::peer_deadline(kLookupLimitMs)) != 0) {
    return false;
  }
  unanswered_.push_back(service.id);
  return true;
}

void Directory::stir() {
  if (!connection_->is_open()) return;
  Service& nobody = service_of(kNoService);
  ask(nobody);
  nobody.asked = false;
  const ControlPacket end{.command = Control::DelLookup, .service = kNoService};
  connection_->ask_name_service(bytes_of(end), timing::peer_deadline(kLookupLimitMs));
}

// Brings the view of a service up to date: takes what has arrived, and waits for the answer to a
// lookup that has none yet. A modem that lets nobody in, and a name service that does not answer,
// is waited for only once.
qmi_client_error_type Directory::refresh(Service& service) {
  connection_->drain();  // may find that the connection is gone
  const timing::Deadline deadline = timing::peer_deadline(kLookupLimitMs);
  const qmi_client_error_type error = connect(deadline);
  if (error != QMI_NO_ERR) {
    service.asked = true;  // by the next connection
    return error;
  }
  if (!service.asked && !ask(service)) {
    service.asked = false;
    connection_->hand_over();
    return QMI_SERVICE_ERR;
  }
  if (!service.answered && !service.waited_for) {
    connection_->wait(deadline, [&]() REQUIRES(bus_lock) { return service.answered; });
    if (!service.answered && connection_->is_open()) give_up(service);
  }
  connection_->hand_over();
  return QMI_NO_ERR;
}

// Its end marker may still come, so the lookup keeps its place among the unanswered: a marker tells
// only by its order what it ends.
void Directory::give_up(Service& service) {
  static std::atomic_flag said;
  service.waited_for = true;
  environment::complain_once(said, "TOVI_MODEM=%s: no answer", environment::modem()->text.c_str());
}

qmi_client_error_type Directory::list(const qmi_idl_service_object& object,
                                      std::vector<Server>& servers) {
  Service& service = service_of(object.service_id);
  servers.clear();
  if (const auto error = refresh(service); error != QMI_NO_ERR) return error;
  for (const Server& server : service.servers) {
    if (has_version(server, object.major_version)) servers.push_back(server);
  }
  return servers.empty() ? QMI_SERVICE_ERR : QMI_NO_ERR;
}

qmi_client_error_type Directory::find(const qmi_idl_service_object& object, uint32_t instance,
                                      uint32_t time_out_ms, Server& found) {
  Service& service = service_of(object.service_id);
  const auto pick = [&]() REQUIRES(bus_lock) {
    for (const Server& server : service.servers) {
      if (!has_version(server, object.major_version)) continue;
      if (instance != QMI_CLIENT_INSTANCE_ANY && server.instance >> 8 != instance) continue;
      found = server;
      return true;
    }
    return false;
  };
  auto deadline = timing::kNever;
  for (;;) {
    const qmi_client_error_type error = refresh(service);
    if (pick()) return QMI_NO_ERR;
    if (error == QMI_PORT_NOT_OPEN_ERR) return error;
    // The lookup has a limit of its own; only waiting for a missing service counts.
    if (deadline == timing::kNever) deadline = timing::peer_deadline(time_out_ms);
    if (timing::Clock::now() >= deadline) return QMI_TIMEOUT_ERR;
    if (connection_->is_open()) {
      connection_->wait(deadline, pick);
    } else {
      connection_->sleep_until(
          std::min(deadline, timing::Clock::now() + timing::scaled(kReconnectMs)));
    }
  }
}

bool Directory::watch(const qmi_idl_service_object& object, std::weak_ptr<ServiceWatcher> watcher,
                      bool tell_now) {
  Service& service = service_of(object.service_id);
  const auto error = refresh(service);
  if (error == QMI_PORT_NOT_OPEN_ERR) return false;
  std::erase_if(service.watches, [](const Watch& watch) { return watch.watcher.expired(); });
  service.watches.push_back({object.major_version, std::move(watcher)});
  if (tell_now) {
    const auto told = service.watches.back().watcher.lock();
    for (const Server& server : service.servers) {
      if (has_version(server, object.major_version)) told->on_service(true, server);
    }
  }
  if (error == QMI_SERVICE_ERR) retry_soon();
  return true;
}

bool Directory::runs(const qmi_idl_service_object& object, Address address) {
  const auto& servers = service_of(object.service_id).servers;
  return std::any_of(servers.begin(), servers.end(),
                     [&](const Server& server) { return server.address == address; });
}

void Directory::on_packet(std::span<const uint8_t> bytes) {
  const auto packet = read_control(bytes);
  if (!packet) return;
  if (packet->ends_list()) {
    if (unanswered_.empty()) return;
    Service& listed = service_of(unanswered_.front());
    listed.answered = true;
    if (listed.id != kNoService) show(listed, Observer::Presence::Listed);
    unanswered_.pop_front();
    return;
  }
  const auto service = std::find_if(services_.begin(), services_.end(), [&](const Service& known) {
    return known.id == packet->service;
  });
  if (service == services_.end()) return;
  if (packet->command == Control::NewServer) {
    server_came(*service, {packet->address(), packet->instance});
  } else if (packet->command == Control::DelServer) {
    server_left(*service, packet->address());
  }
}

void Directory::on_closed() {
  unanswered_.clear();
  for (Service& service : services_) {
    service.answered = service.waited_for = false;
    while (!service.servers.empty()) server_left(service, service.servers.back().address);
  }
  retry_soon();
}

void Directory::server_came(Service& service, const Server& server) {
  for (Server& known : service.servers) {
    if (known.address == server.address) {
      known = server;
      return;
    }
  }
  if (!has_room(server.address.node)) return;
  service.servers.push_back(server);
  tell(service, true, server);
}

bool Directory::has_room(uint32_t node) {
  size_t all = 0;
  size_t of_node = 0;
  for (const Service& service : services_) {
    all += service.servers.size();
    for (const Server& known : service.servers) of_node += known.address.node == node;
  }
  return all < kMaxServers && of_node < kMaxNodeServers;
}

void Directory::server_left(Service& service, Address address) {
  const auto found = std::find_if(service.servers.begin(), service.servers.end(),
                                  [&](const Server& server) { return server.address == address; });
  if (found == service.servers.end()) return;
  const Server server = *found;
  service.servers.erase(found);
  tell(service, false, server);
}

void Directory::show(const Service& service, Observer::Presence presence) {
  for (Observer* observer : observers()) observer->on_presence(service.id, presence);
}

void Directory::tell(Service& service, bool there, const Server& server) {
  show(service, there ? Observer::Presence::There : Observer::Presence::Gone);
  std::erase_if(service.watches, [&](const Watch& watch) REQUIRES(bus_lock) {
    const auto watcher = watch.watcher.lock();
    if (watcher == nullptr) return true;
    return has_version(server, watch.major_version) && !watcher->on_service(there, server);
  });
}

// Somebody may wait for a modem that is not there: tries again until nobody watches any more.
void Directory::retry_soon() {
  if (retry_planned_) return;
  retry_planned_ = true;
  connection_->call_at(timing::Clock::now() + timing::scaled(kReconnectMs));
}

void Directory::on_time() {
  retry_planned_ = false;
  bool watched = false;
  for (Service& service : services_) {
    std::erase_if(service.watches, [](const Watch& watch) { return watch.watcher.expired(); });
    watched = watched || !service.watches.empty();
  }
  if (!watched) return;
  if (connect(timing::kPast) == QMI_NO_ERR) {
    connection_->hand_over();
  } else {
    retry_soon();
  }
}

}  // namespace qmi
