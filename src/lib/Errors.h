// What can be wrong with a call, by kind; the messages are whole sentences for people.
#pragma once

#include <stdexcept>

namespace project_lumen::lib {

class BadArgument : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class BadModel : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class BadImage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace project_lumen::lib
