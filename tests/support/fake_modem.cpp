#include "support/fake_modem.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace testing_support {
namespace {

constexpr uint32_t kNode = 0;
constexpr qmi::Address kNameService{1, qmi::kControlPort};

void send_framed(const qmi::Descriptor& socket, qmi::Address source,
                 std::span<const uint8_t> packet) {
  Bytes framed(sizeof source);
  memcpy(framed.data(), &source, sizeof source);
  framed.insert(framed.end(), packet.begin(), packet.end());
  ::send(socket.get(), framed.data(), framed.size(), MSG_NOSIGNAL);
}

void send_no_packets(const qmi::Descriptor& socket) {
  static const Bytes too_long(sizeof(qmi::Address) + qmi::kMaxPacketBytes + 1);
  constexpr int kFlags = MSG_NOSIGNAL | MSG_DONTWAIT;
  ::send(socket.get(), too_long.data(), too_long.size(), kFlags);
  while (::send(socket.get(), too_long.data(), sizeof(qmi::Address) - 1, kFlags) > 0) {
  }
}

}  // namespace

Bytes bytes(const std::string& text) {
  Bytes out;
  std::string digits;
  for (const char c : text) {
    if (c != ' ' && c != '\n') digits += c;
  }
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
  }
  return out;
}

std::string hex(std::span<const uint8_t> data) {
  std::string out;
  for (const uint8_t byte : data) {
    char text[3];
    snprintf(text, sizeof text, "%02x", byte);
    out += text;
  }
  return out;
}

Bytes packet(qmi::Kind kind, uint16_t transaction, uint16_t message, const Bytes& body) {
  Bytes out(qmi::kHeaderBytes + body.size());
  qmi::write_header({kind, transaction, message, static_cast<uint16_t>(body.size())}, out.data());
  std::copy(body.begin(), body.end(), out.begin() + qmi::kHeaderBytes);
  return out;
}

void FakeModem::start() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path_.c_str(), path_.size());
  unlink(path_.c_str());
  listener_ = qmi::Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener_.get(), 64) != 0) {
    perror("FakeModem");
    abort();
  }
  thread_ = std::thread([this] { run(); });
}

void FakeModem::stop() {
  if (!thread_.joinable()) return;
  stop_.set();
  thread_.join();
  stop_.clear();
  unlink(path_.c_str());
  listener_ = qmi::Descriptor();
  MutexLock hold(lock_);
  connections_.clear();
}

void FakeModem::run() {
  for (;;) {
    std::vector<pollfd> fds = {{stop_.descriptor(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
    std::vector<Connection*> order;
    {
      MutexLock hold(lock_);
      std::erase_if(connections_, [](const auto& connection) { return !connection->socket; });
      for (const auto& connection : connections_) {
        if (floods_) send_no_packets(connection->socket);
        fds.push_back({connection->socket.get(), POLLIN, 0});
        order.push_back(connection.get());
      }
    }
    poll(fds.data(), fds.size(), floods_ ? 0 : -1);
    if (fds[0].revents != 0) return;
    if (fds[1].revents != 0) {
      auto connection = std::make_unique<Connection>();
      connection->socket = qmi::Descriptor(accept(listener_.get(), nullptr, nullptr));
      MutexLock hold(lock_);
      connections_.push_back(std::move(connection));
    }
    for (size_t i = 0; i < order.size(); ++i) {
      if (fds[i + 2].revents != 0) receive(*order[i]);
    }
  }
}

void FakeModem::receive(Connection& connection) {
  Bytes framed(sizeof(qmi::Address) + qmi::kMaxPacketBytes);
  const ssize_t n = recv(connection.socket.get(), framed.data(), framed.size(), 0);
  MutexLock hold(lock_);
  qmi::Address to;
  if (n < static_cast<ssize_t>(sizeof to)) {
    connection.socket = qmi::Descriptor();
    return;
  }
  memcpy(&to, framed.data(), sizeof to);
  const Bytes request(framed.begin() + sizeof to, framed.begin() + n);
  if (to == kNameService) {
    const auto control = qmi::read_control(request);
    if (control && control->command == qmi::Control::NewLookup) {
      lookup(connection, control->service);
    }
    return;
  }
  requests_.push_back(request);
  connection.talked_to.push_back(to.port);
  if (!handler_ || !servers_.contains(to.port)) return;
  for (const Bytes& reply : handler_(request)) {
    send_framed(connection.socket, {kNode, to.port}, reply);
  }
}

void FakeModem::lookup(Connection& connection, uint32_t service) {
  connection.lookups.push_back(service);
  const qmi::ControlPacket end{.command = qmi::Control::NewServer};
  if (!answer_lookups_) {
    ++connection.owed_markers;
    return;
  }
  for (; connection.owed_markers > 0; --connection.owed_markers) {
    send_framed(connection.socket, kNameService, qmi::bytes_of(end));
  }
  for (const auto& [port, server] : servers_) {
    if (server.service != service) continue;
    const qmi::ControlPacket found{qmi::Control::NewServer, service, server.instance, kNode, port};
    send_framed(connection.socket, kNameService, qmi::bytes_of(found));
  }
  send_framed(connection.socket, kNameService, qmi::bytes_of(end));
}

void FakeModem::announce(qmi::Control command, uint32_t port, const Server& server) {
  for (const auto& connection : connections_) {
    for (const uint32_t looked_up : connection->lookups) {
      if (looked_up != server.service || !connection->socket) continue;
      const qmi::ControlPacket news{command, server.service, server.instance, kNode, port};
      send_framed(connection->socket, kNameService, qmi::bytes_of(news));
    }
  }
}

void FakeModem::add_service(uint32_t service, uint32_t port, uint32_t instance) {
  MutexLock hold(lock_);
  servers_[port] = {service, instance};
  announce(qmi::Control::NewServer, port, servers_[port]);
}

void FakeModem::remove_service(uint32_t port) {
  MutexLock hold(lock_);
  announce(qmi::Control::DelServer, port, servers_[port]);
  servers_.erase(port);
}

void FakeModem::on_request(Handler handler) {
  MutexLock hold(lock_);
  handler_ = std::move(handler);
  requests_.clear();
}

void FakeModem::answer_lookups(bool yes) {
  MutexLock hold(lock_);
  answer_lookups_ = yes;
}

void FakeModem::send(uint32_t port, const Bytes& packet) {
  MutexLock hold(lock_);
  for (const auto& connection : connections_) {
    for (const uint32_t talked_to : connection->talked_to) {
      if (talked_to != port || !connection->socket) continue;
      send_framed(connection->socket, {kNode, port}, packet);
      break;
    }
  }
}

std::vector<Bytes> FakeModem::requests() {
  MutexLock hold(lock_);
  return requests_;
}

}  // namespace testing_support
