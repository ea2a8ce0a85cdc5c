// Where results go: buffers of the caller in any layout, and those that the library allocates.
#include <gtest/gtest.h>
#include <nebulex/nebulex.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

#include "TestImages.h"

namespace nebulex_test {
namespace {

constexpr std::int64_t kWidth = 520;
constexpr std::int64_t kHeight = 513;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;

// Interleaved RGB samples, all different within a pixel.
std::vector<std::uint16_t> Colours() {
  std::vector<std::uint16_t> samples(kPixels * 3);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<std::uint16_t>(i * 40503U >> 3U);
  }
  return samples;
}

// Samples laid out otherwise than interleaved and packed, in memory full of a mark.
class Layout {
 public:
  static constexpr std::uint16_t kMark = 0xABCD;

  // Strides in samples, and the place of the first sample.
  Layout(std::ptrdiff_t row, std::ptrdiff_t pixel, std::ptrdiff_t channel, std::size_t first,
         std::size_t size)
      : memory_(size, kMark), row_(row), pixel_(pixel), channel_(channel), first_(first) {}

  std::uint16_t& At(std::size_t pixel, std::size_t k) {
    const auto r = static_cast<std::ptrdiff_t>(pixel / kWidth);
    const auto c = static_cast<std::ptrdiff_t>(pixel % kWidth);
    return memory_[first_ + static_cast<std::size_t>(r * row_ + c * pixel_ +
                                                     static_cast<std::ptrdiff_t>(k) * channel_)];
  }

  void Fill(const std::vector<std::uint16_t>& interleaved) {
    for (std::size_t i = 0; i < interleaved.size(); ++i) {
      At(i / 3, i % 3) = interleaved[i];
    }
  }

  std::vector<std::uint16_t> Interleaved() {
    std::vector<std::uint16_t> samples(kPixels * 3);
    for (std::size_t i = 0; i < samples.size(); ++i) {
      samples[i] = At(i / 3, i % 3);
    }
    return samples;
  }

  [[nodiscard]] std::size_t Marks() const {
    return static_cast<std::size_t>(std::count(memory_.begin(), memory_.end(), kMark));
  }

  nebulex_buffer Buffer() {
    return {memory_.data() + first_,
            kWidth,
            kHeight,
            3,
            NEBULEX_U16,
            2 * row_,
            2 * pixel_,
            2 * channel_};
  }
  nebulex_view View() {
    return {memory_.data() + first_,
            kWidth,
            kHeight,
            3,
            NEBULEX_U16,
            2 * row_,
            2 * pixel_,
            2 * channel_};
  }

