// Importing a package of 10,000 notes (20,000 cards, 40,000 reviews) and 2,000 media files into
// a copy of the generated collection (100,000 notes): merge with and without media, and replace.
// Each has a bare twin: the same rows read from the package's collection and inserted with
// plain SQLite statements in one transaction, and the same zip entries written out as files.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include "bench/CollectionGenerator.h"
#include "bench/GeneratedCollection.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/RivoPackageImporter.h"
#include "librivo/Storage.h"
#include "librivo/ZipReader.h"
#include "librivo/ZipWriter.h"

namespace {

namespace fs = std::filesystem;

constexpr int kNotes = 10000;
constexpr int kMedia = 2000;

// The two packages, made once per process: the same collection, one with 2,000 of its notes
// showing a picture of 2 to 6 KiB each.
struct Packages {
  std::string dir, withMedia, withoutMedia, source;

  static const Packages& get() {
    static Packages instance;
    return instance;
  }

  Packages() {
    dir = (fs::temp_directory_path() / ("rivo-bench-import-" + std::to_string(getpid()))).string();
    fs::remove_all(dir);
    rivo::GeneratorOptions options;
    options.notes = kNotes;
    options.cards = 2 * kNotes;
    options.decks = 50;
    options.revlog = 4 * kNotes;
    options.seed = 7;
    rivo::CollectionGenerator(options).generate(dir + "/gen", "p");
    source = dir + "/gen/profiles/p/collection.rivo2";
    withoutMedia = dir + "/plain.rpkg";
    write(withoutMedia, {});

    std::mt19937 random(42);
    std::vector<std::string> files;
    {
      rivo::DB db(source);
      int i = 0;
      for (const rivo::Value& id : db.list("select id from notes order by id limit 2000"))
        db.run("update notes set flds = flds || ? where id = ?",
               {"<img src=\"pic" + std::to_string(i++) + ".jpg\">", id});
      db.commit();
    }
    for (int i = 0; i < kMedia; ++i) {
      std::string bytes(2048 + random() % 4096, '\0');
      for (char& c : bytes) c = static_cast<char>(random());
      files.push_back(std::move(bytes));
    }
    withMedia = dir + "/media.rpkg";
    write(withMedia, files);
  }
  ~Packages() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }

  void write(const std::string& path, const std::vector<std::string>& files) const {
    rivo::ZipWriter zip(path);
    zip.add("collection.rivo2", readAll(source));
    rivo::Json map = rivo::Json::object();
    for (size_t i = 0; i < files.size(); ++i) {
      map[std::to_string(i)] = "pic" + std::to_string(i) + ".jpg";
      zip.add(std::to_string(i), files[i], 0);
    }
    zip.add("media", map.dump());
    if (!zip.close()) std::abort();
  }
  static std::string readAll(const std::string& path) {
    std::string out(fs::file_size(path), '\0');
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0 || read(fd, out.data(), out.size()) != static_cast<ssize_t>(out.size()))
      std::abort();
    close(fd);
    return out;
  }
};

// A fresh copy of the generated collection with an empty media folder, for one iteration.
struct Target {
  std::string dir, path, media;
  Target() {
    dir = Packages::get().dir + "/target";
    fs::remove_all(dir);
    fs::create_directories(dir + "/media");
    path = dir + "/collection.rivo2";
    media = dir + "/media";
    fs::copy_file(rivo::GeneratedCollection::get().path, path);
  }
};

void runImport(benchmark::State& state, const std::string& package, bool replace) {
  for (auto _ : state) {
    state.PauseTiming();
    Target target;
    auto col = rivo::Storage::open(target.path);
    state.ResumeTiming();
    rivo::RivoPackageImporter importer(*col, package);
    std::string error;
    if (!importer.runAndReplaceCollection(replace, &error)) state.SkipWithError(error.c_str());
    state.PauseTiming();
    col->close();
    state.ResumeTiming();
  }
}

