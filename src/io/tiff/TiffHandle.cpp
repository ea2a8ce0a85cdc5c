#include "io/tiff/TiffHandle.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <istream>
#include <limits>
#include <new>

#include "io/files/DecodedSize.h"

namespace project_lumen::io {
namespace {

struct FreeOptions {
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

}  // namespace

// What libtiff reads from, and what it says.
struct TiffHandle::Client {
  explicit Client(std::istream& stream) : file(stream) {
    file.clear();
    file.seekg(0, std::ios::end);
    const std::streamoff end = file.tellg();
    size = file && end > 0 ? static_cast<std::uint64_t>(end) : 0;
    file.clear();
    file.seekg(0);
  }

  std::uint64_t Read(void* into, std::uint64_t count) {
    // Each seek empties the stream's buffer.
    if (streamPosition != position || !file) {
      file.clear();
      file.seekg(static_cast<std::streamoff>(position));
    }
    file.read(static_cast<char*>(into), static_cast<std::streamsize>(count));
    const auto got = static_cast<std::uint64_t>(std::max<std::streamsize>(file.gcount(), 0));
    position += got;
    streamPosition = position;
    return got;
  }

  std::uint64_t Seek(std::uint64_t offset, int whence) {
    const std::uint64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? position : size;
    position = base + offset;
    return position;
  }

  std::istream& file;
  std::uint64_t size = 0;
  std::uint64_t position = 0;        // where libtiff is
  std::uint64_t streamPosition = 0;  // where the stream is
  bool hasFailed = false;
};

namespace {

template <class Client>
Client& ClientOf(void* data) {
  return *static_cast<Client*>(data);
}

}  // namespace

TiffHandle::TiffHandle(std::istream& file) : client_(std::make_unique<Client>(file)) {
  const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
  if (!options) {
    throw std::bad_alloc();
  }
  const std::uint64_t largest = LargestDecodedSize(client_->size);
  TIFFOpenOptionsSetMaxSingleMemAlloc(
      options.get(), static_cast<tmsize_t>(
                         std::min<std::uint64_t>(largest, std::numeric_limits<tmsize_t>::max())));
  TIFFOpenOptionsSetErrorHandlerExtR(
      options.get(),
      [](TIFF*, void* client, const char*, const char*, va_list) {
        ClientOf<Client>(client).hasFailed = true;
        return 1;
      },
      client_.get());
  TIFFOpenOptionsSetWarningHandlerExtR(
      options.get(), [](TIFF*, void*, const char*, const char*, va_list) { return 1; }, nullptr);
  handle_.reset(TIFFClientOpenExt(
      "", "r", client_.get(),
      [](thandle_t client, void* into, tmsize_t count) {
        return static_cast<tmsize_t>(
            ClientOf<Client>(client).Read(into, static_cast<std::uint64_t>(count)));
      },
      [](thandle_t, void*, tmsize_t) { return tmsize_t{0}; },
      [](thandle_t client, toff_t offset, int whence) {
        return ClientOf<Client>(client).Seek(offset, whence);
      },
      [](thandle_t) { return 0; }, [](thandle_t client) { return ClientOf<Client>(client).size; },
      nullptr, nullptr, options.get()));
}

TiffHandle::~TiffHandle() = default;

void TiffHandle::Close::operator()(tiff* handle) const {
  TIFFClose(handle);
}

std::uint64_t TiffHandle::FileSize() const {
  return client_->size;
}

bool TiffHandle::ReadBytes(std::uint64_t offset, void* into, std::uint64_t count) {
  if (offset > client_->size || count > client_->size - offset) {
    return false;
  }
  client_->Seek(offset, SEEK_SET);
  return client_->Read(into, count) == count;
}

bool TiffHandle::HasFailed() const {
  return client_->hasFailed;
}

void TiffHandle::ForgetErrors() {
  client_->hasFailed = false;
}

}  // namespace project_lumen::io
