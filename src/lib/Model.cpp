#include "lib/Model.h"

#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "backend/BackendDiagnostics.h"
#include "backend/DefaultModel.h"
#include "backend/ModelLookup.h"
#include "common/OutOfMemory.h"
#include "common/Platform.h"
#include "lib/Errors.h"
#include "lib/Messages.h"

namespace project_lumen::lib {
namespace {

// The folder of this library; of the executable where it has become a part of one.
std::string OwnFolder() {
  const auto module = LoadedModule::FromAddress(reinterpret_cast<const void*>(&OwnFolder));
  const auto folder = module ? module->Folder() : std::nullopt;
  return folder.value_or(backend::ExecutableDirectory());
}

struct Lookup {
  std::string path;
  std::string source;                   // who chose the path
  std::vector<std::string> candidates;  // of the path
};

Lookup LookUp(const char* path) {
  if (path != nullptr) {
    return {path, "explicit path", {path}};
  }
  const std::vector<std::string> candidates = backend::BuildLibraryModelCandidates(
      OwnFolder(), backend::kDefaultModelId, backend::kDefaultWeightsFileName);
  return {backend::FirstThatExists(candidates), "automatic lookup", candidates};
}

backend::ProviderPlatform PlatformFor(const nebulex_model_options& options) {
  backend::ProviderPlatform platform = backend::LibraryProviderPlatform();
  platform.cpuOnly = options.provider == NEBULEX_PROVIDER_CPU;
  if (options.threads != 0) {
    platform.intraThreads = options.threads;
  }
  return platform;
}

// The backend's sentence without the context that it knows of.
std::string Sentence(const std::exception& error) {
  const std::string text = error.what();
  return text.substr(0, text.find('\n'));
}

}  // namespace

nebulex_model* OpenModel(const char* path, const nebulex_model_options& options) {
  const Lookup lookup = LookUp(path);
  const auto log = [options](const std::string& line) {
    SendMessage(options.log, options.log_context, backend::DiagnosticOf(line));
  };
  try {
    auto model = std::make_unique<nebulex_model>(lookup.path, log, PlatformFor(options));
    log("Backend: ONNX Runtime (" + model->backend.ProviderName() + ")");
    return model.release();
  } catch (const std::exception& error) {
    if (MeansLackOfMemory(error)) {
      throw;
    }
    throw BadModel(Sentence(error) + "\n" +
                   backend::DescribeModelContext("ONNX Runtime", backend::kDefaultWeightsFileName,
                                                 lookup.source, lookup.path, lookup.candidates));
  }
}

}  // namespace project_lumen::lib
