#include "librivo/RivoPackageImporter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "librivo/Col.h"
#include "librivo/Files.h"
#include "librivo/Json.h"
#include "librivo/MediaManager.h"
#include "librivo/ZipReader.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

constexpr auto kCollectionEntry = RivoPackageImporter::kCollectionEntry;
constexpr auto kMediaEntry = RivoPackageImporter::kMediaEntry;
// The collection entry is copied out in pieces of this size.
constexpr size_t kCopyPiece = 0x100000;
// The media list is one flat object.
constexpr int kMaxMapDepth = 2;

std::string errnoText() {
  return std::strerror(errno);
}

int64_t fileSize(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? static_cast<int64_t>(st.st_size) : -1;
}

}  // namespace

RivoPackageImporter::RivoPackageImporter(Col& col, std::string file)
    : Rivo2Importer(col, std::move(file)) {}

RivoPackageImporter::~RivoPackageImporter() {
  _closeSource();
  for (const Staged& staged : _staged) MediaManager::discard(staged.path);
  if (!_tmpPath.empty()) unlink(_tmpPath.c_str());
}

bool RivoPackageImporter::runAndReplaceCollection(bool replace, std::string* error) {
  try {
    _check();
    if (replace)
      _replace();
    else
      _merge();
  } catch (const std::exception& e) {
    for (const Staged& staged : _staged) MediaManager::discard(staged.path);
    _staged.clear();
    _closeSource();
    if (error) *error = e.what();
    return false;
  }
  _closeSource();
  return true;
}

// --- Checking ---

void RivoPackageImporter::_check() {
  _openZip();
  _readMediaMap();
  _checkSpace();
  _copyCollection();
  // From here on the source is the copy.
  _file = _tmpPath;
  _prepareFiles();
}

void RivoPackageImporter::_openZip() {
  std::error_code ec;
  if (!fs::is_regular_file(_file, ec)) throw ImportError("No file found to import.");
  _zip = std::make_unique<ZipReader>(_file);
  if (!_zip->ok())
    throw ImportError("The file is not a Rivo package: it can't be read as a zip file.");
  const std::vector<ZipReader::Entry> entries = _zip->entries();
  if (entries.empty() && !_zip->error().empty())
    throw ImportError("The package is damaged: its list of files can't be read.");
  for (const ZipReader::Entry& entry : entries) {
    if (!_zip->plausible(entry))
      throw ImportError("The package is damaged: its entry \"" + entry.name + "\" claims " +
                        std::to_string(entry.size) + " bytes that it can't hold.");
    _entries[entry.name] = entry;
  }
  if (!_entries.count(kCollectionEntry))
    throw ImportError("The package holds no collection: it has no collection.rivo2 entry.");
}

void RivoPackageImporter::_readMediaMap() {
  auto entry = _entries.find(kMediaEntry);
  if (entry == _entries.end())
    throw ImportError("The package is damaged: it has no media list (its \"media\" entry).");
  if (entry->second.size > kMaxMapBytes)
    throw ImportError("The package's media list is larger than " + sizeText(kMaxMapBytes) + ".");
  auto bytes = _zip->read(kMediaEntry, kMaxMapBytes);
  if (!bytes) throw ImportError("The package is damaged: its media list can't be read.");
  bool tooDeep = false;
  const Json map = Json::parse(
      *bytes,
      [&tooDeep](int depth, Json::parse_event_t, Json&) {
        if (depth > kMaxMapDepth) tooDeep = true;
        return !tooDeep;
      },
      false);
  if (tooDeep || !map.is_object())
    throw ImportError("The package is damaged: its media list is not a JSON object.");
  for (const auto& [num, name] : map.items()) {
    const std::string fname = name.is_string() ? name.get<std::string>() : std::string();
    if (!MediaManager::isPlainName(fname))
      throw ImportError(
          "The package's media list names a file that can't be stored: " + name.dump() + ".");
    if (num == kCollectionEntry || num == kMediaEntry || !_entries.count(num))
      throw ImportError("The package is damaged: the media file " + name.dump() +
                        " is missing from it.");
    // Names are compared composed, as the media folder stores them.
    _mediaMap[num] = MediaManager::nfc(fname);
  }
}

void RivoPackageImporter::_checkSpace() {
  MediaManager& mm = _col.media();
  // A file of that name and size is taken as the same file, by a replace and a merge alike.
  uint64_t media = 0;
  for (const auto& [num, fname] : _mediaMap) {
    const uint64_t size = _entries[num].size;
    const std::string local = mm.pathOf(fname);
    if (!local.empty() && fileSize(local) == static_cast<int64_t>(size)) continue;
    media += size;
  }
  const uint64_t collection = _entries[kCollectionEntry].size;
  const std::string tmp = _col.tmpDir();
  struct stat a {
  }, b{};
  const bool oneDisk =
      stat(tmp.c_str(), &a) == 0 && stat(mm.dir().c_str(), &b) == 0 && a.st_dev == b.st_dev;
  const std::pair<std::string, uint64_t> needs[] = {{tmp, collection + (oneDisk ? media : 0)},
                                                    {mm.dir(), oneDisk ? 0 : media}};
  for (const auto& [dir, need] : needs) {
    if (!need) continue;
    const uint64_t free = _freeBytes(dir);
    if (need + kReserveBytes > free)
      throw ImportError("There isn't enough free disk space to import this package: it needs " +
                        sizeText(need) + ", and " + sizeText(free) + " is free.");
  }
}

