// The extension module nebulex._nebulex: a thin layer between the Python files of the package,
// which check and complete what users hand over, and the library's C++ interface.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <unistd.h>
#include <nebulex/nebulex.hpp>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "ArrayView.h"

namespace py = pybind11;

namespace nebulex_python {
namespace {

// (severity, code, text), as nebulex_message_fn gets them.
using Messages = std::vector<std::tuple<std::int32_t, std::string, std::string>>;

nebulex::MessageCallback AppendTo(Messages& messages) {
  return [&messages](const nebulex::Message& message) {
    messages.emplace_back(message.severity, message.code, message.text);
  };
}

// Lets Python's signal handlers run; Ctrl-C leaves as a KeyboardInterrupt.
bool RunSignalHandlers() {
  const py::gil_scoped_acquire gil;
  if (PyErr_CheckSignals() != 0) {
    throw py::error_already_set();
  }
  return false;
}

// A network and the process that opened it. Threads do not survive a fork, so neither does the
// model: a child process may not use it, and leaves its memory alone.
class Model {
 public:
  Model(const std::string& path, std::int32_t threads, std::int32_t provider) : process_(getpid()) {
    nebulex::ModelOptions options;
    options.threads = threads;
    options.provider = provider;
    options.log = AppendTo(messages_);
    const py::gil_scoped_release noGil;
    model_ = std::make_unique<nebulex::Model>(path, options);
  }

  ~Model() {
    if (IsOfAnotherProcess()) {
      static_cast<void>(model_.release());
    }
  }

  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;
  Model(Model&&) = delete;
  Model& operator=(Model&&) = delete;

  [[nodiscard]] std::string Path() const { return model_->Path(); }
  [[nodiscard]] std::string Provider() const { return model_->Provider(); }
  [[nodiscard]] const Messages& OpeningMessages() const { return messages_; }

  [[nodiscard]] Messages RemoveStars(const py::array& image, py::array starless,
                                     std::optional<py::array> mask,
                                     std::optional<py::array> unscreen,
                                     const nebulex::Settings& settings,
                                     const std::optional<py::function>& progress) const {
    if (IsOfAnotherProcess()) {
      throw nebulex::BadModel(NEBULEX_BAD_MODEL,
                              "A model cannot be used in a process that was forked after it was "
                              "opened. Open one in that process.");
    }
    const nebulex::View view = ViewOf(image);
    nebulex::Results results;
    results.starless = BufferOf(starless);
    if (mask) {
      results.mask = BufferOf(*mask);
    }
    if (unscreen) {
      results.unscreen = BufferOf(*unscreen);
    }
    Messages messages;
    nebulex::Callbacks callbacks;
    callbacks.stopRequested = RunSignalHandlers;
    callbacks.message = AppendTo(messages);
    if (progress) {
      callbacks.progress = [&progress](std::int64_t done, std::int64_t total) {
        const py::gil_scoped_acquire gil;
        (*progress)(done, total);
      };
    }
    const py::gil_scoped_release noGil;
    model_->RemoveStars(view, results, settings, callbacks);
    return messages;
  }

 private:
  [[nodiscard]] bool IsOfAnotherProcess() const { return getpid() != process_; }

  pid_t process_;
  Messages messages_;
  std::unique_ptr<nebulex::Model> model_;
};

// The library names members of its structures ("settings.stride ..."), which are parameters here.
const char* WithoutStructure(const char* sentence) {
  constexpr std::array<std::string_view, 2> kStructures = {"settings.", "options."};
  for (const std::string_view structure : kStructures) {
    if (std::string_view(sentence).starts_with(structure)) {
      return sentence + structure.size();
    }
  }
  return sentence;
}

// Each status gets the exception that a Python programmer expects; the sentence is the library's.
void RegisterExceptions(py::module_& module) {
  py::register_exception<nebulex::Error>(module, "InternalError", PyExc_RuntimeError);
  py::register_exception<nebulex::BadModel>(module, "ModelError", PyExc_RuntimeError);
  py::register_exception<nebulex::BadImage>(module, "ImageError", PyExc_ValueError);
  py::register_exception_translator([](std::exception_ptr pending) {
    try {
      std::rethrow_exception(std::move(pending));
    } catch (const nebulex::BadArgument& error) {
      PyErr_SetString(PyExc_ValueError, WithoutStructure(error.what()));
    }
  });
}

void RegisterSettings(py::module_& module) {
  py::class_<nebulex::Settings>(module, "Settings")
      .def(py::init<>())
      .def_readwrite("stride", &nebulex::Settings::stride)
      .def_readwrite("layers", &nebulex::Settings::layers)
      .def_readwrite("linear", &nebulex::Settings::linear)
      .def_readwrite("upsample", &nebulex::Settings::upsample)
      .def_readwrite("protect_highlights", &nebulex::Settings::protect_highlights)
      .def_readwrite("shadows_clipping", &nebulex::Settings::shadows_clipping)
      .def_readwrite("target_background", &nebulex::Settings::target_background)
      .def_readwrite("white", &nebulex::Settings::white);
  module.attr("MASK") = py::int_(static_cast<int>(NEBULEX_MASK));
  module.attr("UNSCREEN") = py::int_(static_cast<int>(NEBULEX_UNSCREEN));
}

void RegisterModel(py::module_& module) {
  py::class_<Model>(module, "Model")
      .def(py::init<const std::string&, std::int32_t, std::int32_t>(), py::arg("path"),
           py::arg("threads"), py::arg("provider"))
      .def_property_readonly("path", &Model::Path)
      .def_property_readonly("provider", &Model::Provider)
      .def_property_readonly("opening_messages", &Model::OpeningMessages)
      .def("remove_stars", &Model::RemoveStars, py::arg("image").noconvert(),
           py::arg("starless").noconvert(), py::arg("mask").noconvert(),
           py::arg("unscreen").noconvert(), py::arg("settings"), py::arg("progress"));
  module.attr("PROVIDER_AUTO") = py::int_(static_cast<int>(NEBULEX_PROVIDER_AUTO));
  module.attr("PROVIDER_CPU") = py::int_(static_cast<int>(NEBULEX_PROVIDER_CPU));
  module.attr("WARNING") = py::int_(static_cast<int>(NEBULEX_WARNING));
}

}  // namespace
}  // namespace nebulex_python

PYBIND11_MODULE(_nebulex, module) {
  nebulex_python::RegisterExceptions(module);
  nebulex_python::RegisterSettings(module);
  nebulex_python::RegisterModel(module);
  module.def("version", &nebulex_version);
}
