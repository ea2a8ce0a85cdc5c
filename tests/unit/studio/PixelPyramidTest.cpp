#include "studio/images/PixelPyramid.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <opencv2/core.hpp>

#include "studio/images/LayerTile.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::studio {
namespace {

class Pyramids : public testing::Test {
 protected:
  Pyramids() { setenv("XDG_CACHE_HOME", folder_.Folder().c_str(), 1); }

  std::shared_ptr<const PixelPyramid> Build(const cv::Mat& image, int rowsAtOnce = 1000) {
    const SessionFolder session;
    PyramidBuilder builder(session);
    builder.Begin(image.size(), image.type());
    for (int first = 0; first < image.rows; first += rowsAtOnce) {
      builder.Take(image.rowRange(first, std::min(first + rowsAtOnce, image.rows)));
    }
    return builder.Finish();
  }

  static cv::Mat Random(cv::Size size, int channels) {
    cv::Mat image(size, CV_MAKETYPE(CV_32F, channels));
    cv::RNG(7).fill(image, cv::RNG::UNIFORM, 0.0, 1.0);
    return image;
  }

 private:
  test::TemporaryFolder folder_;
};

TEST(PyramidLevels, HalveUntilOnePixelIsLeft) {
  EXPECT_EQ(HighestLevel({1, 1}), 0);
  EXPECT_EQ(HighestLevel({2, 1}), 1);
  EXPECT_EQ(HighestLevel({256, 256}), 8);
  EXPECT_EQ(HighestLevel({257, 100}), 9);
  EXPECT_EQ(LevelSize({257, 100}, 9), cv::Size(257, 100));
  EXPECT_EQ(LevelSize({257, 100}, 8), cv::Size(129, 50));
  EXPECT_EQ(LevelSize({257, 100}, 1), cv::Size(2, 1));
  EXPECT_EQ(LevelSize({257, 100}, 0), cv::Size(1, 1));
}

TEST_F(Pyramids, HoldTheImageItself) {
  const cv::Mat image = Random({37, 23}, 3);
  for (const int rowsAtOnce : {1, 5, 1000}) {
    const auto pyramid = Build(image, rowsAtOnce);
    EXPECT_EQ(cv::norm(pyramid->Read(6, {0, 0, 37, 23}), image, cv::NORM_INF), 0.0);
    EXPECT_EQ(cv::norm(pyramid->Read(6, {30, 20, 7, 3}), image({30, 20, 7, 3}), cv::NORM_INF), 0.0);
  }
}

TEST_F(Pyramids, SmallerLevelsAreMeans) {
  // Sums of quarters, so that the means are exact.
  const cv::Mat image = (cv::Mat_<float>(3, 3) << 0, 1, 2, 3, 4, 5, 6, 7, 8);
  const auto pyramid = Build(image);
  const cv::Mat half = pyramid->Read(1, {0, 0, 2, 2});
  EXPECT_EQ(half.at<float>(0, 0), 2.0F);  // 0 1 3 4
  EXPECT_EQ(half.at<float>(0, 1), 3.5F);  // 2 5
  EXPECT_EQ(half.at<float>(1, 0), 6.5F);  // 6 7
  EXPECT_EQ(half.at<float>(1, 1), 8.0F);  // 8
  EXPECT_EQ(pyramid->Read(0, {0, 0, 1, 1}).at<float>(0), 5.0F);
}

TEST_F(Pyramids, KeepOneChannelOfGreyImages) {
  cv::Mat image(4, 4, CV_32FC3, cv::Scalar(0.25, 0.5, 0.75));
  const SessionFolder session;
  PyramidBuilder builder(session);
  builder.KeepFirstChannel();
  builder.Begin(image.size(), image.type());
  builder.Take(image);
  const auto pyramid = builder.Finish();
  EXPECT_EQ(pyramid->Channels(), 1);
  EXPECT_EQ(pyramid->Read(2, {3, 3, 1, 1}).at<float>(0), 0.25F);
}

TEST_F(Pyramids, NothingIsLeftOfThemOnDisk) {
  const SessionFolder session;
  PyramidBuilder builder(session);
  builder.Begin({64, 64}, CV_32F);
  builder.Take(cv::Mat::zeros(64, 64, CV_32F));
  const auto pyramid = builder.Finish();
  long files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(session.Path())) {
    files += entry.path().filename() == "lock" ? 0 : 1;
  }
  EXPECT_EQ(files, 0);
}

TEST(TileAreas, CoverTheLevel) {
  EXPECT_EQ(TileArea({600, 300}, 10, 2, 1), cv::Rect(512, 256, 88, 44));
  EXPECT_EQ(TileArea({600, 300}, 10, 3, 0), std::nullopt);
  EXPECT_EQ(TileArea({600, 300}, 10, 1000000, 1000000), std::nullopt);
  EXPECT_EQ(TileArea({600, 300}, 11, 0, 0), std::nullopt);
  EXPECT_EQ(TileArea({600, 300}, -1, 0, 0), std::nullopt);
  EXPECT_EQ(TileArea({600, 300}, 0, 0, 0), cv::Rect(0, 0, 1, 1));
}

// Two pictures whose layers are worked out by hand.
TEST_F(Pyramids, LayersAreWhatTheyAreCalled) {
  const cv::Mat source = (cv::Mat_<float>(1, 2) << 0.75F, 0.5F);
  const cv::Mat starless = (cv::Mat_<float>(1, 2) << 0.5F, 0.5F);
  const LayerPictures pictures{Build(source), Build(starless)};
  const auto render = [&](Layer layer, double amount, double gain) {
    TileLook look;
    look.layer = layer;
    look.amount = amount;
    look.gain = gain;
    return cv::Mat(RenderLayer(pictures, look, 1, {0, 0, 2, 1}));
  };
  EXPECT_EQ(render(Layer::kSource, 1, 1).at<uchar>(0), 191);    // 191.25
  EXPECT_EQ(render(Layer::kStarless, 1, 1).at<uchar>(0), 128);  // 127.5, to even
  EXPECT_EQ(render(Layer::kMask, 1, 1).at<uchar>(0), 64);       // 63.75
  EXPECT_EQ(render(Layer::kMask, 1, 2).at<uchar>(0), 128);
  EXPECT_EQ(render(Layer::kMask, 1, 1).at<uchar>(1), 0);
  EXPECT_EQ(render(Layer::kUnscreen, 1, 1).at<uchar>(0), 128);  // 0.25 / 0.5
  EXPECT_EQ(render(Layer::kBlend, 1, 1).at<uchar>(0), 191);
  EXPECT_EQ(render(Layer::kBlend, 0.5, 1).at<uchar>(0), 159);  // 0.5 + 0.125: 159.375
  EXPECT_EQ(render(Layer::kBlend, 0, 1).at<uchar>(0), 128);
}

}  // namespace
}  // namespace project_lumen::studio
