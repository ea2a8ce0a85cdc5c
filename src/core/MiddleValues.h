// Selection of a list's middle, the base of every median.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace project_lumen::core {

// The value of rank n / 2 and, for an even count, the largest one below that rank; for an odd count
// both are the same. NaN ranks above every number; when it reaches the middle, `below` says
// nothing.
template <typename T>
struct MiddleValues {
  T below;
  T middle;
};

// Finds the middle of a non-empty list by selection, in linear time; the list is reordered.
template <typename T>
MiddleValues<T> SelectMiddle(std::vector<T>& values) {
  const auto rank = static_cast<std::ptrdiff_t>(values.size() / 2);
  const auto middle = values.begin() + rank;
  // Selection needs a strict order, which NaN would break.
  const auto numbersEnd =
      std::partition(values.begin(), values.end(), [](T value) { return !std::isnan(value); });
  if (middle < numbersEnd) {
    std::nth_element(values.begin(), middle, numbersEnd);
  }
  if (values.size() % 2 != 0) {
    return {*middle, *middle};
  }
  return {*std::max_element(values.begin(), std::min(middle, numbersEnd)), *middle};
}

}  // namespace project_lumen::core
