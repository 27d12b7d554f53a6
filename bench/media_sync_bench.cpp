// The first media sync of 20,000 files (about 80 MB) between two profiles through rivo-syncd's
// server in this process, on the loopback: one profile uploads them all, the other downloads
// them all. Its bare twin moves the same bytes up and down by plain HTTP (curl to cpp-httplib,
// streamed to a file), so the figure is a ratio.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <httplib.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "bench/PlainHttpTwin.h"
#include "librivo/Col.h"
#include "librivo/Error.h"
#include "librivo/MediaManager.h"
#include "librivo/Storage.h"
#include "librivo/syncing/MediaSyncer.h"
#include "librivo/syncing/RemoteMediaServer.h"
#include "librivo/syncing/RemoteServer.h"
#include "server/AccountStore.h"
#include "server/SyncServer.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFiles = 20000;
constexpr size_t kFileBytes = 4000;

struct MediaSyncBench {
  std::string dir;
  std::unique_ptr<rivo::SyncServer> server;
  std::thread serving;
  std::unique_ptr<rivo::bench::PlainHttpTwin> plain;
  std::string source;  // the profile holding the files
  int64_t totalBytes = 0;

  MediaSyncBench() {
    dir = (fs::temp_directory_path() / ("rivo-bench-msync-" + std::to_string(getpid()))).string();
    fs::remove_all(dir);
    fs::create_directories(dir + "/a");
    source = dir + "/a/collection.rivo2";
    auto col = rivo::Storage::open(source);
    std::mt19937 random(7);
    std::string bytes(kFileBytes, '\0');
    std::ofstream all(dir + "/all.bin", std::ios::binary);
    for (int i = 0; i < kFiles; ++i) {
      for (char& c : bytes) c = static_cast<char>(random());
      std::ofstream(col->media().dir() + "/m" + std::to_string(i) + ".jpg", std::ios::binary)
          << bytes;
      all << bytes;
      totalBytes += static_cast<int64_t>(bytes.size());
    }
    col->close();
    rivo::SyncServer::Options options;
    options.dataDir = dir + "/srv";
    options.log = std::getenv("RIVO_BENCH_LOG") ? stderr : nullptr;
    rivo::AccountStore(options.dataDir);
    server = std::make_unique<rivo::SyncServer>(options);
    const int port = server->bind();
    serving = std::thread([this] { server->listen(); });
    setenv("SYNC_BASE", ("http://127.0.0.1:" + std::to_string(port) + "/").c_str(), 1);

    plain = std::make_unique<rivo::bench::PlainHttpTwin>(dir, dir + "/all.bin");
  }
  ~MediaSyncBench() {
    server->stop();
    serving.join();
    plain.reset();
    fs::remove_all(dir);
  }

  // A new account each time, so that every sync is a first one.
  std::string newAccount(int n) {
    const std::string name = "bench" + std::to_string(n);
    rivo::AccountStore(dir + "/srv").addUser(name, "pw");
    rivo::Error err;
    return rivo::RemoteServer().hostKeyForUser(name, "pw", &err).value_or("");
  }

  static bool mediaSync(const std::string& path, const std::string& hkey, std::string* why) {
    auto col = rivo::Storage::open(path);
    rivo::RemoteMediaServer remote(col.get(), hkey);
    rivo::MediaSyncer syncer(*col, &remote);
    rivo::Error err;
    bool ok = syncer.sync(&err).has_value();
    if (!ok) *why = err.message;
    col->close();
    return ok;
  }
};

MediaSyncBench& bench() {
  static MediaSyncBench b;
  return b;
}

void BM_FirstMediaSync20kFiles(benchmark::State& state) {
  MediaSyncBench& b = bench();
  int round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const std::string hkey = b.newAccount(++round);
    {
      // Every file of the source goes up again.
      auto col = rivo::Storage::open(b.source);
      col->media().forceResync();
      col->close();
    }
    const std::string target = b.dir + "/b" + std::to_string(round) + "/collection.rivo2";
    fs::create_directories(fs::path(target).parent_path());
    state.ResumeTiming();
    std::string why;
    if (!MediaSyncBench::mediaSync(b.source, hkey, &why) ||
        !MediaSyncBench::mediaSync(target, hkey, &why))
      state.SkipWithError(why.c_str());
  }
  state.SetBytesProcessed(2 * b.totalBytes * state.iterations());
  state.counters["files"] = kFiles;
}
BENCHMARK(BM_FirstMediaSync20kFiles)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

void BM_FirstMediaSync20kFilesBarePlainHttp(benchmark::State& state) {
  MediaSyncBench& b = bench();
  for (auto _ : state) {
    b.plain->transfer(true, b.totalBytes);
    b.plain->transfer(false, b.totalBytes);
  }
  state.SetBytesProcessed(2 * b.totalBytes * state.iterations());
}
BENCHMARK(BM_FirstMediaSync20kFilesBarePlainHttp)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

}  // namespace
