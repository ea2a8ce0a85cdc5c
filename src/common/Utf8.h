// UTF-8 as readers of our texts expect it.
#pragma once

#include <string>
#include <string_view>

namespace project_lumen {

// `text` with U+FFFD, the replacement character, in the place of every part that is no UTF-8: one
// for each longest start of a sequence that something else follows, and one for each byte that
// starts none (The Unicode Standard, section 3.9, "U+FFFD Substitution of Maximal Subparts").
// Overlong forms, surrogates and numbers above U+10FFFF are no UTF-8. Valid text comes back as it
// is.
std::string ReplaceInvalidUtf8(std::string_view text);

}  // namespace project_lumen
