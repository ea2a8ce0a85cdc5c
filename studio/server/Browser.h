// The browser of this computer.
#pragma once

#include <string>

namespace project_lumen::studio {

// Asks the desktop to open an address that holds a secret: through a file in `folder` that only the
// user can read, since the arguments of programs can be read by everybody. Does nothing where there
// is no desktop; the address was printed.
void OpenBrowser(const std::string& address, const std::string& folder);

}  // namespace project_lumen::studio
