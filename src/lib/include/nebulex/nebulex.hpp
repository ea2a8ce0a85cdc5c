// The C++ side of libnebulex, over nebulex/nebulex.h, where everything is described: shapes,
// ranges, ownership, threads. C++17; nothing but the standard library.
//
//     nebulex::Model model;
//     nebulex::Settings settings;
//     settings.layers = NEBULEX_MASK;
//     model.RemoveStars({pixels, width, height, 3, NEBULEX_U16},
//                       {{starless, width, height, 3, NEBULEX_U16},
//                        {mask, width, height, 3, NEBULEX_U16}},
//                       settings);
//
// Status codes become exceptions. Callbacks may throw: the run is stopped, and the exception comes
// out of the function that called them.
#ifndef NEBULEX_NEBULEX_HPP
#define NEBULEX_NEBULEX_HPP

#include <nebulex/nebulex.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace nebulex {

// --- Errors --------------------------------------------------------------------------------------

// what() is the sentence of nebulex_last_error. NEBULEX_INTERNAL is thrown as this class itself.
class Error : public std::runtime_error {
 public:
  Error(nebulex_status status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  nebulex_status Status() const noexcept { return status_; }

 private:
  nebulex_status status_;
};

class BadArgument : public Error {
 public:
  using Error::Error;
};

class BadModel : public Error {
 public:
  using Error::Error;
};

class BadImage : public Error {
 public:
  using Error::Error;
};

class Stopped : public Error {
 public:
  using Error::Error;
};

// NEBULEX_OUT_OF_MEMORY.
class OutOfMemory : public std::bad_alloc {
 public:
  const char* what() const noexcept override { return "Not enough memory to process the image."; }
};

// Throws what belongs to a status that this thread has just got from the library.
inline void ThrowOnError(nebulex_status status) {
  switch (status) {
    case NEBULEX_OK:
      return;
    case NEBULEX_BAD_ARGUMENT:
      throw BadArgument(status, nebulex_last_error());
    case NEBULEX_BAD_MODEL:
      throw BadModel(status, nebulex_last_error());
    case NEBULEX_BAD_IMAGE:
      throw BadImage(status, nebulex_last_error());
    case NEBULEX_OUT_OF_MEMORY:
      throw OutOfMemory();
    case NEBULEX_STOPPED:
      throw Stopped(status, nebulex_last_error());
    default:
      throw Error(status, nebulex_last_error());
  }
}

// --- Values --------------------------------------------------------------------------------------

// The library's defaults, to be changed.
struct Settings : nebulex_settings {
  Settings() : nebulex_settings() {
    ThrowOnError(nebulex_settings_init(this, sizeof(nebulex_settings)));
  }
};

using View = nebulex_view;
using Buffer = nebulex_buffer;

// The caller's buffers. Those of layers that the settings do not ask for stay empty.
struct Results {
  Buffer starless = {};
  Buffer mask = {};
  Buffer unscreen = {};
};

struct Message {
  std::int32_t severity;  // NEBULEX_INFO or NEBULEX_WARNING
  std::string code;
  std::string text;
};

using MessageCallback = std::function<void(const Message&)>;

// Each may be empty. They run on the thread of the call.
struct Callbacks {
  std::function<void(std::int64_t done, std::int64_t total)> progress = nullptr;
  std::function<bool()> stopRequested = nullptr;
  MessageCallback message = nullptr;
};

struct ModelOptions {
  std::int32_t provider = NEBULEX_PROVIDER_AUTO;
  std::int32_t threads = 0;
  MessageCallback log = nullptr;
};

namespace detail {

// Lets C++ functions be called from C: what one of them throws is kept, further ones are not
// called, and a stop is asked for.
class CallbackGuard {
 public:
  explicit CallbackGuard(const Callbacks& callbacks) : callbacks_(callbacks) {}

  static void Progress(void* context, std::int64_t done, std::int64_t total) noexcept {
    auto& self = *static_cast<CallbackGuard*>(context);
    self.Run([&] { self.callbacks_.progress(done, total); });
  }

  static std::int32_t StopRequested(void* context) noexcept {
    auto& self = *static_cast<CallbackGuard*>(context);
    bool stops = false;
    if (self.callbacks_.stopRequested) {
      self.Run([&] { stops = self.callbacks_.stopRequested(); });
    }
    return stops || self.thrown_ ? 1 : 0;
  }

