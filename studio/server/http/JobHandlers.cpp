#include "studio/http/JobHandlers.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "studio/files/PathText.h"
#include "studio/http/Answers.h"
#include "studio/http/JsonText.h"
#include "studio/images/ReadOpenedImage.h"
#include "studio/results/ResultPlace.h"
#include "studio/results/SaveBlend.h"

namespace project_lumen::studio {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kMostFiles = 2000;
constexpr const char* kDefaultPattern = "{name}_{role}";

ApiError Exists(const std::vector<std::string>& names) {
  const std::string others =
      names.size() > 1 ? " and " + std::to_string(names.size() - 1) + " more" : "";
  return {409,
          "exists",
          names.front() + others + (names.size() > 1 ? " exist" : " exists") + " already.",
          {{"names", names}}};
}

Json OptionsOf(const Json& body) {
  return body.value("options", Json::object());
}

std::vector<std::string> ArgumentsOf(Studio& studio, const Json& info, const Json& options) {
  return OptionArguments(info, options,
                         [&](const std::string& id) { return studio.workspace.OpenFile(id).path; });
}

// The suffix of results for what a request calls their format.
std::string SuffixOf(const std::string& format, const std::string& path) {
  if (format == "source") {
    const std::string suffix = ImageSuffix(NameIn(path));
    return suffix.empty() ? ".tif" : suffix;
  }
  if (format != "tif" && format != "png" && format != "fits") {
    throw BadRequest("\"format\" has to be source, tif, png or fits.");
  }
  return "." + format;
}

std::vector<std::string> KeptRoles(const Json& body) {
  std::vector<std::string> kept = StringsMember(body, "keep");
  if (kept.empty()) {
    kept = {"starless"};
  }
  for (const std::string& role : kept) {
    if (role != "starless" && role != "mask" && role != "unscreen") {
      throw BadRequest("\"keep\" knows starless, mask and unscreen.");
    }
  }
  if (std::find(kept.begin(), kept.end(), "starless") == kept.end()) {
    throw BadRequest("The starless image is always kept.");
  }
  return kept;
}

// The files that a request names, as files or as open images.
std::vector<std::string> FilesOf(Studio& studio, const Json& body) {
  std::vector<std::string> files = StringsMember(body, "files");
  for (const std::string& image : StringsMember(body, "images")) {
    files.push_back(studio.images.Find(image).file);
  }
  if (files.empty() || files.size() > kMostFiles) {
    throw BadRequest("\"files\" has to name 1 to " + std::to_string(kMostFiles) + " files.");
  }
  return files;
}

// The folder for results that a request names, or else that of the source, which for an uploaded
// one is the first root.
std::string FolderFor(Studio& studio, const Json& body, const std::string& sourcePath) {
  std::string folder = StringMember(body, "folder", "");
  if (!folder.empty()) {
    return folder;
  }
  return IsWithin(sourcePath, studio.uploads) ? studio.workspace.Roots().at(0)
                                              : studio.workspace.FolderId(FolderOf(sourcePath));
}

Job PlanRun(Studio& studio, const Json& body, const std::string& file,
            std::vector<std::string>& taken) {
  const OpenedFile source = studio.workspace.OpenFile(file);
  Job job;
  job.kind = Job::Kind::kRun;
  job.file = file;
  job.image = studio.images.IdOfFile(file);
  job.path = source.path;
  job.options = OptionsOf(body);
  job.plan.kept = KeptRoles(body);
  job.plan.pattern = StringMember(body, "pattern", kDefaultPattern);
  job.plan.suffix = SuffixOf(StringMember(body, "format", "source"), source.path);
  job.plan.folder = FolderFor(studio, body, source.path);
  job.plan.replaces = BoolMember(body, "replace", false);
  const OpenedFile folder = studio.workspace.OpenFolder(job.plan.folder);
  for (const std::string& role : job.plan.kept) {
    const std::string name =
        ResultName(job.plan.pattern, NameIn(source.path), role, job.plan.suffix);
    if (folder.path + "/" + name == source.path) {
      throw BadRequest("A result of " + name + " may not take the place of the image itself.");
    }
    if (IsTaken(folder, name)) {
      taken.push_back(name);
    }
  }
  if (job.plan.kept.size() > 1 && job.plan.pattern.find("{role}") == std::string::npos) {
    throw BadRequest("The pattern of the names needs {role}, so that results do not share a name.");
  }
  HiddenFolder probe(folder);  // tells now whether results can be written there
  return job;
}

void RequireSize(const Json& info, const Json& options, cv::Size size) {
  const int smallest = SmallestSide(info, options);
  if (std::min(size.width, size.height) < smallest) {
    throw BadRequest("The image has to be at least " + std::to_string(smallest) +
                     " pixels wide and high for these options.");
  }
}

// Stops the preview that an image has and takes it off.
void EndPreview(Studio& studio, const std::string& image) {
  const ImageState state = studio.images.Find(image);
  if (!state.preview) {
    return;
  }
  try {
    studio.jobs.Stop(state.preview->job);
  } catch (const ApiError&) {
    // The job is off the list already.
  }
  studio.images.Change(image, [](ImageState& current) {
    current.preview.reset();
    ++current.revision;
    return true;
  });
}

const ResultFile& FileOfRole(const std::vector<ResultFile>& files, const std::string& role) {
  const auto found = std::find_if(files.begin(), files.end(),
                                  [&](const ResultFile& file) { return file.role == role; });
  if (found == files.end()) {
    throw NotFound("There is no such result.");
  }
  return *found;
}

// A result, as long as it is the one that was written.
OpenedFile OpenResult(const ResultFile& file) {
  if (IdentityAt(file.path) == FileIdentity{}) {
    throw Changed(NameIn(file.path) + " is not there any more. Run the image again.");
  }
  OpenedFile opened = OpenOwnFile(file.path);
  if (opened.identity != file.identity) {
    throw Changed(NameIn(file.path) + " was changed since it was written. Run the image again.");
  }
  return opened;
}

ResultFile WriteBlendFile(Studio& studio, const ImageState& image, const Json& body) {
  const BlendSettings settings{NumberMember(body, "amount", 1.0), NumberMember(body, "curve", 1.0)};
  if (!(settings.amount >= 0.0 && settings.amount <= 1.0) ||
      !(settings.curve >= 0.25 && settings.curve <= 4.0)) {
    throw BadRequest("\"amount\" has to lie within 0 and 1, \"curve\" within 0.25 and 4.");
  }
  const std::string plain = StringMember(body, "name", "");
  if (!IsPlainName(plain)) {
    throw BadRequest("\"" + plain + "\" cannot be the name of a file.");
  }
  const std::string name = plain + SuffixOf(StringMember(body, "format", "source"), image.path);
  const bool replaces = BoolMember(body, "replace", false);
  const OpenedFile folder = studio.workspace.OpenFolder(FolderFor(studio, body, image.path));
  if (folder.path + "/" + name == image.path) {
    throw BadRequest("The blend may not take the place of the image itself.");
  }
  if (!replaces && IsTaken(folder, name)) {
    throw Exists({name});
  }
  const OpenedFile starless = OpenResult(FileOfRole(image.result->files, "starless"));
  const OpenedFile unscreen = OpenResult(FileOfRole(image.result->files, "unscreen"));
  const HiddenFolder hidden(folder);
  try {
    WriteBlend(starless, unscreen, settings, image.loaded->description.source,
               hidden.Path() + "/" + name, studio.session);
  } catch (const std::invalid_argument& error) {
    throw ApiError(507, "no_room", ReplaceAll(error.what(), hidden.Path(), folder.path));
  }
  ResultFile file;
  file.role = "blend";
  file.path = hidden.Place(name, name, replaces, false);
  file.isKept = true;
  file.identity = IdentityAt(file.path);
  file.id = studio.workspace.FileId(file.path);
  return file;
}

}  // namespace

