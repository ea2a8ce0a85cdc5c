// Errors of Windows functions as codes.
#pragma once

#include <system_error>

namespace project_lumen {

// The code of an error number of Windows. Frequent ones are those of the C library, so that they
// read as they do everywhere; a file that is in use says so.
std::error_code WindowsError(unsigned long number);

// That of the calling thread's last failed call.
std::error_code LastWindowsError();

}  // namespace project_lumen
