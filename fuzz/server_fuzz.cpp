// The whole server of the simulated modem with a hostile client: packets to its services and its
// name service, from ports that come and go, while time passes; straight to the router, or through
// the socket of a server.
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <vector>

#include "fuzz.h"
#include "modem.h"
#include "router.h"
#include "unix_address.h"
#include "unix_server.h"
#include "virtual_clock.h"

namespace {

using sim::Router;

constexpr const char* kRules[] = {"",
                                  "extend=twice;pdc=ind-twice",
                                  "uim=garbage;pdc=ind-delay:5",
                                  "nas=short:3;extend=len:9999",
                                  "extend#2=restart:50;vs=delay:7",
                                  "pdc=down:3;sar=absent:20;nas=ind-first"};

// A client of the router, which learns where the services are.
class Client final : public sim::Peer {
 public:
  explicit Client(Router& router) : router_(router), port_(router.attach(*this)) {}
  ~Client() override { router_.detach(port_); }

  void send(qmi::Address to, std::span<const uint8_t> packet) { router_.send(port_, to, packet); }
  qmi::Address service(uint8_t n) const {
    const uint32_t first = last_port_ < 6 ? 1 : last_port_ - 5;
    return {sim::kModemNode, first + n % 6};
  }

 private:
  void deliver(qmi::Address source, std::span<const uint8_t> packet) override {
    const auto control = qmi::read_control(packet);
    if (source.port == qmi::kControlPort && control)
      last_port_ = std::max(last_port_, control->port);
    if (source.port != qmi::kControlPort) {
      const auto header = qmi::read_header(packet);
      fuzz::require(header && header->kind != qmi::Kind::Request);
    }
  }

  Router& router_;
  const uint32_t port_;
  uint32_t last_port_ = 6;
};

qmi::Address address_in(fuzz::Input& input) {
  return {input.byte() & 1U, input.byte() * 1U};
}

qmi::ControlPacket control_in(fuzz::Input& input) {
  constexpr uint32_t kIds[] = {0, 3, 0xB, 0x11, 0x24, 0xE4, 0xFFE4, 0xFFFFFFFF};
  qmi::ControlPacket packet{.command = static_cast<qmi::Control>(input.byte() % 16)};
  packet.service = kIds[input.byte() % std::size(kIds)];
  return packet;
}

void pass(Router& router, uint8_t amount) {
  fuzz::now += std::chrono::milliseconds(amount * amount);
  router.run_due();
}

void talk_to_router(Router& router, fuzz::Input& input) {
  std::unique_ptr<Client> clients[2] = {std::make_unique<Client>(router),
                                        std::make_unique<Client>(router)};
  constexpr qmi::Address kNameService{sim::kClientNode, qmi::kControlPort};
  while (!input.empty()) {
    const uint8_t op = input.byte();
    auto& client = clients[op >> 7];
    switch (const uint8_t n = op & 15) {
      case 6: client->send(kNameService, qmi::bytes_of(control_in(input))); break;
      case 7: client->send(kNameService, fuzz::Exact(input.block())); break;
      case 8: pass(router, input.byte()); break;
      case 9: client = std::make_unique<Client>(router); break;
      case 10: {
        const qmi::Address to = address_in(input);
        client->send(to, fuzz::Exact(input.block()));
        break;
      }
      default: client->send(client->service(n), fuzz::Exact(input.block())); break;
    }
  }
}

// A client's end of the socket: packets with the address in front, or anything.
void talk_to_socket(Router& router, fuzz::Input& input) {
  static const fuzz::Folder folder;
  static const std::string path = folder.path + "/modem";
  sim::UnixServer server(router);
  std::string problem;
  fuzz::require(server.listen(path, problem));
  const qmi::Descriptor client(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  fuzz::require(connect_unix(client.get(), path) == 0);
  const auto serve = [&] {
    qmi::WakeEvent stop;
    stop.set();
    server.run(stop.descriptor());
  };
  serve();
  while (!input.empty()) {
    const uint8_t op = input.byte();
    if ((op & 15) == 8) pass(router, input.byte());
    std::vector<uint8_t> framed;
    if ((op & 15) != 7) {
      const qmi::Address to = (op & 15) == 6 ? qmi::Address{sim::kClientNode, qmi::kControlPort}
                                             : qmi::Address{sim::kModemNode, 1U + op % 6};
      const auto* bytes = reinterpret_cast<const uint8_t*>(&to);
      framed.assign(bytes, bytes + sizeof to);
    }
    const auto packet = input.block();
    framed.insert(framed.end(), packet.begin(), packet.end());
    send(client.get(), framed.data(), framed.size(), MSG_NOSIGNAL);
    serve();
    uint8_t answer[64];
    if ((op & 64) != 0) {
      while (recv(client.get(), answer, sizeof answer, 0) > 0) {
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static std::unique_ptr<fuzz::Folder> folder;
  static std::unique_ptr<sim::Modem> modem;
  // What clients have written does not pile up.
  static unsigned int executions = 0;
  if (executions++ % 4096 == 0) {
    folder = std::make_unique<fuzz::Folder>();
    std::string problem;
    modem = sim::Modem::open(folder->path + "/state", problem);
    fuzz::require(modem != nullptr);
  }
  fuzz::Input input(data, size);
  const uint8_t how = input.byte();
  std::string problem;
  auto faults = sim::Faults::parse(kRules[(how >> 1) % std::size(kRules)], problem);
  fuzz::require(faults.has_value());
  Router router(*modem, {.faults = std::move(*faults)});
  if ((how & 1) != 0) {
    talk_to_socket(router, input);
  } else {
    talk_to_router(router, input);
  }
  return 0;
}
