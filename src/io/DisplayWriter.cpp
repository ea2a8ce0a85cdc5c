#include "io/DisplayWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <span>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include "common/PathSuffix.h"
#include "io/AstroTiff.h"
#include "io/ReplacedFile.h"
#include "io/StandardErrorDiversion.h"

namespace project_lumen::io {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr int kTiffLzwCompression = 5;

bool HasTiffSuffix(const std::string& path) {
  return LowercaseSuffix(path, 4) == ".tif" || LowercaseSuffix(path, 5) == ".tiff";
}

bool HasLosslessSuffix(const std::string& path) {
  return HasTiffSuffix(path) || LowercaseSuffix(path, 4) == ".png";
}

std::vector<int> EncoderParameters(const std::string& path) {
  if (HasTiffSuffix(path)) {
    return {cv::IMWRITE_TIFF_COMPRESSION, kTiffLzwCompression};
  }
  return {};
}

// What encoders need at most: LZW stands for a byte with 12 bits at worst (TIFF 6.0, section 13).
std::size_t LargestEncodedSize(const cv::Mat& image) {
  constexpr std::size_t kFileStructure = std::size_t{1} << 20U;
  return image.total() * image.elemSize() / 2 * 3 + kFileStructure;
}

[[noreturn]] void FailToWrite(const std::string& path) {
  throw std::invalid_argument("Unable to write output image: " + path);
}

[[noreturn]] void FailToWrite(const std::string& path, const std::string& reason) {
  throw std::invalid_argument("Unable to write output image: " + path + " (" + reason + ")");
}

void ThrowIfOutOfMemory(const cv::Exception& error) {
  if (error.code == cv::Error::StsNoMem) {
    throw std::bad_alloc();
  }
}

// In memory, since only then is it certain that every byte was written: encoders of files on a full
// disk were seen to report success. OpenCV takes the format from a whole path's extension.
Bytes Encode(const std::string& path, const cv::Mat& image) {
  const std::vector<int> parameters = EncoderParameters(path);
  const StandardErrorDiversion diversion;
  Bytes bytes;
  // Now, since libtiff cannot be left by an exception while it closes its file.
  bytes.reserve(LargestEncodedSize(image));
  bool isEncoded = false;
  try {
    isEncoded = cv::imencode(path, image, bytes, parameters);
  } catch (const cv::Exception& error) {
    ThrowIfOutOfMemory(error);
  }
  if (!isEncoded || bytes.empty()) {
    FailToWrite(path);
  }
  return bytes;
}

// Lets OpenCV say that it has no encoder for the extension; it does so before it touches a file.
void RequireEncoder(const std::string& path, const cv::Mat& image) {
  if (!cv::haveImageWriter(path)) {
    const StandardErrorDiversion diversion;
    cv::imwrite(path, image);
  }
}

class OutputDescriptor {
 public:
  explicit OutputDescriptor(const std::string& path)
      : descriptor_(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC)) {
    Check(descriptor_ >= 0);
  }
  ~OutputDescriptor() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  OutputDescriptor(const OutputDescriptor&) = delete;
  OutputDescriptor& operator=(const OutputDescriptor&) = delete;

  void Write(std::span<const unsigned char> bytes) const {
    while (!bytes.empty()) {
      const ssize_t written = write(descriptor_, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) {
        continue;
      }
      Check(written > 0);
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
  }

  // Some file systems report a failed write only on closing.
  void Close() {
    const int result = close(descriptor_);
    descriptor_ = -1;
    Check(result == 0);
  }

 private:
  static void Check(bool succeeded) {
    if (!succeeded) {
      throw std::system_error(errno, std::generic_category());
    }
  }

  int descriptor_;
};

void WriteBytes(const std::string& path, const Bytes& bytes) {
  OutputDescriptor file(path);
  file.Write(bytes);
  file.Close();
}

int AstroTiffBitDepth(const cv::Mat& image) {
  switch (image.depth()) {
    case CV_8U:
      return 8;
    case CV_16U:
      return 16;
    default:
      throw std::invalid_argument(
          "AstroTIFF metadata preservation requires an 8-bit or 16-bit TIFF output.");
  }
}

// The ImageDescription of the output, empty for none.
std::string OutputDescription(const std::string& path, const cv::Mat& image,
                              const std::string& astroTiffHeader) {
  if (astroTiffHeader.empty() || !IsTiffPath(path)) {
    return "";
  }
  return BuildAstroTiffOutputHeader(astroTiffHeader, AstroTiffBitDepth(image));
}

// Puts a new file in the place of `path`; `write` fills the file at the path that it is given.
template <class Write>
void Replace(const std::string& path, const Write& write) {
  try {
    ReplacedFile file(path);
    write(file.TemporaryPath());
    file.Commit();
  } catch (const ReplacementError& error) {
    FailToWrite(path, error.what());
  } catch (const std::system_error& error) {
    FailToWrite(path, error.code().message());
  }
}

// OpenCV encodes these into files alone: cv::imencode takes the way through the system's folder for
// temporary files.
bool IsEncodedIntoFiles(const std::string& path) {
  constexpr std::array<std::string_view, 6> kExtensions{".hdr", ".pic", ".pfm",
                                                        ".exr", ".jp2", ".j2k"};
  return std::any_of(kExtensions.begin(), kExtensions.end(),
                     [name = ToLower(path)](auto extension) { return name.ends_with(extension); });
}

// Read back, since an encoder does not notice that the disk is full.
void EncodeIntoFile(const std::string& temporaryPath, const cv::Mat& image,
                    const std::string& path) {
  const StandardErrorDiversion diversion;
  bool isWhole = false;
  try {
    isWhole = cv::imwrite(temporaryPath, image) &&
              cv::imread(temporaryPath, cv::IMREAD_UNCHANGED).size() == image.size();
  } catch (const cv::Exception& error) {
    ThrowIfOutOfMemory(error);
  }
  if (!isWhole) {
    FailToWrite(path);
  }
}

}  // namespace

int OutputSampleDepth(const std::string& path, int storedDepth) {
  if (!HasLosslessSuffix(path)) {
    return CV_8U;
  }
  return storedDepth == CV_8U ? CV_8U : CV_16U;
}

void CheckDisplayTarget(const std::string& path) {
  OutputSampleDepth(path, CV_8U);
  RequireEncoder(path, cv::Mat(1, 1, CV_8UC1, cv::Scalar(0)));
  try {
    const ReplacedFile probe(path);
  } catch (const ReplacementError& error) {
    FailToWrite(path, error.what());
  }
}

void WriteDisplayImage(const std::string& path, const cv::Mat& image,
                       const std::string& astroTiffHeader) {
  RequireEncoder(path, image);
  if (IsEncodedIntoFiles(path)) {
    Replace(path,
            [&](const std::string& temporaryPath) { EncodeIntoFile(temporaryPath, image, path); });
    return;
  }
  const std::string description = OutputDescription(path, image, astroTiffHeader);
  const Bytes bytes = Encode(path, image);
  Replace(path, [&](const std::string& temporaryPath) {
    WriteBytes(temporaryPath, bytes);
    if (!description.empty()) {
      AppendAstroTiffMetadata(temporaryPath, description, path);
    }
  });
}

}  // namespace project_lumen::io
