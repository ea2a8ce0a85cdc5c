#include "backend/ModelLookup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "common/Platform.h"

namespace project_lumen::backend {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

// The look-up starts from this test program's own folder, so every test takes names of its own and
// removes what it has laid down there; the shared "lib" folders stay, as other tests may run
// meanwhile.
class ModelLookup : public testing::Test {
 protected:
  ModelLookup()
      : fileName(std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) +
                 ".onnx"),
        modelId("model-" + fileName) {}

  ~ModelLookup() override {
    std::error_code ignored;
    for (const fs::path& path : created) {
      fs::remove_all(path, ignored);
    }
  }

  static fs::path Bin() { return fs::path(*ExecutablePath()).parent_path(); }
  [[nodiscard]] fs::path InBin() const { return Bin() / fileName; }
  [[nodiscard]] fs::path InPortableLib() const { return Bin() / "lib" / modelId / fileName; }
  [[nodiscard]] fs::path InInstallLib() const {
    return Bin().parent_path() / "lib" / modelId / fileName;
  }

  void WriteModel(const fs::path& path) {
    fs::create_directories(path.parent_path());
    created.push_back(path.parent_path() == Bin() ? path : path.parent_path());
    std::ofstream(path) << "model";
  }

  void MakeFolder(const fs::path& path) {
    fs::create_directories(path);
    created.push_back(path);
  }

  std::string fileName;
  std::string modelId;
  std::vector<fs::path> created;
};

TEST(InstallRoot, IsTheParentOfTheExecutableFolder) {
  EXPECT_EQ(InstallRoot("/opt/nebulex/bin"), "/opt/nebulex");
}

TEST(InstallRoot, SkipsTrailingAndRepeatedSeparators) {
  EXPECT_EQ(InstallRoot("/opt/nebulex///bin//"), "/opt/nebulex");
}

TEST(InstallRoot, KeepsTheRoot) {
  EXPECT_EQ(InstallRoot("/bin"), "/");
  EXPECT_EQ(InstallRoot("/"), "/");
}

TEST(InstallRoot, OfASingleRelativeNameIsEmpty) {
  EXPECT_EQ(InstallRoot("bin"), "");
}

TEST(ModelCandidates, AreTheThreeFixedPlacesInOrder) {
  EXPECT_THAT(BuildModelCandidatesFrom("/opt/nebulex/bin", "nebulex2", "w.onnx"),
              ElementsAre("/opt/nebulex/bin/w.onnx", "/opt/nebulex/bin/lib/nebulex2/w.onnx",
                          "/opt/nebulex/lib/nebulex2/w.onnx"));
}

TEST(ModelCandidates, KeepBlanksAndNonAsciiLetters) {
  EXPECT_THAT(BuildModelCandidatesFrom("/opt/M 31 \xC3\xA9/bin", "nebulex2", "\xF0\x9F\x90\xBE"),
              ElementsAre("/opt/M 31 \xC3\xA9/bin/\xF0\x9F\x90\xBE",
                          "/opt/M 31 \xC3\xA9/bin/lib/nebulex2/\xF0\x9F\x90\xBE",
                          "/opt/M 31 \xC3\xA9/lib/nebulex2/\xF0\x9F\x90\xBE"));
}

TEST(ModelCandidates, KeepBytesThatAreNotUtf8) {
  EXPECT_EQ(BuildModelCandidatesFrom("/opt/\xFF/bin", "m", "w").front(), "/opt/\xFF/bin/w");
}

TEST_F(ModelLookup, CandidatesStartFromTheRunningExecutable) {
  EXPECT_THAT(BuildModelCandidates(modelId, fileName),
              ElementsAre(InBin().string(), InPortableLib().string(), InInstallLib().string()));
}

TEST_F(ModelLookup, FindsTheModelBesideTheExecutableFirst) {
  WriteModel(InBin());
  WriteModel(InPortableLib());
  WriteModel(InInstallLib());
  EXPECT_EQ(ResolveModelPath(modelId, fileName), InBin());
}

