// What the library says to a call that is wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nebulex/nebulex.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "TestImages.h"

namespace nebulex_test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class BadInput : public testing::Test {
 protected:
  nebulex_status Call() {
    return nebulex_remove_stars(model_.get(), &view_, &settings_, nullptr, &results_);
  }

  void Expect(nebulex_status status, const std::string& message) {
    EXPECT_EQ(Call(), status);
    EXPECT_EQ(std::string(nebulex_last_error()), message);
    EXPECT_EQ(results_.starless.data, nullptr);
    EXPECT_EQ(results_.allocations, nullptr);
  }

  // A square image whose samples are all 0.5 but the first.
  template <typename Sample>
  void UseFloats(std::vector<Sample>& samples, std::int32_t type, Sample first) {
    samples.assign(std::size_t{512} * 512, Sample{0.5});
    samples.front() = first;
    view_ = {samples.data(), 512, 512, 1, type, 0, 0, 0};
  }

  Model model_ = OpenModel("identity");
  GreyImage image_{512, 512};
  nebulex_view view_ = image_.View();
  nebulex_settings settings_ = DefaultSettings();
  Results results_;
};

TEST_F(BadInput, NullPointersAreNamed) {
  EXPECT_EQ(nebulex_remove_stars(nullptr, &view_, nullptr, nullptr, &results_),
            NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(), "model is NULL.");
  EXPECT_EQ(nebulex_remove_stars(model_.get(), nullptr, nullptr, nullptr, &results_),
            NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(), "image is NULL.");
  EXPECT_EQ(nebulex_remove_stars(model_.get(), &view_, nullptr, nullptr, nullptr),
            NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(), "results is NULL.");
  EXPECT_EQ(nebulex_model_open(nullptr, nullptr, nullptr), NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(), "model is NULL.");
  EXPECT_EQ(nebulex_settings_init(nullptr, sizeof(nebulex_settings)), NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(), "settings is NULL.");
  view_.data = nullptr;
  Expect(NEBULEX_BAD_ARGUMENT, "image.data is NULL.");
}

TEST_F(BadInput, NullIsFineWhereSomethingIsGivenBack) {
  nebulex_model_close(nullptr);
  nebulex_results_free(nullptr);
  nebulex_results_free(&results_);
  EXPECT_STREQ(nebulex_model_path(nullptr), "");
  EXPECT_STREQ(nebulex_model_provider(nullptr), "");
}

TEST_F(BadInput, AnImageBelowTheWindowGetsTheHintToUpsample) {
  view_.height = 300;
  Expect(NEBULEX_BAD_IMAGE,
         "Image size is too small for the window! It has 512 x 300 pixels and needs at least 512 x "
         "512, or 256 x 256 with upsample.");
  view_.height = 255;
  settings_.upsample = 1;
  Expect(NEBULEX_BAD_IMAGE,
         "Image size is too small for the window! It has 512 x 255 pixels and needs at least 256 x "
         "256.");
}

TEST_F(BadInput, AnEmptyImageIsNone) {
  view_.width = 0;
  Expect(NEBULEX_BAD_IMAGE, "The image is empty: it has 0 x 512 pixels.");
  view_.width = -5;
  Expect(NEBULEX_BAD_ARGUMENT, "image has -5 x 512 pixels.");
}

TEST_F(BadInput, AnImageBeyondWhatCanBeCountedIsRefusedBeforeItIsTouched) {
  view_.width = std::int64_t{1} << 40U;
  EXPECT_EQ(Call(), NEBULEX_BAD_IMAGE);
  EXPECT_THAT(nebulex_last_error(), StartsWith("Image dimensions exceed supported tiling limits."));
}

TEST_F(BadInput, OneOrThreeChannelsAreAnImage) {
  for (const std::int32_t channels : {0, 2, 4, -1}) {
    view_.channels = channels;
    Expect(NEBULEX_BAD_IMAGE, "Unsupported number of image channels: " + std::to_string(channels));
  }
}

TEST_F(BadInput, AnUnknownSampleTypeIsAnsweredWithThoseThatWork) {
  view_.sample_type = 9;
  Expect(NEBULEX_BAD_ARGUMENT,
         "image.sample_type must be NEBULEX_U8, NEBULEX_U16, NEBULEX_F32 or NEBULEX_F64. It is 9.");
}

