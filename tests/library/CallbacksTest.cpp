// What a call tells and asks on its way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nebulex/nebulex.h>
#include <nebulex/nebulex.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <new>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestImages.h"

namespace nebulex_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

constexpr std::int64_t kTiles = 9;  // of 700 x 600 pixels at a stride of 256

// Callbacks that lead to functions of a test.
struct Listener {
  std::function<void(std::int64_t, std::int64_t)> progress;
  std::function<bool()> stop;
  std::function<void(const std::string&, const std::string&)> message;

  nebulex_callbacks ForC() {
    nebulex_callbacks callbacks = DefaultCallbacks();
    callbacks.context = this;
    callbacks.progress = [](void* context, std::int64_t done, std::int64_t total) {
      const auto& self = *static_cast<Listener*>(context);
      if (self.progress) {
        self.progress(done, total);
      }
    };
    if (stop) {
      callbacks.stop_requested = [](void* context) {
        return static_cast<Listener*>(context)->stop() ? 1 : 0;
      };
    }
    callbacks.message = [](void* context, std::int32_t severity, const char* code,
                           const char* text) {
      const auto& self = *static_cast<Listener*>(context);
      if (self.message) {
        self.message((severity == NEBULEX_WARNING ? "warning " : "info ") + std::string(code),
                     text);
      }
    };
    return callbacks;
  }
};

class Callbacks : public testing::Test {
 protected:
  nebulex_status Call(nebulex_results& results) {
    const nebulex_callbacks callbacks = listener_.ForC();
    return nebulex_remove_stars(model_.get(), &view_, &settings_, &callbacks, &results);
  }

  // The buffer keeps its marks, and the next call with the model succeeds.
  void ExpectStopped() {
    Room room(view_);
    Results results;
    results.starless = room.Buffer();
    EXPECT_EQ(Call(results), NEBULEX_STOPPED);
    EXPECT_STREQ(nebulex_last_error(), "Processing cancelled.");
    EXPECT_EQ(room.Samples(), Room(view_).Samples());
    listener_ = {};
    Results again;
    EXPECT_EQ(Call(again), NEBULEX_OK) << nebulex_last_error();
    EXPECT_TRUE(SamplesOf(again.starless) == image_.Samples());
  }

  Model model_ = OpenModel("identity");
  GreyImage image_{700, 600};
  nebulex_view view_ = image_.View();
  nebulex_settings settings_ = DefaultSettings();
  Listener listener_;
};

TEST_F(Callbacks, ProgressRisesByOneFromZeroToTheTotalOnTheThreadOfTheCall) {
  std::vector<std::int64_t> reported;
  const std::thread::id caller = std::this_thread::get_id();
  listener_.stop = [] { return false; };
  listener_.progress = [&](std::int64_t done, std::int64_t total) {
    EXPECT_EQ(total, kTiles);
    EXPECT_EQ(std::this_thread::get_id(), caller);
    reported.push_back(done);
  };
  Results results;
  ASSERT_EQ(Call(results), NEBULEX_OK) << nebulex_last_error();
  std::vector<std::int64_t> expected(kTiles + 1);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(reported, expected);
}

TEST_F(Callbacks, AStopAtOnceComesBeforeAnyTile) {
  listener_.stop = [] { return true; };
  listener_.progress = [](std::int64_t, std::int64_t) { FAIL(); };
  ExpectStopped();
}

TEST_F(Callbacks, AStopInTheMiddleEndsTheReports) {
  std::int64_t latest = -1;
  listener_.progress = [&](std::int64_t done, std::int64_t) { latest = done; };
  listener_.stop = [&] { return latest == 4; };
  ExpectStopped();
  EXPECT_EQ(latest, 4);
}

TEST_F(Callbacks, AStopAfterTheLastTileStillLeavesTheBuffersAlone) {
  std::int64_t latest = -1;
  listener_.progress = [&](std::int64_t done, std::int64_t) { latest = done; };
  listener_.stop = [&] { return latest == kTiles; };
  ExpectStopped();
}

TEST_F(Callbacks, AStopEndsTheTileThatIsBeingComputed) {
  using Clock = std::chrono::steady_clock;
  model_ = OpenModel("slow");
  settings_.stride = 512;
  GreyImage image(512, 512);
  view_ = image.View();
  const Clock::time_point start = Clock::now();
  Results whole;
  ASSERT_EQ(Call(whole), NEBULEX_OK) << nebulex_last_error();
  const Clock::duration all = Clock::now() - start;

  Clock::time_point asked;
  bool isTileRunning = false;
  listener_.progress = [&](std::int64_t, std::int64_t) { isTileRunning = true; };
  listener_.stop = [&, polls = 0]() mutable {
    polls += isTileRunning ? 1 : 0;
    asked = Clock::now();
    return polls >= 2;
  };
  Results results;
  EXPECT_EQ(Call(results), NEBULEX_STOPPED);
  const Clock::duration wait = Clock::now() - asked;
  EXPECT_LT(wait, all / 2) << "the tile was computed to its end";
}