TEST_F(ModelLookup, FindsTheModelOfThePortableLayoutBeforeTheInstalledOne) {
  WriteModel(InPortableLib());
  WriteModel(InInstallLib());
  EXPECT_EQ(ResolveModelPath(modelId, fileName), InPortableLib());
}

TEST_F(ModelLookup, FindsTheModelOfTheInstallLayout) {
  WriteModel(InInstallLib());
  EXPECT_EQ(ResolveModelPath(modelId, fileName), InInstallLib());
}

TEST_F(ModelLookup, ChoosesADirectoryAtTheFirstPlace) {
  MakeFolder(InBin());
  WriteModel(InInstallLib());
  const std::string resolved = ResolveModelPath(modelId, fileName);
  EXPECT_EQ(resolved, InBin());
  EXPECT_EQ(DescribePathKind(resolved),
            "directory (CoreML .mlpackage/.mlmodelc models are directory bundles)");
}

TEST_F(ModelLookup, ALoopOfLinksCountsAsAbsent) {
  fs::create_symlink(InBin(), InBin());
  created.push_back(InBin());
  WriteModel(InInstallLib());
  EXPECT_EQ(ResolveModelPath(modelId, fileName), InInstallLib());
}

TEST_F(ModelLookup, WithoutAnyModelNamesTheExecutableFolder) {
  const std::string resolved = ResolveModelPath(modelId, fileName);
  EXPECT_EQ(resolved, InBin());
  EXPECT_EQ(DescribePathKind(resolved), "missing");
}

TEST_F(ModelLookup, DefaultWeightsBelongToTheModelNebulex2) {
  const fs::path installed = Bin().parent_path() / "lib" / "nebulex2" / fileName;
  fs::create_directories(installed.parent_path());
  std::ofstream(installed) << "model";
  created.push_back(installed);
  EXPECT_EQ(ResolveDefaultWeights(fileName), installed);
}

