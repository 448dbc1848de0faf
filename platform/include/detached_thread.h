// Threads that nobody waits for.
#pragma once

#include <system_error>
#include <thread>
#include <utility>

// Runs `body` on a thread of its own. False when the system has no thread left.
template <typename Body>
bool start_detached_thread(Body body) {
  try {
    std::thread(std::move(body)).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}
