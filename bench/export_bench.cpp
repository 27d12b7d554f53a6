// A full export (with 2,000 media files of 2 to 6 KiB) and a backup of the generated collection
// (100,000 notes), each against its bare twin: the same bytes put into a zip with minizip alone,
// in the same entries at the same levels, without the temporary file, sync and rename.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <minizip/zip.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>

#include "app/BackupFolder.h"
#include "bench/GeneratedCollection.h"
#include "librivo/Col.h"
#include "librivo/Json.h"
#include "librivo/RivoPackageExporter.h"
#include "librivo/Storage.h"

namespace {

namespace fs = std::filesystem;

constexpr int kMedia = 2000;

// A copy of the generated collection with its media folder, made once per process.
struct Source {
  std::string dir, path, media, out;

  static const Source& get() {
    static Source instance;
    return instance;
  }
  Source() {
    const rivo::GeneratedCollection& gen = rivo::GeneratedCollection::get();
    dir = gen.dir + "/export";
    fs::remove_all(dir);
    media = dir + "/media";
    out = dir + "/out";
    fs::create_directories(media);
    fs::create_directories(out);
    path = dir + "/collection.rivo2";
    fs::copy_file(gen.path, path);
    std::mt19937 random(42);
    for (int i = 0; i < kMedia; ++i) {
      std::string bytes(2048 + random() % 4096, '\0');
      for (char& c : bytes) c = static_cast<char>(random());
      const int fd = open((media + "/pic" + std::to_string(i) + ".jpg").c_str(),
                          O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (fd < 0 || write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        std::abort();
      close(fd);
    }
  }
};

std::string readAll(const std::string& path) {
  std::string bytes(fs::file_size(path), '\0');
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0 || read(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
    std::abort();
  close(fd);
  return bytes;
}

void addBare(zipFile zip, const std::string& name, const std::string& bytes, int level) {
  zip_fileinfo info{};
  if (zipOpenNewFileInZip64(zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                            level == 0 ? 0 : Z_DEFLATED, level, 0) != ZIP_OK ||
      zipWriteInFileInZip(zip, bytes.data(), static_cast<unsigned>(bytes.size())) != ZIP_OK ||
      zipCloseFileInZip(zip) != ZIP_OK)
    std::abort();
}

// The package's entries with minizip alone: the collection at `level`, then the media.
void zipBare(const std::string& target, int level, bool media) {
  const Source& s = Source::get();
  zipFile zip = zipOpen64(target.c_str(), APPEND_STATUS_CREATE);
  if (!zip) std::abort();
  addBare(zip, "collection.rivo2", readAll(s.path), level);
  rivo::Json map = rivo::Json::object();
  if (media) {
    std::vector<std::string> files;
    for (const auto& e : fs::directory_iterator(s.media)) files.push_back(e.path().string());
    std::sort(files.begin(), files.end());
    for (size_t i = 0; i < files.size(); ++i) {
      addBare(zip, std::to_string(i), readAll(files[i]), 0);
      map[std::to_string(i)] = fs::path(files[i]).filename().string();
    }
  }
  addBare(zip, "media", map.dump(), Z_DEFAULT_COMPRESSION);
  if (zipClose(zip, nullptr) != ZIP_OK) std::abort();
}

void BM_ExportCollection(benchmark::State& state) {
  const Source& s = Source::get();
  auto col = rivo::Storage::open(s.path, true, false, true, s.dir);
  col->setTmpDir(s.out);
  for (auto _ : state) {
    std::string error;
    if (!rivo::RivoPackageExporter(*col).copyInto(s.out + "/collection.rpkg", &error))
      state.SkipWithError(error.c_str());
  }
  col->close();
}
BENCHMARK(BM_ExportCollection)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ExportCollectionBare(benchmark::State& state) {
  for (auto _ : state) zipBare(Source::get().out + "/bare.rpkg", Z_DEFAULT_COMPRESSION, true);
}
BENCHMARK(BM_ExportCollectionBare)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_Backup(benchmark::State& state) {
  const Source& s = Source::get();
  auto col = rivo::Storage::open(s.path, true, false, true, s.dir);
  col->setTmpDir(s.out);
  for (auto _ : state) {
    const rivo::BackupFolder::Result r = rivo::BackupFolder(s.out).backup(*col, "bench", true);
    if (r.outcome != rivo::BackupFolder::Result::Outcome::written)
      state.SkipWithError(r.error.c_str());
    state.PauseTiming();
    fs::remove(r.path);
    state.ResumeTiming();
  }
  col->close();
}
BENCHMARK(BM_Backup)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_BackupBare(benchmark::State& state) {
  for (auto _ : state) zipBare(Source::get().out + "/bare-backup.rpkg", 0, false);
}
BENCHMARK(BM_BackupBare)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
