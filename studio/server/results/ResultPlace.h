// Where results get their names.
#pragma once

#include <string>
#include <vector>

#include "studio/files/OpenedFile.h"

namespace project_lumen::studio {

// The name of a result: `pattern` with {name} and {role} filled in, and the suffix behind it.
// Throws ApiError 400 where it is no plain name or has other braces.
std::string ResultName(const std::string& pattern, const std::string& sourceName,
                       const std::string& role, const std::string& suffix);

// Whether something has this name in a folder, be it a link to nowhere.
bool IsTaken(const OpenedFile& folder, const std::string& name);

// A hidden folder in another one, in which results are written until they are whole, so that giving
// them their names is one step. The destructor removes it with everything in it.
class HiddenFolder {
 public:
  // Throws ApiError 400 with words where the folder cannot be written to.
  explicit HiddenFolder(const OpenedFile& folder);
  ~HiddenFolder();
  HiddenFolder(const HiddenFolder&) = delete;
  HiddenFolder& operator=(const HiddenFolder&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }

  // Gives the file `written` in this folder the name `name` in the folder around it. What has that
  // name is replaced where `replaces` says so; else nothing is, and the file gets the first free
  // name with a number, "m31_starless-2.tif", unless `isNumbered` is false: then ApiError 409 is
  // thrown. Returns the file's path.
  [[nodiscard]] std::string Place(const std::string& written, const std::string& name,
                                  bool replaces, bool isNumbered) const;

 private:
  const OpenedFile& folder_;
  std::string path_;
};

}  // namespace project_lumen::studio