TEST_F(BadInput, StridesMustKeepSamplesApart) {
  const auto overlap = [this] {
    Expect(NEBULEX_BAD_ARGUMENT, "The strides of image let samples overlap.");
  };
  view_.pixel_stride = 1;
  overlap();
  view_.pixel_stride = -1;
  overlap();
  view_.pixel_stride = 2;
  view_.row_stride = 2 * 511;
  overlap();
  view_.row_stride = -2 * 511;
  overlap();
  view_.height = 171;
  view_.channels = 3;
  view_.row_stride = 2 * 512;
  view_.channel_stride = 2 * 512 * 170;
  overlap();
}

TEST_F(BadInput, StridesMustStayWithinTheAddressSpace) {
  const auto reach = [this] {
    Expect(NEBULEX_BAD_ARGUMENT, "The strides of image reach beyond the address space.");
  };
  view_.row_stride = std::numeric_limits<std::int64_t>::max();
  reach();
  view_.row_stride = std::numeric_limits<std::int64_t>::min();
  reach();
  view_.row_stride = std::numeric_limits<std::int64_t>::max() / 511;
  reach();
  view_.row_stride = -(std::int64_t{1} << 53U);
  reach();
  view_.row_stride = 0;
  view_.pixel_stride = std::numeric_limits<std::int64_t>::max() / 2;
  reach();
}

TEST_F(BadInput, NonFiniteSamplesAreCounted) {
  std::vector<float> samples;
  UseFloats(samples, NEBULEX_F32, std::numeric_limits<float>::quiet_NaN());
  samples.back() = std::numeric_limits<float>::infinity();
  for (const std::int32_t linear : {0, 1}) {
    settings_.linear = linear;
    Expect(NEBULEX_BAD_IMAGE, "Image contains 2 non-finite sample(s); repair the image upstream.");
  }
}

TEST_F(BadInput, FloatingSamplesOutsideOfTheRangeAreAnsweredWithTheRangeFound) {
  std::vector<double> samples;
  UseFloats(samples, NEBULEX_F64, 65535.0);
  Expect(NEBULEX_BAD_IMAGE,
         "Floating-point samples must lie within [0,1]. Observed range: [0.5, 65535]. Say as white "
         "which number stands for white; the range found is not used to rescale the image.");
  settings_.linear = 1;
  EXPECT_EQ(Call(), NEBULEX_BAD_IMAGE);
  settings_.white = 65535.0;
  EXPECT_EQ(Call(), NEBULEX_OK) << nebulex_last_error();
}

TEST_F(BadInput, SamplesBelowZeroAreForLinearDataAlone) {
  std::vector<double> samples;
  UseFloats(samples, NEBULEX_F64, -0.25);
  EXPECT_EQ(Call(), NEBULEX_BAD_IMAGE);
  EXPECT_THAT(nebulex_last_error(), HasSubstr("Observed range: [-0.25, 0.5]."));
  settings_.linear = 1;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = -0.01 + static_cast<double>(i % 100) / 1000;
  }
  EXPECT_EQ(Call(), NEBULEX_OK) << nebulex_last_error();
}

TEST_F(BadInput, SettingsAreNamedWithWhatTheyMustBe) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    std::function<void(nebulex_settings&)> spoil;
    const char* message;
  } cases[] = {
      {[](auto& s) { s.stride = 0; }, "settings.stride must be even, and 2 to 512. It is 0."},
      {[](auto& s) { s.stride = 514; }, "settings.stride must be even, and 2 to 512. It is 514."},
      {[](auto& s) { s.stride = 7; }, "settings.stride must be even, and 2 to 512. It is 7."},
      {[](auto& s) { s.layers = 8; },
       "settings.layers must be made of NEBULEX_MASK and NEBULEX_UNSCREEN. It is 8."},
      {[](auto& s) { s.reserved = 1; }, "settings.reserved must be 0. It is 1."},
      {[](auto& s) { s.shadows_clipping = 0.0; },
       "settings.shadows_clipping must be finite and below 0. It is 0."},
      {[=](auto& s) { s.shadows_clipping = nan; },
       "settings.shadows_clipping must be finite and below 0. It is nan."},
      {[](auto& s) { s.target_background = 1.0; },
       "settings.target_background must be above 0 and below 1. It is 1."},
      {[](auto& s) { s.white = -2.0; }, "settings.white must be finite and above 0. It is -2."},
      {[](auto& s) { s.white = 255.0; },
       "settings.white is for floating samples. Of integers the greatest value is white."},
  };
  for (const auto& [spoil, message] : cases) {
    settings_ = DefaultSettings();
    spoil(settings_);
    Expect(NEBULEX_BAD_ARGUMENT, message);
  }
}

