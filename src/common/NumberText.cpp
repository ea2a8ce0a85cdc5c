#include "common/NumberText.h"

#include <array>
#include <charconv>

namespace project_lumen {

std::string FormatReal(double value) {
  constexpr int kSignificantDigits = 17;
  std::array<char, 32> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                    std::chars_format::general, kSignificantDigits);
  return {buffer.data(), result.ptr};
}

}  // namespace project_lumen
