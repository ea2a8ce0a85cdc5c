#include "io/files/InputPath.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include "support/ExpectMessage.h"
#include "support/TemporaryFolder.h"

namespace project_lumen::io {
namespace {

namespace fs = std::filesystem;
using test::ExpectMessage;
using test::TemporaryFolder;
using test::WriteFileBytes;

void ExpectRefused(const std::string& path, const std::string& message) {
  ExpectMessage<std::invalid_argument>([&path] { CheckInputPath(path); }, message);
}

TEST(CheckInputPath, ARegularFilePasses) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("-m31[1] \xC3\xA9.tif"), "");
  EXPECT_NO_THROW(CheckInputPath(folder.Path("-m31[1] \xC3\xA9.tif")));
}

TEST(CheckInputPath, ALinkToARegularFilePasses) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("a.tif"), "x");
  fs::create_symlink("a.tif", folder.Path("link.tif"));
  EXPECT_NO_THROW(CheckInputPath(folder.Path("link.tif")));
}

TEST(CheckInputPath, AMissingFileDoesNotExist) {
  const TemporaryFolder folder;
  const std::string missing = folder.Path("missing.tif");
  ExpectRefused(missing, "Input image does not exist: " + missing);
  ExpectRefused("", "Input image does not exist: ");
}

TEST(CheckInputPath, ADanglingLinkDoesNotExist) {
  const TemporaryFolder folder;
  fs::create_symlink("nowhere", folder.Path("link.tif"));
  ExpectRefused(folder.Path("link.tif"), "Input image does not exist: " + folder.Path("link.tif"));
}

TEST(CheckInputPath, AFileUsedAsAFolderDoesNotExist) {
  const TemporaryFolder folder;
  WriteFileBytes(folder.Path("file"), "x");
  ExpectRefused(folder.Path("file/a.tif"),
                "Input image does not exist: " + folder.Path("file/a.tif"));
}

TEST(CheckInputPath, ALoopOfLinksCannotBeChecked) {
  const TemporaryFolder folder;
  const std::string loop = folder.Path("loop.tif");
  fs::create_symlink("loop.tif", loop);
  ExpectRefused(
      loop, "Unable to check input image path: " + loop + " (Too many levels of symbolic links)");
}

TEST(CheckInputPath, ANameTooLongCannotBeChecked) {
  const TemporaryFolder folder;
  const std::string path = folder.Path(std::string(300, 'n'));
  ExpectRefused(path, "Unable to check input image path: " + path + " (File name too long)");
}

TEST(CheckInputPath, AFolderIsNotARegularFile) {
  const TemporaryFolder folder;
  ExpectRefused(folder.Folder(), "Input path is not a regular file: " + folder.Folder().string());
}

TEST(CheckInputPath, APipeOrADeviceIsNotARegularFile) {
  const TemporaryFolder folder;
  ASSERT_EQ(mkfifo(folder.Path("pipe.tif").c_str(), 0600), 0);
  ExpectRefused(folder.Path("pipe.tif"),
                "Input path is not a regular file: " + folder.Path("pipe.tif"));
  ExpectRefused("/dev/null", "Input path is not a regular file: /dev/null");
}

// Answers the first question with `type` and lets the second fail.
FileStatusQuery FailingAtTheSecondQuery(fs::file_type type) {
  return [type, asked = 0](const std::string&, std::error_code& error) mutable {
    if (asked++ == 0) {
      return fs::file_status(type);
    }
    error = std::make_error_code(std::errc::io_error);
    return fs::file_status(fs::file_type::none);
  };
}

TEST(CheckInputPath, AFileThatVanishesBetweenTheQueriesCannotBeInspected) {
  ExpectMessage<std::invalid_argument>(
      [] { CheckInputPath("a.tif", FailingAtTheSecondQuery(fs::file_type::regular)); },
      "Unable to inspect input image path: a.tif (Input/output error)");
}

TEST(CheckInputPath, TheKindOfFileIsJudgedBeforeTheSecondQuerysError) {
  ExpectMessage<std::invalid_argument>(
      [] { CheckInputPath("a.tif", FailingAtTheSecondQuery(fs::file_type::directory)); },
      "Input path is not a regular file: a.tif");
}

}  // namespace
}  // namespace project_lumen::io
