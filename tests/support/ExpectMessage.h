// Checks of an exception's kind and whole text.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

namespace project_lumen::test {

// Expects `action` to throw exactly an `Exception` (no class derived from it) that says `message`.
template <typename Exception, typename Action>
void ExpectMessage(const Action& action, const std::string& message) {
  try {
    action();
    ADD_FAILURE() << "no exception; expected: " << message;
  } catch (const Exception& error) {
    EXPECT_EQ(typeid(error), typeid(Exception));
    EXPECT_EQ(std::string(error.what()), message);
  }
}

}  // namespace project_lumen::test
