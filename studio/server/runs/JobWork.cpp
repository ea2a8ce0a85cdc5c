#include "studio/runs/JobWork.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "io/ImageWriter.h"
#include "studio/FailureWords.h"
#include "studio/files/PathText.h"
#include "studio/images/ReadOpenedImage.h"
#include "studio/results/ResultPlace.h"
#include "studio/runs/ProgramRun.h"

namespace project_lumen::studio {
namespace {

// A folder of the session that goes with all it holds.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(std::string path) : path_(std::move(path)) {}
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// What becomes of the results of a run.
struct PlannedResult {
  std::string role;
  std::string name;
  bool isKept = false;
  std::string written;  // path that the program writes to
};

// The starless image and the unscreen layer are always made, since the page shows and blends them.
std::vector<PlannedResult> PlanResults(const Job& job, const std::string& kept,
                                       const std::string& unkept) {
  std::vector<PlannedResult> results;
  for (const std::string role : {"starless", "mask", "unscreen"}) {
    const bool isKept = job.plan.Keeps(role);
    if (isKept || role != "mask") {
      const std::string name =
          ResultName(job.plan.pattern, NameIn(job.path), role, job.plan.suffix);
      // In folders of their own, since a pattern may give all of them one name.
      const std::string folder = (isKept ? kept : unkept) + "/" + role;
      std::filesystem::create_directory(folder);
      results.push_back({role, name, isKept, folder + "/" + name});
    }
  }
  return results;
}

std::string PathOfRole(const std::vector<PlannedResult>& results, const std::string& role) {
  for (const PlannedResult& result : results) {
    if (result.role == role) {
      return result.written;
    }
  }
  return {};
}

// The suffix of the file that a part of the image is handed to the program in: of the same kind as
// the source's.
std::string PartSuffix(const std::string& path) {
  const std::string suffix = ImageSuffix(NameIn(path));
  if (suffix.empty()) {
    return ".png";
  }
  return suffix.ends_with(".gz") ? ".fits" : suffix;
}

void WritePart(const LoadedImage& image, const cv::Mat& samples, const std::string& path) {
  io::SourceImageInfo source = image.description.source;
  source.astroTiffHeader.clear();
  const io::OutputFile file{path, io::OutputRole::kMain, source};
  WithImageFiles([&] {
    io::ImageWriter writer(file, samples.size());
    writer.Append(io::PrepareOutputImage(file, samples));
    writer.Finish();
  });
}

std::shared_ptr<const PixelPyramid> BuildPyramid(const cv::Mat& samples,
                                                 const SessionFolder& session) {
  PyramidBuilder builder(session);
  builder.Begin(samples.size(), samples.type());
  builder.Take(samples);
  return builder.Finish();
}

}  // namespace

void JobWork::Do(JobQueue& queue, const Job& job) {
  if (job.kind == Job::Kind::kPreview) {
    Preview(queue, job);
  } else {
    Run(queue, job);
  }
}

void JobWork::Run(JobQueue& queue, const Job& job) {
  const OpenedFile source = workspace_.OpenFile(job.file);
  const OpenedFile folder = workspace_.OpenFolder(job.plan.folder);
  const HiddenFolder hidden(folder);
  const std::string unkept = session_.MakeFolder("results");
  const std::vector<PlannedResult> results = PlanResults(job, hidden.Path(), unkept);

  ShownPaths shown;
  for (const PlannedResult& result : results) {
    shown.emplace_back(FolderOf(result.written) + "/", result.isKept ? folder.path + "/" : "");
  }
  RunProgram(queue, job, program_,
             {source.path, PathOfRole(results, "starless"), PathOfRole(results, "mask"),
              PathOfRole(results, "unscreen")},
             shown);
  queue.Change(job.id, [](Job& running) { running.state = Job::State::kWriting; });

  std::vector<ResultFile> files;
  for (const PlannedResult& result : results) {
    ResultFile file;
    file.role = result.role;
    file.isKept = result.isKept;
    file.path = result.isKept ? hidden.Place(result.role + "/" + result.name, result.name,
                                             job.plan.replaces, true)
                              : result.written;
    file.identity = IdentityAt(file.path);
    file.id = workspace_.FileId(file.path);
    if (result.isKept && NameIn(file.path) != result.name) {
      queue.Change(job.id, [&](Job& running) {
        running.notes.push_back(result.name + " had come into being meanwhile, so the result is " +
                                NameIn(file.path) + ".");
      });
    }
    files.push_back(file);
    queue.Change(job.id, [&](Job& running) { running.files = files; });
  }
  if (IdentityAt(source.path) != source.identity) {
    queue.Change(job.id, [&](Job& running) {
      running.notes.push_back(
          NameIn(source.path) +
          " was changed during the run. The result may belong to either state.");
    });
  } else {
    ShowResult(queue, job, source.identity, files);
  }
}

// Gives the result to the image, where it is open and the same.
void JobWork::ShowResult(JobQueue& queue, const Job& job, const FileIdentity& source,
                         const std::vector<ResultFile>& files) {
  const std::string id = images_.IdOfFile(job.file);
  if (id.empty()) {
    return;
  }
  const ImageState image = images_.Find(id);
  const auto starless = std::find_if(
      files.begin(), files.end(), [](const ResultFile& file) { return file.role == "starless"; });
  if (!image.loaded || image.identity != source || starless == files.end()) {
    return;
  }
  try {
    ImageResult result;
    result.job = job.id;
    result.options = job.options;
    result.files = files;
    result.starless = LoadPixels(OpenOwnFile(starless->path), *image.loaded->pixels, session_);
    images_.Change(id, [&](ImageState& current) {
      if (current.identity != source || current.loaded != image.loaded) {
        return false;
      }
      current.result = result;
      ++current.revision;
      return true;
    });
  } catch (const std::exception& error) {
    // The run itself went well and its files are there.
    queue.Change(job.id, [&](Job& running) {
      running.notes.push_back("The result cannot be shown: " + WordsFor(error));
    });
  }
}

void JobWork::Preview(JobQueue& queue, const Job& job) {
  const auto tell = [&](ImagePreview::State state, const std::string& error,
                        const LayerPictures& pictures) {
    images_.Change(job.image, [&](ImageState& image) {
      if (!image.preview || image.preview->job != job.id) {
        return false;
      }
      image.preview->state = state;
      image.preview->error = error;
      image.preview->pictures = pictures;
      ++image.revision;
      return true;
    });
  };
  tell(ImagePreview::State::kRunning, "", {});
  try {
    const LayerPictures pictures = MakePreview(queue, job);
    tell(ImagePreview::State::kReady, "", pictures);
  } catch (const std::exception& error) {
    tell(ImagePreview::State::kFailed, WordsFor(error), {});
    throw;
  }
}

LayerPictures JobWork::MakePreview(JobQueue& queue, const Job& job) {
  const ImageState image = images_.FindReady(job.image);
  const TemporaryFolder folder(session_.MakeFolder("preview"));
  const PixelPyramid& pixels = *image.loaded->pixels;
  const cv::Mat samples = pixels.Read(pixels.MaxLevel(), *job.area);
  const std::string suffix = PartSuffix(image.path);
  const ProgramFiles files{folder.Path() + "/part" + suffix, folder.Path() + "/starless" + suffix,
                           "", ""};
  WritePart(*image.loaded, samples, files.input);
  RunProgram(queue, job, program_, files, {{folder.Path() + "/", ""}});
  LayerPictures pictures;
  pictures.source = BuildPyramid(samples, session_);
  pictures.starless = LoadPixels(OpenOwnFile(files.starless), *pictures.source, session_);
  return pictures;
}

}  // namespace project_lumen::studio
