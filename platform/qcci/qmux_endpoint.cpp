// An endpoint on a modem behind a character device. What the library above sees of it is QRTR's:
// the device has no name service, so the endpoint answers lookups itself, out of what the modem
// tells of its services at the opening. A service's port is its number.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <deque>

#include "environment.h"
#include "qcci/endpoint.h"
#include "qcci/last_words.h"
#include "qcci/qmux_link.h"
#include "qmi_client.h"
#include "retry.h"

namespace qmi {
namespace {

constexpr uint32_t kModemNode = 0;
constexpr Address kNameService{1, kControlPort};

class QmuxEndpoint final : public Endpoint, private QmuxLink::Port {
 public:
  explicit QmuxEndpoint(std::shared_ptr<QmuxLink> link)
      : link_(std::move(link)), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    for (const int source : {link_->descriptor(), arrived_.descriptor()}) {
      epoll_event event{};
      event.events = EPOLLIN;
      epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, source, &event);
    }
    link_->attach(*this);
  }
  ~QmuxEndpoint() override { link_->detach(*this); }

  int send(Address to, std::span<const uint8_t> packet, timing::Deadline deadline) override;
  Received receive(Address& source, std::span<const uint8_t>& packet,
                   timing::Deadline deadline) override EXCLUDES(lock_);
  void interrupt() override { interrupted_.set(); }
  int descriptor() const override { return epoll_.get(); }
  Address name_service() const override { return kNameService; }

 private:
  struct Packet {
    Address source;
    std::vector<uint8_t> bytes;
  };

  void on_message(uint8_t service, std::span<const uint8_t> message) override {
    put({kModemNode, service}, message);
  }
  void on_lost() override EXCLUDES(lock_);

  void look_up(const ControlPacket& lookup) EXCLUDES(lock_);
  void put(Address source, std::span<const uint8_t> packet) EXCLUDES(lock_);
  bool take(Address& source, std::span<const uint8_t>& packet) EXCLUDES(lock_);

  const std::shared_ptr<QmuxLink> link_;
  const Descriptor epoll_;  // of the link's descriptor and `arrived_`
  WakeEvent arrived_;       // set while the inbox holds anything, and once the link is lost
  WakeEvent interrupted_;
  Mutex lock_;
  std::deque<Packet> inbox_ GUARDED_BY(lock_);
  bool lost_ GUARDED_BY(lock_) = false;
  Packet current_;  // belongs to the one thread inside `receive`
};

int QmuxEndpoint::send(Address to, std::span<const uint8_t> packet, timing::Deadline deadline) {
  if (to == kNameService) {
    const auto control = read_control(packet);
    if (control && control->command == Control::NewLookup) look_up(*control);
    return 0;
  }
  if (to.node != kModemNode || to.port > UINT8_MAX) return ENODEV;
  const auto service = static_cast<uint8_t>(to.port);
  const int error = link_->send(*this, service, packet, deadline);
  if (error == EDQUOT) {
    static std::atomic_flag said;
    environment::complain_once(
        said, "TOVI_MODEM=%s: the modem has no client id left; it has them back when it restarts",
        environment::modem()->text.c_str());
  }
  return error;
}

// A number of more than 8 bits is no service that could be here.
void QmuxEndpoint::look_up(const ControlPacket& lookup) {
  for (const auto& [service, major_version] : link_->services()) {
    if (lookup.service != 0 && lookup.service != service) continue;
    const ControlPacket found{Control::NewServer, service, major_version, kModemNode, service};
    put(kNameService, bytes_of(found));
  }
  const ControlPacket end{.command = Control::NewServer};
  put(kNameService, bytes_of(end));
}

void QmuxEndpoint::put(Address source, std::span<const uint8_t> packet) {
  MutexLock hold(lock_);
  if (inbox_.empty()) arrived_.set();
  inbox_.push_back({source, {packet.begin(), packet.end()}});
}

void QmuxEndpoint::on_lost() {
  MutexLock hold(lock_);
  lost_ = true;
  arrived_.set();
}

bool QmuxEndpoint::take(Address& source, std::span<const uint8_t>& packet) {
  MutexLock hold(lock_);
  if (inbox_.empty()) return false;
  current_ = std::move(inbox_.front());
  inbox_.pop_front();
  if (inbox_.empty() && !lost_) arrived_.clear();
  source = current_.source;
  packet = current_.bytes;
  return true;
}

Endpoint::Received QmuxEndpoint::receive(Address& source, std::span<const uint8_t>& packet,
                                         timing::Deadline deadline) {
  bool interrupted = false;
  for (bool waits = deadline > timing::Clock::now();;) {
    if (take(source, packet)) return Received::Packet;
    if (waits) {
      pollfd fds[] = {{epoll_.get(), POLLIN, 0}, {interrupted_.descriptor(), POLLIN, 0}};
      waits = poll_until(fds, 2, deadline) != 0;
      interrupted = fds[1].revents != 0;
    }
    const bool there = link_->read();
    if (take(source, packet)) return Received::Packet;
    if (!there || interrupted) return Received::Closed;
    if (!waits || timing::Clock::now() >= deadline) return Received::TimedOut;
  }
}

