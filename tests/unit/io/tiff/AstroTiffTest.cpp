#include "io/tiff/AstroTiff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "io/tiff/TiffLayout.h"
#include "support/ExpectMessage.h"
#include "support/FileSizeLimit.h"
#include "support/TemporaryFolder.h"
#include "support/TiffBuilder.h"

namespace project_lumen::io {
namespace {

namespace fs = std::filesystem;
using test::BuildTiffImage;
using test::ExpectMessage;
using test::FileSizeLimit;
using test::ReadFileBytes;
using test::TemporaryFolder;
using test::TiffBuilder;
using test::TiffForm;
using test::WriteFileBytes;

constexpr int kDescription = 270;
constexpr const char* kNotAHeader = "AstroTIFF metadata must start with SIMPLE and end with END.";
constexpr std::uint64_t kFourGibibytes = std::uint64_t{1} << 32;

// A card of 80 characters.
std::string Card(std::string text) {
  text.resize(80, ' ');
  return text;
}

std::string Header() {
  return Card("SIMPLE  =                    T") + "\n" + Card("BITPIX  =                  -32") +
         "\n" + Card("OBJECT  = 'M 31    '") + "\n" + Card("END");
}

// A 2 x 1 image with 8 bits a sample.
TiffBuilder TinyImage(TiffForm form = {false, false}) {
  return BuildTiffImage({.width = 2, .height = 1}, {"\x10\x20"}, form);
}

std::string DescriptionOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return ReadTiffLayout(file, path).description.value_or("(none)");
}

TEST(IsAstroTiffHeader, AcceptsTextFromSimpleToEnd) {
  EXPECT_TRUE(IsAstroTiffHeader(Header()));
  EXPECT_TRUE(IsAstroTiffHeader("SIMPLE\nEND"));
}

TEST(IsAstroTiffHeader, IgnoresBlanksNulsAndLineEndsAfterEnd) {
  EXPECT_TRUE(IsAstroTiffHeader("SIMPLE\nEND" + std::string(77, ' ')));
  EXPECT_TRUE(IsAstroTiffHeader("SIMPLE\nEND\n\n"));
  EXPECT_TRUE(IsAstroTiffHeader("SIMPLE\r\nEND\r\n"));
  EXPECT_TRUE(IsAstroTiffHeader(std::string("SIMPLE\nEND\0\0", 12)));
}

TEST(IsAstroTiffHeader, RefusesOtherTexts) {
  EXPECT_FALSE(IsAstroTiffHeader(""));
  EXPECT_FALSE(IsAstroTiffHeader("SIMPL"));
  EXPECT_FALSE(IsAstroTiffHeader("SIMPLE"));
  EXPECT_FALSE(IsAstroTiffHeader("simple\nend"));
  EXPECT_FALSE(IsAstroTiffHeader(" SIMPLE\nEND"));
  EXPECT_FALSE(IsAstroTiffHeader("SIMPLE\nEND\nHISTORY"));
  EXPECT_FALSE(IsAstroTiffHeader("SIMPLE\n END"));
  EXPECT_FALSE(IsAstroTiffHeader("SIMPLE\nEND\n \n"));
  EXPECT_FALSE(IsAstroTiffHeader("SIMPLE END"));
}

TEST(BuildAstroTiffOutputHeader, ReplacesTheBitpixCardAndKeepsTheOthers) {
  const std::string simple = Card("SIMPLE  =                    T") + "\n";
  const std::string rest = "\n" + Card("OBJECT  = 'M 31    '") + "\n" + Card("END");
  EXPECT_EQ(BuildAstroTiffOutputHeader(Header(), 16),
            simple + "BITPIX  =                   16" + rest);
  EXPECT_EQ(BuildAstroTiffOutputHeader(Header(), 8),
            simple + "BITPIX  =                   8" + rest);
}

TEST(BuildAstroTiffOutputHeader, TheBitpixCardIs30CharactersLongFor16And29For8) {
  const auto cardOf = [](int bitpix) {
    const std::string text = BuildAstroTiffOutputHeader("SIMPLE\nBITPIX  = 1\nEND", bitpix);
    return text.substr(7, text.size() - 7 - 4);
  };
  EXPECT_EQ(cardOf(16), "BITPIX  =" + std::string(19, ' ') + "16");
  EXPECT_EQ(cardOf(16).size(), 30U);
  EXPECT_EQ(cardOf(8), "BITPIX  =" + std::string(19, ' ') + "8");
  EXPECT_EQ(cardOf(8).size(), 29U);
}

TEST(BuildAstroTiffOutputHeader, AHeaderWithoutBitpixGetsItAfterSimple) {
  EXPECT_EQ(BuildAstroTiffOutputHeader("SIMPLE\nNAXIS\nEND", 16),
            "SIMPLE\nBITPIX  =                   16\nNAXIS\nEND");
}

TEST(BuildAstroTiffOutputHeader, EveryBitpixCardIsReplacedAndNoOtherKeyword) {
  EXPECT_EQ(BuildAstroTiffOutputHeader("SIMPLE\nBITPIX  = 1\nBITPIXEL= 1\nBITPIX  = 2\nEND", 16),
            "SIMPLE\nBITPIX  =                   16\nBITPIXEL= 1\n"
            "BITPIX  =                   16\nEND");
}

TEST(BuildAstroTiffOutputHeader, LineEndsBecomeLineFeedsAndTheLastOneIsDropped) {
  EXPECT_EQ(BuildAstroTiffOutputHeader("SIMPLE\r\nBITPIX  = 8\r\n\r\nEND\r\n", 16),
            "SIMPLE\nBITPIX  =                   16\n\nEND");
}

TEST(BuildAstroTiffOutputHeader, OnlyOneEmptyLastLineIsDropped) {
  EXPECT_EQ(BuildAstroTiffOutputHeader("SIMPLE\nEND\n\n", 16),
            "SIMPLE\nBITPIX  =                   16\nEND\n");
}

TEST(BuildAstroTiffOutputHeader, RefusesWhatIsNoHeader) {
  ExpectMessage<std::invalid_argument>([] { BuildAstroTiffOutputHeader("a photograph", 16); },
                                       kNotAHeader);
}

TEST(BuildAstroTiffOutputHeader, RefusesOtherDepths) {
  for (const int bitpix : {0, -32, 12, 32}) {
    ExpectMessage<std::invalid_argument>([bitpix] { BuildAstroTiffOutputHeader(Header(), bitpix); },
                                         "AstroTIFF output BITPIX must be 8 or 16.");
  }
}

TEST(ReadAstroTiffHeader, IsTheDescriptionWhenThatIsAHeader) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.tif");
  WriteFileBytes(path, BuildTiffImage({.width = 2, .height = 1}, {"ab"}, {}, Header()).Build());
  EXPECT_EQ(ReadAstroTiffHeader(path), Header());
}

