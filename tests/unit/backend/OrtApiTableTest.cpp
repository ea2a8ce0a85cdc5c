#include "backend/OrtApiTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#define ORT_API_MANUAL_INIT
#include <onnxruntime_cxx_api.h>

#include <stdexcept>

#include "FakeOrtApi.h"
#include "backend/OrtLibrary.h"

namespace project_lumen::backend {
namespace {

using testing::IsEmpty;
using testing::ThrowsMessage;

std::uint32_t requestedVersion = 0;

TEST(OrtApiTable, IsAskedForVersion24) {
  static const OrtApi kTable{};
  OrtApiBase base{};
  base.GetApi = [](std::uint32_t version) noexcept -> const OrtApi* {
    requestedVersion = version;
    return &kTable;
  };
  EXPECT_EQ(&RequireOrtApi(base), &kTable);
  EXPECT_EQ(requestedVersion, 24U);
}

TEST(OrtApiTable, ARuntimeWithoutItIsTooOld) {
  OrtApiBase base{};
  base.GetApi = [](std::uint32_t) noexcept -> const OrtApi* { return nullptr; };
  EXPECT_THAT([&] { RequireOrtApi(base); },
              ThrowsMessage<std::runtime_error>("The ONNX Runtime library is too old: API version "
                                                "24 (release 1.24 or newer) is required."));
}

TEST(OrtApiTable, OfTheLinkedLibraryIsThere) {
  EXPECT_EQ(&CurrentOrtApi(), OrtLibraryBase().GetApi(24));
}

TEST(OrtApiTable, ReturnsAfterAReplacement) {
  const OrtApi* own = &CurrentOrtApi();
  {
    const test::FakeOrtApi fake;
    EXPECT_NE(&CurrentOrtApi(), own);
  }
  EXPECT_EQ(&CurrentOrtApi(), own);
}

TEST(OrtStatus, ThatIsNullThrowsNothing) {
  EXPECT_NO_THROW(ThrowOnError(nullptr));
}

TEST(OrtStatus, BecomesAnExceptionWithItsMessageAndCodeAndIsReleased) {
  test::FakeOrtApi fake;
  try {
    ThrowOnError(fake.MakeStatus("no such device", ORT_NOT_IMPLEMENTED));
    FAIL() << "nothing thrown";
  } catch (const Ort::Exception& error) {
    EXPECT_STREQ(error.what(), "no such device");
    EXPECT_EQ(error.GetOrtErrorCode(), ORT_NOT_IMPLEMENTED);
  }
  EXPECT_THAT(fake.Live(), IsEmpty());
}

TEST(OrtStatus, OfTheRealLibraryIsReadThroughItsTable) {
  EXPECT_THAT([] { ThrowOnError(CurrentOrtApi().CreateStatus(ORT_FAIL, "real")); },
              ThrowsMessage<std::exception>("real"));
}

}  // namespace
}  // namespace project_lumen::backend
