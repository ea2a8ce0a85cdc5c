// Models and calls on several threads.
#include <gtest/gtest.h>
#include <nebulex/nebulex.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "TestImages.h"

namespace nebulex_test {
namespace {

constexpr int kThreads = 8;

// A call with an image of its own that the network "scaling" halves.
void ExpectHalf(nebulex_model* model, int number) {
  std::vector<std::uint16_t> samples;
  std::vector<std::uint16_t> expected;
  for (int i = 0; i < 512 * 512; ++i) {
    expected.push_back(static_cast<std::uint16_t>(1000 * (number + 1) + i % 7));
    samples.push_back(static_cast<std::uint16_t>(2 * expected.back()));
  }
  const nebulex_view view{samples.data(), 512, 512, 1, NEBULEX_U16, 0, 0, 0};
  nebulex_settings settings = DefaultSettings();
  settings.stride = 512;
  nebulex_callbacks callbacks = DefaultCallbacks();
  callbacks.stop_requested = [](void*) { return 0; };
  Results results;
  ASSERT_EQ(nebulex_remove_stars(model, &view, &settings, &callbacks, &results), NEBULEX_OK)
      << nebulex_last_error();
  // A comparison that failed would print a quarter of a million samples.
  EXPECT_TRUE(SamplesOf(results.starless) == expected) << number;
}

TEST(Threads, OfOneModelTakeTurnsAndGetWhatTheyWouldAlone) {
  const Model model = OpenModel("scaling");
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&model, number] {
      for (int i = 0; i < 4; ++i) {
        ExpectHalf(model.get(), number);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(Threads, WithModelsOfTheirOwnRunSideBySide) {
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([number] {
      const Model model = OpenModel("scaling");
      for (int i = 0; i < 2; ++i) {
        ExpectHalf(model.get(), number);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(Threads, EachKeepsASentenceOfItsOwn) {
  nebulex_model* model = nullptr;
  EXPECT_EQ(nebulex_model_open("/first", nullptr, &model), NEBULEX_BAD_MODEL);
  const std::string mine = nebulex_last_error();
  std::thread([&model] {
    EXPECT_STREQ(nebulex_last_error(), "");
    EXPECT_EQ(nebulex_model_open("/second", nullptr, &model), NEBULEX_BAD_MODEL);
    EXPECT_NE(std::string(nebulex_last_error()).find("/second"), std::string::npos);
  }).join();
  EXPECT_EQ(nebulex_last_error(), mine);
}

TEST(Threads, OneCallMayBeStoppedWhileAnotherHasTheModel) {
  const Model model = OpenModel("scaling");
  const GreyImage image(512, 512);
  const nebulex_view view = image.View();
  std::thread other([&model] {
    for (int i = 0; i < 8; ++i) {
      ExpectHalf(model.get(), i);
    }
  });
  for (int i = 0; i < 8; ++i) {
    nebulex_callbacks callbacks = DefaultCallbacks();
    callbacks.stop_requested = [](void*) { return 1; };
    Results results;
    EXPECT_EQ(nebulex_remove_stars(model.get(), &view, nullptr, &callbacks, &results),
              NEBULEX_STOPPED);
  }
  other.join();
}

}  // namespace
}  // namespace nebulex_test
