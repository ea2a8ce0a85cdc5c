// Preloaded: large allocations that fail as FaultPlan.h says. C++'s operator new asks malloc.
// The C library's own names of its functions are used, since looking up what is hidden allocates.

#include <cerrno>
#include <cstddef>

#include "FaultPlan.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

bool Fails(std::size_t size) {
  return faults::IsPlanned("allocate") && faults::IsLarge(size) && faults::GoesWrong();
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
  return Fails(size) ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  std::size_t bytes = 0;
  const bool isTooMuch = __builtin_mul_overflow(count, size, &bytes);
  return isTooMuch || Fails(bytes) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
  return Fails(size) ? nullptr : __libc_realloc(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
  return Fails(size) ? nullptr : __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  void* const got = memalign(alignment, size);
  if (got == nullptr) {
    return ENOMEM;
  }
  *memory = got;
  return 0;
}
}
