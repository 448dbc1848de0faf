#include "skarn_common/skarn_mem.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <list>
#include <mutex>

#include "mutex.h"
#include "properties.h"
#include "utilities/velmor_log.h"

namespace {

struct Tracking {
  Mutex lock;
  std::list<skarn_mem_record> records GUARDED_BY(lock);
};

// Null while nothing is recorded. Written once, by the first allocation.
Tracking* g_tracking;

void skarn_mem_init() {
  char value[PROPERTY_VALUE_MAX];
  property_get("persist.skarn.mem_trace", value, nullptr);
  if (value[0] == '\0') VELMOR_LOG_DEBUG("SKARN_MEM_TRACE_PROP not exist");
  if (strcmp(value, "true") == 0) g_tracking = new Tracking;
}

Tracking* tracking() {
  static std::once_flag once;
  std::call_once(once, skarn_mem_init);
  return g_tracking;
}

skarn_mem_record record_of(void* block, size_t size, const char* func) {
  skarn_mem_record record{};
  record.ptr = block;
  record.size = size;
  record.pid = getpid();
  record.func = func;
  timeval now{};
  gettimeofday(&now, nullptr);
  tm local{};
  if (localtime_r(&now.tv_sec, &local) == nullptr) return record;
  record.year = local.tm_year + 1900;
  record.month = local.tm_mon + 1;
  record.day = local.tm_mday;
  record.hour = local.tm_hour;
  record.minute = local.tm_min;
  record.second = local.tm_sec;
  return record;
}

}  // namespace

void* skarn_malloc_adv(size_t size, const char* func, int) {
  Tracking* all = tracking();
  void* block = calloc(1, size);
  if (block == nullptr) {
    VELMOR_LOG_ERROR("Fail to allocate memory");
    return nullptr;
  }
  if (all != nullptr) {
    MutexLock hold(all->lock);
    all->records.push_back(record_of(block, size, func));
  }
  return block;
}

void skarn_free_adv(void* block, const char*, int) {
  if (block == nullptr) return;
  if (Tracking* all = tracking()) {
    // The record goes first: the block may be somebody else's as soon as it is free.
    MutexLock hold(all->lock);
    const auto found = std::find_if(all->records.begin(), all->records.end(),
                                    [&](const skarn_mem_record& r) { return r.ptr == block; });
    if (found != all->records.end()) all->records.erase(found);
  }
  free(block);
}

const char* skarn_get_print_buf(const uint8_t* bytes) {
  constexpr int kBytes = 30;
  static char text[3 * kBytes + 1];
  for (int i = 0; i < kBytes; ++i) {
    snprintf(text + size_t{3} * static_cast<size_t>(i), 4, " %02X", bytes[i]);
  }
  return text;
}

std::vector<skarn_mem_record> skarn_mem_records() {
  Tracking* all = tracking();
  if (all == nullptr) return {};
  MutexLock hold(all->lock);
  return {all->records.begin(), all->records.end()};
}