Json DescribeJobs(Studio& studio) {
  return studio.jobs.DescribeAll();
}

void ListJobs(Studio& studio, const httplib::Request& /*request*/, httplib::Response& response) {
  AnswerJson(response, {{"jobs", DescribeJobs(studio)}});
}

void StartRuns(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const Json body = ParseJsonObject(request.body);
  RequireKnownMembers(
      body, {"files", "images", "options", "keep", "pattern", "format", "folder", "replace"});
  const Json info = studio.program.Info();
  const std::vector<std::string> arguments = ArgumentsOf(studio, info, OptionsOf(body));
  std::vector<Job> jobs;
  std::vector<std::string> taken;
  for (const std::string& file : FilesOf(studio, body)) {
    jobs.push_back(PlanRun(studio, body, file, taken));
    jobs.back().optionArguments = arguments;
  }
  if (!taken.empty() && !BoolMember(body, "replace", false)) {
    throw Exists(taken);
  }
  AnswerJson(response, {{"jobs", studio.jobs.Add(std::move(jobs))}}, 201);
}

void StartPreview(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const Json body = ParseJsonObject(request.body);
  RequireKnownMembers(body, {"x", "y", "width", "height", "options"});
  const std::string id = request.matches[1].str();
  const ImageState image = studio.images.FindReady(id);
  const Json info = studio.program.Info();
  const cv::Size size = image.loaded->pixels->Size();
  RequireSize(info, OptionsOf(body), size);
  Job job;
  job.kind = Job::Kind::kPreview;
  job.image = id;
  job.file = image.file;
  job.path = image.path;
  job.options = OptionsOf(body);
  job.optionArguments = ArgumentsOf(studio, info, job.options);
  job.area = PreviewArea(
      {NumberMember(body, "x", 0.0), NumberMember(body, "y", 0.0),
       NumberMember(body, "width", size.width), NumberMember(body, "height", size.height)},
      size);
  EndPreview(studio, id);
  job.id = studio.jobs.ReserveId();
  studio.images.Change(id, [&](ImageState& current) {
    current.preview = ImagePreview{};
    current.preview->job = job.id;
    current.preview->area = *job.area;
    current.preview->options = job.options;
    return true;
  });
  const Json added = studio.jobs.Add({job})[0];
  AnswerJson(response, added, 202);
}

