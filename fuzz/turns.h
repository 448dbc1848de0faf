// The threads of the program take turns: one goes on at a time, from where it waits to where it
// waits next, and time passes only when all of them wait, to the first who waits for it. So nothing
// takes longer than it computes, and what happens depends on nothing but a seed.
//
// turns.cpp stands between the program and the C library: locks, conditions, threads, futexes,
// sleeps, poll, and the library's clock. A program that is linked with it has no other threads.
#pragma once

#include <cstdint>

namespace turns {

// Begins it; the caller has the first turn. From now on threads change only where one waits; with a
// seed other than 0 also wherever a lock is taken or let go, a thread is woken or begins, at
// random, and sometimes time passes although somebody could go on. May be called again for another
// seed. libFuzzer has started threads of its own when it executes the first input, and not before.
void begin(uint64_t seed);

// Lets time pass until `ms` from now, for those who wait.
void pass(uint32_t ms);

// How often a thread has followed another so far.
uint64_t changes();

}  // namespace turns
