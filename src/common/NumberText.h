// Numbers as they appear in messages.
#pragma once

#include <string>

namespace project_lumen {

// 17 significant digits in general notation, enough to tell any two doubles apart: 255 is "255",
// 1/255 is "0.0039215686274509803". Independent of locale and stream state.
std::string FormatReal(double value);

}  // namespace project_lumen
