#include "turns.h"

#include <dlfcn.h>
#include <errno.h>
#include <linux/futex.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <chrono>

// Not compiled with any sanitizer: the thread sanitizer would take the change of turns for an order
// that the program has made. It sees the program's own locks, which are taken through it.
extern "C" {
[[gnu::weak]] int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*),
                                               void*);
[[gnu::weak]] int __interceptor_pthread_mutex_trylock(pthread_mutex_t*);
[[gnu::weak]] int __interceptor_pthread_mutex_unlock(pthread_mutex_t*);
[[gnu::weak]] int __interceptor_pthread_join(pthread_t, void**);
}

namespace {

constexpr int64_t kNever = INT64_MAX;
constexpr int kMaxThreads = 1024;
constexpr int64_t kSecond = 1'000'000'000;

// The real ones. Found when first needed, which is before static objects are made.
struct Real {
  decltype(&__interceptor_pthread_create) create = __interceptor_pthread_create;
  decltype(&__interceptor_pthread_mutex_trylock) trylock = __interceptor_pthread_mutex_trylock;
  decltype(&__interceptor_pthread_mutex_unlock) unlock = __interceptor_pthread_mutex_unlock;
  decltype(&__interceptor_pthread_join) join = __interceptor_pthread_join;
  long (*syscall)(long, ...) = nullptr;
  int (*ppoll)(pollfd*, nfds_t, const timespec*, const sigset_t*) = nullptr;
  int (*epoll_wait)(int, epoll_event*, int, int) = nullptr;
  bool found = false;