TEST_F(Callbacks, ACallMayBeMadeFromInsideACallback) {
  int calls = 0;
  const auto callAgain = [&] {
    if (calls++ < 3) {
      Results inner;
      const nebulex_view none{};
      EXPECT_EQ(nebulex_remove_stars(model_.get(), &none, nullptr, nullptr, &inner),
                NEBULEX_BAD_ARGUMENT);
      EXPECT_EQ(nebulex_remove_stars(model_.get(), &view_, nullptr, nullptr, &inner), NEBULEX_OK);
    }
  };
  listener_.stop = [&] {
    callAgain();
    return false;
  };
  listener_.progress = [&](std::int64_t, std::int64_t) { callAgain(); };
  listener_.message = [&](const std::string&, const std::string&) { callAgain(); };
  Results results;
  EXPECT_EQ(Call(results), NEBULEX_OK) << nebulex_last_error();
  EXPECT_GE(calls, 3);
  EXPECT_STREQ(nebulex_last_error(), "");
  EXPECT_TRUE(SamplesOf(results.starless) == image_.Samples());
}

TEST_F(Callbacks, MessagesHaveTheCodesOfTheProgramsDiagnostics) {
  std::vector<std::pair<std::string, std::string>> messages;
  listener_.message = [&](const std::string& code, const std::string& text) {
    messages.emplace_back(code, text);
  };
  Results plain;
  ASSERT_EQ(Call(plain), NEBULEX_OK);
  EXPECT_THAT(messages, ElementsAre(Pair("info linear_mtf",
                                         "disabled; no automatic stretch or inverse transform")));
  messages.clear();
  settings_.linear = 1;
  Results linear;
  ASSERT_EQ(Call(linear), NEBULEX_OK) << nebulex_last_error();
  ASSERT_EQ(messages.size(), 4U);
  EXPECT_THAT(messages[2], Pair("info linear_mtf", HasSubstr("channel=3 median=")));
  EXPECT_THAT(messages[3], Pair("info shadow_restoration", HasSubstr("restored_shadow_samples=")));
}

TEST_F(Callbacks, SuppressedSamplesAreAWarning) {
  // Not all alike: a tile of one colour does not go through the network.
  std::vector<std::uint16_t> white(512 * 512, 65535);
  white.front() = 65534;
  view_ = {white.data(), 512, 512, 1, NEBULEX_U16, 0, 0, 0};
  model_ = OpenModel("slightly_dimmer");
  settings_.layers = NEBULEX_UNSCREEN;
  settings_.protect_highlights = 0;
  std::vector<std::string> warnings;
  listener_.message = [&](const std::string& code, const std::string& text) {
    if (code == "warning data_loss") {
      warnings.push_back(text);
    }
  };
  Results results;
  ASSERT_EQ(Call(results), NEBULEX_OK) << nebulex_last_error();
  EXPECT_THAT(warnings, ElementsAre(HasSubstr("near-saturated unscreen output sample(s)")));
}

TEST_F(Callbacks, TheLogOfAModelTellsWhatComputesIt) {
  nebulex_model_options options;
  ASSERT_EQ(nebulex_model_options_init(&options, sizeof(options)), NEBULEX_OK);
  std::vector<std::string> lines;
  options.log_context = &lines;
  options.log = [](void* context, std::int32_t, const char* code, const char* text) {
    static_cast<std::vector<std::string>*>(context)->push_back(std::string(code) + ": " + text);
  };
  options.provider = NEBULEX_PROVIDER_CPU;
  nebulex_model* model = nullptr;
  ASSERT_EQ(nebulex_model_open(ModelPath("identity").c_str(), &options, &model), NEBULEX_OK);
  const Model owner(model);
  EXPECT_THAT(lines,
              ElementsAre("inference_backend: Backend: ONNX Runtime (CPU execution provider)"));
  EXPECT_STREQ(nebulex_model_provider(model), "CPU execution provider");
  EXPECT_EQ(std::string(nebulex_model_path(model)), ModelPath("identity"));
}

// --- The wall: C++ code that breaks the rule and throws through C ---

class Wall : public Callbacks, public testing::WithParamInterface<int> {
 protected:
  struct OwnError {};

  static void Throw(int kind) {
    switch (kind) {
      case 0:
        throw std::runtime_error("an error of the caller's own");
      case 1:
        throw std::bad_alloc();
      case 2:
        throw 42;
      default:
        throw OwnError{};
    }
  }

  static nebulex_status Expected(int kind) {
    return kind == 1 ? NEBULEX_OUT_OF_MEMORY : NEBULEX_INTERNAL;
  }

  static const char* ExpectedText(int kind) {
    switch (kind) {
      case 0:
        return "an error of the caller's own";
      case 1:
        return "Not enough memory to process the image.";
      default:
        return "Failed";
    }
  }

