#include "hostile_modem.h"

#include "all_services.h"
#include "descriptor.h"
#include "detached_thread.h"
#include "qcci/qmi_codec.h"
#include "qmi_client.h"
#include "simulated_device.h"

namespace fuzz {
namespace {

constexpr uint32_t kNode = 0;
constexpr qmi::Address kNameService{1, qmi::kControlPort};

// Where a service is unless the input has it elsewhere.
const qmi_idl_service_object& service_at(uint32_t port) {
  return *all_services()[(port + 5) % 6];
}
uint32_t port_of(uint32_t service) {
  for (uint32_t i = 0; i < 6; ++i) {
    if (all_services()[i]->service_id == service) return i + 1;
  }
  return 0;
}

std::vector<uint8_t> make_packet(qmi::Kind kind, uint16_t transaction, uint16_t message,
                                 std::span<const uint8_t> body) {
  std::vector<uint8_t> packet(qmi::kHeaderBytes + body.size());
  qmi::write_header({kind, transaction, message, static_cast<uint16_t>(body.size())},
                    packet.data());
  std::copy(body.begin(), body.end(), packet.begin() + qmi::kHeaderBytes);
  return packet;
}

// Counts within their bounds, flags 0 or 1.
void mend(std::span<const qmi::Field> fields, uint8_t* c_struct) {
  for (const qmi::Field& field : fields) {
    if (field.valid_offset != qmi::kNoOffset) c_struct[field.valid_offset] &= 1;
    if (field.count_offset != qmi::kNoOffset) {
      uint32_t count;
      memcpy(&count, c_struct + field.count_offset, sizeof count);
      count %= field.shape.bound + 1U;
      memcpy(c_struct + field.count_offset, &count, sizeof count);
    }
    for (uint32_t i = 0; i < field.shape.bound; ++i) {
      mend({field.shape.members, field.shape.member_count},
           c_struct + field.offset + size_t{i} * field.shape.c_bytes);
    }
  }
}

}  // namespace

std::vector<uint8_t> make_body(const qmi::Message& message, std::span<const uint8_t> bytes) {
  std::vector<uint8_t> c_struct(message.c_bytes);
  std::copy_n(bytes.begin(), std::min(bytes.size(), c_struct.size()), c_struct.begin());
  mend(message.fields, c_struct.data());
  std::vector<uint8_t> body(message.wire_max);
  body.resize(qmi::encode(message, c_struct.data(), body).value_or(0));
  return body;
}

// One of the modem's clients.
class HostileModem::End final : public std::enable_shared_from_this<End> {
 public:
  int send(qmi::Address to, std::span<const uint8_t> packet) {
    instance().asked(shared_from_this(), to, packet);
    return 0;
  }

  qmi::Endpoint::Received receive(qmi::Address& source, std::span<const uint8_t>& packet,
                                  timing::Deadline deadline) EXCLUDES(lock_) {
    using Received = qmi::Endpoint::Received;
    for (bool may_wait = true;;) {
      {
        MutexLock hold(lock_);
        if (!inbox_.empty()) {
          current_ = std::move(inbox_.front());
          inbox_.pop_front();
          if (inbox_.empty() && !closed_) arrived_.clear();
          source = current_.source;
          packet = current_.packet;
          return Received::Packet;
        }
        if (closed_) return Received::Closed;
      }
      if (!may_wait || timing::Clock::now() >= deadline) return Received::TimedOut;
      pollfd arrived{arrived_.descriptor(), POLLIN, 0};
      may_wait = qmi::poll_until(&arrived, 1, deadline) != 0;
    }
  }

  void deliver(Later& later) EXCLUDES(lock_) {
    MutexLock hold(lock_);
    if (inbox_.empty()) arrived_.set();
    if (later.closes) {
      closed_ = true;
    } else {
      inbox_.push_back(std::move(later));
    }
  }

  void close() EXCLUDES(lock_) {
    MutexLock hold(lock_);
    closed_ = true;
    arrived_.set();
  }

  int descriptor() const { return arrived_.descriptor(); }

