#include "unix_server.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <algorithm>
#include <deque>

#include "accept_client.h"
#include "retry.h"
#include "unix_address.h"

namespace sim {
namespace {

constexpr size_t kMaxClientBytes = size_t{1} << 20;  // that wait for one client
constexpr size_t kMaxBytes = size_t{64} << 20;       // for all

ino_t inode_of(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

// Held while a socket is looked at and replaced, so that of two servers only one does it: a file
// beside the socket, removed by whoever holds it. Waits for it at most 5 s.
class SocketLock {
 public:
  explicit SocketLock(const std::string& socket_path) : path_(socket_path + ".lock") {
    retry::until(timing::Clock::now() + std::chrono::seconds(5), [this] { return try_to_lock(); });
  }
  ~SocketLock() {
    if (file_) unlink(path_.c_str());
  }

  bool held() const { return static_cast<bool>(file_); }
  std::string problem() const { return path_ + ": " + problem_; }

 private:
  // False when it is worth another try. A file that was removed meanwhile is nobody's lock.
  bool try_to_lock() {
    qmi::Descriptor file(
        open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    problem_ = file ? "another process holds it" : strerror(errno);
    if (!file) return true;
    struct stat status {};
    const bool locked = flock(file.get(), LOCK_EX | LOCK_NB) == 0 &&
                        fstat(file.get(), &status) == 0 && status.st_ino == inode_of(path_);
    if (locked) file_ = std::move(file);
    return locked;
  }

  const std::string path_;
  qmi::Descriptor file_;
  std::string problem_;
};

// A socket that does not wait. An invalid one comes with `problem` in words.
qmi::Descriptor make_socket(std::string& problem) {
  qmi::Descriptor made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) problem = std::string("socket: ") + strerror(errno);
  return made;
}

}  // namespace

// One client. Packets that it does not take at once wait here.
class UnixServer::Connection final : public Peer {
 public:
  Connection(UnixServer& server, qmi::Descriptor socket)
      : server_(server), socket_(std::move(socket)), port_(server.router_.attach(*this)) {}
  ~Connection() override {
    server_.router_.detach(port_);
    drop_waiting();
  }

  size_t waiting_bytes() const { return waiting_bytes_; }

  // The client is gone as soon as the server looks at it next.
  void hang_up() {
    drop_waiting();
    shutdown(socket_.get(), SHUT_RDWR);
  }

  // Takes the client's next packet. False when it has gone.
  bool receive() {
    static uint8_t buffer[sizeof(qmi::Address) + qmi::kMaxPacketBytes];
    const ssize_t n = recv(socket_.get(), buffer, sizeof buffer, MSG_DONTWAIT | MSG_TRUNC);
    if (n < 0) return errno == EAGAIN || errno == EINTR;
    if (n == 0) return false;
    const auto size = static_cast<size_t>(n);
    qmi::Address to;
    if (size < sizeof to || size > sizeof buffer) return true;
    memcpy(&to, buffer, sizeof to);
    server_.router_.send(port_, to, {buffer + sizeof to, size - sizeof to});
    return true;
  }

  // Sends what waits, as far as the client takes it.
  void flush() {
    while (!waiting_.empty() && send_now(waiting_.front().source, waiting_.front().bytes)) {
      count_waiting(waiting_bytes_ - cost(waiting_.front().bytes.size()));
      waiting_.pop_front();
    }
    if (waiting_.empty()) server_.watch(socket_.get(), EPOLLIN, true);
  }

 private:
  struct Packet {
    qmi::Address source;
    std::vector<uint8_t> bytes;
  };

  void deliver(qmi::Address source, std::span<const uint8_t> packet) override {
    if (waiting_.empty() && send_now(source, packet)) return;
    const size_t bytes = cost(packet.size());
    if (waiting_bytes_ + bytes > kMaxClientBytes) return;  // lost, as on a real network
    waiting_.push_back({source, {packet.begin(), packet.end()}});
    count_waiting(waiting_bytes_ + bytes);
    server_.watch(socket_.get(), EPOLLIN | EPOLLOUT, true);
    if (server_.waiting_bytes_ > kMaxBytes) server_.hang_up_on_the_greediest();
  }

  static size_t cost(size_t packet_bytes) { return sizeof(Packet) + packet_bytes; }

  void count_waiting(size_t bytes) {
    server_.waiting_bytes_ += bytes - waiting_bytes_;
    waiting_bytes_ = bytes;
  }