  void ExpectCaught() {
    Results results;
    EXPECT_EQ(Call(results), Expected(GetParam()));
    EXPECT_STREQ(nebulex_last_error(), ExpectedText(GetParam()));
    listener_ = {};
    Results again;
    EXPECT_EQ(Call(again), NEBULEX_OK) << nebulex_last_error();
  }
};

TEST_P(Wall, NothingThrownByProgressGetsThrough) {
  listener_.progress = [](std::int64_t done, std::int64_t) {
    if (done == 2) {
      Throw(GetParam());
    }
  };
  ExpectCaught();
}

TEST_P(Wall, NothingThrownByTheStopRequestGetsThrough) {
  listener_.stop = [polls = 0]() mutable {
    if (++polls == 5) {
      Throw(GetParam());
    }
    return false;
  };
  ExpectCaught();
}

TEST_P(Wall, NothingThrownByAMessageGetsThrough) {
  listener_.message = [](const std::string&, const std::string&) { Throw(GetParam()); };
  ExpectCaught();
}

TEST_P(Wall, TheCppSideHandsOnWhatACallbackThrows) {
  const nebulex::Model model(ModelPath("identity"));
  Room room(view_);
  int reports = 0;
  const auto call = [&] {
    nebulex::Callbacks callbacks;
    callbacks.progress = [&](std::int64_t done, std::int64_t) {
      ++reports;
      if (done == 2) {
        Throw(GetParam());
      }
    };
    model.RemoveStars(view_, {.starless = room.Buffer()}, {}, callbacks);
  };
  switch (GetParam()) {
    case 0:
      EXPECT_THROW(call(), std::runtime_error);
      break;
    case 1:
      EXPECT_THROW(call(), std::bad_alloc);
      break;
    case 2:
      EXPECT_THROW(call(), int);
      break;
    default:
      EXPECT_THROW(call(), OwnError);
  }
  EXPECT_EQ(reports, 3);
  model.RemoveStars(view_, {.starless = room.Buffer()});
  EXPECT_EQ(room.Samples(), image_.Samples());
}

INSTANTIATE_TEST_SUITE_P(Throwing, Wall, testing::Range(0, 4));

// --- The C++ side ---

TEST_F(Callbacks, StatusCodesBecomeExceptionsByKind) {
  EXPECT_THROW(nebulex::Model("/no/such/file.onnx"), nebulex::BadModel);
  const nebulex::Model model(ModelPath("identity"));
  Room room(view_);
  EXPECT_THROW(model.RemoveStars(view_, {}), nebulex::BadArgument);
  nebulex::Settings settings;
  settings.layers = NEBULEX_MASK;
  EXPECT_THROW(model.RemoveStars(view_, {.starless = room.Buffer()}, settings),
               nebulex::BadArgument);
  nebulex_view small = view_;
  small.height = 100;
  nebulex_buffer smallRoom = room.Buffer();
  smallRoom.height = 100;
  EXPECT_THROW(model.RemoveStars(small, {.starless = smallRoom}), nebulex::BadImage);
  nebulex::Callbacks stop;
  stop.stopRequested = [] { return true; };
  EXPECT_THROW(model.RemoveStars(view_, {.starless = room.Buffer()}, {}, stop), nebulex::Stopped);
  try {
    model.RemoveStars(small, {.starless = smallRoom});
  } catch (const nebulex::Error& error) {
    EXPECT_EQ(error.Status(), NEBULEX_BAD_IMAGE);
    EXPECT_THAT(error.what(), HasSubstr("too small"));
  }
}

TEST_F(Callbacks, TheCppSideGivesThePixelsOfTheCSide) {
  std::vector<nebulex::Message> log;
  nebulex::ModelOptions options;
  options.provider = NEBULEX_PROVIDER_CPU;
  options.log = [&](const nebulex::Message& message) { log.push_back(message); };
  nebulex::Model model(ModelPath("dimmer"), options);
  EXPECT_EQ(model.Provider(), "CPU execution provider");
  EXPECT_EQ(model.Path(), ModelPath("dimmer"));
  ASSERT_EQ(log.size(), 1U);
  EXPECT_EQ(log.front().code, "inference_backend");
  const nebulex::Model moved = std::move(model);
  Room starless(view_);
  Room mask(view_);
  nebulex::Settings settings;
  settings.layers = NEBULEX_MASK;
  moved.RemoveStars(view_, {.starless = starless.Buffer(), .mask = mask.Buffer()}, settings);

  model_ = OpenModel("dimmer");
  settings_.layers = NEBULEX_MASK;
  Results expected;
  ASSERT_EQ(Call(expected), NEBULEX_OK);
  EXPECT_EQ(starless.Samples(), SamplesOf(expected.starless));
  EXPECT_EQ(mask.Samples(), SamplesOf(expected.mask));
}

}  // namespace
}  // namespace nebulex_test
