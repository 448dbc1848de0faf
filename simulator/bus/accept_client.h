// Lets clients in as long as there are descriptors for the modem's own work, its files above all.
#pragma once

#include <chrono>

#include "descriptor.h"

namespace sim {

// How long a listener is left alone when nobody can be accepted.
inline constexpr std::chrono::milliseconds kAcceptPause{100};

// The next client of `listener`, its descriptor made with `flags`. Nothing when there is none, with
// errno EAGAIN: that is also so for a client who would take one of the last descriptors, and was
// hung up on. With another errno nobody can be accepted for the moment; the listener stays ready.
qmi::Descriptor accept_client(int listener, int flags);

}  // namespace sim
