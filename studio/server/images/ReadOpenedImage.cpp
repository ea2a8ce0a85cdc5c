#include "studio/images/ReadOpenedImage.h"

#include <mutex>
#include <stdexcept>

#include "common/OutOfMemory.h"

namespace project_lumen::studio {

void WithImageFiles(const std::function<void()>& work) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  WithBadAlloc(work);
}

void ReadOpenedImage(const OpenedFile& file, const SessionFolder& session, io::ReadMode mode,
                     io::RowSink& rows, io::ImageDescription& description) {
  const NameOfOpenedFile name(session.Path(), file);
  try {
    WithImageFiles([&] { io::ReadImage(name.Path(), mode, rows, description); });
  } catch (const std::invalid_argument& error) {
    throw std::invalid_argument(ReplaceAll(error.what(), name.Path(), file.path));
  }
}

std::string ReplaceAll(std::string text, const std::string& internal, const std::string& shown) {
  for (std::size_t at = text.find(internal); at != std::string::npos;
       at = text.find(internal, at + shown.size())) {
    text.replace(at, internal.size(), shown);
  }
  return text;
}

}  // namespace project_lumen::studio
