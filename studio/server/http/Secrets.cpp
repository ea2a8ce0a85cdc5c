#include "studio/http/Secrets.h"

#include <sys/random.h>

#include <array>
#include <cstddef>
#include <stdexcept>

namespace project_lumen::studio {

std::string MakeSecret() {
  constexpr char kDigits[] = "0123456789abcdef";
  std::array<unsigned char, 32> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("The system gives no random numbers.");
  }
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte / 16U];
    text += kDigits[byte % 16U];
  }
  return text;
}

bool IsSameSecret(std::string_view one, std::string_view other) {
  if (one.size() != other.size()) {
    return false;
  }
  unsigned difference = 0;
  for (std::size_t i = 0; i < one.size(); ++i) {
    difference |= static_cast<unsigned>(static_cast<unsigned char>(one[i])) ^
                  static_cast<unsigned>(static_cast<unsigned char>(other[i]));
  }
  return difference == 0;
}

}  // namespace project_lumen::studio
