// The media folder scan and the upload batches on a folder of 20,000 files, against the bare
// file system work they can't avoid (listing, stat, reading and hashing, writing the zips).
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <minizip/zip.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include "librivo/Checksum.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/MediaManager.h"
#include "librivo/Storage.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFiles = 20000;

// A collection whose media folder holds 20,000 files of 2 to 6 KiB, made once per process.
struct MediaFixture {
  std::string dir;
  std::unique_ptr<rivo::Col> col;
  int64_t bytes = 0;

  static MediaFixture& get() {
    static MediaFixture instance;
    return instance;
  }
  rivo::MediaManager& mm() { return col->media(); }
  std::string media() const { return dir + "/media"; }

  MediaFixture() {
    dir = (fs::temp_directory_path() / ("rivo-bench-media-" + std::to_string(getpid()))).string();
    fs::remove_all(dir);
    fs::create_directories(dir + "/media");
    std::mt19937 random(42);
    std::string data;
    for (int i = 0; i < kFiles; ++i) {
      data.resize(2048 + random() % 4096);
      for (char& c : data) c = static_cast<char>(random());
      const std::string path = dir + "/media/img" + std::to_string(i) + ".jpg";
      const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (fd < 0 || write(fd, data.data(), data.size()) != static_cast<ssize_t>(data.size()))
        std::abort();
      close(fd);
      bytes += static_cast<int64_t>(data.size());
    }
    col = rivo::Storage::open(dir + "/collection.rivo2", true, false, true, dir);
  }
  ~MediaFixture() {
    col->close();
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

void BM_MediaFirstScan(benchmark::State& state) {
  auto& f = MediaFixture::get();
  for (auto _ : state) {
    state.PauseTiming();
    f.mm().forceResync();
    state.ResumeTiming();
    f.mm().findChanges();
  }
  if (f.mm().mediaCount() != kFiles) state.SkipWithError("not every file was recorded");
  state.SetBytesProcessed(state.iterations() * f.bytes);
}
BENCHMARK(BM_MediaFirstScan)->Unit(benchmark::kMillisecond)->Iterations(3);

// List, stat, read and hash every file: what any first scan has to do.
void BM_MediaFirstScanBareFilesystem(benchmark::State& state) {
  auto& f = MediaFixture::get();
  std::string buffer;
  for (auto _ : state) {
    DIR* d = opendir(f.media().c_str());
    int n = 0;
    while (dirent* e = readdir(d)) {
      struct stat st {};
      if (fstatat(dirfd(d), e->d_name, &st, 0) != 0 || !S_ISREG(st.st_mode)) continue;
      const int fd = openat(dirfd(d), e->d_name, O_RDONLY);
      buffer.resize(static_cast<size_t>(st.st_size));
      if (read(fd, buffer.data(), buffer.size()) != st.st_size) std::abort();
      close(fd);
      benchmark::DoNotOptimize(rivo::checksum(buffer));
      ++n;
    }
    closedir(d);
    if (n != kFiles) state.SkipWithError("files missing");
  }
  state.SetBytesProcessed(state.iterations() * f.bytes);
}
BENCHMARK(BM_MediaFirstScanBareFilesystem)->Unit(benchmark::kMillisecond)->Iterations(3);

// The folder's time hasn't moved: one stat of the folder and one query, no file opened.
void BM_MediaRescanUnchanged(benchmark::State& state) {
  auto& f = MediaFixture::get();
  f.mm().findChanges();
  for (auto _ : state) f.mm().findChanges();
}
BENCHMARK(BM_MediaRescanUnchanged)->Unit(benchmark::kMicrosecond);

// The folder's time moved but no file did: every file is stat'ed, none is read.
void BM_MediaRescanFolderTouched(benchmark::State& state) {
  auto& f = MediaFixture::get();
  f.mm().findChanges();
  for (auto _ : state) {
    state.PauseTiming();
    f.mm().db()->run("update meta set dirMod = 1");
    state.ResumeTiming();
    f.mm().findChanges();
  }
  if (f.mm().mediaCount() != kFiles) state.SkipWithError("rows lost");
}
BENCHMARK(BM_MediaRescanFolderTouched)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_MediaRescanFolderTouchedBareFilesystem(benchmark::State& state) {
  auto& f = MediaFixture::get();
  for (auto _ : state) {
    DIR* d = opendir(f.media().c_str());
    while (dirent* e = readdir(d)) {
      struct stat st {};
      benchmark::DoNotOptimize(fstatat(dirfd(d), e->d_name, &st, 0));
    }
    closedir(d);
  }
}
BENCHMARK(BM_MediaRescanFolderTouchedBareFilesystem)->Unit(benchmark::kMillisecond)->Iterations(5);

// Every upload batch for 20,000 new files, each marked clean as a sync would after sending.
void BM_MediaUploadBatches(benchmark::State& state) {
  auto& f = MediaFixture::get();
  f.mm().findChanges();
  int64_t batches = 0;
  for (auto _ : state) {
    state.PauseTiming();
    f.mm().db()->run("update media set dirty=1");
    f.mm().db()->commit();
    state.ResumeTiming();
    for (;;) {
      auto batch = f.mm().mediaChangesZip();
      if (!batch || batch->names.empty()) break;
      f.mm().markClean(batch->names);
      benchmark::DoNotOptimize(batch->zip.data());
      ++batches;
    }
    f.mm().db()->commit();
  }
  state.counters["batches"] = static_cast<double>(batches) / state.iterations();
  state.SetBytesProcessed(state.iterations() * f.bytes);
}
BENCHMARK(BM_MediaUploadBatches)->Unit(benchmark::kMillisecond)->Iterations(3);

// The same zips straight from the file names, with no database: read each file, write it
// stored, add the list, read the zip back.
void BM_MediaUploadBatchesBareFilesystem(benchmark::State& state) {
  auto& f = MediaFixture::get();
  std::string buffer;
  const std::string zipPath = f.dir + "/bare.zip";
  for (auto _ : state) {
    for (int first = 0; first < kFiles; first += 25) {
      zipFile zip = zipOpen64(zipPath.c_str(), APPEND_STATUS_CREATE);
      std::string meta = "[";
      for (int i = first; i < std::min(first + 25, kFiles); ++i) {
        const std::string name = "img" + std::to_string(i) + ".jpg";
        const int fd = open((f.media() + "/" + name).c_str(), O_RDONLY);
        struct stat st {};
        fstat(fd, &st);
        buffer.resize(static_cast<size_t>(st.st_size));
        if (read(fd, buffer.data(), buffer.size()) != st.st_size) std::abort();
        close(fd);
        const std::string entry = std::to_string(i - first);
        zip_fileinfo info{};
        zipOpenNewFileInZip64(zip, entry.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, 0, 0, 0);
        zipWriteInFileInZip(zip, buffer.data(), static_cast<unsigned>(buffer.size()));
        zipCloseFileInZip(zip);
        meta += "[\"" + name + "\",\"" + entry + "\"],";
      }
      meta.back() = ']';
      zip_fileinfo info{};
      zipOpenNewFileInZip64(zip, "_meta", &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, -1,
                            0);
      zipWriteInFileInZip(zip, meta.data(), static_cast<unsigned>(meta.size()));
      zipCloseFileInZip(zip);
      zipClose(zip, nullptr);
      std::string bytes;
      const int fd = open(zipPath.c_str(), O_RDONLY);
      struct stat st {};
      fstat(fd, &st);
      bytes.resize(static_cast<size_t>(st.st_size));
      if (read(fd, bytes.data(), bytes.size()) != st.st_size) std::abort();
      close(fd);
      benchmark::DoNotOptimize(bytes.data());
    }
  }
  unlink(zipPath.c_str());
  state.SetBytesProcessed(state.iterations() * f.bytes);
}
BENCHMARK(BM_MediaUploadBatchesBareFilesystem)->Unit(benchmark::kMillisecond)->Iterations(3);

// Opening the media database of 20,000 rows, with its health check, against a bare open
// and one read.
void BM_MediaConnect(benchmark::State& state) {
  auto& f = MediaFixture::get();
  f.mm().findChanges();
  for (auto _ : state) {
    f.mm().close();
    f.mm().connect();
  }
}
BENCHMARK(BM_MediaConnect)->Unit(benchmark::kMicrosecond);

void BM_MediaConnectBareSql(benchmark::State& state) {
  auto& f = MediaFixture::get();
  f.mm().findChanges();
  const std::string path = f.dir + "/media.rm.db3";
  for (auto _ : state) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "select dirMod, lastUsn from meta", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
}
BENCHMARK(BM_MediaConnectBareSql)->Unit(benchmark::kMicrosecond);

}  // namespace