TEST_F(BadInput, BuffersMustFitTheImage) {
  Room room(view_);
  results_.starless = room.Buffer();
  results_.starless.width = 511;
  EXPECT_EQ(Call(), NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(),
               "results.starless has 511 x 512 pixels, 1 channel(s) and sample type 2; the image "
               "has 512 x 512 pixels, 1 channel(s) and sample type 2.");
  results_.starless = room.Buffer();
  results_.starless.row_stride = 1000;
  EXPECT_EQ(Call(), NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(), "The strides of results.starless let samples overlap.");
}

TEST_F(BadInput, BuffersMustNotOverlap) {
  settings_.layers = NEBULEX_MASK | NEBULEX_UNSCREEN;
  Room room(view_);
  results_.starless = room.Buffer();
  results_.unscreen = room.Buffer();
  EXPECT_EQ(Call(), NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(), "results.unscreen overlaps results.starless.");
  results_.starless.data = const_cast<void*>(view_.data);
  EXPECT_EQ(Call(), NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(), "results.starless overlaps the image.");
  EXPECT_EQ(image_.Samples(), GreyImage(512, 512).Samples());
}

TEST_F(BadInput, ALayerThatNobodyAskedForIsNotLookedAt) {
  results_.mask.data = const_cast<void*>(view_.data);
  EXPECT_EQ(Call(), NEBULEX_OK) << nebulex_last_error();
}

TEST_F(BadInput, AModelThatIsNoneIsAnsweredWithItsPathAndKind) {
  nebulex_model* model = model_.get();
  EXPECT_EQ(nebulex_model_open("/no/such/file.onnx", nullptr, &model), NEBULEX_BAD_MODEL);
  EXPECT_STREQ(nebulex_last_error(),
               "Unable to open ONNX model file: /no/such/file.onnx\n"
               "Model context: backend=ONNX Runtime; expected=Nebulex2_weights.onnx; "
               "source=explicit path; resolved path='/no/such/file.onnx'; path kind=missing; "
               "lookup candidates (in order): '/no/such/file.onnx'");
  EXPECT_EQ(model, model_.get());
  EXPECT_EQ(nebulex_model_open(ModelPath("graph_length").c_str(), nullptr, &model),
            NEBULEX_BAD_MODEL);
  EXPECT_THAT(nebulex_last_error(), StartsWith("Invalid ONNX graph length.\nModel context: "));
  EXPECT_EQ(nebulex_model_open(NEBULEX_TEST_MODELS, nullptr, &model), NEBULEX_BAD_MODEL);
  EXPECT_THAT(nebulex_last_error(), HasSubstr("path kind=directory"));
}

TEST_F(BadInput, ANetworkThatFailsOnATileIsAnInternalFault) {
  model_ = OpenModel("fails_on_tiles");
  EXPECT_EQ(Call(), NEBULEX_INTERNAL);
  EXPECT_THAT(nebulex_last_error(), StartsWith("ONNX Runtime inference failed using CPU execution "
                                               "provider for tensor 1x512x512x3. "));
  model_ = OpenModel("nan_output");
  EXPECT_EQ(Call(), NEBULEX_INTERNAL);
  EXPECT_STREQ(nebulex_last_error(), "Inference returned non-finite samples.");
}

