#include "utilities/qcril_memory_management.h"

#include <pthread.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "utilities/qcril_log.h"

void* qcril_malloc_adv(size_t size, const char* caller, int line) {
  void* block = calloc(1, size);
  if (block == nullptr) {
    char thread[16] = "";
    pthread_getname_np(pthread_self(), thread, sizeof thread);
    qcril_log_error("util", "[%s: %d] [%s(%ld,%ld)] %s: Fail to allocate memory", caller, line,
                    thread, static_cast<long>(getpid()), static_cast<long>(syscall(SYS_gettid)),
                    __func__);
  }
  return block;
}

void qcril_free_adv(void* block, const char*, int) {
  free(block);
}
