// Structures of the interface that tell their own size, so that they can grow at their end.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "lib/Errors.h"

namespace project_lumen::lib {

// A size that the library can serve: it holds itself, and nothing that is unknown here.
template <typename Struct>
void RequireKnownSize(std::size_t size, const std::string& name) {
  if (size < sizeof(std::size_t)) {
    throw BadArgument(name + ".size is " + std::to_string(size) +
                      ". Set the defaults with nebulex_" + name + "_init first.");
  }
  if (size > sizeof(Struct)) {
    throw BadArgument(name + ".size is " + std::to_string(size) + ", but this library knows " +
                      std::to_string(sizeof(Struct)) +
                      " bytes. It is older than the header that the program was compiled with.");
  }
}

// Writes the first `size` bytes of the defaults, whose first member is the size.
template <typename Struct>
void InitialiseSized(Struct* target, std::size_t size, const Struct& defaults,
                     const std::string& name) {
  if (target == nullptr) {
    throw BadArgument(name + " is NULL.");
  }
  RequireKnownSize<Struct>(size, name);
  std::memcpy(static_cast<void*>(target), &defaults, size);
  target->size = size;
}

// The caller's structure in full: members that it does not reach to their end have their defaults.
// The defaults alone for null. `copies` assign one member each, from the first on.
template <typename Struct>
class SizedReader {
 public:
  SizedReader(const Struct* given, const Struct& defaults, const std::string& name)
      : value_(defaults), given_(defaults) {
    if (given == nullptr) {
      return;
    }
    RequireKnownSize<Struct>(given->size, name);
    reached_ = given->size;
    std::memcpy(static_cast<void*>(&given_), given, reached_);
  }

  template <typename Member>
  SizedReader& Read(Member Struct::*member) {
    const auto* start = reinterpret_cast<const std::byte*>(&given_);
    const auto* end = reinterpret_cast<const std::byte*>(&(given_.*member) + 1);
    if (static_cast<std::size_t>(end - start) <= reached_) {
      value_.*member = given_.*member;
    }
    return *this;
  }

  [[nodiscard]] const Struct& Value() const { return value_; }

 private:
  Struct value_;
  Struct given_;
  std::size_t reached_ = 0;
};

}  // namespace project_lumen::lib
