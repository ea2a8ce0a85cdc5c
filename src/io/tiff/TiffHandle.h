// libtiff on a stream that is open already, with its errors kept to the file they belong to.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>

struct tiff;  // libtiff's TIFF

namespace project_lumen::io {

// Neither maps the file, where a page that the disk does not give would end the process by a
// signal, nor prints anything, nor touches libtiff's handlers for the whole process.
class TiffHandle {
 public:
  // Opens the first directory of a TIFF file in a seekable binary stream, which must outlive this
  // and belongs to it alone meanwhile. libtiff allocates at most LargestDecodedSize of the file's
  // size at a time.
  explicit TiffHandle(std::istream& file);
  ~TiffHandle();
  TiffHandle(const TiffHandle&) = delete;
  TiffHandle& operator=(const TiffHandle&) = delete;

  // Null when the stream holds no TIFF file, or none whose first directory libtiff understands.
  [[nodiscard]] tiff* Get() const { return handle_.get(); }
  [[nodiscard]] std::uint64_t FileSize() const;

  // Reads bytes of the file itself; false when they are not there.
  bool ReadBytes(std::uint64_t offset, void* into, std::uint64_t count);

  // Whether libtiff has reported an error since the last ForgetErrors. It goes on after some, and
  // reports success.
  [[nodiscard]] bool HasFailed() const;
  void ForgetErrors();

 private:
  struct Client;
  struct Close {
    void operator()(tiff* handle) const;
  };

  std::unique_ptr<Client> client_;
  std::unique_ptr<tiff, Close> handle_;
};

}  // namespace project_lumen::io