void DropPreview(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  EndPreview(studio, request.matches[1].str());
  response.status = 204;
}

void ShowJob(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  AnswerJson(response, studio.jobs.Describe(request.matches[1].str()));
}

void StopJob(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  AnswerJson(response, studio.jobs.Stop(request.matches[1].str()), 202);
}

void RemoveJob(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  studio.jobs.Remove(request.matches[1].str());
  response.status = 204;
}

void ClearJobs(Studio& studio, const httplib::Request& /*request*/, httplib::Response& response) {
  studio.jobs.RemoveEnded();
  response.status = 204;
}

void DownloadResult(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const Job job = studio.jobs.Find(request.matches[1].str());
  const ResultFile& file = FileOfRole(job.files, request.matches[2].str());
  const OpenedFile opened = OpenResult(file);
  AnswerDownload(response, "/proc/self/fd/" + std::to_string(opened.descriptor.Get()),
                 NameIn(file.path));
}

void SaveBlend(Studio& studio, const httplib::Request& request, httplib::Response& response) {
  const Json body = ParseJsonObject(request.body);
  RequireKnownMembers(body, {"amount", "curve", "format", "name", "folder", "replace"});
  const ImageState image = studio.images.FindReady(request.matches[1].str());
  if (!image.result) {
    throw NotReady("The image has no result yet. Run it first.");
  }
  Job job;
  job.kind = Job::Kind::kSave;
  job.image = image.id;
  job.file = image.file;
  job.path = image.path;
  job.files = {WriteBlendFile(studio, image, body)};
  const Json added = studio.jobs.AddDone(job);
  AnswerJson(response, {{"file", added["files"][0]}}, 201);
}

}  // namespace project_lumen::studio
