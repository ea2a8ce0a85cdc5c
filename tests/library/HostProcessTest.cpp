// What the process around the library notices of it: nothing.
#include <gtest/gtest.h>
#include <nebulex/nebulex.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "TestImages.h"
#include "support/StandardErrorFile.h"

namespace nebulex_test {
namespace {

nebulex_status Call(nebulex_model* model, const nebulex_view& view, std::int32_t layers = 0) {
  nebulex_settings settings = DefaultSettings();
  settings.stride = 512;
  settings.layers = layers;
  Results results;
  return nebulex_remove_stars(model, &view, &settings, nullptr, &results);
}

std::vector<void (*)(int)> SignalHandlers() {
  std::vector<void (*)(int)> handlers;
  for (int number = 1; number < 32; ++number) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) == 0) {
      handlers.push_back(action.sa_handler);
    }
  }
  return handlers;
}

TEST(HostProcess, KeepsItsSignalHandlersAndItsStandardError) {
  const auto before = SignalHandlers();
  const GreyImage image(512, 512);
  {
    const project_lumen::test::StandardErrorFile standardError;
    const Model model = OpenModel("unused_weights");
    EXPECT_EQ(Call(model.get(), image.View()), NEBULEX_OK);
    const Model failing = OpenModel("fails_on_tiles");
    EXPECT_EQ(Call(failing.get(), image.View()), NEBULEX_INTERNAL);
    nebulex_model* none = nullptr;
    EXPECT_EQ(nebulex_model_open("/no/such/file", nullptr, &none), NEBULEX_BAD_MODEL);
    EXPECT_EQ(standardError.Text(), "");
  }
  EXPECT_EQ(SignalHandlers(), before);
}

// The sanitizers hold memory of their own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// Resident memory, in bytes.
std::size_t ResidentBytes() {
  std::ifstream file("/proc/self/statm");
  std::size_t all = 0;
  std::size_t resident = 0;
  file >> all >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(HostProcess, HoldsNoMoreMemoryAfterAThousandImages) {
  const Model model = OpenModel("identity");
  const GreyImage image(512, 512);
  const auto callMany = [&](int count) {
    for (int i = 0; i < count; ++i) {
      const std::int32_t layers = i % 10 == 0 ? NEBULEX_MASK | NEBULEX_UNSCREEN : 0;
      ASSERT_EQ(Call(model.get(), image.View(), layers), NEBULEX_OK);
    }
  };
  callMany(100);
  const std::size_t before = ResidentBytes();
  callMany(1000);
  // An image has half a megabyte: a leak of a result in every call would be 500 of them.
  constexpr std::size_t kNoise = std::size_t{8} << 20U;
  EXPECT_LT(ResidentBytes(), before + kNoise);
}

// Runs `work` with no more address space than is in use now and `more` bytes.
template <typename Work>
void WithLittleMemory(std::size_t more, Work work) {
  std::ifstream file("/proc/self/statm");
  std::size_t pages = 0;
  file >> pages;
  rlimit original{};
  getrlimit(RLIMIT_AS, &original);
  const rlimit limited{pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) + more,
                       original.rlim_max};
  setrlimit(RLIMIT_AS, &limited);
  work();
  setrlimit(RLIMIT_AS, &original);
}

TEST(HostProcess, LacksMemoryWithoutAWordAndGoesOn) {
  const Model model = OpenModel("identity");
  const GreyImage large(6000, 6000);
  const GreyImage small(512, 512);
  ASSERT_EQ(Call(model.get(), small.View()), NEBULEX_OK);
  const project_lumen::test::StandardErrorFile standardError;
  nebulex_status status = NEBULEX_OK;
  std::string sentence;
  WithLittleMemory(std::size_t{64} << 20U, [&] {
    status = Call(model.get(), large.View());
    sentence = nebulex_last_error();
  });
  EXPECT_EQ(status, NEBULEX_OUT_OF_MEMORY);
  EXPECT_EQ(sentence, "Not enough memory to process the image.");
  EXPECT_EQ(standardError.Text(), "");
  EXPECT_EQ(Call(model.get(), small.View()), NEBULEX_OK);
}

#endif

}  // namespace
}  // namespace nebulex_test
