// What a decoded message of the modem says about the request that it answers.
#pragma once

#include "qcci/observer.h"
#include "verbs.h"

namespace ctl {

struct Judgement {
  Verdict verdict;
  bool absent = false;  // refused because there is no such item or file
};

// The name of a request: its message's, or what its payload asks for. `body` is the request's.
std::string request_name(const qmi_idl_service_object& service, uint16_t message,
                         std::span<const uint8_t> body);

// Judges a response, and puts what it tells into `values`. Its C structure is there.
Judgement judge_response(const qmi::Crossing& response, Json& values);

// The same of an indication, of which the C structure may be missing.
Verdict judge_indication(const qmi::Crossing& indication, Json& values);

// Whether the request's outcome comes in an indication of the same number, and whether this is the
// last of them.
bool owes_indication(const qmi_idl_service_object& service, uint16_t message);
// Whether tovi goes on without it.
bool is_left_behind(uint32_t service, uint16_t message);
bool is_last_indication(const qmi::Crossing& indication);

}  // namespace ctl
