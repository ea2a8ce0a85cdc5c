// Stands in for a machine whose memory runs out.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>

namespace project_lumen::test {

// While it lives the process gets no more than `bytes` of address space beyond what it has.
class AddressSpaceLimit {
 public:
  explicit AddressSpaceLimit(std::uint64_t bytes) {
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    getrlimit(RLIMIT_AS, &original_);
    rlimit lowered = original_;
    lowered.rlim_cur = pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) + bytes;
    setrlimit(RLIMIT_AS, &lowered);
  }
  ~AddressSpaceLimit() { setrlimit(RLIMIT_AS, &original_); }
  AddressSpaceLimit(const AddressSpaceLimit&) = delete;
  AddressSpaceLimit& operator=(const AddressSpaceLimit&) = delete;

 private:
  rlimit original_{};
};

}  // namespace project_lumen::test
