// The benchmarks' main: Google Benchmark's own, with a watchdog. Every benchmark closes what
// it opens, but a lock left held by one would make the next wait for ever (the database layer
// retries a busy file without end); the watchdog ends such a run with the name of the last
// benchmark that finished instead.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

// Far above the slowest benchmark (the generated collection is made inside the first one
// that needs it).
constexpr auto kStall = std::chrono::minutes(5);

// Notes when each benchmark finishes, then prints it as the console reporter does.
class WatchedReporter : public benchmark::ConsoleReporter {
 public:
  // Colours only on a terminal, so that a saved report stays plain text.
  WatchedReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    {
      std::lock_guard guard(_mutex);
      _lastDone = Clock::now();
      if (!runs.empty()) _lastName = runs.back().benchmark_name();
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // True when no benchmark has finished for longer than kStall; `last` names the last one.
  bool stalled(std::string* last) {
    std::lock_guard guard(_mutex);
    *last = _lastName;
    return Clock::now() - _lastDone > kStall;
  }

 private:
  std::mutex _mutex;
  Clock::time_point _lastDone = Clock::now();
  std::string _lastName = "(none yet)";
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  WatchedReporter reporter;
  std::atomic<bool> done{false};
  std::thread watchdog([&] {
    std::string last;
    while (!done) {
      std::this_thread::sleep_for(std::chrono::seconds(1));
      if (!done && reporter.stalled(&last)) {
        std::fprintf(stderr,
                     "rivo_bench: no benchmark has finished for %lld minutes; the one after %s is "
                     "stuck, most likely waiting for a lock an earlier one still holds\n",
                     static_cast<long long>(
                         std::chrono::duration_cast<std::chrono::minutes>(kStall).count()),
                     last.c_str());
        std::fflush(stdout);
        _exit(2);
      }
    }
  });
  benchmark::RunSpecifiedBenchmarks(&reporter);
  done = true;
  watchdog.join();
  benchmark::Shutdown();
  return 0;
}
