// The open images.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "studio/SerialWorker.h"
#include "studio/files/SessionFolder.h"
#include "studio/files/Workspace.h"
#include "studio/http/EventHub.h"
#include "studio/images/ImageState.h"

namespace project_lumen::studio {

// Opens images, reads them one after another on a thread of its own, watches their files, and tells
// the pages of every change. Safe for any thread; what Find returns is a copy whose parts are
// constant.
class Images {
 public:
  Images(Workspace& workspace, const SessionFolder& session, EventHub& events,
         std::string uploadFolder);
  ~Images();
  Images(const Images&) = delete;
  Images& operator=(const Images&) = delete;

  // The image of a file, which is read unless it is open and unchanged. The second member tells
  // whether reading begins. Throws what Workspace::OpenFile throws, and ApiError 503 when too many
  // are open.
  std::pair<ImageState, bool> Open(const std::string& file);
  ImageState Reload(const std::string& id);
  void Close(const std::string& id);

  // Throws ApiError 404.
  [[nodiscard]] ImageState Find(const std::string& id) const;
  // The same, once it is read: throws ApiError 409, or 422 with the reason why it cannot be.
  [[nodiscard]] ImageState FindReady(const std::string& id) const;
  // The id of the image of this file (an id of the workspace); empty where it is not open.
  [[nodiscard]] std::string IdOfFile(const std::string& file) const;
  [[nodiscard]] std::vector<ImageState> All() const;

  // Changes an image that is still open and tells the pages; `change` says whether it did
  // something. Keep it short.
  void Change(const std::string& id, const std::function<bool(ImageState&)>& change);

 private:
  void Read(const std::string& id, int reading);
  void Watch();
  void NoteChangesOnDisk();

  Workspace& workspace_;
  const SessionFolder& session_;
  EventHub& events_;
  std::string uploadFolder_;

  // "i2" before "i10".
  struct InOrderOfOpening {
    bool operator()(const std::string& one, const std::string& other) const {
      return one.size() != other.size() ? one.size() < other.size() : one < other;
    }
  };

  mutable std::mutex mutex_;
  std::map<std::string, ImageState, InOrderOfOpening> images_;
  std::map<std::string, int> readings_;  // how often each was read, to tell late readings
  int opened_ = 0;

  std::condition_variable ending_;
  bool isEnding_ = false;
  SerialWorker reader_;
  std::thread watcher_;
};

}  // namespace project_lumen::studio