TEST(ReadAstroTiffHeader, IsEmptyForOtherDescriptionsAndForNone) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.tif");
  WriteFileBytes(path, BuildTiffImage({.width = 2, .height = 1}, {"ab"}, {}, "A photo").Build());
  EXPECT_EQ(ReadAstroTiffHeader(path), "");
  WriteFileBytes(path, TinyImage().Build());
  EXPECT_EQ(ReadAstroTiffHeader(path), "");
}

TEST(ReadAstroTiffHeader, NamesTheFileThatCannotBeOpened) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("missing.tif");
  ExpectMessage<std::invalid_argument>([&path] { ReadAstroTiffHeader(path); },
                                       "Unable to open TIFF metadata: " + path);
}

TEST(ReadAstroTiffHeader, NamesTheFileThatIsNoTiff) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.tif");
  WriteFileBytes(path, "\x89PNG\r\n\x1A\n");
  ExpectMessage<std::invalid_argument>([&path] { ReadAstroTiffHeader(path); },
                                       "Invalid TIFF byte order in " + path);
}

TEST(ReadAstroTiffHeader, AFolderIsTruncatedMetadata) {
  const TemporaryFolder folder;
  const std::string path = folder.Folder();
  ExpectMessage<std::invalid_argument>([&path] { ReadAstroTiffHeader(path); },
                                       "Invalid or truncated TIFF metadata in " + path);
}

