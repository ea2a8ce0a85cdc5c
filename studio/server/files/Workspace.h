// The opened folders and what lies in them: the only way from a request to a file.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "studio/files/OpenedFile.h"

namespace project_lumen::studio {

struct FolderEntry {
  enum class Kind { kFolder, kImage, kFile };
  Kind kind = Kind::kFile;
  std::string id;
  std::string name;
  std::int64_t size = 0;
  std::int64_t modified = 0;  // seconds since 1970
};

struct FolderListing {
  std::string id;
  std::string path;
  std::optional<std::string> parent;  // none for a root
  bool isWritable = false;
  bool isTruncated = false;
  std::vector<FolderEntry> entries;  // folders first, each kind by name
};

// Gives ids to folders and files and opens them by these. An id is only a name for a path that the
// server itself has met; each opening looks at where the opened file really lies, links resolved,
// and refuses what lies in no root. The look is at the descriptor, after opening, so nothing can
// change in between. Safe for any thread.
//
// Functions that take an id throw ApiError: 404 for an unknown id or a thing that is gone, 403 for
// one that leads out of the opened folders, 400 where a file is asked for and it is a folder or
// something else, or the other way round.
class Workspace {
 public:
  // Opens a folder with all that lies below it, and returns its id; a folder that is a root already
  // is not added twice. Throws std::invalid_argument with the message for the user.
  std::string AddRoot(const std::string& path);

  // The ids of the roots, in the order in which they were added, but for hidden ones.
  [[nodiscard]] std::vector<std::string> Roots() const;

  // A root that is not listed: for uploads.
  void AddHiddenRoot(const std::string& path);

  // The id of a file or folder, whether it is there or not. Throws ApiError 503 when there are too
  // many.
  std::string FileId(const std::string& path);
  std::string FolderId(const std::string& path);

  [[nodiscard]] OpenedFile OpenFile(const std::string& id) const;
  [[nodiscard]] OpenedFile OpenFolder(const std::string& id) const;

  // At most `most` entries. Hidden names, links that lead out and anything but folders and regular
  // files are left out.
  FolderListing List(const std::string& id, std::size_t most);

  // Where a folder or file with this id is said to lie.
  [[nodiscard]] std::string PathOf(const std::string& id) const;

 private:
  std::string IdOf(char kind, const std::string& path);
  [[nodiscard]] bool IsInside(const std::string& realPath) const;
  [[nodiscard]] OpenedFile Open(const std::string& id) const;

  mutable std::mutex mutex_;
  std::vector<std::string> roots_;  // real paths
  std::vector<std::string> hiddenRoots_;
  std::map<std::string, std::string> pathsById_;
  std::map<std::string, std::string> idsByPath_;  // keys begin with the kind's letter
};

}  // namespace project_lumen::studio
