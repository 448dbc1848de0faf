// The memory of the statistics framework: zeroed blocks, each recorded while it lives when the
// property persist.skarn.mem_trace is "true" at the first allocation of the process.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <vector>

// A zero-filled block of `size` bytes, the caller's until skarn_free_adv; null, with a message,
// when there is no memory. `func` names the owner and must stay valid.
void* skarn_malloc_adv(size_t size, const char* func, int line);

// Frees a block of skarn_malloc_adv; null is allowed.
void skarn_free_adv(void* block, const char* func, int line);

// The first 30 bytes at `bytes`, which must all be readable, as " %02X" each. The text is good
// until the next call.
const char* skarn_get_print_buf(const uint8_t* bytes);

// A live block.
struct skarn_mem_record {
  void* ptr;
  uint64_t size;
  pid_t pid;
  const char* func;
  int32_t year, month, day, hour, minute, second;  // when it was allocated, local time
};

// The live blocks that were recorded, the oldest first.
std::vector<skarn_mem_record> skarn_mem_records();
