#include "common/StandardErrorDiversion.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>

#include "support/StandardErrorFile.h"

namespace project_lumen {
namespace {

class StandardErrorDiversionTest : public testing::Test {
 protected:
  static void WriteToDescriptor(const std::string& text) {
    ASSERT_EQ(write(STDERR_FILENO, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  [[nodiscard]] std::string Arrived() const { return file_.Text(); }
  static void Print(const char* text) { EXPECT_GE(std::fputs(text, stderr), 0); }
  static bool IsStandardErrorOpen() { return fcntl(STDERR_FILENO, F_GETFD) >= 0; }
  static int LowestFreeDescriptor() {
    const int descriptor = dup(STDOUT_FILENO);
    close(descriptor);
    return descriptor;
  }

 private:
  test::StandardErrorFile file_;
};

// Lets the process open no descriptor from `limit` on.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(int limit) {
    getrlimit(RLIMIT_NOFILE, &original_);
    rlimit lowered = original_;
    lowered.rlim_cur = static_cast<rlim_t>(limit);
    setrlimit(RLIMIT_NOFILE, &lowered);
  }
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &original_); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit original_{};
};

TEST_F(StandardErrorDiversionTest, OnlyWhatIsWrittenOutsideItArrives) {
  WriteToDescriptor("before ");
  {
    const StandardErrorDiversion diversion;
    WriteToDescriptor("inside ");
  }
  WriteToDescriptor("after");
  EXPECT_EQ(Arrived(), "before after");
}

TEST_F(StandardErrorDiversionTest, BufferedTextGoesWhereItWasMeantToGo) {
  std::array<char, 256> buffer{};
  ASSERT_EQ(std::setvbuf(stderr, buffer.data(), _IOFBF, buffer.size()), 0);
  Print("before ");
  {
    const StandardErrorDiversion diversion;
    Print("inside ");
    std::cerr << "inside ";
    std::clog << "inside ";
  }
  Print("after");
  ASSERT_EQ(std::fflush(stderr), 0);
  ASSERT_EQ(std::setvbuf(stderr, nullptr, _IONBF, 0), 0);
  EXPECT_EQ(Arrived(), "before after");
}

TEST_F(StandardErrorDiversionTest, AnExceptionEndsIt) {
  try {
    const StandardErrorDiversion diversion;
    WriteToDescriptor("inside");
    throw std::runtime_error("stop");
  } catch (const std::runtime_error&) {
    WriteToDescriptor("caught");
  }
  EXPECT_EQ(Arrived(), "caught");
}

TEST_F(StandardErrorDiversionTest, DiversionsNest) {
  {
    const StandardErrorDiversion outer;
    {
      const StandardErrorDiversion inner;
      WriteToDescriptor("inner");
    }
    WriteToDescriptor("outer");
  }
  WriteToDescriptor("end");
  EXPECT_EQ(Arrived(), "end");
}

TEST_F(StandardErrorDiversionTest, AClosedDescriptorIsClosedAgainAfterwards) {
  close(STDERR_FILENO);
  bool wasOpenInside = false;
  {
    const StandardErrorDiversion diversion;
    wasOpenInside = IsStandardErrorOpen();
  }
  const bool isOpenAfterwards = IsStandardErrorOpen();
  EXPECT_TRUE(wasOpenInside);
  EXPECT_FALSE(isOpenAfterwards);
}

TEST_F(StandardErrorDiversionTest, WithoutAFreeDescriptorNothingIsDiverted) {
  {
    const DescriptorLimit limit(STDERR_FILENO + 1);
    const StandardErrorDiversion diversion;
    WriteToDescriptor("inside ");
  }
  WriteToDescriptor("after");
  EXPECT_EQ(Arrived(), "inside after");
}

TEST_F(StandardErrorDiversionTest, WithOneFreeDescriptorNothingIsDivertedAndItIsFreedAgain) {
  const int free = LowestFreeDescriptor();
  {
    const DescriptorLimit limit(free + 1);
    const StandardErrorDiversion diversion;
    WriteToDescriptor("inside");
  }
  EXPECT_EQ(Arrived(), "inside");
  EXPECT_EQ(LowestFreeDescriptor(), free);
}

TEST_F(StandardErrorDiversionTest, NoDescriptorIsLost) {
  const int free = LowestFreeDescriptor();
  { const StandardErrorDiversion diversion; }
  EXPECT_EQ(LowestFreeDescriptor(), free);
}

TEST_F(StandardErrorDiversionTest, ItsOwnDescriptorIsNotInherited) {
  const int free = LowestFreeDescriptor();
  const StandardErrorDiversion diversion;
  EXPECT_EQ(fcntl(free, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(StandardErrorDiversionTest, DescriptorFlagsAreRestored) {
  fcntl(STDERR_FILENO, F_SETFD, FD_CLOEXEC);
  { const StandardErrorDiversion diversion; }
  EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFD), FD_CLOEXEC);
}

}  // namespace
}  // namespace project_lumen
