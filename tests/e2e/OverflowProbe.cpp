// Built as the program is: reads as many bytes as its argument says into a place for four. The
// program itself has no call left that could go beyond its buffer, so this one shows whether the
// checked variants of the C library's functions are in use.
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <span>

int main(int argc, char* argv[]) {
  const std::span<char*> arguments(argv, static_cast<std::size_t>(argc));
  std::array<char, 4> place{};
  const auto count = static_cast<std::size_t>(std::atoi(arguments.back()));
  return read(STDIN_FILENO, place.data(), count) < 0 ? 1 : 0;
}
