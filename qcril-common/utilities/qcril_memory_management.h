// The memory of per-call records: zeroed blocks, and an owner that returns them.
#pragma once

#include <stddef.h>

#include <memory>

#include "utilities/velmor_log.h"

// A zero-filled block of `size` bytes, the caller's until qcril_free_adv. Null, with a line in the
// system log that names `caller` and `line`, when there is no memory.
void* qcril_malloc_adv(size_t size, const char* caller, int line);

// Frees a block of qcril_malloc_adv; null is allowed.
void qcril_free_adv(void* block, const char* caller, int line);

struct QcrilFree {
  LogPlace place;
  void operator()(void* block) const { qcril_free_adv(block, place.function, place.line); }
};

// A zeroed T on the heap that frees itself; null when there is no memory.
template <typename T>
using QcrilRecord = std::unique_ptr<T, QcrilFree>;

template <typename T>
QcrilRecord<T> qcril_new_record(const LogPlace& place) {
  auto* record = static_cast<T*>(qcril_malloc_adv(sizeof(T), place.function, place.line));
  return {record, QcrilFree{place}};
}