  static void TakeMessage(void* context, std::int32_t severity, const char* code,
                          const char* text) noexcept {
    auto& self = *static_cast<CallbackGuard*>(context);
    self.Run([&] { self.callbacks_.message(Message{severity, code, text}); });
  }

  nebulex_callbacks ForC() {
    nebulex_callbacks result;
    ThrowOnError(nebulex_callbacks_init(&result, sizeof(result)));
    result.context = this;
    result.progress = callbacks_.progress ? &CallbackGuard::Progress : nullptr;
    result.stop_requested = &CallbackGuard::StopRequested;
    result.message = callbacks_.message ? &CallbackGuard::TakeMessage : nullptr;
    return result;
  }

  void RethrowIfThrown() {
    if (thrown_) {
      std::rethrow_exception(std::exchange(thrown_, nullptr));
    }
  }

 private:
  template <typename Work>
  void Run(Work work) noexcept {
    if (thrown_) {
      return;
    }
    try {
      work();
    } catch (...) {
      thrown_ = std::current_exception();
    }
  }

  const Callbacks& callbacks_;
  std::exception_ptr thrown_ = nullptr;
};

}  // namespace detail

// --- Models --------------------------------------------------------------------------------------

// An open network. It can be moved and used from several threads at once.
class Model {
 public:
  // `path` in UTF-8; empty for the network that comes with the library. Throws BadArgument,
  // BadModel, OutOfMemory and what `log` throws.
  explicit Model(const std::string& path = std::string(), const ModelOptions& options = {}) {
    const Callbacks callbacks{nullptr, nullptr, options.log};
    detail::CallbackGuard guard(callbacks);
    nebulex_model_options forC;
    ThrowOnError(nebulex_model_options_init(&forC, sizeof(forC)));
    forC.provider = options.provider;
    forC.threads = options.threads;
    forC.log = options.log ? &detail::CallbackGuard::TakeMessage : nullptr;
    forC.log_context = &guard;
    nebulex_model* model = nullptr;
    const nebulex_status status =
        nebulex_model_open(path.empty() ? nullptr : path.c_str(), &forC, &model);
    model_.reset(model);
    guard.RethrowIfThrown();
    ThrowOnError(status);
  }

  std::string Provider() const { return nebulex_model_provider(model_.get()); }
  std::string Path() const { return nebulex_model_path(model_.get()); }

  // Takes the stars out of `image` into the caller's buffers. Throws BadArgument, also for a buffer
  // that is needed and empty, BadImage, OutOfMemory, Stopped, Error, and what the callbacks throw.
  void RemoveStars(const View& image, const Results& results, const Settings& settings = {},
                   const Callbacks& callbacks = {}) const {
    RequireBuffers(results, settings);
    nebulex_results forC;
    ThrowOnError(nebulex_results_init(&forC, sizeof(forC)));
    forC.starless = results.starless;
    forC.mask = results.mask;
    forC.unscreen = results.unscreen;
    detail::CallbackGuard guard(callbacks);
    const nebulex_callbacks callbacksForC = guard.ForC();
    const nebulex_status status =
        nebulex_remove_stars(model_.get(), &image, &settings, &callbacksForC, &forC);
    guard.RethrowIfThrown();
    ThrowOnError(status);
  }

 private:
  struct Close {
    void operator()(nebulex_model* model) const { nebulex_model_close(model); }
  };

  static void RequireBuffers(const Results& results, const Settings& settings) {
    const auto require = [](const Buffer& buffer, bool isNeeded, const char* name) {
      if (isNeeded && buffer.data == nullptr) {
        throw BadArgument(NEBULEX_BAD_ARGUMENT,
                          std::string("A buffer for the result is required: ") + name + ".");
      }
    };
    require(results.starless, true, "starless");
    require(results.mask, (settings.layers & NEBULEX_MASK) != 0, "mask");
    require(results.unscreen, (settings.layers & NEBULEX_UNSCREEN) != 0, "unscreen");
  }

  std::unique_ptr<nebulex_model, Close> model_;
};

}  // namespace nebulex

#endif  // NEBULEX_NEBULEX_HPP