  void drop_waiting() {
    count_waiting(0);
    waiting_.clear();
  }

  // False when the client has no room. What cannot be sent at all is lost with the client.
  bool send_now(qmi::Address source, std::span<const uint8_t> packet) {
    iovec parts[] = {{&source, sizeof source},
                     {const_cast<uint8_t*>(packet.data()), packet.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    return sendmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 || errno != EAGAIN;
  }

  UnixServer& server_;
  const qmi::Descriptor socket_;
  const uint32_t port_;
  std::deque<Packet> waiting_;
  size_t waiting_bytes_ = 0;
};

UnixServer::UnixServer(Router& router) : router_(router) {}

UnixServer::~UnixServer() {
  connections_.clear();
  if (!listener_) return;
  const SocketLock lock(path_);
  if (lock.held() && inode_of(path_) == inode_) unlink(path_.c_str());
}

bool UnixServer::listen(const std::string& path, std::string& problem) {
  epoll_ = qmi::Descriptor(epoll_create1(EPOLL_CLOEXEC));
  if (!epoll_) {
    problem = std::string("epoll: ") + strerror(errno);
    return false;
  }
  sockaddr_un address;
  if (!make_unix_address(path, address)) {
    problem = path + ": a socket's path has 1 to 107 characters";
    return false;
  }
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  const SocketLock lock(path);
  if (!lock.held()) {
    problem = lock.problem();
    return false;
  }
  const qmi::Descriptor probe = make_socket(problem);
  if (!probe) return false;
  const int error = connect_unix(probe.get(), path);
  if (error == 0 || error == EAGAIN) {  // EAGAIN: too many wait for it
    problem = path + ": a server is already there";
    return false;
  }
  struct stat status {};
  if (error == ECONNREFUSED && stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
    unlink(path.c_str());
  }
  qmi::Descriptor listener = make_socket(problem);
  if (!listener) return false;
  if (bind(listener.get(), name, sizeof address) != 0 || ::listen(listener.get(), SOMAXCONN) != 0 ||
      !watch(listener.get(), EPOLLIN, false)) {
    problem = path + ": " + strerror(errno);
    return false;
  }
  listener_ = std::move(listener);
  path_ = path;
  inode_ = inode_of(path);
  return true;
}

bool UnixServer::watch(int descriptor, uint32_t events, bool known) {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  return epoll_ctl(epoll_.get(), known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void UnixServer::hang_up_on_the_greediest() {
  const auto greediest =
      std::max_element(connections_.begin(), connections_.end(), [](const auto& a, const auto& b) {
        return a.second->waiting_bytes() < b.second->waiting_bytes();
      });
  greediest->second->hang_up();
}

void UnixServer::accept_client() {
  qmi::Descriptor socket = sim::accept_client(listener_.get(), SOCK_NONBLOCK);
  if (!socket) {
    if (errno == EAGAIN) return;
    watch(listener_.get(), 0, true);
    accept_again_ = timing::Clock::now() + kAcceptPause;
    return;
  }
  const int descriptor = socket.get();
  if (!watch(descriptor, EPOLLIN, false)) return;
  connections_[descriptor] = std::make_unique<Connection>(*this, std::move(socket));
}

void UnixServer::run(int stop_descriptor) {
  for (;;) {
    pollfd ready[] = {{epoll_.get(), POLLIN, 0}, {stop_descriptor, POLLIN, 0}};
    qmi::poll_until(ready, 2, std::min(router_.next_due(), accept_again_));
    if (ready[1].revents != 0) return;
    epoll_event events[64];
    const int count = epoll_wait(epoll_.get(), events, 64, 0);
    router_.run_due();
    if (timing::Clock::now() >= accept_again_) {
      accept_again_ = timing::kNever;
      watch(listener_.get(), EPOLLIN, true);
    }
    for (int i = 0; i < count; ++i) {
      const int descriptor = events[i].data.fd;
      if (descriptor == listener_.get()) {
        accept_client();
        continue;
      }
      const auto connection = connections_.find(descriptor);
      if (connection == connections_.end()) continue;
      if ((events[i].events & EPOLLOUT) != 0) connection->second->flush();
      if ((events[i].events & ~uint32_t{EPOLLOUT}) != 0 && !connection->second->receive()) {
        connections_.erase(connection);
      }
    }
  }
}

}  // namespace sim
