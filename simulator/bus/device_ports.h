// The ports of the simulated modem that do not speak QMI, in the device tree of the state folder:
// dev/diag, a socket that takes diag commands and tells every client what the modem says, and
// dev/smd8, the AT port, a link to a pseudo-terminal.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "descriptor.h"
#include "linked_terminal.h"
#include "sim_at.h"
#include "state_files.h"

namespace sim {

class Modem;
class Witness;

class DevicePorts {
 public:
  // `witness` may be null.
  explicit DevicePorts(const Modem& modem, Witness* witness = nullptr);
  ~DevicePorts();  // removes the ports

  enum class Owner { Command, Server };
  enum class Outcome {
    Open,
    HasServer,   // a server has the ports
    Incomplete,  // one of them, or both, cannot be had
    Failed,      // none can be served
  };

  // Makes the ports and serves them on a thread of its own. One process at a time has the ports of
  // a state folder: for another command this waits a while, for a server it does not. `problem`
  // is in words what went wrong.
  Outcome open(Owner owner, std::string& problem);

 private:
  bool take_locks(Owner owner, std::string& problem);
  bool make_diag_port(std::string& problem);
  void serve();
  bool answer_diag(int client);
  void answer_at();
  void say_at(std::string_view text);

  const Modem& modem_;
  Witness* const witness_;
  const std::string diag_path_;
  const std::string at_path_;
  std::vector<state_files::FolderLock> locks_;
  qmi::Descriptor diag_;
  LinkedTerminal at_;
  qmi::WakeEvent stop_;
  std::thread thread_;

  // Of the thread.
  std::vector<qmi::Descriptor> diag_clients_;
  std::string at_line_;
  AtTwin at_twin_;
};

}  // namespace sim
