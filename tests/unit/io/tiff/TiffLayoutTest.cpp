#include "io/tiff/TiffLayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/ExpectMessage.h"
#include "support/TiffBuilder.h"

namespace project_lumen::io {
namespace {

using test::ExpectMessage;
using test::TiffBuilder;
using test::TiffForm;

constexpr int kDescription = 270;
constexpr int kAscii = 2;

TiffLayout Read(const std::string& bytes) {
  std::istringstream file(bytes);
  return ReadTiffLayout(file, "a.tif");
}

void ExpectRefused(const std::string& bytes, const std::string& message) {
  ExpectMessage<std::invalid_argument>([&bytes] { Read(bytes); }, message);
}

class TiffLayoutTest : public testing::TestWithParam<TiffForm> {
 protected:
  static TiffBuilder Builder() { return TiffBuilder(GetParam()); }
  // The description of a file whose only entry is this one, with `behind` after the directory.
  static std::optional<std::string> DescriptionOf(int type, std::uint64_t count,
                                                  std::uint64_t field,
                                                  const std::string& behind = "") {
    return Read(Builder().AddField(kDescription, type, count, field).Build() + behind).description;
  }
  // Where data lies that follows a directory with one entry.
  static std::uint64_t BehindOneEntry() {
    const TiffBuilder builder = Builder();
    return builder.HeaderSize() + builder.CountSize() + builder.EntrySize() + builder.OffsetSize();
  }
};

INSTANTIATE_TEST_SUITE_P(Forms, TiffLayoutTest, testing::ValuesIn(test::kTiffForms),
                         [](const auto& instance) { return NameOf(instance.param); });

TEST_P(TiffLayoutTest, DescribesTheFirstDirectory) {
  TiffBuilder builder = Builder();
  builder.Add(256, TiffBuilder::kLong, {7000})
      .Add(258, TiffBuilder::kShort, {16, 16, 16})
      .SetNextDirectory(1234);
  const std::string bytes = builder.Build();
  const TiffLayout layout = Read(bytes);
  EXPECT_EQ(layout.directory.variant.isBigEndian, GetParam().isBigEndian);
  EXPECT_EQ(layout.directory.variant.isBigTiff, GetParam().isBigTiff);
  EXPECT_EQ(layout.directory.fileSize, bytes.size());
  EXPECT_EQ(layout.directory.offset, builder.HeaderSize());
  ASSERT_EQ(layout.directory.entries.size(), 2U);
  EXPECT_EQ(layout.directory.entries[0].tag, 256);
  EXPECT_EQ(layout.directory.entries[0].type, 4);
  EXPECT_EQ(layout.directory.entries[0].count, 1U);
  EXPECT_EQ(layout.directory.entries[1].tag, 258);
  EXPECT_EQ(layout.directory.entries[1].count, 3U);
  EXPECT_EQ(layout.nextDirectoryOffset, 1234U);
  EXPECT_FALSE(layout.description);
}

TEST_P(TiffLayoutTest, ReadsADescriptionStoredBehindTheDirectory) {
  EXPECT_EQ(Read(Builder().AddText(kDescription, "a description").Build()).description,
            "a description");
}

TEST_P(TiffLayoutTest, ReadsADescriptionStoredInTheValueField) {
  EXPECT_EQ(Read(Builder().AddText(kDescription, "abc").Build()).description, "abc");
  const std::string longest(Builder().OffsetSize() - 1, 'x');
  EXPECT_EQ(Read(Builder().AddText(kDescription, longest).Build()).description, longest);
}

TEST_P(TiffLayoutTest, OnlyTrailingNulsOfADescriptionAreRemoved) {
  EXPECT_EQ(
      Read(Builder().AddText(kDescription, std::string("a\0bcdefgh\0\0", 11)).Build()).description,
      std::string("a\0bcdefgh", 9));
}

TEST_P(TiffLayoutTest, ADescriptionWithoutATerminatingNulIsReadWhole) {
  EXPECT_EQ(DescriptionOf(kAscii, 9, BehindOneEntry(), "SIMPLE END"), "SIMPLE EN");
}

TEST_P(TiffLayoutTest, ADescriptionMayEndWithTheFile) {
  EXPECT_EQ(DescriptionOf(kAscii, 10, BehindOneEntry(), "0123456789"), "0123456789");
}

TEST_P(TiffLayoutTest, TheFirstOfSeveralDescriptionsCounts) {
  EXPECT_EQ(Read(Builder()
                     .AddText(kDescription, "the first one")
                     .AddText(kDescription, "the second one")
                     .Build())
                .description,
            "the first one");
}

TEST_P(TiffLayoutTest, DescriptionsOfAnotherTypeOrLengthAreSkipped) {
  EXPECT_FALSE(DescriptionOf(1, 10, BehindOneEntry(), "0123456789"));
  EXPECT_FALSE(DescriptionOf(kAscii, 0, BehindOneEntry(), "0123456789"));
  EXPECT_FALSE(DescriptionOf(kAscii, 16'777'217, BehindOneEntry(), "0123456789"));
}

TEST_P(TiffLayoutTest, ADescriptionThatEndsBehindTheFileIsRefused) {
  const std::string message = "Invalid TIFF ImageDescription offset in a.tif";
  for (const auto& [count, field] : {std::pair<std::uint64_t, std::uint64_t>(11, BehindOneEntry()),
                                     {10, BehindOneEntry() + 1},
                                     {16'777'216, BehindOneEntry()},
                                     {10, 0xFFFFFFFF}}) {
    ExpectRefused(Builder().AddField(kDescription, kAscii, count, field).Build() + "0123456789",
                  message);
  }
}

TEST_P(TiffLayoutTest, AFileCutAnywhereIsReadOrRefusedWithAMessage) {
  const std::string bytes = Builder()
                                .Add(256, TiffBuilder::kLong, {1})
                                .AddText(kDescription, "SIMPLE  =                    T\nEND")
                                .Build();
  const std::set<std::string> messages = {"Invalid TIFF header in a.tif",
                                          "Invalid or truncated TIFF metadata in a.tif",
                                          "Invalid TIFF ImageDescription offset in a.tif"};
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    try {
      Read(bytes.substr(0, length));
      // Only the padding behind the text can be missing unnoticed.
      EXPECT_EQ(length, bytes.size() - 1);
    } catch (const std::invalid_argument& error) {
      EXPECT_TRUE(messages.contains(error.what())) << error.what();
    }
  }
}

TEST_P(TiffLayoutTest, AnyWrongByteIsReadOrRefusedWithAMessage) {
  const std::string bytes = Builder()
                                .Add(256, TiffBuilder::kLong, {1})
                                .AddText(kDescription, "SIMPLE  =                    T\nEND")
                                .Build();
  for (std::size_t position = 0; position < bytes.size(); ++position) {
    for (const char value : {'\0', '\x01', '\x7F', '\x80', '\xFF'}) {
      std::string damaged = bytes;
      damaged[position] = value;
      try {
        const TiffLayout layout = Read(damaged);
        EXPECT_LE(layout.directory.entries.size() * Builder().EntrySize(), bytes.size());
      } catch (const std::invalid_argument& error) {
        EXPECT_TRUE(std::string(error.what()).ends_with(" in a.tif")) << error.what();
      }
    }
  }
}

TEST_P(TiffLayoutTest, ADirectoryOutsideTheFileIsRefused) {
  std::string bytes = Builder().Add(256, TiffBuilder::kLong, {1}).Build();
  const std::size_t field = GetParam().isBigTiff ? 8 : 4;
  for (const std::uint64_t offset :
       {static_cast<std::uint64_t>(bytes.size()), std::uint64_t{0xFFFFFFFF}, ~std::uint64_t{0}}) {
    const std::string number = Builder().Number(offset, Builder().OffsetSize());
    bytes.replace(field, number.size(), number);
    ExpectRefused(bytes, "Invalid or truncated TIFF metadata in a.tif");
  }
}

TEST_P(TiffLayoutTest, ADirectoryThatIsItsOwnSuccessorIsReadOnce) {
  TiffBuilder builder = Builder();
  builder.Add(256, TiffBuilder::kLong, {1}).SetNextDirectory(builder.HeaderSize());
  const TiffLayout layout = Read(builder.Build());
  EXPECT_EQ(layout.directory.entries.size(), 1U);
  EXPECT_EQ(layout.nextDirectoryOffset, builder.HeaderSize());
}

TEST_P(TiffLayoutTest, MoreEntriesThanTheFileHoldsAreRefused) {
  ExpectRefused(Builder().Add(256, TiffBuilder::kLong, {1}).ClaimEntries(65'535).Build(),
                "Invalid or truncated TIFF metadata in a.tif");
}

TEST(TiffLayout, AFileShorterThanEightBytesHasNoHeader) {
  for (const char* bytes : {"", "I", "II*", "II*12345"}) {
    const std::string text = std::string(bytes).substr(0, 7);
    ExpectRefused(text, "Invalid TIFF header in a.tif");
  }
}

TEST(TiffLayout, AnotherByteOrderIsRefused) {
  for (const char* bytes : {"IM*\0\x08\0\0\0", "MI\0*\0\0\0\x08", "ii*\0\x08\0\0\0"}) {
    ExpectRefused(std::string(bytes, 8), "Invalid TIFF byte order in a.tif");
  }
}

TEST(TiffLayout, AnotherVersionIsRefused) {
  ExpectRefused(std::string("II\x2C\0\x08\0\0\0", 8), "Unsupported TIFF version in a.tif");
  ExpectRefused(std::string("MM\x2A\0\0\0\0\x08", 8), "Unsupported TIFF version in a.tif");
}

TEST(TiffLayout, AnotherBigTiffOffsetLayoutIsRefused) {
  const std::string zeros(16, '\0');
  ExpectRefused(std::string("II\x2B\0\x04\0\0\0", 8) + zeros,
                "Unsupported BigTIFF offset layout in a.tif");
  ExpectRefused(std::string("MM\0\x2B\0\x08\0\x01", 8) + zeros,
                "Unsupported BigTIFF offset layout in a.tif");
}

TEST(TiffLayout, ABigTiffHeaderCutShortIsTruncated) {
  ExpectRefused(std::string("II\x2B\0\x08\0\0\0\x10\0\0", 11),
                "Invalid or truncated TIFF metadata in a.tif");
}

TEST(TiffLayout, ABigTiffDirectoryOf65536EntriesIsRefused) {
  for (const bool isBigEndian : {false, true}) {
    TiffBuilder builder({isBigEndian, true});
    builder.Add(256, TiffBuilder::kLong, {1}).ClaimEntries(65'536);
    ExpectRefused(builder.Build() + std::string(std::size_t{65'536} * 20, '\0'),
                  "Unreasonably large TIFF directory in a.tif");
  }
}

TEST(TiffLayout, ADirectoryOf65535EntriesIsRead) {
  for (const TiffForm form : test::kTiffForms) {
    TiffBuilder builder(form);
    builder.ClaimEntries(65'535);
    const std::string bytes =
        builder.Build() + std::string(std::size_t{65'535} * builder.EntrySize(), '\0');
    EXPECT_EQ(Read(bytes).directory.entries.size(), 65'535U);
  }
}

// A file with one directory behind another, each with these entries.
std::string Chain(const std::vector<std::vector<std::pair<int, std::uint64_t>>>& directories,
                  TiffForm form, std::uint64_t last = 0) {
  std::vector<TiffBuilder> builders;
  std::size_t offset = TiffBuilder(form).HeaderSize();
  std::vector<std::size_t> ends;
  for (const auto& entries : directories) {
    TiffBuilder builder(form);
    for (const auto& [tag, value] : entries) {
      builder.Add(tag, TiffBuilder::kLong, {value});
    }
    offset += builder.CountSize() + entries.size() * builder.EntrySize() + builder.OffsetSize();
    ends.push_back(offset);
    builders.push_back(builder);
  }
  std::string bytes;
  for (std::size_t i = 0; i < builders.size(); ++i) {
    builders[i].SetNextDirectory(i + 1 < builders.size() ? ends[i] : last);
    const std::string whole = builders[i].Build();
    bytes += i == 0 ? whole : whole.substr(builders[i].HeaderSize());
  }
  return bytes;
}

std::uint64_t PagesOf(const std::string& bytes) {
  std::istringstream file(bytes);
  return CountTiffPages(file);
}

TEST(CountTiffPages, CountsTheDirectoriesOfTheChain) {
  for (const TiffForm form : test::kTiffForms) {
    EXPECT_EQ(PagesOf(Chain({{{256, 5}}}, form)), 1U);
    EXPECT_EQ(PagesOf(Chain({{{256, 5}}, {{256, 5}}, {{256, 5}}}, form)), 3U);
  }
}

TEST(CountTiffPages, LeavesOutSmallerVersionsAndMasks) {
  for (const TiffForm form : test::kTiffForms) {
    EXPECT_EQ(PagesOf(Chain({{{254, 0}}, {{254, 1}}, {{254, 4}}, {{254, 2}}}, form)), 2U);
  }
}

TEST(CountTiffPages, AChainThatReturnsToItselfOrBreaksOffEndsThere) {
  for (const TiffForm form : test::kTiffForms) {
    const std::size_t header = TiffBuilder(form).HeaderSize();
    EXPECT_EQ(PagesOf(Chain({{{256, 5}}}, form, header)), 1U);
    EXPECT_EQ(PagesOf(Chain({{{256, 5}}, {{256, 5}}}, form, header)), 2U);
    EXPECT_EQ(PagesOf(Chain({{{256, 5}}, {{256, 5}}}, form, 1'000'000)), 2U);
  }
}

TEST(CountTiffPages, WhatIsNoTiffIsOnePage) {
  EXPECT_EQ(PagesOf("text"), 1U);
}

}  // namespace
}  // namespace project_lumen::io
