#include "cli/EntryPoint.h"
#include "common/Platform.h"

int main(int argc, char* argv[]) {
  project_lumen::PrepareStandardStreams();
  return project_lumen::cli::RunProgram(project_lumen::ProgramArguments(argc, argv));
}
