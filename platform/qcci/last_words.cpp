#include "qcci/last_words.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>

#include <atomic>

#include "descriptor.h"
#include "detached_thread.h"
#include "mutex.h"

namespace {

// None of this is ever destroyed: it is used while the process exits.
struct LastWords {
  void (*say)();
  Mutex lock;
  bool said GUARDED_BY(lock) = false;
  qmi::WakeEvent signalled;
  std::atomic<int> signal = 0;
};
LastWords* g_words;

// Whoever comes second waits until they have been said.
void say_once() {
  MutexLock hold(g_words->lock);
  if (!g_words->said) g_words->say();
  g_words->said = true;
}

// A handler may neither lock nor wait, and the thread that it interrupts may hold a lock.
void note(int signal) {
  const int before = errno;
  g_words->signal = signal;
  g_words->signalled.set();
  errno = before;
}

void wait_for_signal() {
  pollfd signalled{g_words->signalled.descriptor(), POLLIN, 0};
  while (qmi::poll_until(&signalled, 1, timing::kNever) != 1) {
  }
  say_once();
  signal(g_words->signal, SIG_DFL);
  kill(getpid(), g_words->signal);
}

}  // namespace

void at_the_end(void (*say)()) {
  g_words = new LastWords{.say = say, .lock = {}, .signalled = {}};
  atexit(say_once);
  if (!start_detached_thread(wait_for_signal)) return;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction usual {};
    sigaction(signal, nullptr, &usual);
    if (usual.sa_handler != SIG_DFL) continue;
    struct sigaction noting {};
    noting.sa_handler = note;
    noting.sa_flags = SA_RESTART;
    sigaction(signal, &noting, nullptr);
  }
}
