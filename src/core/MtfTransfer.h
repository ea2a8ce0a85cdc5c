// The midtones transfer function (MTF) and its inverse, in double precision.
//
// The function is the rational curve through (0, 0), (m, 1/2) and (1, 1) for a midtones balance m
// in (0, 1). It brightens for m < 1/2, and MtfForward(t, d) is the balance that maps d to t.
#pragma once

namespace project_lumen::core {

// 0 for x <= 0, 1 for x >= 1, otherwise (m - 1) x / ((2m - 1) x - m).
inline double MtfForward(double m, double x) {
  if (x <= 0.0) {
    return 0.0;
  }
  if (x >= 1.0) {
    return 1.0;
  }
  return (m - 1.0) * x / ((2.0 * m - 1.0) * x - m);
}

// 0 for y <= 0, 1 for y >= 1, otherwise m y / ((1 - m) (1 - y) + m y).
inline double MtfInverse(double m, double y) {
  if (y <= 0.0) {
    return 0.0;
  }
  if (y >= 1.0) {
    return 1.0;
  }
  return m * y / ((1.0 - m) * (1.0 - y) + m * y);
}

}  // namespace project_lumen::core
