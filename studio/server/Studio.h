// Everything that lives as long as the studio runs.
#pragma once

#include <string>

#include "studio/Settings.h"
#include "studio/files/SessionFolder.h"
#include "studio/files/Workspace.h"
#include "studio/http/EventHub.h"
#include "studio/images/Images.h"
#include "studio/images/TileCache.h"
#include "studio/runs/JobQueue.h"
#include "studio/runs/JobWork.h"
#include "studio/runs/Program.h"

namespace project_lumen::studio {

constexpr std::int64_t kMostUploadBytes = std::int64_t{8} << 30U;
constexpr std::int64_t kMostTileBytes = std::int64_t{512} << 20U;
constexpr std::size_t kMostListeners = 16;

struct Studio {
  explicit Studio(const std::string& programPath)
      : program(programPath),
        events(kMostListeners),
        uploads(session.MakeFolder("uploads")),
        images(workspace, session, events, uploads),
        tiles(session.MakeFolder("tiles"), kMostTileBytes),
        settings(SettingsFolder()),
        work(workspace, session, program, images),
        jobs(events, [this](JobQueue& queue, const Job& job) { work.Do(queue, job); }) {
    workspace.AddHiddenRoot(uploads);
  }

  SessionFolder session;
  Workspace workspace;
  Program program;
  EventHub events;
  std::string uploads;
  Images images;
  TileCache tiles;
  Settings settings;
  JobWork work;
  JobQueue jobs;  // ends first, as its thread uses all others
};

}  // namespace project_lumen::studio