  template <typename Call>
  static void find(Call*& call, const char* name) {
    if (call == nullptr) call = reinterpret_cast<Call*>(dlsym(RTLD_NEXT, name));
  }
  void find_all() {
    find(create, "pthread_create");
    find(trylock, "pthread_mutex_trylock");
    find(unlock, "pthread_mutex_unlock");
    find(join, "pthread_join");
    find(syscall, "syscall");
    find(ppoll, "ppoll");
    find(epoll_wait, "epoll_wait");
    found = true;
  }
};

Real& real() {
  static constinit Real all;
  if (!all.found) all.find_all();
  return all;
}

struct Thread {
  enum State { Free, Ready, WaitsFor, Polls } state;
  int turn;          // a futex: 1 when it is this thread's
  const void* what;  // it waits for: a mutex, a condition, a futex, a thread
  int64_t deadline;  // of the wait
  bool woken;        // it ended otherwise
  pollfd* polled;
  nfds_t polled_count;
  pthread_t id;
};

Thread g_threads[kMaxThreads];
int g_used = 1;
bool g_began;
uint64_t g_random;  // 0: no seed
int64_t g_now = 3600 * kSecond;
uint64_t g_changes;
thread_local Thread* t_self;

[[noreturn]] void give_up(const char* why) {
  fprintf(stderr, "ERROR: turns: %s\n", why);
  abort();
}

uint64_t random_below(uint64_t count) {
  g_random ^= g_random << 13;
  g_random ^= g_random >> 7;
  g_random ^= g_random << 17;
  return (g_random >> 11) % count;
}

int index_of(const Thread* thread) {
  return static_cast<int>(thread - g_threads);
}

bool can_go_on(Thread& thread) {
  switch (thread.state) {
    case Thread::Free: return false;
    case Thread::Ready: return true;
    case Thread::WaitsFor: return thread.woken || thread.deadline <= g_now;
    case Thread::Polls: {
      constexpr timespec kAtOnce{};
      return thread.deadline <= g_now ||
             real().ppoll(thread.polled, thread.polled_count, &kAtOnce, nullptr) > 0;
    }
  }
  return false;
}

int64_t first_deadline() {
  int64_t first = kNever;
  for (int i = 0; i < g_used; ++i) {
    const Thread& thread = g_threads[i];
    const bool waits = thread.state == Thread::WaitsFor || thread.state == Thread::Polls;
    if (waits && thread.deadline < first) first = thread.deadline;
  }
  return first;
}

// Whose turn it is when the caller has had its own.
Thread& next_of(const Thread& self) {
  if (g_random != 0 && random_below(64) == 0) {
    const int64_t first = first_deadline();
    if (first != kNever && first > g_now) g_now = first;
  }
  for (;;) {
    const int start = g_random != 0 ? static_cast<int>(random_below(static_cast<uint64_t>(g_used)))
                                    : index_of(&self) + 1;
    for (int i = 0; i < g_used; ++i) {
      Thread& thread = g_threads[(start + i) % g_used];
      if (can_go_on(thread)) return thread;
    }
    const int64_t first = first_deadline();
    if (first == kNever) give_up("all threads wait, and for nothing that can come");
    g_now = first;
  }
}

void wait_for_turn(Thread& self) {
  while (__atomic_load_n(&self.turn, __ATOMIC_ACQUIRE) == 0) {
    real().syscall(SYS_futex, &self.turn, FUTEX_WAIT_PRIVATE, 0, nullptr);
  }
  self.turn = 0;
}

void hand_to(Thread& next) {
  ++g_changes;
  __atomic_store_n(&next.turn, 1, __ATOMIC_RELEASE);
  real().syscall(SYS_futex, &next.turn, FUTEX_WAKE_PRIVATE, 1);
}

void give_turn_away() {
  Thread& self = *t_self;
  Thread& next = next_of(self);
  if (&next == &self) return;
  hand_to(next);
  wait_for_turn(self);
}

// False when the deadline ended it.
bool wait_for(const void* what, int64_t deadline = kNever) {
  Thread& self = *t_self;
  self.what = what;
  self.woken = false;
  self.deadline = deadline;
  self.state = Thread::WaitsFor;
  give_turn_away();
  self.state = Thread::Ready;
  return self.woken;
}

// With a seed any one of those that wait may be the first.
int wake(const void* what, int count) {
  int woken = 0;
  const int start =
      g_random != 0 ? static_cast<int>(random_below(static_cast<uint64_t>(g_used))) : 0;
  for (int i = 0; i < g_used && woken < count; ++i) {
    Thread& thread = g_threads[(start + i) % g_used];
    if (thread.state != Thread::WaitsFor || thread.what != what || thread.woken) continue;
    thread.woken = true;
    ++woken;
  }
  return woken;
}

// Where another thread may come in between.
void point() {
  if (g_random != 0 && random_below(4) == 0) give_turn_away();
}

bool takes_turns() {
  return g_began && t_self != nullptr;
}

int64_t nanoseconds(const timespec& time) {
  if (time.tv_sec >= kNever / kSecond) return kNever;
  return time.tv_sec * kSecond + time.tv_nsec;
}

int64_t after(int64_t ns) {
  return ns >= kNever - g_now ? kNever : g_now + ns;
}

int64_t after(const timespec* limit) {
  return limit == nullptr ? kNever : after(nanoseconds(*limit));
}

struct Start {
  void* (*run)(void*);
  void* argument;
  Thread* thread;
};

// What the C library still does at a thread's end is no longer in its turn.
void end_thread(Thread& self) {
  self.state = Thread::Free;
  wake(&self, kMaxThreads);
  t_self = nullptr;
  hand_to(next_of(self));
}

void* begin_thread(void* given) {
  const Start start = *static_cast<Start*>(given);
  free(given);
  t_self = start.thread;
  wait_for_turn(*t_self);
  void* const result = start.run(start.argument);
  end_thread(*start.thread);
  return result;
}

Thread& new_thread() {
  for (int i = 0; i < kMaxThreads; ++i) {
    if (g_threads[i].state != Thread::Free) continue;
    if (i >= g_used) g_used = i + 1;
    return g_threads[i];
  }
  give_up("too many threads");
}

Thread* find_thread(pthread_t id) {
  for (int i = 0; i < g_used; ++i) {
    if (g_threads[i].state != Thread::Free && pthread_equal(g_threads[i].id, id))
      return &g_threads[i];
  }
  return nullptr;
}

int wait_on(pthread_cond_t* condition, pthread_mutex_t* mutex, int64_t deadline) {
  // As with a real one, who signals before this thread waits is not heard: there is no point here.
  real().unlock(mutex);
  wake(mutex, kMaxThreads);
  const bool woken = wait_for(condition, deadline);
  while (real().trylock(mutex) != 0) wait_for(mutex);
  return woken ? 0 : ETIMEDOUT;
}

void sleep_for(int64_t ns) {
  const int64_t end = after(ns);
  while (g_now < end) wait_for(nullptr, end);
}

}  // namespace

void turns::begin(uint64_t seed) {
  g_random = seed == 0 ? 0 : seed * 0x9E3779B97F4A7C15 | 1;
  if (g_began) return;
  // On one processor a thread follows another at once.
  cpu_set_t here;
  CPU_ZERO(&here);
  CPU_SET(static_cast<size_t>(sched_getcpu()), &here);
  sched_setaffinity(0, sizeof here, &here);
  t_self = &g_threads[0];
  t_self->state = Thread::Ready;
  t_self->id = pthread_self();
  g_began = true;
}