// The link of the process, which is left at the end.
class SharedLink {
 public:
  static SharedLink& instance() {
    static auto* const only = [] {  // outlives main
      at_the_end([] {
        if (const auto link = instance().get()) link->leave();
      });
      return new SharedLink;
    }();
    return *only;
  }

  std::shared_ptr<QmuxLink> get() EXCLUDES(lock_) {
    MutexLock hold(lock_);
    return link_;
  }
  void set(std::shared_ptr<QmuxLink> link) EXCLUDES(lock_) {
    MutexLock hold(lock_);
    link_ = std::move(link);
  }

 private:
  Mutex lock_;
  std::shared_ptr<QmuxLink> link_ GUARDED_BY(lock_);
};

Opened refuse(const char* reason, qmi_client_error_type result) {
  static std::atomic_flag said;
  environment::complain_once(said, "TOVI_MODEM=%s: %s", environment::modem()->text.c_str(), reason);
  return {nullptr, result};
}

const char* reason(int error) {
  switch (error) {
    case ENOENT: return "no such device";
    case ENODEV:
    case ENXIO: return "no modem behind it";
    case ENOTTY: return "not a character device";
    case EBUSY: return "busy, another program uses it; programs share it through qmux-proxy:PATH";
    case ECONNREFUSED: return "nobody serves as qmi-proxy";
    default: return strerror(error);
  }
}

// Whether the path may become a modem's.
bool is_for_good(int error) {
  return error != ENOENT && error != ENODEV && error != ENXIO && error != EBUSY &&
         error != ECONNREFUSED && error != EAGAIN;
}

// 0, or why there is no device of that name; what is no device is not even opened.
int find_device(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return errno;
  return S_ISCHR(status.st_mode) ? 0 : ENOTTY;
}

int open_device(const std::string& path, Descriptor& device) {
  device = Descriptor(open(path.c_str(), O_RDWR | O_EXCL | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!device) return errno;
  return flock(device.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK ? 0 : EBUSY;
}

int connect_proxy(Descriptor& stream) {
  constexpr char kName[] = "\0qmi-proxy";  // abstract
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, kName, sizeof kName - 1);
  stream = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + sizeof kName - 1);
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  return stream && connect(stream.get(), name, size) == 0 ? 0 : errno;
}

int open_stream(const std::string& path, bool proxied, Descriptor& stream,
                timing::Deadline deadline) {
  int error = 0;
  retry::until(deadline, [&] {
    error = find_device(path);
    if (error == 0) error = proxied ? connect_proxy(stream) : open_device(path, stream);
    return error != EBUSY;
  });
  return error;
}

// The proxy is another process, in another folder.
std::string whole_path(const std::string& path) {
  char* whole = realpath(path.c_str(), nullptr);
  std::string found = whole != nullptr ? whole : path;
  free(whole);
  return found;
}

Opened greeted(const std::shared_ptr<QmuxLink>& link, QmuxLink::Greeting greeting) {
  using Greeting = QmuxLink::Greeting;
  switch (greeting) {
    case Greeting::Answered: return {std::make_unique<QmuxEndpoint>(link), 0};
    case Greeting::Refused: return refuse("it tells no services", QMI_SERVICE_ERR);
    case Greeting::Silent: return refuse("no answer", QMI_SERVICE_ERR);
    case Greeting::Strange: return refuse("what answers is no modem", QMI_SERVICE_ERR);
    case Greeting::Lost: break;
  }
  return refuse("it has hung up", QMI_SERVICE_ERR);
}

}  // namespace

Opened open_qmux_endpoint(const std::string& path, bool proxied, timing::Deadline deadline) {
  std::shared_ptr<QmuxLink> link = SharedLink::instance().get();
  if (link == nullptr || link->is_lost()) {
    if (link != nullptr) flock(link->descriptor(), LOCK_UN);  // others may still hold it open
    Descriptor stream;
    const int error = open_stream(path, proxied, stream, deadline);
    if (error != 0) {
      return refuse(reason(error), is_for_good(error) ? QMI_PORT_NOT_OPEN_ERR : QMI_SERVICE_ERR);
    }
    link = std::make_shared<QmuxLink>(std::move(stream));
    if (proxied) {
      const auto greeting = link->open_proxied(whole_path(path), deadline);
      if (greeting == QmuxLink::Greeting::Refused) {
        return refuse("qmi-proxy does not open it", QMI_SERVICE_ERR);
      }
      if (greeting != QmuxLink::Greeting::Answered) return greeted(link, greeting);
    }
    SharedLink::instance().set(link);
  }
  const auto greeting = link->greet(deadline);
  // Who does not wait for the answer comes again.
  if (greeting == QmuxLink::Greeting::Silent && deadline == timing::kPast) {
    return {nullptr, QMI_SERVICE_ERR};
  }
  return greeted(link, greeting);
}

}  // namespace qmi
