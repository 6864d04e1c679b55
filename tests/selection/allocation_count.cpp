#include "tests/selection/allocation_count.h"

#include <cstddef>

namespace {
long allocations = 0;
}

extern "C" {
void* __real_malloc(std::size_t bytes);
void* __real_calloc(std::size_t items, std::size_t bytes);
void* __real_realloc(void* block, std::size_t bytes);
void* __real__Znwm(std::size_t bytes);

void* __wrap_malloc(std::size_t bytes) {
  return ++allocations, __real_malloc(bytes);
}
void* __wrap_calloc(std::size_t items, std::size_t bytes) {
  return ++allocations, __real_calloc(items, bytes);
}
void* __wrap_realloc(void* block, std::size_t bytes) {
  return ++allocations, __real_realloc(block, bytes);
}
void* __wrap__Znwm(std::size_t bytes) {
  return ++allocations, __real__Znwm(bytes);
}
}

long AllocationCount() {
  return allocations;
}
