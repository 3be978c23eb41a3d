// SPDX-License-Identifier: Apache-2.0
#include "support/allocations.h"

#include <cstddef>

namespace {

long g_count = 0, g_live = 0;
long g_first_refused = 0, g_last_refused = -1;

bool may_allocate() {
  ++g_count;
  return g_count < g_first_refused || g_count > g_last_refused;
}

void* counted(void* block) {
  if (block) ++g_live;
  return block;
}

}  // namespace

// The linker calls these instead: --wrap=malloc and so on.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void __real_free(void* memory);
void* __wrap_malloc(size_t size) { return may_allocate() ? counted(__real_malloc(size)) : nullptr; }
void* __wrap_calloc(size_t count, size_t size) {
  return may_allocate() ? counted(__real_calloc(count, size)) : nullptr;
}
void* __wrap_realloc(void* memory, size_t size) {
  if (!may_allocate()) return nullptr;
  void* const moved = __real_realloc(memory, size);
  return memory ? moved : counted(moved);
}
void __wrap_free(void* memory) {
  if (memory) --g_live;
  __real_free(memory);
}
}

namespace kelnn_test {

long allocation_count() { return g_count; }
long live_blocks() { return g_live; }

NoMemory::NoMemory(long first, long last) {
  g_first_refused = g_count + first;
  g_last_refused = g_count + last;
}
NoMemory::~NoMemory() { g_last_refused = -1; }

}  // namespace kelnn_test
