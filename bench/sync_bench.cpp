// Sync over the loopback against rivo-syncd's server in this process: a full upload and a
// full download of the generated heavy collection, and an incremental sync of 10,000 changed
// cards. Each has a bare twin: the same number of bytes moved by a plain HTTP transfer (curl to
// cpp-httplib, streamed to a file) over the same loopback, so the figures are ratios.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <httplib.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "bench/GeneratedCollection.h"
#include "bench/PlainHttpTwin.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Error.h"
#include "librivo/Storage.h"
#include "librivo/syncing/FullSyncer.h"
#include "librivo/syncing/RemoteServer.h"
#include "librivo/syncing/SyncListener.h"
#include "librivo/syncing/Syncer.h"
#include "server/AccountStore.h"
#include "server/SyncServer.h"

namespace {

namespace fs = std::filesystem;
using rivo::Col;

// Counts the bytes a sync moves, both ways.
struct ByteCounter : rivo::SyncListener {
  std::atomic<int64_t> bytes{0};
  void receivedData(int64_t n) override { bytes += n; }
  void sentData(int64_t n, float) override { bytes += n; }
};

// rivo-syncd's server with one account, a client copy of the heavy collection, and a plain
// HTTP server that only stores and serves bytes.
struct SyncBench {
  std::string dir;
  std::string client;
  std::string hkey;
  std::unique_ptr<rivo::SyncServer> server;
  std::thread serving;
  std::unique_ptr<rivo::bench::PlainHttpTwin> plain;

  SyncBench() {
    dir = (fs::temp_directory_path() / ("rivo-bench-sync-" + std::to_string(getpid()))).string();
    fs::remove_all(dir);
    fs::create_directories(dir + "/client");
    client = dir + "/client/collection.rivo2";
    fs::copy_file(rivo::GeneratedCollection::get().path, client);
    rivo::AccountStore(dir + "/srv").addUser("bench", "pw");
    rivo::SyncServer::Options options;
    options.dataDir = dir + "/srv";
    options.log = std::getenv("RIVO_BENCH_LOG") ? stderr : nullptr;
    server = std::make_unique<rivo::SyncServer>(options);
    int port = server->bind();
    serving = std::thread([this] { server->listen(); });
    setenv("SYNC_BASE", ("http://127.0.0.1:" + std::to_string(port) + "/").c_str(), 1);
    rivo::Error err;
    hkey = rivo::RemoteServer().hostKeyForUser("bench", "pw", &err).value_or("");

    plain = std::make_unique<rivo::bench::PlainHttpTwin>(dir, client);
  }
  ~SyncBench() {
    server->stop();
    serving.join();
    plain.reset();
    fs::remove_all(dir);
  }
};

SyncBench& bench() {
  static SyncBench b;
  return b;
}

// A full sync of the client's collection one way, each iteration.
void fullSync(benchmark::State& state, bool upload) {
  SyncBench& b = bench();
  int64_t bytes = 0;
  for (auto _ : state) {
    auto col = rivo::Storage::open(b.client);
    rivo::FullSyncer syncer(col.get(), b.hkey);
    rivo::Error err;
    if (!(upload ? syncer.upload(&err) : syncer.download(&err)))
      state.SkipWithError(err.message.c_str());
    bytes += static_cast<int64_t>(fs::file_size(b.client));
  }
  state.SetBytesProcessed(bytes);
}

// The same number of bytes, moved by plain HTTP.
void plainFullSync(benchmark::State& state, bool upload) {
  SyncBench& b = bench();
  const auto size = static_cast<int64_t>(fs::file_size(b.client));
  for (auto _ : state) b.plain->transfer(upload, size);
  state.SetBytesProcessed(size * state.iterations());
}

void BM_FullUpload(benchmark::State& state) {
  fullSync(state, true);
}
void BM_FullUploadBarePlainHttp(benchmark::State& state) {
  plainFullSync(state, true);
}
void BM_FullDownload(benchmark::State& state) {
  fullSync(state, false);
}
void BM_FullDownloadBarePlainHttp(benchmark::State& state) {
  plainFullSync(state, false);
}
BENCHMARK(BM_FullUpload)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_FullUploadBarePlainHttp)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_FullDownload)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_FullDownloadBarePlainHttp)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();

// The bytes the last incremental sync moved, for its twin.
std::atomic<int64_t> gIncrementalBytes{0};

void BM_IncrementalSync10kCards(benchmark::State& state) {
  SyncBench& b = bench();
  auto col = rivo::Storage::open(b.client);
  {
    // The server starts with this collection.
    rivo::RemoteServer remote(b.hkey);
    rivo::Error err;
    if (rivo::Syncer(*col, &remote).sync(&err) == "fullSync") {
      rivo::FullSyncer(col.get(), b.hkey).upload(&err);
      col = rivo::Storage::open(b.client);
    }
  }
  ByteCounter counter;
  for (auto _ : state) {
    state.PauseTiming();
    col->db()->run(
        "update cards set mod = mod + 1, usn = -1 where id in (select id from cards order by id "
        "limit 10000)");
    col->save();
    counter.bytes = 0;
    state.ResumeTiming();
    rivo::RemoteServer remote(b.hkey);
    remote.listener = &counter;
    rivo::Syncer syncer(*col, &remote);
    rivo::Error err;
    auto result = syncer.sync(&err);
    if (result != "success") state.SkipWithError((result ? *result : err.message).c_str());
  }
  col->close();
  gIncrementalBytes = counter.bytes.load();
  state.counters["bytes"] = static_cast<double>(counter.bytes);
  state.SetItemsProcessed(10000 * state.iterations());
}
BENCHMARK(BM_IncrementalSync10kCards)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

void BM_IncrementalSync10kCardsBarePlainHttp(benchmark::State& state) {
  SyncBench& b = bench();
  for (auto _ : state) b.plain->transfer(true, gIncrementalBytes);
  state.counters["bytes"] = static_cast<double>(gIncrementalBytes);
  state.SetItemsProcessed(10000 * state.iterations());
}
BENCHMARK(BM_IncrementalSync10kCardsBarePlainHttp)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->UseRealTime();

}  // namespace
