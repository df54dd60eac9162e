#include "tests/separation/CountedMemory.h"

#include <cstdlib>
#include <new>

std::atomic<long> allocations = 0;
std::atomic<bool> isArmed = false;
long untilFailure = -1;

void* operator new(std::size_t size) {
  ++allocations;
  if (isArmed && untilFailure-- == 0) throw std::bad_alloc();
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
