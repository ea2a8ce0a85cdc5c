// Words for an exception.
#pragma once

#include <exception>
#include <string>

namespace project_lumen::studio {

// What a person is told of an exception that ended some work.
std::string WordsFor(const std::exception& error);

}  // namespace project_lumen::studio
