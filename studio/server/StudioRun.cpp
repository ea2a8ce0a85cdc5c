#include "studio/StudioRun.h"

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "common/Platform.h"
#include "studio/Browser.h"
#include "studio/Studio.h"
#include "studio/files/PathText.h"
#include "studio/http/LoopbackServer.h"
#include "studio/http/Routes.h"

namespace project_lumen::studio {
namespace {

namespace fs = std::filesystem;

// The signals that end the studio, which only Wait gets.
class EndSignals {
 public:
  EndSignals() {
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      sigaddset(&signals_, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    signal(SIGPIPE, SIG_IGN);
  }
  void Wait() const {
    int received = 0;
    while (sigwait(&signals_, &received) != 0) {
    }
  }

 private:
  sigset_t signals_{};
};

std::string ProgramBeside() {
  const auto own = ExecutablePath();
  return own ? FolderOf(*own) + "/nebulex2" : "nebulex2";
}

std::string AbsolutePath(const std::string& path) {
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  return error ? path : absolute.lexically_normal().string();
}

// Opens the folders that were named, and those of the images; the home folder where nothing was.
void OpenFolders(Workspace& workspace, const StudioOptions& options) {
  for (const std::string& folder : options.folders) {
    workspace.AddRoot(folder);
  }
  for (const std::string& image : options.images) {
    workspace.AddRoot(FolderOf(AbsolutePath(image)));
  }
  if (options.folders.empty() && options.images.empty()) {
    const std::string home = HomeFolder();
    if (home.empty()) {
      throw std::runtime_error("There is no home folder. Name a folder with --folder.");
    }
    workspace.AddRoot(home);
  }
}

void OpenImages(Studio& studio, const StudioOptions& options) {
  for (const std::string& image : options.images) {
    const std::string folder = FolderOf(AbsolutePath(image));
    // By its folder's real path, as in a listing of the folder.
    const std::string real = fs::canonical(folder).string();
    studio.images.Open(studio.workspace.FileId((real == "/" ? "" : real) + "/" + NameIn(image)));
  }
}

}  // namespace

int RunStudio(const StudioOptions& options) {
  const EndSignals signals;
  Studio studio(options.program.empty() ? ProgramBeside() : AbsolutePath(options.program));
  OpenFolders(studio.workspace, options);
  studio.program.Ask();
  OpenImages(studio, options);

  LoopbackServer server({});
  const int port = server.Bind(options.port);
  if (port < 0) {
    throw std::runtime_error("Port " + std::to_string(options.port) + " cannot be used.");
  }
  const RequestGuard guard(port);
  ServeStudio(server, studio, guard);
  std::thread serving([&server] { server.listen_after_bind(); });

  const std::string address =
      "http://127.0.0.1:" + std::to_string(port) + "/?token=" + guard.Token();
  std::cout << "The studio is open at\n  " << address << "\nCtrl-C ends it." << std::endl;
  if (options.opensBrowser) {
    OpenBrowser(address, studio.session.Path());
  }

  signals.Wait();
  std::cout << "\nEnding." << std::endl;
  studio.events.Close();
  server.StopAnswering();
  server.stop();
  serving.join();
  return 0;
}

}  // namespace project_lumen::studio