uint64_t RivoPackageImporter::_freeBytes(const std::string& dir) {
  return freeBytes(dir);
}

void RivoPackageImporter::_copyCollection() {
  _tmpPath = getUniqueFilenameInFolder(_col.tmpDir(), "rivo2");
  const int fd = open(_tmpPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) {
    const std::string why = errnoText();
    _tmpPath.clear();
    throw ImportError("A temporary file can't be made in " + _col.tmpDir() + ": " + why + ".");
  }
  bool copied = _zip->extract(kCollectionEntry, fd, kCopyPiece);
  std::string why = copied ? std::string() : _zip->error();
  if (copied && fsync(fd) != 0) {
    copied = false;
    why = "can't write " + _tmpPath + ": " + errnoText();
  }
  close(fd);
  if (!copied) throw ImportError("The package's collection can't be read: " + why + ".");
}

// --- Media ---

void RivoPackageImporter::_progress(int done) {
  _col.updateProgressWithBlock(
      [done] { return "Processed " + std::to_string(done) + " media files..."; });
}

std::string RivoPackageImporter::_stageEntry(const std::string& entry) {
  std::string problem;
  const std::string staged = _col.media().stage(
      [&](int fd, std::string* why) {
        if (_zip->extract(entry, fd)) return true;
        *why = _zip->error();
        return false;
      },
      &problem);
  if (staged.empty())
    throw ImportError("The package's media file \"" + _mediaMap[entry] +
                      "\" can't be read: " + problem + ".");
  return staged;
}

std::string RivoPackageImporter::_srcMediaData(const std::string& fname) {
  _progress(_filesImported++);
  auto it = _nameToNum.find(MediaManager::nfc(fname));
  if (it == _nameToNum.end()) return {};
  return _stageEntry(it->second);
}

// --- Merge and replace ---

void RivoPackageImporter::_merge() {
  MediaManager& mm = _col.media();
  try {
    for (const auto& [num, fname] : _mediaMap) {
      _nameToNum[fname] = num;
      if (mm.have(fname)) continue;
      // Templates refer to these, or they were generated: no field asks for them.
      if (fname.starts_with("_") || fname.starts_with("latex-"))
        _writeDstMedia(fname, _stageEntry(num));
    }
  } catch (...) {
    _removeWritten();
    throw;
  }
  runWithMedia({});
}

void RivoPackageImporter::_replace() {
  // The source was opened only to be checked.
  _closeSource();
  int done = 0;
  for (const auto& [num, fname] : _mediaMap) {
    const std::string local = _col.media().pathOf(fname);
    if (local.empty() || fileSize(local) != static_cast<int64_t>(_entries[num].size))
      _staged.push_back({_stageEntry(num), fname});
    _progress(++done);
  }
  _swapCollection();
  // The collection reopened with a new media manager.
  MediaManager& mm = _col.media();
  int failed = 0;
  std::string problem;
  for (const Staged& staged : _staged) {
    const std::string local = mm.pathOf(staged.fname);
    if (!mm.place(staged.path, staged.fname, true, &problem)) ++failed;
    // The same name stored decomposed on disk gives way to the one from the package.
    else if (!local.empty() && local != mm.dir() + "/" + staged.fname)
      unlink(local.c_str());
  }
  _staged.clear();
  if (failed)
    throw ImportError("The collection was replaced, but " + std::to_string(failed) +
                      " media files couldn't be stored: " + problem + ".");
}

void RivoPackageImporter::_swapCollection() {
  const std::string path = _col.path();
  // The old file stays under this name until the new one has opened.
  const std::string kept = path + ".replaced";
  _col.close();
  unlink(kept.c_str());
  std::string problem;
  bool moved = link(path.c_str(), kept.c_str()) == 0;
  if (!moved) problem = errnoText();
  if (moved && !(moved = moveFile(_tmpPath, path, &problem))) unlink(kept.c_str());
  if (!moved) {
    _col.reopen();
    throw ImportError("The collection couldn't be replaced: " + problem + ".");
  }
  _tmpPath.clear();
  _col.reopen();
  if (!_col.ok()) {
    try {
      _col.closeAndSave(false);
    } catch (const std::exception&) {
    }
    rename(kept.c_str(), path.c_str());
    _col.reopen();
    throw ImportError("The imported collection can't be opened; the collection is as it was.");
  }
  _col.lock();
  unlink(kept.c_str());
}

}  // namespace rivo
