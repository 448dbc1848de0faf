// The maker's timer library: one-shot timers.
#pragma once

#include <cstdint>

// Called once when a timer expires, on a thread of its own, with a pointer to the timer's id that
// is good for the call. It may start and stop timers and may take as long as it likes.
using velmor_timer_cb = void (*)(uint32_t* timer_id);

// Starts a timer of `seconds`, at most 100 years; 0 expires at once. Its id, never 0; 0 when the
// timer cannot be started. Scaled by TOVI_TIME_SCALE.
uint32_t velmor_timer_start(velmor_timer_cb callback, uint64_t seconds);

// Stops a timer that has not expired yet. 0; -1 for one that has, or is not known. Never waits: a
// callback that is running goes on.
int velmor_timer_stop(uint32_t timer_id);
