// Paths and names as texts.
#pragma once

#include <string>
#include <string_view>

namespace project_lumen::studio {

// What follows the last slash, and what stands before it ("/" for a path below the root).
std::string NameIn(const std::string& path);
std::string FolderOf(const std::string& path);

// Whether `path` is `folder` or lies below it; both are absolute, without links and dots.
bool IsWithin(std::string_view path, std::string_view folder);

// The end of an image's name that tells its format, with its dot and as it is written: ".tif",
// ".fits.gz". Empty where the end is none that the program reads.
std::string ImageSuffix(const std::string& name);

// The name without ImageSuffix, or without what follows the last dot.
std::string NameWithoutSuffix(const std::string& name);

// Whether a text from a request can be the name of a file: 1 to 200 bytes of valid UTF-8 without
// slash, backslash and control characters, not hidden (no dot in front), with no blank at its ends.
bool IsPlainName(std::string_view name);

}  // namespace project_lumen::studio
