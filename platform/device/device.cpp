#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "machine.h"

const char* const machine::kModem = "qrtr";
const bool machine::kScalesTime = false;

std::string machine::device_root() {
  return "";
}

// Where a phone runs mainline Linux, its diag router has the modem's diag channel. The router's
// name is abstract: zero bytes, as many as an address has room for.
int machine::connect_diag_router(int socket) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  return connect(socket, name, sizeof address) == 0 ? 0 : errno;
}
