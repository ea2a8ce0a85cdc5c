// Inference of a tile that the caller can break off.
#pragma once

#include <functional>
#include <stop_token>
#include <string>
#include <vector>

namespace project_lumen::lib {

// Computes a tile; ends soon, by any exception, once a stop is requested. Lines of log go to
// `messages`.
using TileWork = std::function<std::vector<float>(
    const std::stop_token& stop, const std::function<void(const std::string&)>& messages)>;

// Runs `work` on a thread of its own, and meanwhile asks `stopRequested`, which may be empty, on
// this thread, about twenty times a second. The lines that it logged reach `messages` on this
// thread, too, when it has ended.
//
// Throws core::Cancelled when it was stopped, and what `work`, `stopRequested` and `messages`
// throw; the work has ended then. std::system_error where no thread can be started.
std::vector<float> RunStoppable(const TileWork& work, const std::function<bool()>& stopRequested,
                                const std::function<void(const std::string&)>& messages);

}  // namespace project_lumen::lib
