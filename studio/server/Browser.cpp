#include "studio/Browser.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <array>
#include <exception>
#include <thread>

#include "io/files/FileDescriptor.h"
#include "studio/runs/ChildProcess.h"

namespace project_lumen::studio {
namespace {

// Where the desktop's own way of opening things lies.
std::string FindOpener() {
  for (const char* path : {"/usr/bin/xdg-open", "/usr/local/bin/xdg-open", "/bin/xdg-open"}) {
    if (access(path, X_OK) == 0) {
      return path;
    }
  }
  return {};
}

bool WriteOpenerPage(const std::string& path, const std::string& address) {
  const io::FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  const std::string page =
      "<!DOCTYPE html><html lang=\"en\"><head><meta charset=\"utf-8\"><title>nebulex2 "
      "studio</title>"
      "<meta http-equiv=\"refresh\" content=\"0;url=" +
      address + "\"></head><body><a href=\"" + address + "\">Open the studio</a></body></html>\n";
  return file.Get() >= 0 &&
         write(file.Get(), page.data(), page.size()) == static_cast<ssize_t>(page.size());
}

}  // namespace

void OpenBrowser(const std::string& address, const std::string& folder) {
  const std::string opener = FindOpener();
  const std::string page = folder + "/open.html";
  if (opener.empty() || !WriteOpenerPage(page, address)) {
    return;
  }
  // A browser may run as long as it likes, so nobody waits for it.
  std::thread([opener, page] {
    try {
      RunChild({{opener, "file://" + page},
                ChildOutput::kStandardOutput,
                [](std::string_view /*line*/) {},
                [] { return false; }});
    } catch (const std::exception&) {
      return;  // the address was printed
    }
  }).detach();
}

}  // namespace project_lumen::studio
