// What goes wrong in a program that a library of this folder is preloaded into, and when. The
// environment tells:
//
//   NEBULEX2_FAULT_CALL    open, read, write, flush, close, rename or allocate: the calls that
//   count NEBULEX2_FAULT_PATH    only calls on files whose path begins so (all) NEBULEX2_FAULT_SIZE
//   only allocations of as many bytes (0) NEBULEX2_FAULT_NUMBER  the first call to go wrong,
//   counted from 1 NEBULEX2_FAULT_TIMES   how many go wrong from there on (1) NEBULEX2_FAULT_REPORT
//   a file that is created when the first one does NEBULEX2_FAULT_COUNT   a file that the number of
//   calls is written to at the end
//
// and of a call that goes wrong:
//
//   NEBULEX2_FAULT_ERROR   it fails with this errno (0: it is let through)
//   NEBULEX2_FAULT_CUT     before it, this file loses its second half (none)
//   NEBULEX2_FAULT_REMOVE  before it, this folder goes with all that is in it (none)
//   NEBULEX2_FAULT_SIGNAL  before it, the process gets this signal (none)
#pragma once

#include <string_view>

namespace faults {

// Whether calls of this group count at all; cheap.
bool IsPlanned(std::string_view call);

// Counts one call that meets the conditions. Does what the plan says; true when the call has to
// fail, errno is set then.
bool GoesWrong();

// Counts a call on a file, if its path meets the condition; otherwise as GoesWrong.
bool GoesWrongOn(const char* path);
bool GoesWrongOn(int descriptor);

// Whether an allocation of this size counts.
bool IsLarge(unsigned long size);

}  // namespace faults
