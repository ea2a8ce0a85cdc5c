#include "studio/http/FileHandlers.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "studio/files/PathText.h"
#include "studio/http/Answers.h"

namespace project_lumen::studio {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kMostEntries = 5000;

std::string FormatTime(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}

const char* NameOfKind(FolderEntry::Kind kind) {
  switch (kind) {
    case FolderEntry::Kind::kFolder:
      return "folder";
    case FolderEntry::Kind::kImage:
      return "image";
    default:
      return "file";
  }
}

Json DescribeEntry(const FolderEntry& entry) {
  Json document{{"kind", NameOfKind(entry.kind)}, {"id", entry.id}, {"name", entry.name}};
  if (entry.kind != FolderEntry::Kind::kFolder) {
    document["size"] = entry.size;
    document["modified"] = FormatTime(entry.modified);
  }
  return document;
}

// A file that is being uploaded. Without Keep, the destructor removes it with its folder.
class Upload {
 public:
  Upload(const std::string& folder, const std::string& name) : folder_(folder + "/XXXXXX") {
    if (mkdtemp(folder_.data()) == nullptr) {
      throw NoRoom("The upload cannot be kept (" + std::generic_category().message(errno) + ").");
    }
    path_ = folder_ + "/" + name;
    file_ = io::FileDescriptor(
        open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  }
  ~Upload() {
    if (!isKept_) {
      std::error_code ignored;
      std::filesystem::remove_all(folder_, ignored);
    }
  }
  Upload(const Upload&) = delete;
  Upload& operator=(const Upload&) = delete;

  // False, with Error() saying why, where the bytes cannot be kept.
  bool Append(const char* bytes, std::size_t count) {
    size_ += static_cast<std::int64_t>(count);
    if (size_ > kMostUploadBytes) {
      error_ = EFBIG;
      return false;
    }
    while (count > 0) {
      const ssize_t written = write(file_.Get(), bytes, count);
      if (written < 0 && errno != EINTR) {
        error_ = errno;
        return false;
      }
      if (written > 0) {
        bytes += written;
        count -= static_cast<std::size_t>(written);
      }
    }
    return true;
  }

  const std::string& Keep() {
    isKept_ = true;
    return path_;
  }
  [[nodiscard]] std::int64_t Size() const { return size_; }
  [[nodiscard]] int Error() const { return error_; }

 private:
  std::string folder_;
  std::string path_;
  io::FileDescriptor file_;
  std::int64_t size_ = 0;
  int error_ = 0;
  bool isKept_ = false;
};

}  // namespace

Json DescribeRoots(Studio& studio) {
  Json folders = Json::array();
  for (const std::string& id : studio.workspace.Roots()) {
    const std::string path = studio.workspace.PathOf(id);
    folders.push_back(
        {{"id", id}, {"name", path == "/" ? path : NameIn(path)}, {"shown_path", path}});
  }
  return folders;
}

void ListRoots(Studio& studio, const httplib::Request& /*request*/, httplib::Response& response) {
  AnswerJson(response, {{"folders", DescribeRoots(studio)}});
}

void ListFolder(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const FolderListing listing = studio.workspace.List(request.matches[1].str(), kMostEntries);
  Json entries = Json::array();
  for (const FolderEntry& entry : listing.entries) {
    entries.push_back(DescribeEntry(entry));
  }
  AnswerJson(response, {{"id", listing.id},
                        {"name", listing.path == "/" ? listing.path : NameIn(listing.path)},
                        {"shown_path", listing.path},
                        {"parent", listing.parent ? Json(*listing.parent) : Json(nullptr)},
                        {"writable", listing.isWritable},
                        {"truncated", listing.isTruncated},
                        {"entries", entries}});
}

void TakeUpload(Studio& studio, const httplib::Request& request, httplib::Response& response,
                const httplib::ContentReader& body) {
  const std::string name = request.get_param_value("name");
  if (!IsPlainName(name)) {
    throw BadRequest("The uploaded file needs a plain name.");
  }
  if (request.is_multipart_form_data()) {
    throw BadRequest("A form is no upload: the body has to be the file itself.");
  }
  Upload upload(studio.uploads, name);
  const bool isWhole =
      body([&](const char* bytes, std::size_t count) { return upload.Append(bytes, count); });
  if (upload.Error() == EFBIG) {
    throw TooLarge(name + " is larger than what can be uploaded.");
  }
  if (upload.Error() != 0) {
    throw NoRoom("The upload cannot be kept (" + std::generic_category().message(upload.Error()) +
                 ").");
  }
  if (!isWhole) {
    throw BadRequest("The upload of " + name + " was cut off.");
  }
  AnswerJson(
      response,
      {{"file", studio.workspace.FileId(upload.Keep())}, {"name", name}, {"size", upload.Size()}},
      201);
}

}  // namespace project_lumen::studio
