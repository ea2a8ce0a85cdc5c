// What a failure is called in front of the user.
#pragma once

#include <exception>
#include <string>

namespace project_lumen {

// The exception's own text; "Not enough memory to process the image." for std::bad_alloc and for
// OpenCV's exception of the same meaning.
std::string FailureText(const std::exception& error);

}  // namespace project_lumen