void BM_ImportMerge(benchmark::State& state) {
  runImport(state, Packages::get().withMedia, false);
}
BENCHMARK(BM_ImportMerge)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ImportMergeNoMedia(benchmark::State& state) {
  runImport(state, Packages::get().withoutMedia, false);
}
BENCHMARK(BM_ImportMergeNoMedia)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ImportReplace(benchmark::State& state) {
  runImport(state, Packages::get().withMedia, true);
}
BENCHMARK(BM_ImportReplace)->Unit(benchmark::kMillisecond)->Iterations(3);

// Every row of `table` in the source inserted into the target, column for column.
void copyRows(sqlite3* from, sqlite3* to, const char* table, const char* insert) {
  sqlite3_stmt *read = nullptr, *write = nullptr;
  sqlite3_prepare_v2(from, (std::string("select * from ") + table).c_str(), -1, &read, nullptr);
  sqlite3_prepare_v2(to, insert, -1, &write, nullptr);
  while (sqlite3_step(read) == SQLITE_ROW) {
    for (int c = 0; c < sqlite3_column_count(read); ++c)
      sqlite3_bind_value(write, c + 1, sqlite3_column_value(read, c));
    if (sqlite3_step(write) != SQLITE_DONE) std::abort();
    sqlite3_reset(write);
  }
  sqlite3_finalize(read);
  sqlite3_finalize(write);
}

// The zip's numbered entries written out as files of their names.
void extractMedia(const std::string& package, const std::string& folder) {
  rivo::ZipReader zip(package);
  for (int i = 0; i < kMedia; ++i) {
    const std::string path = folder + "/pic" + std::to_string(i) + ".jpg";
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || !zip.extract(std::to_string(i), fd)) std::abort();
    close(fd);
  }
}

void mergeBare(benchmark::State& state, bool media) {
  for (auto _ : state) {
    state.PauseTiming();
    Target target;
    state.ResumeTiming();
    // The package's collection is read straight out of a copy, as the import reads its own.
    const std::string copy = target.dir + "/source.rivo2";
    {
      rivo::ZipReader zip(media ? Packages::get().withMedia : Packages::get().withoutMedia);
      const int fd = open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (!zip.extract("collection.rivo2", fd)) std::abort();
      close(fd);
    }
    sqlite3 *from = nullptr, *to = nullptr;
    sqlite3_open(copy.c_str(), &from);
    sqlite3_open(target.path.c_str(), &to);
    sqlite3_exec(to, "begin exclusive", nullptr, nullptr, nullptr);
    copyRows(from, to, "notes", "insert or replace into notes values (?,?,?,?,?,?,?,?,?,?,?)");
    copyRows(from, to, "cards",
             "insert or ignore into cards values (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
    copyRows(from, to, "revlog", "insert or ignore into revlog values (?,?,?,?,?,?,?,?,?)");
    sqlite3_exec(to, "commit", nullptr, nullptr, nullptr);
    sqlite3_close(from);
    sqlite3_close(to);
    if (media) extractMedia(Packages::get().withMedia, target.media);
  }
}

void BM_ImportMergeBare(benchmark::State& state) {
  mergeBare(state, true);
}
BENCHMARK(BM_ImportMergeBare)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ImportMergeNoMediaBare(benchmark::State& state) {
  mergeBare(state, false);
}
BENCHMARK(BM_ImportMergeNoMediaBare)->Unit(benchmark::kMillisecond)->Iterations(3);

// The collection entry copied over the file, and every media file written out.
void BM_ImportReplaceBare(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    Target target;
    state.ResumeTiming();
    const std::string incoming = target.dir + "/incoming.rivo2";
    rivo::ZipReader zip(Packages::get().withMedia);
    const int fd = open(incoming.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!zip.extract("collection.rivo2", fd)) std::abort();
    fsync(fd);
    close(fd);
    rename(incoming.c_str(), target.path.c_str());
    extractMedia(Packages::get().withMedia, target.media);
  }
}
BENCHMARK(BM_ImportReplaceBare)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
