// Writing what is seen, at full depth.
#pragma once

#include <string>

#include "io/SourceImageInfo.h"
#include "studio/files/OpenedFile.h"
#include "studio/files/SessionFolder.h"
#include "studio/results/Blend.h"

namespace project_lumen::studio {

// Reads both results of a run and writes their blend to `path`, whose end chooses the format: FITS
// with the source's storage and header, TIFF and PNG with 16 bits. Samples are rounded as those of
// the program's own results. The rows go from disk to disk.
//
// Throws what io's readers and writers throw, ApiError 507 where there is no room for the samples
// on their way.
void WriteBlend(const OpenedFile& starless, const OpenedFile& unscreen,
                const BlendSettings& settings, const io::SourceImageInfo& source,
                const std::string& path, const SessionFolder& session);

}  // namespace project_lumen::studio