 private:
  std::vector<std::uint16_t> memory_;
  std::ptrdiff_t row_;
  std::ptrdiff_t pixel_;
  std::ptrdiff_t channel_;
  std::size_t first_;
};

std::vector<Layout> Layouts() {
  return {
      Layout(kWidth, 1, static_cast<std::ptrdiff_t>(kPixels), 0, kPixels * 3),  // planar
      Layout(kWidth * 3 + 5, 3, 1, 2, (kWidth * 3 + 5) * kHeight + 2),          // rows with gaps
      Layout(kWidth * 4, 4, 1, 0, kPixels * 4),                                 // a fourth channel
      Layout(-kWidth * 3, 3, 1, (kPixels - kWidth) * 3, kPixels * 3),           // bottom to top
      Layout(kWidth * 3, 3, -1, 2, kPixels * 3),                                // B, G, R
      Layout(3, 3 * kHeight, 1, 0, kPixels * 3),                                // column by column
  };
}

TEST(Results, AreTheSameInEveryLayoutAndNothingElseIsWritten) {
  const Model model = OpenModel("dimmer");
  const std::vector<std::uint16_t> samples = Colours();
  const nebulex_view packed{samples.data(), kWidth, kHeight, 3, NEBULEX_U16, 0, 0, 0};
  nebulex_settings settings = DefaultSettings();
  settings.stride = 512;
  settings.layers = NEBULEX_MASK | NEBULEX_UNSCREEN;
  Results expected;
  ASSERT_EQ(nebulex_remove_stars(model.get(), &packed, &settings, nullptr, &expected), NEBULEX_OK)
      << nebulex_last_error();
  for (std::size_t i = 0; i < Layouts().size(); ++i) {
    SCOPED_TRACE(i);
    Layout source = Layouts()[i];
    source.Fill(samples);
    Layout starless = Layouts()[i];
    Layout mask = Layouts()[i];
    Layout unscreen = Layouts()[i];
    Results results;
    results.starless = starless.Buffer();
    results.mask = mask.Buffer();
    results.unscreen = unscreen.Buffer();
    const nebulex_view view = source.View();
    ASSERT_EQ(nebulex_remove_stars(model.get(), &view, &settings, nullptr, &results), NEBULEX_OK)
        << nebulex_last_error();
    EXPECT_TRUE(starless.Interleaved() == SamplesOf(expected.starless));
    EXPECT_TRUE(mask.Interleaved() == SamplesOf(expected.mask));
    EXPECT_TRUE(unscreen.Interleaved() == SamplesOf(expected.unscreen));
    EXPECT_EQ(source.Interleaved(), samples);
    EXPECT_EQ(results.allocations, nullptr);
    // Gaps keep their marks.
    Layout blank = Layouts()[i];
    blank.Fill(SamplesOf(expected.starless));
    EXPECT_EQ(starless.Marks(), blank.Marks());
  }
}

TEST(Results, NeedNoAlignment) {
  const Model model = OpenModel("identity");
  const GreyImage image(512, 512);
  std::vector<unsigned char> bytes(512 * 512 * 2 + 1);
  std::memcpy(bytes.data() + 1, image.Samples().data(), 512 * 512 * 2);
  std::vector<unsigned char> room(512 * 512 * 2 + 1);
  const nebulex_view view{bytes.data() + 1, 512, 512, 1, NEBULEX_U16, 0, 0, 0};
  Results results;
  results.starless = {room.data() + 1, 512, 512, 1, NEBULEX_U16, 0, 0, 0};
  ASSERT_EQ(nebulex_remove_stars(model.get(), &view, nullptr, nullptr, &results), NEBULEX_OK);
  EXPECT_EQ(std::vector(room.begin() + 1, room.end()), std::vector(bytes.begin() + 1, bytes.end()));
}

TEST(Results, ThatTheLibraryAllocatesArePackedAndDescribed) {
  const Model model = OpenModel("identity");
  const GreyImage image(513, 512);
  const nebulex_view view = image.View();
  Results results;
  ASSERT_EQ(nebulex_remove_stars(model.get(), &view, nullptr, nullptr, &results), NEBULEX_OK);
  EXPECT_EQ(results.starless.width, 513);
  EXPECT_EQ(results.starless.height, 512);
  EXPECT_EQ(results.starless.channels, 1);
  EXPECT_EQ(results.starless.sample_type, NEBULEX_U16);
  EXPECT_EQ(results.starless.row_stride, 1026);
  EXPECT_EQ(results.starless.pixel_stride, 2);
  EXPECT_EQ(results.starless.channel_stride, 2);
  EXPECT_TRUE(SamplesOf(results.starless) == image.Samples());
  EXPECT_EQ(results.mask.data, nullptr);
}

TEST(Results, CanBeUsedAgainAndFreedTwice) {
  const Model model = OpenModel("identity");
  const GreyImage image(512, 512);
  const nebulex_view view = image.View();
  nebulex_settings settings = DefaultSettings();
  Results results;
  ASSERT_EQ(nebulex_remove_stars(model.get(), &view, &settings, nullptr, &results), NEBULEX_OK);
  const void* first = results.starless.data;
  settings.layers = NEBULEX_MASK;
  ASSERT_EQ(nebulex_remove_stars(model.get(), &view, &settings, nullptr, &results), NEBULEX_OK);
  EXPECT_EQ(results.starless.data, first);
  EXPECT_NE(results.mask.data, nullptr);
  nebulex_results_free(&results);
  EXPECT_EQ(results.starless.data, nullptr);
  EXPECT_EQ(results.mask.data, nullptr);
  nebulex_results_free(&results);
}

TEST(Results, OfTheCallerAreLeftAloneWhenTheOthersAreFreed) {
  const Model model = OpenModel("identity");
  const GreyImage image(512, 512);
  const nebulex_view view = image.View();
  nebulex_settings settings = DefaultSettings();
  settings.layers = NEBULEX_MASK;
  Room room(view);
  Results results;
  results.starless = room.Buffer();
  ASSERT_EQ(nebulex_remove_stars(model.get(), &view, &settings, nullptr, &results), NEBULEX_OK);
  nebulex_results_free(&results);
  EXPECT_EQ(results.starless.data, room.Buffer().data);
  EXPECT_EQ(results.mask.data, nullptr);
  EXPECT_EQ(room.Samples(), image.Samples());
}

TEST(Results, OfThreeEqualChannelsAreThoseOfTheGreyImage) {
  // Its channels would differ if they went through the network as colours.
  const Model model = OpenModel("colours");
  const GreyImage image(512, 512);
  std::vector<std::uint16_t> tripled;
  for (const std::uint16_t sample : image.Samples()) {
    tripled.insert(tripled.end(), 3, sample);
  }
  const nebulex_view grey = image.View();
  const nebulex_view colour{tripled.data(), 512, 512, 3, NEBULEX_U16, 0, 0, 0};
  Results ofGrey;
  Results ofColour;
  ASSERT_EQ(nebulex_remove_stars(model.get(), &grey, nullptr, nullptr, &ofGrey), NEBULEX_OK);
  ASSERT_EQ(nebulex_remove_stars(model.get(), &colour, nullptr, nullptr, &ofColour), NEBULEX_OK);
  std::vector<std::uint16_t> expected;
  for (const std::uint16_t sample : SamplesOf(ofGrey.starless)) {
    expected.insert(expected.end(), 3, sample);
  }
  EXPECT_EQ(SamplesOf(ofColour.starless), expected);
  EXPECT_NE(SamplesOf(ofGrey.starless), image.Samples());
}

TEST(Results, InUnitsOfWhiteAreThoseOfTheScaledImage) {
  const Model model = OpenModel("scaling");
  std::vector<float> normalised(512 * 512);
  std::vector<float> scaled(normalised.size());
  for (std::size_t i = 0; i < normalised.size(); ++i) {
    normalised[i] = static_cast<float>(i % 1021) / 1024.0F;
    scaled[i] = normalised[i] * 4096.0F;  // exact
  }
  nebulex_settings settings = DefaultSettings();
  settings.layers = NEBULEX_MASK | NEBULEX_UNSCREEN;
  const nebulex_view plain{normalised.data(), 512, 512, 1, NEBULEX_F32, 0, 0, 0};
  const nebulex_view counts{scaled.data(), 512, 512, 1, NEBULEX_F32, 0, 0, 0};
  Results expected;
  Results results;
  ASSERT_EQ(nebulex_remove_stars(model.get(), &plain, &settings, nullptr, &expected), NEBULEX_OK);
  settings.white = 4096.0;
  ASSERT_EQ(nebulex_remove_stars(model.get(), &counts, &settings, nullptr, &results), NEBULEX_OK)
      << nebulex_last_error();
  const auto sample = [](const nebulex_buffer& buffer, std::size_t i) {
    return static_cast<const float*>(buffer.data)[i];
  };
  for (std::size_t i = 0; i < normalised.size(); ++i) {
    ASSERT_EQ(sample(results.starless, i), 4096.0F * sample(expected.starless, i)) << i;
    ASSERT_EQ(sample(results.mask, i), 4096.0F * sample(expected.mask, i)) << i;
    ASSERT_EQ(sample(results.unscreen, i), sample(expected.unscreen, i)) << i;
  }
}

}  // namespace
}  // namespace nebulex_test
