// Serves a simulated modem to any number of clients over a SOCK_SEQPACKET socket in the file
// system. One connection is one endpoint; every packet carries 8 bytes in front, node and port.
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <string>

#include "descriptor.h"
#include "router.h"

namespace sim {

class UnixServer {
 public:
  explicit UnixServer(Router& router);
  ~UnixServer();

  // Listens at `path`. The socket of a dead server is replaced, that of a live one refused. False,
  // with `problem` in words, when that fails.
  bool listen(const std::string& path, std::string& problem);

  // Serves until `stop_descriptor` polls readable.
  void run(int stop_descriptor);

 private:
  class Connection;

  void accept_client();
  void hang_up_on_the_greediest();
  bool watch(int descriptor, uint32_t events, bool known);

  Router& router_;
  qmi::Descriptor epoll_;
  qmi::Descriptor listener_;
  timing::Deadline accept_again_ = timing::kNever;  // until then nobody can be accepted
  std::string path_;
  ino_t inode_ = 0;
  size_t waiting_bytes_ = 0;                                // for all clients
  std::map<int, std::unique_ptr<Connection>> connections_;  // by descriptor
};

}  // namespace sim