TEST_F(BadInput, ModelOptionsAreNamed) {
  nebulex_model_options options;
  ASSERT_EQ(nebulex_model_options_init(&options, sizeof(options)), NEBULEX_OK);
  nebulex_model* model = nullptr;
  options.provider = 5;
  EXPECT_EQ(nebulex_model_open(nullptr, &options, &model), NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(
      nebulex_last_error(),
      "model_options.provider must be NEBULEX_PROVIDER_AUTO or NEBULEX_PROVIDER_CPU. It is "
      "5.");
  options.provider = NEBULEX_PROVIDER_CPU;
  options.threads = -1;
  EXPECT_EQ(nebulex_model_open(nullptr, &options, &model), NEBULEX_BAD_ARGUMENT);
  EXPECT_STREQ(nebulex_last_error(), "model_options.threads must be 0 to 1024. It is -1.");
}

TEST_F(BadInput, ASizeBeyondWhatIsKnownIsRefused) {
  settings_.size = sizeof(settings_) + 8;
  Expect(NEBULEX_BAD_ARGUMENT,
         "settings.size is " + std::to_string(settings_.size) + ", but this library knows " +
             std::to_string(sizeof(settings_)) +
             " bytes. It is older than the header that the program was compiled with.");
  std::vector<char> larger(sizeof(settings_) + 8, 'x');
  EXPECT_EQ(
      nebulex_settings_init(reinterpret_cast<nebulex_settings*>(larger.data()), larger.size()),
      NEBULEX_BAD_ARGUMENT);
  EXPECT_EQ(larger, std::vector<char>(larger.size(), 'x'));
}

TEST_F(BadInput, AStructureWithoutItsSizeIsRefused) {
  settings_.size = 0;
  Expect(NEBULEX_BAD_ARGUMENT,
         "settings.size is 0. Set the defaults with nebulex_settings_init first.");
  settings_ = DefaultSettings();
  results_.size = 8;
  EXPECT_EQ(Call(), NEBULEX_BAD_ARGUMENT);
  results_.size = sizeof(nebulex_results);
}

TEST_F(BadInput, MembersBeyondASmallerSizeHaveTheirDefaults) {
  nebulex_settings spoilt;
  std::memset(&spoilt, 0xEE, sizeof(spoilt));
  ASSERT_EQ(nebulex_settings_init(&spoilt, offsetof(nebulex_settings, layers)), NEBULEX_OK);
  EXPECT_EQ(spoilt.size, offsetof(nebulex_settings, layers));
  EXPECT_EQ(spoilt.stride, 256);
  EXPECT_EQ(static_cast<std::uint32_t>(spoilt.layers), 0xEEEEEEEEU);
  settings_ = spoilt;
  settings_.stride = 512;
  EXPECT_EQ(Call(), NEBULEX_OK) << nebulex_last_error();
  EXPECT_EQ(results_.mask.data, nullptr);
}

TEST_F(BadInput, ASuccessfulCallLeavesNoSentence) {
  view_.data = nullptr;
  EXPECT_NE(Call(), NEBULEX_OK);
  EXPECT_STRNE(nebulex_last_error(), "");
  view_ = image_.View();
  EXPECT_EQ(Call(), NEBULEX_OK);
  EXPECT_STREQ(nebulex_last_error(), "");
}

TEST(Status, EachHasItsName) {
  EXPECT_STREQ(nebulex_status_name(NEBULEX_OK), "ok");
  EXPECT_STREQ(nebulex_status_name(NEBULEX_BAD_ARGUMENT), "bad argument");
  EXPECT_STREQ(nebulex_status_name(NEBULEX_BAD_MODEL), "bad model");
  EXPECT_STREQ(nebulex_status_name(NEBULEX_BAD_IMAGE), "bad image");
  EXPECT_STREQ(nebulex_status_name(NEBULEX_OUT_OF_MEMORY), "out of memory");
  EXPECT_STREQ(nebulex_status_name(NEBULEX_STOPPED), "stopped");
  EXPECT_STREQ(nebulex_status_name(NEBULEX_INTERNAL), "internal");
  EXPECT_STREQ(nebulex_status_name(99), "unknown");
}

TEST(Version, IsThatOfTheHeader) {
  EXPECT_STREQ(nebulex_version(), NEBULEX_VERSION);
  EXPECT_EQ(std::string(NEBULEX_VERSION), std::to_string(NEBULEX_VERSION_MAJOR) + "." +
                                              std::to_string(NEBULEX_VERSION_MINOR) + "." +
                                              std::to_string(NEBULEX_VERSION_PATCH));
}

}  // namespace
}  // namespace nebulex_test