class AppendAstroTiffMetadataTest : public testing::TestWithParam<TiffForm> {
 protected:
  [[nodiscard]] std::string Path() const { return folder_.Path("a b[1].tif"); }
  static TiffBuilder Builder() { return TiffBuilder(GetParam()); }
  void Write(const std::string& bytes) const { WriteFileBytes(Path(), bytes); }
  [[nodiscard]] TiffLayout Layout() const {
    std::istringstream file(ReadFileBytes(Path()));
    return ReadTiffLayout(file, Path());
  }
  static std::vector<int> TagsOf(const TiffLayout& layout) {
    std::vector<int> tags;
    for (const TiffEntry& entry : layout.directory.entries) {
      tags.push_back(entry.tag);
    }
    return tags;
  }

 private:
  TemporaryFolder folder_;
};

INSTANTIATE_TEST_SUITE_P(Forms, AppendAstroTiffMetadataTest, testing::ValuesIn(test::kTiffForms),
                         [](const auto& instance) { return NameOf(instance.param); });

TEST_P(AppendAstroTiffMetadataTest, TheHeaderReadsBackIdentical) {
  Write(TinyImage(GetParam()).Build());
  AppendAstroTiffMetadata(Path(), Header());
  EXPECT_EQ(ReadAstroTiffHeader(Path()), Header());
}

TEST_P(AppendAstroTiffMetadataTest, OnlyTheFirstDirectorysOffsetChangesInWhatWasThere) {
  const std::string before = TinyImage(GetParam()).Build();
  Write(before);
  AppendAstroTiffMetadata(Path(), Header());
  const std::string after = ReadFileBytes(Path());
  const std::size_t field = GetParam().isBigTiff ? 8 : 4;
  const std::size_t size = Builder().OffsetSize();
  EXPECT_EQ(after.substr(0, field), before.substr(0, field));
  EXPECT_EQ(after.substr(field + size, before.size() - field - size), before.substr(field + size));
}

TEST_P(AppendAstroTiffMetadataTest, TextAndDirectoryLieWhereTheirAlignmentPutsThem) {
  const std::size_t alignment = GetParam().isBigTiff ? 8 : 2;
  const std::string before = TinyImage(GetParam()).Build() + std::string(1, 'x');
  Write(before);
  AppendAstroTiffMetadata(Path(), Header());
  const std::string after = ReadFileBytes(Path());
  const std::size_t text = (before.size() + alignment - 1) / alignment * alignment;
  EXPECT_EQ(after.substr(before.size(), text - before.size()),
            std::string(text - before.size(), '\0'));
  EXPECT_EQ(after.substr(text, Header().size() + 1), Header() + '\0');
  const std::size_t directory =
      (text + Header().size() + 1 + alignment - 1) / alignment * alignment;
  EXPECT_EQ(Layout().directory.offset, directory);
}

TEST_P(AppendAstroTiffMetadataTest, TheEntrySaysAsciiAndTheLengthWithItsNulInTheFilesByteOrder) {
  Write(TinyImage(GetParam()).Build());
  AppendAstroTiffMetadata(Path(), Header());
  const std::string expected = Builder().Number(270, 2) + Builder().Number(2, 2) +
                               Builder().Number(Header().size() + 1, Builder().OffsetSize());
  const std::string directory = ReadFileBytes(Path()).substr(Layout().directory.offset);
  EXPECT_NE(directory.find(expected), std::string::npos);
}

TEST_P(AppendAstroTiffMetadataTest, TheOtherEntriesStayAndTagsAscend) {
  Write(TinyImage(GetParam()).Build());
  AppendAstroTiffMetadata(Path(), Header());
  EXPECT_EQ(TagsOf(Layout()),
            (std::vector{256, 257, 258, 259, 262, 270, 273, 274, 277, 278, 279, 284, 339}));
}

TEST_P(AppendAstroTiffMetadataTest, AnUnsortedDirectoryIsSorted) {
  Write(Builder().Add(300, TiffBuilder::kShort, {1}).Add(256, TiffBuilder::kShort, {1}).Build());
  AppendAstroTiffMetadata(Path(), Header());
  EXPECT_EQ(TagsOf(Layout()), (std::vector{256, 270, 300}));
}

TEST_P(AppendAstroTiffMetadataTest, OldDescriptionsAreReplaced) {
  Write(Builder()
            .AddText(kDescription, "the first old one")
            .AddText(kDescription, "the second old one")
            .Build());
  AppendAstroTiffMetadata(Path(), Header());
  EXPECT_EQ(TagsOf(Layout()), std::vector{kDescription});
  EXPECT_EQ(Layout().description, Header());
}

