// Preloaded: calls on files that go wrong as FaultPlan.h says. The buffered calls of the C library
// count like those of the system, because its own way to the system cannot be intercepted.

// The checked variants of the C library's headers would stand in the way of the definitions here.
#undef _FORTIFY_SOURCE

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "FaultPlan.h"

namespace {

using faults::GoesWrongOn;
using faults::IsPlanned;

// The function that this library hides.
template <class Function>
Function* Hidden(Function* /*type*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Calls the hidden function of the same name.
#define HIDDEN(name) Hidden(&name, #name)

bool GoesWrongOnFile(std::FILE* file) {
  return GoesWrongOn(fileno(file));
}

mode_t ModeOf(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

// --- open ---

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeOf(flags, arguments);
  va_end(arguments);
  static auto* const hidden = HIDDEN(open);
  return IsPlanned("open") && GoesWrongOn(path) ? -1 : hidden(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeOf(flags, arguments);
  va_end(arguments);
  static auto* const hidden = HIDDEN(open64);
  return IsPlanned("open") && GoesWrongOn(path) ? -1 : hidden(path, flags, mode);
}

std::FILE* fopen(const char* path, const char* mode) {
  static auto* const hidden = HIDDEN(fopen);
  return IsPlanned("open") && GoesWrongOn(path) ? nullptr : hidden(path, mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
  static auto* const hidden = HIDDEN(fopen64);
  return IsPlanned("open") && GoesWrongOn(path) ? nullptr : hidden(path, mode);
}

// --- read ---

ssize_t read(int descriptor, void* bytes, size_t count) {
  static auto* const hidden = HIDDEN(read);
  return IsPlanned("read") && GoesWrongOn(descriptor) ? -1 : hidden(descriptor, bytes, count);
}

ssize_t __read_chk(int descriptor, void* bytes, size_t count, size_t /*room*/) {
  return read(descriptor, bytes, count);
}

ssize_t pread(int descriptor, void* bytes, size_t count, off_t offset) {
  static auto* const hidden = HIDDEN(pread);
  return IsPlanned("read") && GoesWrongOn(descriptor) ? -1
                                                      : hidden(descriptor, bytes, count, offset);
}

ssize_t pread64(int descriptor, void* bytes, size_t count, off64_t offset) {
  static auto* const hidden = HIDDEN(pread64);
  return IsPlanned("read") && GoesWrongOn(descriptor) ? -1
                                                      : hidden(descriptor, bytes, count, offset);
}

size_t fread(void* bytes, size_t size, size_t count, std::FILE* file) {
  static auto* const hidden = HIDDEN(fread);
  return IsPlanned("read") && GoesWrongOnFile(file) ? 0 : hidden(bytes, size, count, file);
}

size_t __fread_chk(void* bytes, size_t /*room*/, size_t size, size_t count, std::FILE* file) {
  return fread(bytes, size, count, file);
}

void* mmap(void* address, size_t length, int protection, int flags, int descriptor, off_t offset) {
  static auto* const hidden = HIDDEN(mmap);
  const bool fails = descriptor >= 0 && IsPlanned("read") && GoesWrongOn(descriptor);
  return fails ? MAP_FAILED : hidden(address, length, protection, flags, descriptor, offset);
}

void* mmap64(void* address, size_t length, int protection, int flags, int descriptor,
             off64_t offset) {
  return mmap(address, length, protection, flags, descriptor, offset);
}

// --- write ---

ssize_t write(int descriptor, const void* bytes, size_t count) {
  static auto* const hidden = HIDDEN(write);
  return IsPlanned("write") && GoesWrongOn(descriptor) ? -1 : hidden(descriptor, bytes, count);
}

ssize_t pwrite(int descriptor, const void* bytes, size_t count, off_t offset) {
  static auto* const hidden = HIDDEN(pwrite);
  return IsPlanned("write") && GoesWrongOn(descriptor) ? -1
                                                       : hidden(descriptor, bytes, count, offset);
}

ssize_t pwrite64(int descriptor, const void* bytes, size_t count, off64_t offset) {
  static auto* const hidden = HIDDEN(pwrite64);
  return IsPlanned("write") && GoesWrongOn(descriptor) ? -1
                                                       : hidden(descriptor, bytes, count, offset);
}

ssize_t writev(int descriptor, const iovec* parts, int count) {
  static auto* const hidden = HIDDEN(writev);
  return IsPlanned("write") && GoesWrongOn(descriptor) ? -1 : hidden(descriptor, parts, count);
}

size_t fwrite(const void* bytes, size_t size, size_t count, std::FILE* file) {
  static auto* const hidden = HIDDEN(fwrite);
  return IsPlanned("write") && GoesWrongOnFile(file) ? 0 : hidden(bytes, size, count, file);
}

// --- flush ---

int fsync(int descriptor) {
  static auto* const hidden = HIDDEN(fsync);
  return IsPlanned("flush") && GoesWrongOn(descriptor) ? -1 : hidden(descriptor);
}

int fflush(std::FILE* file) {
  static auto* const hidden = HIDDEN(fflush);
  return file != nullptr && IsPlanned("flush") && GoesWrongOnFile(file) ? EOF : hidden(file);
}

// --- close: done in any case, and then reported as failed, like a file system's late error ---

int close(int descriptor) {
  static auto* const hidden = HIDDEN(close);
  const bool fails = IsPlanned("close") && GoesWrongOn(descriptor);
  const int error = errno;
  const int result = hidden(descriptor);
  if (!fails) {
    return result;
  }
  errno = error;
  return -1;
}

int fclose(std::FILE* file) {
  static auto* const hidden = HIDDEN(fclose);
  const bool fails = IsPlanned("close") && GoesWrongOnFile(file);
  const int error = errno;
  const int result = hidden(file);
  if (!fails) {
    return result;
  }
  errno = error;
  return EOF;
}

// --- rename ---

int rename(const char* from, const char* to) {
  static auto* const hidden = HIDDEN(rename);
  return IsPlanned("rename") && GoesWrongOn(to) ? -1 : hidden(from, to);
}
}
