// A library to preload into the program (LD_PRELOAD) that measures the time inside ONNX Runtime: it
// stands before the API table that the program gets and passes every call on. At the end it writes
// one JSON object to the file that the variable NEBULEX_SESSION_TIMES names:
//
//   {"create_s": S, "warmup_s": S, "run_s": S, "runs": N, "own_cpu_s": S, "tile_cpu_s": S,
//    "peak_kb": K}
//
// create_s: making sessions; warmup_s: the first Run; run_s and runs: all the others. own_cpu_s:
// the processor's time for the program's one thread outside of all these, so other programs' load
// is not in it; tile_cpu_s: the same from one Run to the next, on average. peak_kb: the most memory
// that was resident. That is VmHWM of /proc/self/status, which is getrusage's maximum but for what
// the process that started this one had held.
#include <dlfcn.h>
#include <onnxruntime_c_api.h>
#include <time.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

long PeakKilobytes() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != "VmHWM:") {
  }
  long kilobytes = 0;
  status >> kilobytes;
  return kilobytes;
}

double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

struct SessionTimes {
  double create = 0.0;
  double warmup = 0.0;
  double run = 0.0;
  long runs = -1;          // the first one is the warm-up
  double insideCpu = 0.0;  // of the calling thread, in all that is timed
  double betweenCpu = 0.0;
  double lastRunEnd = 0.0;

  ~SessionTimes() {
    if (const char* path = std::getenv("NEBULEX_SESSION_TIMES")) {
      std::ofstream(path) << R"({"create_s": )" << create << R"(, "warmup_s": )" << warmup
                          << R"(, "run_s": )" << run << R"(, "runs": )" << (runs < 0 ? 0 : runs)
                          << R"(, "own_cpu_s": )" << ThreadSeconds() - insideCpu
                          << R"(, "tile_cpu_s": )"
                          << (runs > 1 ? betweenCpu / static_cast<double>(runs - 1) : 0.0)
                          << R"(, "peak_kb": )" << PeakKilobytes() << "}\n";
    }
  }
};

SessionTimes times;
const OrtApi* wrapped = nullptr;
OrtApi table;

OrtStatus* ORT_API_CALL TimedCreate(const OrtEnv* environment, const void* data, size_t length,
                                    const OrtSessionOptions* options,
                                    OrtSession** session) noexcept {
  const Clock::time_point begin = Clock::now();
  const double cpuBegin = ThreadSeconds();
  OrtStatus* status = wrapped->CreateSessionFromArray(environment, data, length, options, session);
  times.create += SecondsSince(begin);
  times.insideCpu += ThreadSeconds() - cpuBegin;
  return status;
}

OrtStatus* ORT_API_CALL TimedRun(OrtSession* session, const OrtRunOptions* options,
                                 const char* const* inputNames, const OrtValue* const* inputs,
                                 size_t inputCount, const char* const* outputNames,
                                 size_t outputCount, OrtValue** outputs) noexcept {
  const Clock::time_point begin = Clock::now();
  const double cpuBegin = ThreadSeconds();
  if (times.runs > 0) {
    times.betweenCpu += cpuBegin - times.lastRunEnd;
  }
  OrtStatus* status = wrapped->Run(session, options, inputNames, inputs, inputCount, outputNames,
                                   outputCount, outputs);
  const double seconds = SecondsSince(begin);
  (times.runs < 0 ? times.warmup : times.run) += seconds;
  ++times.runs;
  times.lastRunEnd = ThreadSeconds();
  times.insideCpu += times.lastRunEnd - cpuBegin;
  return status;
}

const OrtApiBase* RealBase() {
  using GetBase = const OrtApiBase*(ORT_API_CALL*)();
  static const auto getBase = reinterpret_cast<GetBase>(dlsym(RTLD_NEXT, "OrtGetApiBase"));
  return getBase();
}

// The entries that this library's header knows, which are all that the program was compiled with.
const OrtApi* ORT_API_CALL GetApi(uint32_t version) noexcept {
  wrapped = RealBase()->GetApi(version);
  if (wrapped == nullptr) {
    return nullptr;
  }
  table = *wrapped;
  table.CreateSessionFromArray = TimedCreate;
  table.Run = TimedRun;
  return &table;
}

const char* ORT_API_CALL GetVersionString() noexcept {
  return RealBase()->GetVersionString();
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const OrtApiBase* ORT_API_CALL
OrtGetApiBase() noexcept {
  static const OrtApiBase base{GetApi, GetVersionString};
  return &base;
}