TEST_P(AppendAstroTiffMetadataTest, AppendingTwiceLeavesTheSecondHeaderOnly) {
  const std::string second = "SIMPLE\nSECOND\nEND";
  Write(TinyImage(GetParam()).Build());
  AppendAstroTiffMetadata(Path(), Header());
  AppendAstroTiffMetadata(Path(), second);
  const std::vector<int> tags = TagsOf(Layout());
  EXPECT_EQ(std::count(tags.begin(), tags.end(), kDescription), 1);
  EXPECT_EQ(ReadAstroTiffHeader(Path()), second);
}

TEST_P(AppendAstroTiffMetadataTest, TheRestOfTheDirectoryChainStaysLinked) {
  TiffBuilder builder = TinyImage(GetParam());
  builder.SetNextDirectory(4242);
  Write(builder.Build());
  AppendAstroTiffMetadata(Path(), Header());
  EXPECT_EQ(Layout().nextDirectoryOffset, 4242U);
}

TEST_P(AppendAstroTiffMetadataTest, AFileCutAnywhereIsRefusedWithTheShownNameOrStaysReadable) {
  const std::string whole = TinyImage(GetParam()).Build();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    Write(whole.substr(0, length));
    try {
      AppendAstroTiffMetadata(Path(), Header(), "shown.tif");
      EXPECT_EQ(ReadAstroTiffHeader(Path()), Header());
    } catch (const std::invalid_argument& error) {
      EXPECT_TRUE(std::string(error.what()).ends_with(" in shown.tif")) << error.what();
      EXPECT_EQ(ReadFileBytes(Path()), whole.substr(0, length));
    }
  }
}

TEST(AppendAstroTiffMetadata, TagBytesRead270InTheFilesByteOrder) {
  for (const bool isBigEndian : {false, true}) {
    std::stringstream file(TinyImage({isBigEndian, false}).Build());
    AppendAstroTiffMetadata(file, Header(), "a.tif");
    const std::string bytes = file.str();
    const std::string directory = bytes.substr(bytes.size() - (2 + 13 * 12 + 4));
    EXPECT_EQ(directory.substr(2 + 5 * 12, 2), isBigEndian ? "\x01\x0E" : "\x0E\x01");
  }
}

TEST(AppendAstroTiffMetadata, RefusesWhatIsNoHeader) {
  ExpectMessage<std::invalid_argument>(
      [] { AppendAstroTiffMetadata("missing.tif", "a photograph"); }, kNotAHeader);
}

TEST(AppendAstroTiffMetadata, TextAndNulMayHave16MebibytesAndNoMore) {
  std::string text = "SIMPLE\n" + std::string(16'777'215 - 11, 'x') + "\nEND";
  ASSERT_EQ(text.size(), 16'777'215U);
  std::stringstream file(TinyImage().Build());
  AppendAstroTiffMetadata(file, text, "a.tif");
  EXPECT_EQ(ReadTiffLayout(file, "a.tif").description, text);
  text.insert(10, "x");
  ExpectMessage<std::invalid_argument>([&] { AppendAstroTiffMetadata(file, text, "a.tif"); },
                                       "AstroTIFF metadata exceeds the supported 16 MiB limit.");
}

TEST(AppendAstroTiffMetadata, NamesTheFileThatCannotBeOpened) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("missing.tif");
  ExpectMessage<std::invalid_argument>([&path] { AppendAstroTiffMetadata(path, Header()); },
                                       "Unable to open TIFF output metadata: " + path);
  EXPECT_FALSE(fs::exists(path));
}

