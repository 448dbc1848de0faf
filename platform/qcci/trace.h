// The trace: every QMI message in words and bytes, for whoever wants to see what was asked and
// answered. One write a record:
//
//   12.345678 > uim 0x003b send_apdu req #3 len 30
//     slot = 2
//     apdu = memory_reset 13 bytes: 80 e2 91 00 ...
//     00 03 00 3b 00 1e 00 01 01 00 02 ...
//
// Hidden values show as ".." both in the words and in the bytes, unless TOVI_TRACE_FULL is 1.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "qcci/observer.h"

namespace qmi::trace {

// The one that writes records to where TOVI_TRACE says; null when that is nowhere.
Observer* observer();

// A record after its time; `direction` is '>' for sent, '<' for received. `request` is the body of
// the request that it is or answers, empty when there is none or it is not known.
std::string text(char direction, const qmi_idl_service_object& service,
                 std::span<const uint8_t> packet, std::span<const uint8_t> request,
                 bool show_hidden);

// Which bytes of a packet are not to be shown; empty when all may be, as with TOVI_TRACE_FULL.
std::vector<bool> hidden_bytes(char direction, const qmi_idl_service_object& service,
                               std::span<const uint8_t> packet, std::span<const uint8_t> request);

}  // namespace qmi::trace
