// Reading images through io, one at a time.
#pragma once

#include <functional>

#include "io/ImageReader.h"
#include "studio/files/OpenedFile.h"
#include "studio/files/SessionFolder.h"

namespace project_lumen::studio {

// Runs `work` while nobody else reads or writes an image: the memory that one needs counts once.
void WithImageFiles(const std::function<void()>& work);

// Reads exactly the file that was opened, whatever lies at its path now; messages name its path.
// Waits for others. Throws what io::ReadImage throws.
void ReadOpenedImage(const OpenedFile& file, const SessionFolder& session, io::ReadMode mode,
                     io::RowSink& rows, io::ImageDescription& description);

// `text` with `shown` in the place of every `internal`.
std::string ReplaceAll(std::string text, const std::string& internal, const std::string& shown);

}  // namespace project_lumen::studio
