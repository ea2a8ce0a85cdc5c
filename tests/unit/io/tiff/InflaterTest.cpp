#include "io/tiff/Inflater.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/PngBuilder.h"

namespace project_lumen::io {
namespace {

using test::StoredZlib;

const std::string kContent = "some samples";

struct Inflated {
  bool isSound;
  std::string content;
};

Inflated Inflate(Inflater& inflater, const std::string& stream, std::size_t size) {
  const std::vector<std::uint8_t> input(stream.begin(), stream.end());
  std::vector<std::uint8_t> output(size);
  const bool isSound = inflater.Inflate(input, output);
  return {isSound, {output.begin(), output.end()}};
}

bool IsSound(const std::string& stream, std::size_t size = kContent.size()) {
  Inflater inflater;
  return Inflate(inflater, stream, size).isSound;
}

TEST(Inflater, GivesTheContentOfOneStreamAfterAnother) {
  Inflater inflater;
  for (const std::string& content : {kContent, std::string("x"), std::string(200'000, 'y')}) {
    const Inflated inflated = Inflate(inflater, StoredZlib(content), content.size());
    EXPECT_TRUE(inflated.isSound);
    EXPECT_EQ(inflated.content, content);
  }
}

TEST(Inflater, ADamagedStreamDoesNotSpoilTheNext) {
  Inflater inflater;
  EXPECT_FALSE(Inflate(inflater, "\x78\x01\x07 no block", 5).isSound);
  EXPECT_EQ(Inflate(inflater, StoredZlib(kContent), kContent.size()).content, kContent);
}

TEST(Inflater, AWrongByteAnywhereBehindTheHeaderIsNoticed) {
  const std::string sound = StoredZlib(kContent);
  for (std::size_t position = 2; position < sound.size(); ++position) {
    std::string damaged = sound;
    damaged[position] ^= '\x04';
    EXPECT_FALSE(IsSound(damaged)) << position;
  }
}

TEST(Inflater, CodesThatDoNotExistAreNoticed) {
  EXPECT_FALSE(IsSound("\x78\x01\x07" + kContent));
  EXPECT_FALSE(IsSound(kContent));
}

TEST(Inflater, TooFewBytesAreNotEnough) {
  const std::string sound = StoredZlib(kContent);
  EXPECT_FALSE(IsSound(sound, kContent.size() + 1));
  EXPECT_FALSE(IsSound(sound.substr(0, sound.size() - 5)));
  EXPECT_FALSE(IsSound(""));
}

TEST(Inflater, AStreamMayLackItsChecksumOrGoOn) {
  const std::string sound = StoredZlib(kContent);
  EXPECT_TRUE(IsSound(sound.substr(0, sound.size() - 4)));
  EXPECT_TRUE(IsSound(sound, kContent.size() - 5));
  EXPECT_TRUE(IsSound(sound + "padding"));
}

}  // namespace
}  // namespace project_lumen::io
