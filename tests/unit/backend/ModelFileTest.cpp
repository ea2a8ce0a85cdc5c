#include "backend/ModelFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace project_lumen::backend {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::ThrowsMessage;

class ModelFile : public testing::Test {
 protected:
  ModelFile()
      : folder(fs::path(testing::TempDir()) /
               (std::string("model file ") +
                testing::UnitTest::GetInstance()->current_test_info()->name())) {
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  ~ModelFile() override { fs::remove_all(folder); }
  [[nodiscard]] std::string At(const std::string& name) const { return folder / name; }

  static void ExpectUnableToOpen(const std::string& path) {
    EXPECT_THAT([&] { ReadModelFile(path); },
                ThrowsMessage<std::runtime_error>("Unable to open ONNX model file: " + path));
  }

  fs::path folder;
};

// A stream that cannot say its size, or that ends before the size it gave.
class OddStream : public std::streambuf {
 public:
  explicit OddStream(std::streamoff size) : size_(size) {}

 private:
  pos_type seekoff(off_type offset, std::ios_base::seekdir from,
                   std::ios_base::openmode /*which*/) override {
    if (from != std::ios::cur) {
      position_ = from == std::ios::end ? size_ : offset;
    }
    return {position_};
  }
  pos_type seekpos(pos_type position, std::ios_base::openmode /*which*/) override {
    position_ = position;
    return position;
  }

  std::streamoff size_;
  std::streamoff position_ = 0;
};

TEST_F(ModelFile, IsReadWhole) {
  std::ofstream(At("m.onnx"), std::ios::binary) << "a\r\n" << '\0' << '\xFF';
  EXPECT_THAT(ReadModelFile(At("m.onnx")), ElementsAre('a', '\r', '\n', 0, 0xFF));
}

TEST_F(ModelFile, MayBeNamedWithBlanksAndNonAsciiLetters) {
  const std::string path = At("m 31 \xF0\x9F\x90\xBE.onnx");
  std::ofstream(path) << "x";
  EXPECT_THAT(ReadModelFile(path), ElementsAre('x'));
}

TEST_F(ModelFile, MayBeEmpty) {
  std::ofstream(At("m.onnx")).flush();
  EXPECT_TRUE(ReadModelFile(At("m.onnx")).empty());
}

TEST_F(ModelFile, MayBeALink) {
  std::ofstream(At("m.onnx")) << "x";
  fs::create_symlink(At("m.onnx"), At("link"));
  EXPECT_THAT(ReadModelFile(At("link")), ElementsAre('x'));
}

TEST_F(ModelFile, ThatIsMissingCannotBeOpened) {
  ExpectUnableToOpen(At("none.onnx"));
}

TEST_F(ModelFile, ThatIsADirectoryCannotBeOpened) {
  ExpectUnableToOpen(folder);
}

TEST_F(ModelFile, ThatIsADeviceCannotBeOpened) {
  ExpectUnableToOpen("/dev/zero");
}

TEST_F(ModelFile, ThatIsAFifoCannotBeOpenedAndDoesNotWait) {
  ASSERT_EQ(mkfifo(At("fifo").c_str(), 0600), 0);
  ExpectUnableToOpen(At("fifo"));
}

TEST_F(ModelFile, BeyondTheLimitOfTheFormatIsRefusedBeforeItIsRead) {
  std::ofstream(At("m.onnx")).flush();
  fs::resize_file(At("m.onnx"), std::uintmax_t{1} << 40U);
  EXPECT_THAT([&] { ReadModelFile(At("m.onnx")); },
              ThrowsMessage<std::runtime_error>(
                  "ONNX model exceeds the format's limit of 2147483647 bytes."));
}

TEST(ModelSize, EndsAtTheLargestSigned32BitNumber) {
  EXPECT_NO_THROW(CheckModelSize(2147483647));
  EXPECT_THAT([] { CheckModelSize(2147483648); },
              ThrowsMessage<std::runtime_error>(
                  "ONNX model exceeds the format's limit of 2147483647 bytes."));
}

TEST(ModelStream, WithoutASizeIsRefused) {
  OddStream buffer(-1);
  std::istream stream(&buffer);
  EXPECT_THAT(
      [&] { ReadModelStream(stream, "m.onnx"); },
      ThrowsMessage<std::runtime_error>("Unable to determine ONNX model file size: m.onnx"));
}

TEST(ModelStream, ThatEndsEarlyIsRefused) {
  OddStream buffer(100);
  std::istream stream(&buffer);
  EXPECT_THAT([&] { ReadModelStream(stream, "m.onnx"); },
              ThrowsMessage<std::runtime_error>("Unable to read ONNX model file: m.onnx"));
}

}  // namespace
}  // namespace project_lumen::backend
