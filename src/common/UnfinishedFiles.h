// Files that must not stay behind when a signal ends the process before they are finished.
#pragma once

#include <string>

namespace project_lumen {

// From here on a signal whose default is to end the process (SIGHUP, SIGINT, SIGQUIT, SIGPIPE,
// SIGTERM, SIGXCPU) removes all unfinished files first; the process then ends by that signal.
// Signals that were ignored stay so. A write beyond the limit of a file's size becomes an error
// like any other (SIGXFSZ is ignored).
void RemoveUnfinishedFilesOnSignals();

// Creates `path`, where nothing may be, not even a link, empty, with these permissions as far as
// the umask leaves them. Returns a descriptor for reading and writing, or the negative code of
// errno. A name longer than the system allows or beyond the eighth at a time is not remembered.
int CreateUnfinishedFile(const std::string& path, unsigned permissions = 0600);

// To be called when the file was finished or removed.
void ForgetUnfinishedFile(const std::string& path);

}  // namespace project_lumen