void turns::pass(uint32_t ms) {
  sleep_for(int64_t{ms} * 1'000'000);
}

uint64_t turns::changes() {
  return g_changes;
}

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
  return time_point(std::chrono::nanoseconds(g_now));
}

extern "C" {

int pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) {
  if (!takes_turns()) return real().create(id, attributes, run, argument);
  Thread& thread = new_thread();
  auto* start = static_cast<Start*>(malloc(sizeof(Start)));
  *start = {run, argument, &thread};
  thread.turn = 0;
  const int error = real().create(id, attributes, begin_thread, start);
  if (error != 0) return error;
  thread.id = *id;
  thread.state = Thread::Ready;
  point();
  return 0;
}

int pthread_join(pthread_t id, void** result) {
  if (takes_turns()) {
    Thread* thread = find_thread(id);
    if (thread != nullptr) wait_for(thread);
  }
  return real().join(id, result);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (!takes_turns()) {
    while (real().trylock(mutex) != 0) {
    }
    return 0;
  }
  point();
  while (real().trylock(mutex) != 0) wait_for(mutex);
  return 0;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) {
  const int result = real().unlock(mutex);
  if (!takes_turns()) return result;
  wake(mutex, kMaxThreads);
  point();
  return result;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  return wait_on(condition, mutex, kNever);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t,
                           const timespec* deadline) {
  return wait_on(condition, mutex, nanoseconds(*deadline));
}

int pthread_cond_signal(pthread_cond_t* condition) {
  wake(condition, 1);
  point();
  return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) {
  wake(condition, kMaxThreads);
  point();
  return 0;
}

int pthread_cond_destroy(pthread_cond_t*) {
  return 0;
}

int ppoll(pollfd* fds, nfds_t count, const timespec* limit, const sigset_t* mask) {
  constexpr timespec kAtOnce{};
  int ready = real().ppoll(fds, count, takes_turns() ? &kAtOnce : limit, mask);
  const bool waits = limit == nullptr || nanoseconds(*limit) > 0;
  if (!takes_turns() || ready != 0 || !waits) return ready;
  Thread& self = *t_self;
  self.polled = fds;
  self.polled_count = count;
  self.deadline = after(limit);
  self.state = Thread::Polls;
  give_turn_away();
  self.state = Thread::Ready;
  return real().ppoll(fds, count, &kAtOnce, mask);
}

int poll(pollfd* fds, nfds_t count, int ms) {
  const timespec limit{ms / 1000, ms % 1000 * 1'000'000L};
  return ppoll(fds, count, ms < 0 ? nullptr : &limit, nullptr);
}

int epoll_wait(int epoll, epoll_event* events, int count, int ms) {
  pollfd ready{epoll, POLLIN, 0};
  if (ms != 0) poll(&ready, 1, ms);
  return real().epoll_wait(epoll, events, count, 0);
}

int nanosleep(const timespec* length, timespec*) {
  if (takes_turns()) sleep_for(nanoseconds(*length));
  return 0;
}

int usleep(useconds_t us) {
  if (takes_turns()) sleep_for(int64_t{us} * 1000);
  return 0;
}

int sched_yield() {
  return 0;
}

// What std::atomic waits with.
long syscall(long number, ...) {
  long arguments[6];
  va_list list;
  va_start(list, number);
  for (long& argument : arguments) argument = va_arg(list, long);
  va_end(list);
  const auto [address, operation, value, limit, more, last] = arguments;
  if (number != SYS_futex || !takes_turns()) {
    return real().syscall(number, address, operation, value, limit, more, last);
  }
  const auto* word = reinterpret_cast<const int*>(address);
  switch (operation & FUTEX_CMD_MASK) {
    case FUTEX_WAKE:
    case FUTEX_WAKE_BITSET: return wake(word, static_cast<int>(value));
    case FUTEX_WAIT:
    case FUTEX_WAIT_BITSET:
      if (__atomic_load_n(word, __ATOMIC_ACQUIRE) != static_cast<int>(value)) {
        errno = EAGAIN;
        return -1;
      }
      wait_for(word, after(reinterpret_cast<const timespec*>(limit)));
      return 0;
    default: give_up("an unknown use of futex");
  }
}
}
