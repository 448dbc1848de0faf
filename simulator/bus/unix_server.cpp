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
#include "unix_address.h"

namespace sim {
namespace {

constexpr size_t kMaxWaiting = 4096;

// Held while a socket is looked at and replaced, so that of two servers only one does it.
class SocketFolderLock {
 public:
  explicit SocketFolderLock(const std::string& socket_path) {
    const size_t slash = socket_path.rfind('/');
    const std::string folder = slash == std::string::npos ? "."
                               : slash == 0               ? "/"
                                                          : socket_path.substr(0, slash);
    folder_ = qmi::Descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder_) flock(folder_.get(), LOCK_EX);
  }

 private:
  qmi::Descriptor folder_;
};

ino_t inode_of(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

}  // namespace

// One client. Packets that it does not take at once wait here.
class UnixServer::Connection final : public Peer {
 public:
  Connection(UnixServer& server, qmi::Descriptor socket)
      : server_(server), socket_(std::move(socket)), port_(server.router_.attach(*this)) {}
  ~Connection() override { server_.router_.detach(port_); }

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
    if (waiting_.size() == kMaxWaiting) return;  // it does not read: lost, as on a real network
    waiting_.push_back({source, {packet.begin(), packet.end()}});
    server_.watch(socket_.get(), EPOLLIN | EPOLLOUT, true);
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
};

UnixServer::UnixServer(Router& router) : router_(router), epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

UnixServer::~UnixServer() {
  connections_.clear();
  const SocketFolderLock lock(path_);
  if (listener_ && inode_of(path_) == inode_) unlink(path_.c_str());
}

bool UnixServer::listen(const std::string& path, std::string& problem) {
  sockaddr_un address;
  if (!make_unix_address(path, address)) {
    problem = path + ": a socket's path has 1 to 107 characters";
    return false;
  }
  const auto* name = reinterpret_cast<const sockaddr*>(&address);

  const SocketFolderLock lock(path);
  const qmi::Descriptor probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const int error = connect_unix(probe.get(), path);
  if (error == 0) {
    problem = path + ": a server is already there";
    return false;
  }
  struct stat status {};
  if (error == ECONNREFUSED && stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
    unlink(path.c_str());
  }
  qmi::Descriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (bind(listener.get(), name, sizeof address) != 0 || ::listen(listener.get(), SOMAXCONN) != 0) {
    problem = path + ": " + strerror(errno);
    return false;
  }
  listener_ = std::move(listener);
  path_ = path;
  inode_ = inode_of(path);
  watch(listener_.get(), EPOLLIN, false);
  return true;
}

void UnixServer::watch(int descriptor, uint32_t events, bool known) {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  epoll_ctl(epoll_.get(), known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, descriptor, &event);
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
  connections_[descriptor] = std::make_unique<Connection>(*this, std::move(socket));
  watch(descriptor, EPOLLIN, false);
}

void UnixServer::run(int stop_descriptor) {
  watch(stop_descriptor, EPOLLIN, false);
  for (;;) {
    pollfd ready{epoll_.get(), POLLIN, 0};
    const timing::Deadline due = std::min(router_.next_due(), accept_again_);
    if (due != timing::kNever) qmi::poll_until(&ready, 1, due);
    epoll_event events[64];
    const int count = epoll_wait(epoll_.get(), events, 64, due == timing::kNever ? -1 : 0);
    router_.run_due();
    if (timing::Clock::now() >= accept_again_) {
      accept_again_ = timing::kNever;
      watch(listener_.get(), EPOLLIN, true);
    }
    for (int i = 0; i < count; ++i) {
      const int descriptor = events[i].data.fd;
      if (descriptor == stop_descriptor) return;
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
