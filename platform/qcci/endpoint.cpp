#include "qcci/endpoint.h"

#include "environment.h"
#include "qmi_client.h"

namespace qmi {

Opened open_endpoint(timing::Deadline deadline) {
  const environment::ModemChoice* modem = environment::modem();
  if (modem == nullptr) return {nullptr, QMI_PORT_NOT_OPEN_ERR};
  switch (modem->kind) {
    case environment::ModemKind::Simulated: return open_loopback_endpoint();
    case environment::ModemKind::Unix: return open_unix_endpoint(modem->path, deadline);
    case environment::ModemKind::Qrtr: return open_qrtr_endpoint();
    case environment::ModemKind::Qmux: return open_qmux_endpoint(modem->path, false, deadline);
    case environment::ModemKind::QmuxProxy: return open_qmux_endpoint(modem->path, true, deadline);
  }
  return {nullptr, QMI_PORT_NOT_OPEN_ERR};
}

}  // namespace qmi
