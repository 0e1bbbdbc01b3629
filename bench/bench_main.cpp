// Google Benchmark for videohdr on the build host: the memory floor, the whole
// per-frame call on both scenes' alternating-exposure sequences (scene.h),
// the camera-plane entry in place and into encoder layouts (planes_bench.h),
// each stage of the call and every kernel of the fixture's table on the
// handheld scene, and (when built with OpenCV) a peer doing the same job.
// Each size's results end with a summary that states every time as a
// multiple of the read-three-write-one floor measured in the same run: the
// machine is shared and its absolute times drift, the ratios much less.
//
//   videohdr_bench [Google Benchmark flags] [--summary_out=FILE]
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "fixture.h"
#include "log_sink.h"
#include "memory_floor.h"
#include "peer.h"
#include "planes_bench.h"
#include "stages.h"

namespace videohdr_bench {
namespace {

const std::vector<std::pair<int32_t, int32_t>> kSizes = {{1920, 1080}, {2048, 1280}};

std::string sizeName(int32_t w, int32_t h) { return std::to_string(w) + "x" + std::to_string(h); }

// One fixture per scene and size, made on first use and kept for the whole run.
Fixture &fixtureFor(SceneKind scene, int32_t w, int32_t h) {
  static std::map<std::tuple<SceneKind, int32_t, int32_t>, std::unique_ptr<Fixture>> fixtures;
  auto &f = fixtures[{scene, w, h}];
  if (!f) f = std::make_unique<Fixture>(scene, w, h);
  return *f;
}

size_t nv21Bytes(int32_t w, int32_t h) { return static_cast<size_t>(w) * h * 3 / 2; }

void setFrameCounters(benchmark::State &state) {
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void floorReadThreeWriteOne(benchmark::State &state, int32_t w, int32_t h) {
  BufferPool &pool = sharedPool(nv21Bytes(w, h));
  size_t i = 0;
  for (auto _ : state) {
    readThreeWriteOne(pool[i], pool[i + 1], pool[i + 2], pool[i + 3], pool.bytes());
    benchmark::ClobberMemory();
    i += 4;
  }
  setFrameCounters(state);
}

void floorMemcpy(benchmark::State &state, int32_t w, int32_t h) {
  BufferPool &pool = sharedPool(nv21Bytes(w, h));
  size_t i = 0;
  for (auto _ : state) {
    std::memcpy(pool[i + 1], pool[i], pool.bytes());
    benchmark::ClobberMemory();
    i += 2;
  }
  setFrameCounters(state);
}

// The per-frame call on caller frames that are not in any cache, as a camera
// delivers them: the frames rotate through a pool larger than the last-level
// cache, and each is refilled (untimed) half a pool ahead of its use.
void wholeFrame(benchmark::State &state, SceneKind scene, int32_t w, int32_t h) {
  Fixture &f = fixtureFor(scene, w, h);
  BufferPool &pool = sharedPool(f.geometry().frameBytes());
  const size_t ahead = pool.count() / 2;
  for (size_t i = 0; i < ahead; ++i) f.loadNextFrame(pool[i]);
  size_t i = 0;
  for (auto _ : state) {
    state.PauseTiming();
    f.loadNextFrame(pool[i + ahead]);
    state.ResumeTiming();
    f.process(pool[i]);
    ++i;
  }
  setFrameCounters(state);
}

void kernel(benchmark::State &state, int32_t w, int32_t h, const KernelCase *k) {
  Fixture &f = fixtureFor(SceneKind::Handheld, w, h);
  for (auto _ : state) {
    k->run(f);
    benchmark::ClobberMemory();
  }
}

// One stage of the per-frame call (stages.h) on the handheld scene, repeated
// on the state the stages before it leave.
void stage(benchmark::State &state, int32_t w, int32_t h, size_t index) {
  Fixture &f = fixtureFor(SceneKind::Handheld, w, h);
  f.loadNextFrame();
  StageRunner runner(f, index);
  for (auto _ : state) {
    runner.run();
    benchmark::ClobberMemory();
  }
}

// Registration order, which the summary keeps (runs may be interleaved).
std::vector<std::string> &registeredNames() {
  static std::vector<std::string> names;
  return names;
}

template <typename... Args>
void add(const std::string &name, Args &&...args) {
  registeredNames().push_back(name);
  benchmark::RegisterBenchmark(name.c_str(), std::forward<Args>(args)...)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}

void registerAll() {
  for (auto [w, h] : kSizes) {
    const std::string size = "/" + sizeName(w, h);
    add("floor_read3write1" + size, floorReadThreeWriteOne, w, h);
    add("floor_memcpy" + size, floorMemcpy, w, h);
    for (SceneKind scene : {SceneKind::Pan, SceneKind::Handheld})
      add(std::string("frame_") + sceneName(scene) + size, wholeFrame, scene, w, h);
    const std::vector<const char *> planes = planesCaseNames();
    for (size_t i = 0; i < planes.size(); ++i) add(planes[i] + size, planesCase, w, h, i);
    if (PeerFunction peer = peerBenchmark()) add(std::string(peerName()) + size, peer, w, h);
    for (size_t i = 0; i < frameStages().size(); ++i)
      add("stage/" + std::string(frameStages()[i].name) + size, stage, w, h, i);
    for (const KernelCase &k : kernelCases())
      add("kernel/" + std::string(k.name) + size, kernel, w, h, &k);
  }
}

// Collects every repetition's real time per benchmark, forwarding the runs to
// the console as usual, and prints the medians with their floor ratios.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  SummaryReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      double ms = run.GetAdjustedRealTime() *
                  benchmark::GetTimeUnitMultiplier(benchmark::kMillisecond) /
                  benchmark::GetTimeUnitMultiplier(run.time_unit);
      times_[run.run_name.function_name].push_back(ms);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // Lines of "size name median_ms ratio_to_floor repetitions".
  void writeSummary(FILE *out) const {
    for (const std::string &name : registeredNames()) {
      if (times_.find(name) == times_.end()) continue;
      std::string size = name.substr(name.rfind('/') + 1);
      auto floor = times_.find("floor_read3write1/" + size);
      double ms = median(times_.at(name));
      double ratio = floor == times_.end() ? 0.0 : ms / median(floor->second);
      std::fprintf(out, "%s\t%s\t%.4f\t%.3f\t%zu\n", size.c_str(),
                   name.substr(0, name.rfind('/')).c_str(), ms, ratio, times_.at(name).size());
    }
  }

 private:
  static double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
  }
  std::map<std::string, std::vector<double>> times_;
};

void discardLogLine(int, const char *, const char *) {}

}  // namespace
}  // namespace videohdr_bench

int main(int argc, char **argv) {
  using namespace videohdr_bench;
  std::string summaryPath;
  std::vector<char *> args;
  for (int i = 0; i < argc; ++i) {
    if (std::strncmp(argv[i], "--summary_out=", 14) == 0)
      summaryPath = argv[i] + 14;
    else
      args.push_back(argv[i]);
  }
  int n = static_cast<int>(args.size());
  benchmark::Initialize(&n, args.data());
  if (benchmark::ReportUnrecognizedArguments(n, args.data())) return 1;
  // The log lines are formatted as on the device (their cost is part of the
  // call) but not printed.
  videohdr::setLogSink(discardLogLine);
  registerAll();
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nmedian ms per call, and as a multiple of the read-three-write-one floor:\n");
  reporter.writeSummary(stdout);
  if (!summaryPath.empty()) {
    FILE *f = std::fopen(summaryPath.c_str(), "w");
    if (!f) return 1;
    reporter.writeSummary(f);
    std::fclose(f);
  }
  benchmark::Shutdown();
  return 0;
}
