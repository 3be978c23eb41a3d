// SPDX-License-Identifier: Apache-2.0
#include "support/allocations.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

// AddressSanitizer fills and guards blocks itself, and would not see what happens beside ours.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KELNN_TEST_PLAIN_BLOCKS
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define KELNN_TEST_PLAIN_BLOCKS
#endif

// The linker calls the functions __wrap_... instead: --wrap=malloc and so on.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void __real_free(void* memory);
char* __real___cxa_demangle(const char* name, char* buffer, size_t* size, int* status);
void __real_qsort(void* base, size_t count, size_t size, int (*compare)(const void*, const void*));
}

namespace {

long g_count = 0, g_live = 0;
long g_first_refused = 0, g_last_refused = -1;

void (*g_call)() = nullptr;

bool may_allocate() {
  ++g_count;
  if (g_call) std::exchange(g_call, nullptr)();
  return g_count < g_first_refused || g_count > g_last_refused;
}

void* counted(void* block) {
  if (block) ++g_live;
  return block;
}

#ifdef KELNN_TEST_PLAIN_BLOCKS

void* make_block(size_t size, bool zeroed) {
  return zeroed ? __real_calloc(1, size) : __real_malloc(size);
}
void release_block(void* memory) { __real_free(memory); }

#else

// A block is a Guard, `size` bytes and marks, which are odd numbers to read.
constexpr size_t kGuardSize = 64;  // keeps the alignment
struct Guard {
  size_t size;
  uint8_t marks[kGuardSize - sizeof(size_t)];

  void set(size_t block_size) {
    size = block_size;
    std::memset(marks, 0xC5, sizeof(marks));
  }
};

void* make_block(size_t size, bool zeroed) {
  if (size > SIZE_MAX - 2 * kGuardSize) return nullptr;
  const size_t whole = size + 2 * kGuardSize;
  uint8_t* const first =
      static_cast<uint8_t*>(zeroed ? __real_calloc(1, whole) : __real_malloc(whole));
  if (!first) return nullptr;
  uint8_t* const block = first + kGuardSize;
  if (!zeroed) std::memset(block, 0xA5, size);
  Guard guard;
  guard.set(size);
  std::memcpy(first, &guard, kGuardSize);
  std::memset(block + size, 0xC5, kGuardSize);
  return block;
}

void release_block(void* memory) {
  if (!memory) return;
  uint8_t* const block = static_cast<uint8_t*>(memory);
  Guard found, expected;
  std::memcpy(&found, block - kGuardSize, kGuardSize);
  expected.set(found.size);
  const auto is_mark = [](uint8_t byte) { return byte == 0xC5; };
  if (std::memcmp(&found, &expected, kGuardSize) != 0 ||
      !std::all_of(block + found.size, block + found.size + kGuardSize, is_mark)) {
    std::fputs("A block's ends have been written over, or it was not allocated.\n", stderr);
    std::abort();
  }
  std::memset(block - kGuardSize, 0xDD, kGuardSize + found.size);
  __real_free(block - kGuardSize);
}

#endif

}  // namespace

extern "C" {
void* __wrap_malloc(size_t size) {
  return may_allocate() ? counted(make_block(size, false)) : nullptr;
}
void* __wrap_calloc(size_t count, size_t size) {
  size_t whole;
  if (!may_allocate() || __builtin_mul_overflow(count, size, &whole)) return nullptr;
  return counted(make_block(whole, true));
}
char* __wrap_strdup(const char* text) {
  const size_t size = std::strlen(text) + 1;
  void* const copy = __wrap_malloc(size);
  return static_cast<char*>(copy ? std::memcpy(copy, text, size) : nullptr);
}
void __wrap_free(void* memory) {
  if (memory) --g_live;
  release_block(memory);
}
// GoogleTest frees what this returns, when a matcher has something to tell.
char* __wrap___cxa_demangle(const char* name, char* buffer, size_t* size, int* status) {
  char* const text = __real___cxa_demangle(name, buffer, size, status);
  if (!text) return nullptr;
  const size_t length = std::strlen(text) + 1;
  void* const copy = counted(make_block(length, false));
  if (copy) std::memcpy(copy, text, length);
  __real_free(text);
  return static_cast<char*>(copy);
}

// Not stable, as some C libraries' is not: a stable one begins with everything the other way round.
void __wrap_qsort(void* base, size_t count, size_t size, int (*compare)(const void*, const void*)) {
  char* const first = static_cast<char*>(base);
  for (size_t i = 0; i < count / 2; ++i) {
    std::swap_ranges(first + i * size, first + (i + 1) * size, first + (count - 1 - i) * size);
  }
  __real_qsort(base, count, size, compare);
}
}

#ifndef KELNN_TEST_PLAIN_BLOCKS
void* operator new(size_t size) {
  if (void* const block = make_block(size, false)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { release_block(block); }
void operator delete(void* block, size_t) noexcept { release_block(block); }
#endif

namespace kelnn_test {

long allocation_count() { return g_count; }
long live_blocks() { return g_live; }
void call_at_next_allocation(void (*call)()) { g_call = call; }

NoMemory::NoMemory(long first, long last) {
  g_first_refused = g_count + first;
  g_last_refused = g_count + last;
}
NoMemory::~NoMemory() { g_last_refused = -1; }

}  // namespace kelnn_test
