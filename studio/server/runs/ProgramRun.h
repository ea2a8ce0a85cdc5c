// One run of the program for a job.
#pragma once

#include <string>
#include <vector>

#include "studio/runs/JobQueue.h"
#include "studio/runs/Program.h"

namespace project_lumen::studio {

// What the program reads and writes; empty paths are not asked for.
struct ProgramFiles {
  std::string input;
  std::string starless;
  std::string mask;
  std::string unscreen;
};

// How paths that only the studio knows are called in messages: pairs of what stands there and what
// is shown.
using ShownPaths = std::vector<std::pair<std::string, std::string>>;

// Runs the program to its end and tells the job what it says, as it says it. Throws
// std::runtime_error with words for the person unless it went well; what a person has stopped ends
// with an exception too.
void RunProgram(JobQueue& queue, const Job& job, const Program& program, const ProgramFiles& files,
                const ShownPaths& shown);

}  // namespace project_lumen::studio