TEST(AppendAstroTiffMetadata, ADirectoryOf65535EntriesHasNoRoomInAClassicFile) {
  TiffBuilder builder;
  builder.ClaimEntries(65'535);
  const std::string bytes = builder.Build() + std::string(std::size_t{65'535} * 12, '\0');
  std::stringstream file(bytes);
  ExpectMessage<std::invalid_argument>(
      [&file] { AppendAstroTiffMetadata(file, Header(), "a.tif"); },
      "Classic TIFF directory has no room for AstroTIFF metadata: a.tif");
  EXPECT_EQ(file.str(), bytes);
}

// A classic file of this size, most of it a hole.
class LargeClassicFile {
 public:
  explicit LargeClassicFile(std::uint64_t size) : path_(folder_.Path("large.tif")) {
    WriteFileBytes(path_, TinyImage().Build());
    fs::resize_file(path_, size);
  }
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  TemporaryFolder folder_;
  std::string path_;
};

void ExpectTooLarge(std::uint64_t size, const std::string& message) {
  const LargeClassicFile file(size);
  ExpectMessage<std::invalid_argument>([&file] { AppendAstroTiffMetadata(file.Path(), Header()); },
                                       message + file.Path());
  EXPECT_EQ(fs::file_size(file.Path()), size);
  EXPECT_EQ(DescriptionOf(file.Path()), "(none)");
}

TEST(AppendAstroTiffMetadata, AClassicFileWithoutRoomForTheTextIsRefusedUntouched) {
  ExpectTooLarge(kFourGibibytes - 1,
                 "Classic TIFF output is too large to append AstroTIFF metadata: ");
  ExpectTooLarge(kFourGibibytes - 64,
                 "Classic TIFF output is too large to append AstroTIFF metadata: ");
}

// The header needs 80 * 4 + 3 + 1 = 324 bytes, the directory of 13 entries 2 + 13 * 12 + 4 = 162.
TEST(AppendAstroTiffMetadata, AClassicFileWithoutRoomForTheDirectoryIsRefusedUntouched) {
  ExpectTooLarge(kFourGibibytes - 324 - 2,
                 "Classic TIFF output is too large to append an AstroTIFF directory: ");
  ExpectTooLarge(kFourGibibytes - 324 - 162,
                 "Classic TIFF output is too large to append an AstroTIFF directory: ");
}

TEST(AppendAstroTiffMetadata, AClassicFileMayBecomeAlmostFourGibibytesLarge) {
  const LargeClassicFile file(kFourGibibytes - 324 - 162 - 2);
  AppendAstroTiffMetadata(file.Path(), Header());
  EXPECT_EQ(fs::file_size(file.Path()), kFourGibibytes - 2);
  EXPECT_EQ(ReadAstroTiffHeader(file.Path()), Header());
}

// Refuses its n-th write.
class FailingBuffer : public std::stringbuf {
 public:
  FailingBuffer(const std::string& bytes, int failingWrite)
      : std::stringbuf(bytes, std::ios::in | std::ios::out | std::ios::binary),
        failingWrite_(failingWrite) {}

 protected:
  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    return ++writes_ == failingWrite_ ? 0 : std::stringbuf::xsputn(bytes, count);
  }

 private:
  int failingWrite_;
  int writes_ = 0;
};

TEST(AppendAstroTiffMetadata, AFailedAppendNamesTheFileAndLeavesTheOldDirectoryActive) {
  const std::string bytes = TinyImage().Build();
  FailingBuffer buffer(bytes, 1);
  std::iostream file(&buffer);
  ExpectMessage<std::invalid_argument>(
      [&file] { AppendAstroTiffMetadata(file, Header(), "a.tif"); },
      "Unable to append AstroTIFF metadata to a.tif");
  EXPECT_EQ(buffer.str(), bytes);
}

TEST(AppendAstroTiffMetadata, AFailedActivationNamesTheFileAndLeavesTheOldDirectoryActive) {
  const std::string bytes = TinyImage().Build();
  FailingBuffer buffer(bytes, 2);
  std::iostream file(&buffer);
  ExpectMessage<std::invalid_argument>(
      [&file] { AppendAstroTiffMetadata(file, Header(), "a.tif"); },
      "Unable to activate AstroTIFF metadata in a.tif");
  EXPECT_EQ(buffer.str().substr(0, bytes.size()), bytes);
}

TEST(AppendAstroTiffMetadata, AFullDiskIsNoticedAndLeavesTheOldDirectoryActive) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("a.tif");
  const std::string bytes = TinyImage().Build();
  WriteFileBytes(path, bytes);
  {
    const FileSizeLimit limit(bytes.size() + 100);
    ExpectMessage<std::invalid_argument>([&path] { AppendAstroTiffMetadata(path, Header()); },
                                         "Unable to append AstroTIFF metadata to " + path);
  }
  EXPECT_EQ(ReadFileBytes(path).substr(0, bytes.size()), bytes);
}

}  // namespace
}  // namespace project_lumen::io
