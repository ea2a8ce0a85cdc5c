#include "lib/ResultBuffers.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lib/Errors.h"
#include "lib/SizedStruct.h"

namespace project_lumen::lib {
namespace {

using Memory = std::unique_ptr<std::byte[]>;

struct Result {
  nebulex_buffer nebulex_results::*buffer;
  const char* name;
};

constexpr Result kStarless{&nebulex_results::starless, "results.starless"};
constexpr Result kMask{&nebulex_results::mask, "results.mask"};
constexpr Result kUnscreen{&nebulex_results::unscreen, "results.unscreen"};

// What nebulex_results::allocations points at.
struct Allocations {
  std::vector<std::pair<nebulex_buffer nebulex_results::*, Memory>> buffers;
};

std::vector<Result> WantedResults(const Settings& settings) {
  std::vector<Result> wanted{kStarless};
  if (settings.wantsMask) {
    wanted.push_back(kMask);
  }
  if (settings.wantsUnscreen) {
    wanted.push_back(kUnscreen);
  }
  return wanted;
}

nebulex_results& Required(nebulex_results* results) {
  if (results == nullptr) {
    throw BadArgument("results is NULL.");
  }
  RequireKnownSize<nebulex_results>(results->size, "results");
  if (results->size < sizeof(nebulex_results)) {
    throw BadArgument("results.size is " + std::to_string(results->size) +
                      ". Set the defaults with nebulex_results_init first.");
  }
  return *results;
}

}  // namespace

nebulex_results DefaultResults() {
  return {.size = sizeof(nebulex_results),
          .starless = {},
          .mask = {},
          .unscreen = {},
          .allocations = nullptr};
}

void FreeResults(nebulex_results* results) noexcept {
  if (results == nullptr || results->size < sizeof(nebulex_results) ||
      results->allocations == nullptr) {
    return;
  }
  const std::unique_ptr<Allocations> allocations(static_cast<Allocations*>(results->allocations));
  results->allocations = nullptr;
  for (const auto& [buffer, memory] : allocations->buffers) {
    if ((results->*buffer).data == memory.get()) {
      results->*buffer = {};
    }
  }
}

ResultBuffers::ResultBuffers(nebulex_results* results, const nebulex_view& image,
                             const SampleLayout& source, const Settings& settings)
    : results_(Required(results)), image_(image), settings_(settings) {
  std::vector<std::pair<std::string, SampleLayout>> known{{"the image", source}};
  for (const Result& result : WantedResults(settings)) {
    const nebulex_buffer& buffer = results_.*result.buffer;
    if (buffer.data == nullptr) {
      continue;
    }
    const SampleLayout layout = LayoutOf(buffer, image, result.name);
    for (const auto& [name, other] : known) {
      if (Overlap(layout, other)) {
        throw BadArgument(std::string(result.name) + " overlaps " + name + ".");
      }
    }
    known.emplace_back(result.name, layout);
  }
}

void ResultBuffers::Allocate() {
  std::vector<std::pair<nebulex_buffer nebulex_results::*, Memory>> made;
  for (const Result& result : WantedResults(settings_)) {
    if ((results_.*result.buffer).data == nullptr) {
      made.emplace_back(result.buffer, Memory(new std::byte[PackedSize(PackedBufferFor(image_))]));
    }
  }
  if (made.empty()) {
    return;
  }
  auto* kept = static_cast<Allocations*>(results_.allocations);
  auto fresh = kept == nullptr ? std::make_unique<Allocations>() : nullptr;
  Allocations& allocations = kept == nullptr ? *fresh : *kept;
  allocations.buffers.reserve(allocations.buffers.size() + made.size());
  for (auto& [buffer, memory] : made) {
    results_.*buffer = PackedBufferFor(image_);
    (results_.*buffer).data = memory.get();
    allocations.buffers.emplace_back(buffer, std::move(memory));
  }
  if (fresh) {
    results_.allocations = fresh.release();
  }
}

SampleLayout ResultBuffers::Starless() const {
  return LayoutOf(results_.*kStarless.buffer, image_, kStarless.name);
}

SampleLayout ResultBuffers::Mask() const {
  return LayoutOf(results_.*kMask.buffer, image_, kMask.name);
}

SampleLayout ResultBuffers::Unscreen() const {
  return LayoutOf(results_.*kUnscreen.buffer, image_, kUnscreen.name);
}

}  // namespace project_lumen::lib
