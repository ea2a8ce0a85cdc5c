#include "studio/runs/ProgramRun.h"

#include <cstring>
#include <stdexcept>

#include "studio/files/PathText.h"
#include "studio/images/ReadOpenedImage.h"
#include "studio/runs/ChildProcess.h"
#include "studio/runs/Records.h"

namespace project_lumen::studio {
namespace {

std::vector<std::string> ArgumentsOf(const Job& job, const Program& program,
                                     const ProgramFiles& files) {
  const nlohmann::json info = program.Info();
  const std::string progress =
      info.at(nlohmann::json::json_pointer("/progress/machine/option")).get<std::string>();
  std::vector<std::string> arguments{program.Path(), FlagOf(info, progress)};
  const std::pair<const char*, const std::string&> paths[] = {{"input", files.input},
                                                              {"output", files.starless},
                                                              {"mask", files.mask},
                                                              {"unscreen", files.unscreen}};
  for (const auto& [name, path] : paths) {
    if (!path.empty()) {
      arguments.push_back(FlagOf(info, name));
      arguments.push_back(path);
    }
  }
  arguments.insert(arguments.end(), job.optionArguments.begin(), job.optionArguments.end());
  return arguments;
}

// Brings the program's lines to the job.
class Listener {
 public:
  Listener(JobQueue& queue, const Job& job, const ShownPaths& shown)
      : queue_(queue), job_(job), shown_(shown) {}

  void Take(std::string_view line) {
    Record record = ParseRecord(line);
    for (const auto& [internal, shown] : shown_) {
      record.text = ReplaceAll(record.text, internal, shown);
    }
    switch (record.kind) {
      case Record::Kind::kProgress:
      case Record::Kind::kInferred:
        TakeTiles(record);
        return;
      case Record::Kind::kError:
        TakeError(record.text);
        return;
      case Record::Kind::kInfo:
        Tell("info", record);
        return;
      case Record::Kind::kWarning:
        Tell("warning", record);
        return;
      default:
        Tell("text", record);
    }
  }

  [[nodiscard]] const std::string& Error() const { return error_; }

 private:
  void TakeTiles(const Record& record) {
    queue_.Change(job_.id, [&](Job& job) {
      const bool isFirst = job.total == 0;
      job.current = record.current;
      job.total = record.total;
      job.percent = record.percent;
      if (isFirst) {
        job.firstTile = Job::Clock::now();
      }
      if (record.kind == Record::Kind::kInferred) {
        job.state = Job::State::kWriting;
      }
    });
  }

  // The first line is for the person, the rest says where the network was looked for.
  void TakeError(const std::string& text) {
    const std::size_t end = text.find('\n');
    error_ = text.substr(0, end);
    Tell("error", {Record::Kind::kError, "", error_});
    if (end != std::string::npos) {
      queue_.Change(job_.id, [&](Job& job) { job.errorDetails = text.substr(end + 1); });
    }
  }

  void Tell(const char* kind, const Record& record) {
    queue_.AddMessage(job_.id, {kind, record.code, record.text, TimeOfMessage()});
  }

  JobQueue& queue_;
  const Job& job_;
  const ShownPaths& shown_;
  std::string error_;
};

std::string WordsForEnd(const ChildEnd& end, const std::string& error) {
  if (!error.empty()) {
    return error;
  }
  if (end.signal != 0) {
    return "The program was ended by a signal (" + std::string(strsignal(end.signal)) + ").";
  }
  return "The program failed without a word (exit status " + std::to_string(end.status) + ").";
}

}  // namespace

void RunProgram(JobQueue& queue, const Job& job, const Program& program, const ProgramFiles& files,
                const ShownPaths& shown) {
  Listener listener(queue, job, shown);
  ChildRun run;
  run.arguments = ArgumentsOf(job, program, files);
  run.takeLine = [&](std::string_view line) { listener.Take(line); };
  run.shallStop = [&] { return job.shallStop->load(); };
  const ChildEnd end = RunChild(run);
  if (end.isStopped) {
    throw std::runtime_error("The run was stopped.");
  }
  if (end.signal != 0 || end.status != 0) {
    throw std::runtime_error(WordsForEnd(end, listener.Error()));
  }
}

}  // namespace project_lumen::studio