// A folder of its own for each test of path kinds.
class PathKind : public testing::Test {
 protected:
  PathKind()
      : folder(fs::path(testing::TempDir()) /
               (std::string("path kind ") +
                testing::UnitTest::GetInstance()->current_test_info()->name())) {
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  ~PathKind() override { fs::remove_all(folder); }
  [[nodiscard]] std::string At(const std::string& name) const { return folder / name; }

  fs::path folder;
};

TEST_F(PathKind, RegularFile) {
  std::ofstream(At("model.onnx")) << "model";
  EXPECT_EQ(DescribePathKind(At("model.onnx")), "regular file");
}

TEST_F(PathKind, LinkToARegularFileIsARegularFile) {
  std::ofstream(At("model.onnx")) << "model";
  fs::create_symlink(At("model.onnx"), At("link.onnx"));
  EXPECT_EQ(DescribePathKind(At("link.onnx")), "regular file");
}

TEST_F(PathKind, DanglingLinkIsMissing) {
  fs::create_symlink(At("nowhere"), At("link.onnx"));
  EXPECT_EQ(DescribePathKind(At("link.onnx")), "missing");
}

TEST_F(PathKind, AFifoIsOther) {
  ASSERT_EQ(mkfifo(At("fifo").c_str(), 0600), 0);
  EXPECT_EQ(DescribePathKind(At("fifo")), "other");
}

TEST_F(PathKind, BelowAMissingFolderIsMissing) {
  EXPECT_EQ(DescribePathKind(At("no folder/model.onnx")), "missing");
}

TEST_F(PathKind, BelowARegularFileIsMissing) {
  std::ofstream(At("file")) << "x";
  EXPECT_EQ(DescribePathKind(At("file/model.onnx")), "missing");
}

TEST_F(PathKind, ANameTooLongForTheFileSystemIsMissing) {
  EXPECT_EQ(DescribePathKind(At(std::string(300, 'x'))), "missing");
}

TEST_F(PathKind, AnEmptyPathIsMissing) {
  EXPECT_EQ(DescribePathKind(""), "missing");
}

TEST_F(PathKind, ALoopOfLinksIsUnavailableWithTheSystemMessage) {
  fs::create_symlink(At("b"), At("a"));
  fs::create_symlink(At("a"), At("b"));
  EXPECT_EQ(DescribePathKind(At("a")), "unavailable (Too many levels of symbolic links)");
}

TEST(ModelContext, WithoutCandidatesHasNoCandidateSection) {
  EXPECT_EQ(DescribeModelContext("ONNX Runtime", "ONNX model", "backend caller", "/no/such", {}),
            "Model context: backend=ONNX Runtime; expected=ONNX model; source=backend caller; "
            "resolved path='/no/such'; path kind=missing");
}

TEST(ModelContext, ListsCandidatesInOrder) {
  EXPECT_EQ(DescribeModelContext("b", "e", "s", "/no/such", {"/no/such", "/x y", "z"}),
            "Model context: backend=b; expected=e; source=s; resolved path='/no/such'; path "
            "kind=missing; lookup candidates (in order): '/no/such' '/x y' 'z'");
}

TEST_F(ModelLookup, DescriptionOfAnAutomaticLookupListsTheThreePlaces) {
  EXPECT_EQ(DescribeModelLookup(modelId, fileName, InBin(), false, "ONNX Runtime"),
            "Executable='" + *ExecutablePath() + "'; working directory='" +
                fs::current_path().string() + "'; Model context: backend=ONNX Runtime; expected=" +
                fileName + "; source=automatic lookup; resolved path='" + InBin().string() +
                "'; path kind=missing; lookup candidates (in order): '" + InBin().string() + "' '" +
                InPortableLib().string() + "' '" + InInstallLib().string() + "'");
}

TEST_F(ModelLookup, DescriptionOfAnExplicitPathListsOnlyThatPath) {
  const std::string expectedEnd =
      "; expected=" + fileName +
      "; source=explicit --weights override; resolved path='/no/such.onnx'; path kind=missing; "
      "lookup candidates (in order): '/no/such.onnx'";
  EXPECT_THAT(DescribeModelLookup(modelId, fileName, "/no/such.onnx", true, "ONNX Runtime"),
              testing::EndsWith(expectedEnd));
}

TEST_F(ModelLookup, DescriptionSaysWhenTheWorkingDirectoryIsGone) {
  const fs::path before = fs::current_path();
  const fs::path folder = fs::path(testing::TempDir()) / modelId;
  fs::create_directories(folder);
  fs::current_path(folder);
  fs::remove(folder);
  const std::string text = DescribeModelLookup(modelId, fileName, "/x", true, "b");
  fs::current_path(before);
  EXPECT_THAT(text, testing::HasSubstr("; working directory='unavailable'; Model context: "));
}

TEST(LibraryModelCandidates, LieBesideTheLibraryInAFolderThereAndInAFolderAboveIt) {
  EXPECT_THAT(BuildLibraryModelCandidates("/usr/lib/x86_64-linux-gnu", "nebulex2", "w.onnx"),
              testing::ElementsAre("/usr/lib/x86_64-linux-gnu/w.onnx",
                                   "/usr/lib/x86_64-linux-gnu/nebulex2/w.onnx",
                                   "/usr/lib/nebulex2/w.onnx"));
}

TEST(FirstThatExists, IsTheFirstCandidateWhereNoneDoes) {
  EXPECT_EQ(FirstThatExists({"/no/such/file", "/no/other"}), "/no/such/file");
  EXPECT_EQ(FirstThatExists({"/no/such/file", "/", "/tmp"}), "/");
}

}  // namespace
}  // namespace project_lumen::backend
