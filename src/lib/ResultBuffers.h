// The room for the results of a call: the caller's own, or allocated by the library.
#pragma once

#include <nebulex/nebulex.h>

#include "lib/SampleLayout.h"
#include "lib/Settings.h"

namespace project_lumen::lib {

nebulex_results DefaultResults();

// Frees what the library allocated. Null is fine.
void FreeResults(nebulex_results* results) noexcept;

class ResultBuffers {
 public:
  // Throws BadArgument for results without their size, for buffers that do not fit the image, and
  // for those that overlap it or each other.
  ResultBuffers(nebulex_results* results, const nebulex_view& image, const SampleLayout& source,
                const Settings& settings);

  // Allocates the buffers that the caller left to the library, once everything is computed. Throws
  // std::bad_alloc and leaves the results as they were then.
  void Allocate();

  // Where a result goes, after Allocate.
  [[nodiscard]] SampleLayout Starless() const;
  [[nodiscard]] SampleLayout Mask() const;
  [[nodiscard]] SampleLayout Unscreen() const;

 private:
  nebulex_results& results_;
  const nebulex_view& image_;
  const Settings& settings_;
};

}  // namespace project_lumen::lib
