// Keeps the chatter of image libraries away from standard error.
#pragma once

namespace project_lumen {

// While it lives, whatever is written to file descriptor 2, stderr, std::cerr or std::clog goes
// nowhere. libpng, libjpeg, libtiff and OpenCV write to the descriptor itself, so a log level or a
// stream buffer does not reach them, and standard error belongs to the program's own records.
//
// What was buffered before still arrives, and descriptor 2 is as it was on every way out: open on
// the same file with the same flags, or closed. Diversions nest. When no file descriptor is left
// there is no diversion, and that is all. The descriptor belongs to the whole process: other
// threads are diverted too.
class StandardErrorDiversion {
 public:
  StandardErrorDiversion();
  ~StandardErrorDiversion();
  StandardErrorDiversion(const StandardErrorDiversion&) = delete;
  StandardErrorDiversion& operator=(const StandardErrorDiversion&) = delete;

 private:
  enum class Original { kOpen, kClosed, kUntouched };

  Original original_ = Original::kUntouched;
  int saved_ = -1;      // a duplicate of the original descriptor when that was open
  int savedFlags_ = 0;  // its descriptor flags
};

}  // namespace project_lumen
