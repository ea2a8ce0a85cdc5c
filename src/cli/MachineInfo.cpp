#include "cli/MachineInfo.h"

#include "cli/MachineInfoInterfaces.h"
#include "cli/ProductInfo.h"
#include "common/JsonString.h"

namespace project_lumen::cli {
namespace {

void WriteMember(std::ostream& stream, std::string_view key, std::string_view value) {
  stream << "  ";
  WriteJsonString(stream, key);
  stream << ": ";
  WriteJsonString(stream, value);
  stream << ",\n";
}

void WriteIdentity(std::ostream& stream) {
  WriteMember(stream, "schema", "nebulexastro.cli.machine-info.v1");
  WriteMember(stream, "product", kModelId);
  WriteMember(stream, "display_name", kModelLabel);
  WriteMember(stream, "executable", kExecutableName);
  WriteMember(stream, "version", kVersion);
  WriteMember(stream, "build", kBuildIdentifier);
}

constexpr std::string_view kBackend = R"json(  "backend": {
    "id": "ort",
    "display_name": "ONNX Runtime",
    "providers": [
      { "id": "cuda", "display_name": "CUDA", "available": "runtime", "selection": "automatic" },
      { "id": "directml", "display_name": "DirectML", "available": "runtime", "selection": "automatic" },
      { "id": "cpu", "display_name": "CPU", "available": "always", "selection": "fallback" }
    ]
  },
)json";

constexpr std::string_view kFeatures = R"json(  "features": {
    "highlight_protection": {
      "supported": true,
      "default": true,
      "disable_option": "disable_highlights_protection"
    },
    "linear_mtf": {
      "supported": true,
      "default": false,
      "option": "linear",
      "shadows_clipping_default": -2.8,
      "target_background_default": 0.25,
      "restore_clipped_source_samples": true
    },
    "update_check": {
      "supported": )json";

void WriteFeatures(std::ostream& stream, bool updateCheckSupported) {
  stream << kFeatures << (updateCheckSupported ? "true" : "false") << "\n    }\n  },\n";
}

void WriteModels(std::ostream& stream, std::string_view defaultWeightsFileName) {
  stream << "  \"models\": [\n    {\n      \"id\": ";
  WriteJsonString(stream, kModelId);
  stream << ",\n      \"label\": ";
  WriteJsonString(stream, kModelLabel);
  stream << ",\n      \"default_weights\": ";
  WriteJsonString(stream, defaultWeightsFileName);
  stream << R"json(,
      "search_paths": ["executable_dir", "portable_lib_dir", "install_lib_dir", "system_lib_dir"],
      "color_spaces": ["grayscale", "rgb"],
      "default": true
    }
  ],
)json";
}

constexpr std::string_view kOptions = R"json(  "options": [
    { "name": "machine_info", "flags": ["--machine-info"], "type": "boolean", "default": false, "mode": "introspection" },
    { "name": "help", "flags": ["-h", "--help"], "type": "boolean", "default": false, "mode": "introspection" },
    { "name": "version", "flags": ["--version"], "type": "boolean", "default": false, "mode": "introspection" },
    { "name": "check_updates", "flags": ["--check-updates"], "type": "boolean", "default": false, "mode": "introspection" },
    { "name": "input", "flags": ["-i", "--input"], "type": "path", "required": true, "mode": "processing" },
    { "name": "output", "flags": ["-o", "--output"], "type": "path", "required": false, "default": "starless.jpg", "mode": "processing", "creates_output": true },
    { "name": "mask", "flags": ["-m", "--mask"], "type": "path", "required": false, "default": "", "mode": "processing", "creates_output": true },
    { "name": "unscreen", "flags": ["-n", "--unscreen"], "type": "path", "required": false, "default": "", "mode": "processing", "creates_output": true },
    { "name": "weights", "flags": ["-w", "--weights"], "type": "path", "required": false, "default": "", "mode": "processing" },
    { "name": "stride", "flags": ["-s", "--stride"], "type": "integer", "required": false, "default": 256, "minimum": 2, "maximum": 512, "constraints": { "even": true }, "mode": "processing" },
    { "name": "upsample", "flags": ["-u", "--upsample"], "type": "boolean", "default": false, "mode": "processing" },
    { "name": "linear", "flags": ["--linear"], "type": "boolean", "default": false, "mode": "processing" },
    { "name": "shadows_clipping", "flags": ["--shadows-clipping"], "type": "number", "default": -2.8, "exclusive_maximum": 0.0, "requires": "linear", "mode": "processing" },
    { "name": "target_background", "flags": ["--target-background"], "type": "number", "default": 0.25, "exclusive_minimum": 0.0, "exclusive_maximum": 1.0, "requires": "linear", "mode": "processing" },
    { "name": "quiet", "flags": ["-q", "--quiet"], "type": "boolean", "default": false, "mode": "processing" },
    { "name": "disable_highlights_protection", "flags": ["-d", "--disable-highlights-protection"], "type": "boolean", "default": false, "mode": "processing" },
    { "name": "machine_progress", "flags": ["--machine-progress"], "type": "boolean", "default": false, "mode": "processing" }
  ],
)json";

}  // namespace

void WriteMachineInfo(std::ostream& stream, std::string_view defaultWeightsFileName) {
  constexpr bool kUpdateCheckSupported = false;
  constexpr bool kLinearRestoration = true;
  stream << "{\n";
  WriteIdentity(stream);
  stream << kBackend;
  WriteFeatures(stream, kUpdateCheckSupported);
  WriteModels(stream, defaultWeightsFileName);
  stream << kOptions;
  WriteInterfaceBlocks(stream, "  ", kLinearRestoration);
  stream << "}\n";
}

}  // namespace project_lumen::cli
