#include "io/TiffErrors.h"

#include <gtest/gtest.h>
#include <tiffio.h>

#include "support/StandardErrorFile.h"

namespace project_lumen::io {
namespace {

TEST(TiffErrors, AnErrorIsNoticed) {
  const test::StandardErrorFile quiet;
  const TiffErrors errors;
  EXPECT_FALSE(TiffErrors::HaveOccurred());
  TIFFErrorExt(nullptr, "module", "message");
  EXPECT_TRUE(TiffErrors::HaveOccurred());
}

TEST(TiffErrors, AWarningIsNot) {
  const test::StandardErrorFile quiet;
  const TiffErrors errors;
  TIFFWarningExt(nullptr, "module", "message");
  EXPECT_FALSE(TiffErrors::HaveOccurred());
}

TEST(TiffErrors, EarlierErrorsDoNotCount) {
  const test::StandardErrorFile quiet;
  {
    const TiffErrors earlier;
    TIFFErrorExt(nullptr, "module", "message");
  }
  TIFFErrorExt(nullptr, "module", "message");
  const TiffErrors errors;
  EXPECT_FALSE(TiffErrors::HaveOccurred());
}

}  // namespace
}  // namespace project_lumen::io
