// What runs and previews do.
#pragma once

#include "studio/files/SessionFolder.h"
#include "studio/files/Workspace.h"
#include "studio/images/Images.h"
#include "studio/runs/JobQueue.h"
#include "studio/runs/Program.h"

namespace project_lumen::studio {

// Refers to what it works with; used by the thread of the queue.
class JobWork {
 public:
  JobWork(Workspace& workspace, const SessionFolder& session, const Program& program,
          Images& images)
      : workspace_(workspace), session_(session), program_(program), images_(images) {}

  void Do(JobQueue& queue, const Job& job);

 private:
  void Run(JobQueue& queue, const Job& job);
  void Preview(JobQueue& queue, const Job& job);
  LayerPictures MakePreview(JobQueue& queue, const Job& job);
  void ShowResult(JobQueue& queue, const Job& job, const FileIdentity& source,
                  const std::vector<ResultFile>& files);

  Workspace& workspace_;
  const SessionFolder& session_;
  const Program& program_;
  Images& images_;
};

}  // namespace project_lumen::studio
