#include "backend/ModelFile.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"

namespace project_lumen::backend {

void CheckModelSize(std::uint64_t size) {
  if (size > kMaximumModelSize) {
    throw std::runtime_error("ONNX model exceeds the format's limit of " +
                             std::to_string(kMaximumModelSize) + " bytes.");
  }
}

Bytes ReadModelFile(const std::string& path) {
  std::error_code error;
  std::ifstream stream;
  if (std::filesystem::is_regular_file(FileStatus(path, error))) {
    stream.open(FromUtf8(OpenablePath(path)), std::ios::binary);
  }
  if (!stream.is_open()) {
    throw std::runtime_error("Unable to open ONNX model file: " + path);
  }
  return ReadModelStream(stream, path);
}

Bytes ReadModelStream(std::istream& stream, const std::string& path) {
  const std::streamoff size = stream.seekg(0, std::ios::end).tellg();
  if (size < 0 || !stream.seekg(0)) {
    throw std::runtime_error("Unable to determine ONNX model file size: " + path);
  }
  CheckModelSize(static_cast<std::uint64_t>(size));
  Bytes bytes(static_cast<std::size_t>(size));
  if (!stream.read(reinterpret_cast<char*>(bytes.data()), size)) {
    throw std::runtime_error("Unable to read ONNX model file: " + path);
  }
  return bytes;
}

}  // namespace project_lumen::backend
