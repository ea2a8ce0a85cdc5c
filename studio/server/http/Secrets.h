// Random words that nobody can guess.
#pragma once

#include <string>
#include <string_view>

namespace project_lumen::studio {

// 256 bits from the system's random numbers in hexadecimal digits. Throws std::runtime_error where
// the system has none.
std::string MakeSecret();

// Whether both are equal, in a time that does not tell where they differ.
bool IsSameSecret(std::string_view one, std::string_view other);

}  // namespace project_lumen::studio
