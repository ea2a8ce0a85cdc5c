#include "studio/images/Images.h"

#include <chrono>
#include <utility>

#include "studio/FailureWords.h"
#include "studio/files/PathText.h"
#include "studio/http/ApiError.h"

namespace project_lumen::studio {
namespace {

constexpr std::size_t kMostImages = 200;

}  // namespace

Images::Images(Workspace& workspace, const SessionFolder& session, EventHub& events,
               std::string uploadFolder)
    : workspace_(workspace),
      session_(session),
      events_(events),
      uploadFolder_(std::move(uploadFolder)),
      watcher_([this] { Watch(); }) {}

Images::~Images() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  ending_.notify_all();
  watcher_.join();
}

std::pair<ImageState, bool> Images::Open(const std::string& file) {
  const OpenedFile opened = workspace_.OpenFile(file);
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [id, image] : images_) {
      const bool isCurrent =
          image.identity == opened.identity || image.phase == ImageState::Phase::kReading;
      if (image.file == file && isCurrent && image.phase != ImageState::Phase::kFailed) {
        return {image, false};
      }
    }
    if (images_.size() >= kMostImages) {
      throw ApiError(503, "busy", "Too many images are open. Close some of them.");
    }
  }
  const std::string known = IdOfFile(file);
  if (!known.empty()) {
    return {Reload(known), true};
  }
  ImageState image;
  image.file = file;
  image.path = opened.path;
  image.isUploaded = IsWithin(opened.path, uploadFolder_);
  image.folder = image.isUploaded ? "" : workspace_.FolderId(FolderOf(opened.path));
  image.identity = opened.identity;
  {
    const std::lock_guard lock(mutex_);
    image.id = "i" + std::to_string(++opened_);
    images_[image.id] = image;
    readings_[image.id] = 1;
  }
  events_.Publish("image", DescribeImage(image));
  reader_.Post([this, id = image.id] { Read(id, 1); });
  return {image, true};
}

ImageState Images::Reload(const std::string& id) {
  int reading = 0;
  {
    const std::lock_guard lock(mutex_);
    const auto known = readings_.find(id);
    if (known == readings_.end()) {
      throw NotFound("There is no such image.");
    }
    reading = ++known->second;
  }
  Change(id, [](ImageState& image) {
    image.phase = ImageState::Phase::kReading;
    image.hasChangedOnDisk = false;
    image.error.clear();
    image.loaded.reset();
    image.result.reset();
    image.preview.reset();
    ++image.revision;
    return true;
  });
  ImageState image = Find(id);
  reader_.Post([this, id, reading] { Read(id, reading); });
  return image;
}

void Images::Close(const std::string& id) {
  {
    const std::lock_guard lock(mutex_);
    if (images_.erase(id) == 0) {
      throw NotFound("There is no such image.");
    }
    readings_.erase(id);
  }
  events_.Publish("image_closed", {{"id", id}});
}

ImageState Images::Find(const std::string& id) const {
  const std::lock_guard lock(mutex_);
  const auto found = images_.find(id);
  if (found == images_.end()) {
    throw NotFound("There is no such image.");
  }
  return found->second;
}

ImageState Images::FindReady(const std::string& id) const {
  ImageState image = Find(id);
  if (image.phase == ImageState::Phase::kReading) {
    throw NotReady(NameIn(image.path) + " is still being read.");
  }
  if (image.phase == ImageState::Phase::kFailed) {
    throw ApiError(422, "unreadable", image.error);
  }
  return image;
}

std::string Images::IdOfFile(const std::string& file) const {
  const std::lock_guard lock(mutex_);
  for (const auto& [id, image] : images_) {
    if (image.file == file) {
      return id;
    }
  }
  return {};
}

std::vector<ImageState> Images::All() const {
  const std::lock_guard lock(mutex_);
  std::vector<ImageState> all;
  for (const auto& [id, image] : images_) {
    all.push_back(image);
  }
  return all;
}

void Images::Change(const std::string& id, const std::function<bool(ImageState&)>& change) {
  // Told under the lock, so that of two changes the later one is told later.
  const std::lock_guard lock(mutex_);
  const auto found = images_.find(id);
  if (found != images_.end() && change(found->second)) {
    events_.Publish("image", DescribeImage(found->second));
  }
}

void Images::Read(const std::string& id, int reading) {
  const auto isLate = [&] {  // under the lock
    const auto found = readings_.find(id);
    return found == readings_.end() || found->second != reading;
  };
  std::string file;
  {
    const std::lock_guard lock(mutex_);
    if (isLate()) {
      return;
    }
    file = images_.at(id).file;
  }
  std::shared_ptr<const LoadedImage> loaded;
  std::string error;
  FileIdentity identity;
  try {
    const OpenedFile opened = workspace_.OpenFile(file);
    identity = opened.identity;
    loaded = LoadImage(opened, session_);
  } catch (const std::exception& failure) {
    error = WordsFor(failure);
  }
  Change(id, [&](ImageState& image) {
    if (isLate()) {
      return false;
    }
    image.phase = loaded ? ImageState::Phase::kReady : ImageState::Phase::kFailed;
    image.identity = identity;
    image.error = error;
    image.loaded = loaded;
    ++image.revision;
    return true;
  });
}

void Images::Watch() {
  constexpr std::chrono::seconds kPeriod{1};
  std::unique_lock lock(mutex_);
  while (!ending_.wait_for(lock, kPeriod, [this] { return isEnding_; })) {
    lock.unlock();
    NoteChangesOnDisk();
    lock.lock();
  }
}

void Images::NoteChangesOnDisk() {
  for (const ImageState& image : All()) {
    if (image.phase != ImageState::Phase::kReading && IdentityAt(image.path) != image.identity &&
        !image.hasChangedOnDisk) {
      Change(image.id, [&](ImageState& current) {
        const bool isSame = current.identity == image.identity;
        current.hasChangedOnDisk = current.hasChangedOnDisk || isSame;
        return isSame;
      });
    }
  }
}

}  // namespace project_lumen::studio
