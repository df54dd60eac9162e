#include "tests/support/CountedMemory.h"

#include <cstdlib>
#include <new>

std::atomic<long> allocations = 0;
std::atomic<bool> isArmed = false;
long untilFailure = -1;

static void* counted(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

static void count() {
  ++allocations;
  if (isArmed && untilFailure-- == 0) throw std::bad_alloc();
}

void* operator new(std::size_t size) {
  count();
  return counted(std::malloc(size));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  count();
  const auto whole = static_cast<std::size_t>(alignment);
  return counted(std::aligned_alloc(whole, (size + whole - 1) / whole * whole));
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