 private:
  qmi::WakeEvent arrived_;
  Mutex lock_;
  std::deque<Later> inbox_ GUARDED_BY(lock_);
  bool closed_ GUARDED_BY(lock_) = false;
  Later current_;  // belongs to the one thread inside `receive`
};

HostileModem& HostileModem::instance() {
  static auto* const modem = new HostileModem;
  return *modem;
}

void HostileModem::begin(Input acts) {
  MutexLock hold(lock_);
  there_ = true;
  acts_ = acts;
  delay_ms_ = 0;
  to_ = {};
  request_.clear();
  if (!has_clock_) has_clock_ = start_detached_thread([this] { keep_time(); });
}

void HostileModem::end() {
  MutexLock hold(lock_);
  there_ = false;
  acts_ = {nullptr, 0};
  later_.clear();
  for (const auto& one : std::exchange(ends_, {})) {
    if (const auto end = one.lock()) end->close();
  }
}

void HostileModem::act() {
  MutexLock hold(lock_);
  act_locked();
}

qmi::Opened HostileModem::open() {
  struct Endpoint final : qmi::Endpoint {
    std::shared_ptr<End> end = std::make_shared<End>();
    int send(qmi::Address to, std::span<const uint8_t> packet, timing::Deadline) override {
      return end->send(to, packet);
    }
    Received receive(qmi::Address& source, std::span<const uint8_t>& packet,
                     timing::Deadline deadline) override {
      return end->receive(source, packet, deadline);
    }
    void interrupt() override { end->close(); }
    int descriptor() const override { return end->descriptor(); }
    qmi::Address name_service() const override { return kNameService; }
  };
  MutexLock hold(lock_);
  if (!there_) return {nullptr, QMI_SERVICE_ERR};
  auto endpoint = std::make_unique<Endpoint>();
  ends_.push_back(endpoint->end);
  return {std::move(endpoint), 0};
}

void HostileModem::asked(const std::shared_ptr<End>& by, qmi::Address to,
                         std::span<const uint8_t> packet) {
  MutexLock hold(lock_);
  by_ = by;
  to_ = to;
  request_.assign(packet.begin(), packet.end());
  if (there_) act_locked();
}

void HostileModem::act_locked() {
  bool last = false;
  while (!last && !acts_.empty()) {
    const uint8_t act = acts_.byte();
    last = (act & 0x80) != 0;
    const qmi_idl_service_object& service = service_at(to_.port);
    switch (act & 15) {
      case 0: answer({}); break;
      case 1: answer(acts_.block()); break;
      case 2: {
        const auto header = qmi::read_header(request_).value_or(qmi::Header{});
        say(to_,
            make_packet(qmi::Kind::Response, header.transaction, header.message, acts_.block()));
        break;
      }
      case 3: {
        const qmi::Message& message = service.messages[acts_.byte() % service.messages.size()];
        const auto body = make_body(message, acts_.block());
        say(to_, make_packet(qmi::Kind::Indication, 1, message.id, body));
        break;
      }
      case 4: {
        const auto packet = acts_.block();
        say(to_, {packet.begin(), packet.end()});
        break;
      }
      case 5: {
        const qmi::Address source{acts_.byte() & 1U, acts_.byte() & 15U};
        const auto packet = acts_.block();
        say(source, {packet.begin(), packet.end()});
        break;
      }
      case 6: {
        const uint8_t which = acts_.byte();
        const auto* about = all_services()[which % 6];
        const qmi::ControlPacket news{
            which < 128 ? qmi::Control::NewServer : qmi::Control::DelServer, about->service_id,
            uint32_t{acts_.byte()} << 8 | about->major_version, kNode, acts_.byte() & 15U};
        const auto bytes = qmi::bytes_of(news);
        say(kNameService, {bytes.begin(), bytes.end()});
        break;
      }
      case 7: say_list(0); break;
      case 8: {
        const auto packet = acts_.block();
        say(kNameService, {packet.begin(), packet.end()});
        break;
      }
      case 9: later_.push_back({timing::Clock::now(), by_, {}, {}, true}); break;
      case 10: delay_ms_ = acts_.byte() * 20; break;
      case 11: say_list(service.service_id); break;
      default: answer({}); break;
    }
  }
  deliver_due();
}

// A lookup gets its service, a request what its response is to be made of.
void HostileModem::answer(std::span<const uint8_t> bytes) {
  if (to_ == kNameService) {
    const auto lookup = qmi::read_control(request_);
    if (lookup && lookup->command == qmi::Control::NewLookup) say_list(lookup->service);
    return;
  }
  const auto header = qmi::read_header(request_);
  if (!header) return;
  const qmi::Message* response = service_at(to_.port).find(qmi::Kind::Response, header->message);
  if (response == nullptr) return;
  say(to_, make_packet(qmi::Kind::Response, header->transaction, header->message,
                       make_body(*response, bytes)));
}

void HostileModem::say_list(uint32_t service) {
  const uint32_t port = port_of(service);
  const qmi::ControlPacket found{qmi::Control::NewServer, service, service_at(port).major_version,
                                 kNode, port};
  const qmi::ControlPacket end{.command = qmi::Control::NewServer};
  for (const auto& packet : {found, end}) {
    const auto bytes = qmi::bytes_of(packet);
    if (packet.ends_list() || port != 0) say(kNameService, {bytes.begin(), bytes.end()});
  }
}

void HostileModem::say(qmi::Address source, std::vector<uint8_t> packet) {
  const auto due = timing::Clock::now() + std::chrono::milliseconds(delay_ms_);
  later_.push_back({due, by_, source, std::move(packet), false});
}

void HostileModem::deliver_due() {
  const auto now = timing::Clock::now();
  for (Later& one : later_) {
    const auto end = one.to.lock();
    if (end != nullptr && one.due <= now) end->deliver(one);
  }
  std::erase_if(later_, [&](const Later& one) { return one.due <= now || one.to.expired(); });
  if (!later_.empty()) changed_.notify_all();
}

void HostileModem::keep_time() {
  MutexLock hold(lock_);
  for (;;) {
    timing::Deadline first = timing::kNever;
    for (const Later& one : later_) first = std::min(first, one.due);
    changed_.wait_until(lock_, first);
    deliver_due();
  }
}

}  // namespace fuzz

qmi::Opened qmi::open_loopback_endpoint() {
  return fuzz::HostileModem::instance().open();
}
void open_simulated_device() {}
void open_simulated_ports() {}
bool is_simulated_state(const std::string&, std::string& problem) {
  problem = "there is no simulated modem";
  return false;
}
