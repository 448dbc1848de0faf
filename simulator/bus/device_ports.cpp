#include "device_ports.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <system_error>

#include "accept_client.h"
#include "exchange.h"
#include "modem.h"
#include "retry.h"
#include "sim_diag.h"
#include "unix_address.h"

namespace sim {
namespace {

using state_files::FolderLock;
using state_files::LockPart;

constexpr uint32_t kWaitMs = 10000;
constexpr size_t kMaxDiagClients = 64;
constexpr size_t kMaxDiagCommand = 8192;
constexpr size_t kMaxAtLine = 1024;
constexpr std::chrono::milliseconds kBetweenAtPieces{10};

bool failed(const std::string& path, std::string& problem) {
  problem = path + ": " + strerror(errno);
  return false;
}

}  // namespace

DevicePorts::DevicePorts(const Modem& modem, Witness* witness)
    : modem_(modem),
      witness_(witness),
      diag_path_(modem.folder() + "/device/dev/diag"),
      at_path_(modem.folder() + "/device/dev/smd8"),
      at_twin_(modem) {}

DevicePorts::~DevicePorts() {
  stop_.set();
  if (thread_.joinable()) thread_.join();
  if (diag_) unlink(diag_path_.c_str());
}

DevicePorts::Outcome DevicePorts::open(Owner owner, std::string& problem) {
  if (stop_.descriptor() < 0) {
    failed("eventfd", problem);
    return Outcome::Failed;
  }
  bool has_server = false;
  const bool decided = retry::until(timing::peer_deadline(kWaitMs), [&] {
    if (take_locks(owner, problem)) return true;
    has_server = FolderLock::is_held(modem_.folder(), LockPart::ServedPorts);
    return has_server;
  });
  if (has_server) return Outcome::HasServer;
  if (locks_.empty()) return decided ? Outcome::Failed : Outcome::Incomplete;
  if (!state_files::make_folder(modem_.folder() + "/device/dev")) {
    failed(modem_.folder() + "/device/dev", problem);
    return Outcome::Incomplete;
  }
  const bool has_diag = make_diag_port(problem);
  const bool has_at = at_.open(at_path_, problem);
  if (!has_diag && !has_at) return Outcome::Incomplete;
  try {
    thread_ = std::thread([this] { serve(); });
  } catch (const std::system_error& error) {
    problem = error.what();
    return Outcome::Failed;
  }
  return has_diag && has_at ? Outcome::Open : Outcome::Incomplete;
}

// False when it is worth another try. Without locks afterwards there is a `problem`.
bool DevicePorts::take_locks(Owner owner, std::string& problem) {
  for (const LockPart part : {LockPart::Ports, LockPart::ServedPorts}) {
    if (part == LockPart::ServedPorts && owner == Owner::Command) break;
    locks_.emplace_back(modem_.folder(), part, FolderLock::Mode::Exclusive, FolderLock::Wait::No);
    if (locks_.back().held()) continue;
    const bool busy = locks_.back().is_busy();
    problem = busy ? modem_.folder() + ": another process has the ports" : locks_.back().problem();
    locks_.clear();
    return !busy;
  }
  problem.clear();
  return true;
}

// What a killed process left behind is replaced: the lock says that nobody uses it.
bool DevicePorts::make_diag_port(std::string& problem) {
  sockaddr_un address;
  if (!make_unix_address(diag_path_, address)) {
    errno = ENAMETOOLONG;
    return failed(diag_path_, problem);
  }
  unlink(diag_path_.c_str());
  qmi::Descriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listener) return failed("socket", problem);
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  if (bind(listener.get(), name, sizeof address) != 0 || listen(listener.get(), SOMAXCONN) != 0) {
    return failed(diag_path_, problem);
  }
  diag_ = std::move(listener);
  return true;
}

void DevicePorts::serve() {
  timing::Deadline accept_again = timing::kNever;  // until then nobody can be accepted
  for (;;) {
    if (timing::Clock::now() >= accept_again) accept_again = timing::kNever;
    const bool accepts = accept_again == timing::kNever && diag_clients_.size() < kMaxDiagClients;
    std::vector<pollfd> fds = {{stop_.descriptor(), POLLIN, 0},
                               {accepts ? diag_.get() : -1, POLLIN, 0},
                               {at_.descriptor(), POLLIN, 0}};
    for (const qmi::Descriptor& client : diag_clients_) fds.push_back({client.get(), POLLIN, 0});
    qmi::poll_until(fds.data(), fds.size(), accept_again);
    if (fds[0].revents != 0) return;
    if (fds[2].revents != 0) answer_at();
    for (size_t i = fds.size(); i > 3; --i) {
      if (fds[i - 1].revents != 0 && !answer_diag(fds[i - 1].fd)) {
        diag_clients_.erase(diag_clients_.begin() + static_cast<ptrdiff_t>(i - 4));
      }
    }
    if (fds[1].revents != 0) {
      qmi::Descriptor client = accept_client(diag_.get(), 0);
      if (client) {
        diag_clients_.push_back(std::move(client));
      } else if (errno != EAGAIN) {
        accept_again = timing::Clock::now() + kAcceptPause;
      }
    }
  }
}

// Takes one command; every client hears what the modem says. False when the client has gone.
bool DevicePorts::answer_diag(int client) {
  uint8_t command[kMaxDiagCommand];
  const ssize_t n = recv(client, command, sizeof command, MSG_DONTWAIT);
  if (n <= 0) return false;
  const std::span told(command, static_cast<size_t>(n));
  const std::vector<std::string> packets = diag_packets(modem_, told);
  if (witness_ != nullptr) witness_->saw_diag(told, packets.back());
  for (const std::string& packet : packets) {
    for (const qmi::Descriptor& hearer : diag_clients_) {
      send(hearer.get(), packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
  }
  return true;
}

// A command ends with a carriage return. Its answer replaces what nobody has read.
void DevicePorts::answer_at() {
  char text[256];
  const ssize_t n = read(at_.descriptor(), text, sizeof text);
  for (ssize_t i = 0; i < n; ++i) {
    if (text[i] != '\r') {
      if (at_line_.size() < kMaxAtLine) at_line_ += text[i];
      continue;
    }
    const std::string answer = at_twin_.answer(at_line_);
    if (witness_ != nullptr) witness_->saw_at(at_line_, answer);
    say_at(answer);
    at_line_.clear();
  }
}

// In two pieces, as from a serial line: a reader has to wait for the end.
void DevicePorts::say_at(std::string_view text) {
  if (text.empty()) return;
  at_.drop_unread();
  const size_t half = text.size() / 2;
  [[maybe_unused]] ssize_t sent = write(at_.descriptor(), text.data(), half);
  pollfd stop{stop_.descriptor(), POLLIN, 0};
  qmi::poll_until(&stop, 1, timing::Clock::now() + kBetweenAtPieces);
  sent = write(at_.descriptor(), text.data() + half, text.size() - half);
}

}  // namespace sim
