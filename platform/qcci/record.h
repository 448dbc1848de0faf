// The record: every QMI packet of this process with its time, one JSON object a line, for a modem
// that answers from it later. One write a line:
//
//   {"time":12.345678,"process":77,"service_id":11,"service":"uim","direction":">","transaction":3,
//    "bytes":"0003003b00.."}
//   {"time":12.345901,"process":77,"service_id":11,"presence":"gone"}
//
// In the bytes ".." stands for one that is hidden, as in the trace. Presence is "sought", when the
// network is asked for the service, "listed", when it has said where it runs, "there" or "gone".
#pragma once

#include "qcci/observer.h"

namespace qmi::record {

// The one that writes to the file TOVI_RECORD; null when there is none.
Observer* observer();

}  // namespace qmi::record
