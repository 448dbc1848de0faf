// The program's time: sleeps, time-outs and deadlines. TOVI_TIME_SCALE multiplies them on a host
// build, so that a wait of 100 seconds can be tried in milliseconds.
#pragma once

#include <chrono>
#include <cstdint>

namespace timing {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

// A deadline that never comes.
inline constexpr Deadline kNever = Deadline::max();

// A deadline that has passed: take what is there, do not wait.
inline constexpr Deadline kPast{};

// Milliseconds or seconds of sleep or timer, scaled freely; at most 100 years.
std::chrono::nanoseconds scaled(uint32_t ms);
std::chrono::nanoseconds scaled_s(uint64_t s);

// The end of a wait for a peer that is allowed `ms` milliseconds. Scaling never makes it shorter
// than `ms` or 50 ms, whichever is less: the peer does not run faster for it.
Deadline peer_deadline(uint32_t ms);

// Waits, at most `ms` as for a peer, until there is something to read at `fd` that has not grown
// for `quiet_ms`: what comes in pieces is whole then. Scaling never makes the quiet shorter.
void wait_quiet(int fd, uint32_t quiet_ms, uint32_t ms);

void sleep_ms(uint32_t ms);
void sleep_s(uint64_t s);

}  // namespace timing
