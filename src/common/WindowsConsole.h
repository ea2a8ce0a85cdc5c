// What PrepareStandardStreams changed of the console, for a process that ends without exit.
#pragma once

namespace project_lumen {

// Gives the console the code page it had before. From any thread.
void RestoreConsole();

}  // namespace project_lumen
