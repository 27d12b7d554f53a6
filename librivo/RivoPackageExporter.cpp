#include "librivo/RivoPackageExporter.h"

#include <algorithm>
#include <filesystem>

#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/Files.h"
#include "librivo/MediaManager.h"
#include "librivo/PackageWriter.h"
#include "librivo/RivoPackageImporter.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

constexpr auto kCollectionEntry = RivoPackageImporter::kCollectionEntry;
constexpr auto kMediaEntry = RivoPackageImporter::kMediaEntry;
// Media files are stored: they are compressed already, most of them.
constexpr int kStored = 0;

uint64_t sizeOf(const std::string& path) {
  std::error_code ec;
  const uint64_t size = fs::file_size(path, ec);
  return ec ? 0 : size;
}

// Every file of the media folder, in name order; the folder has no subfolders, and hidden
// names are files being received, not media.
std::vector<std::string> mediaFolderFiles(const std::string& dir) {
  std::vector<std::string> out;
  std::error_code ec;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
    if (it->is_regular_file(ec) && !it->path().filename().string().starts_with("."))
      out.push_back(it->path().string());
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace

RivoPackageExporter::RivoPackageExporter(Col& col, std::optional<Id> did) : RivoExporter(col, did) {
  key = "Rivo 2.0 Deck";
  ext = ".rivo2";
  // The package of the whole collection copies it as it stands, scheduling and all.
  includeSched = true;
}

bool RivoPackageExporter::exportInto(const std::string&, std::string*) {
  return true;
}

void RivoPackageExporter::_progress(uint64_t done, uint64_t total) {
  if (!total) return;
  const int percent = static_cast<int>(done * 100 / total);
  _col.updateProgressWithBlock(
      [this, percent] { return progressText + " " + std::to_string(percent) + "%"; });
}

bool RivoPackageExporter::copyInto(const std::string& path, std::string* error) {
  _mediaCount = 0;
  std::string problem = PackageWriter::checkTarget(path);
  if (problem.empty() && _did && !_col.decks().getDeck(Json(*_did), false))
    problem = "The deck to export no longer exists.";
  if (!problem.empty()) {
    if (error) *error = problem;
    return false;
  }
  PackageWriter writer(path, _col.tmpDir());
  const bool whole = !_did && includeSched;
  bool ok = writer.ok() &&
            (whole ? _copyCollection(writer, path, error) : _buildSubset(writer, path, error));
  ok = ok && writer.commit();
  if (!ok && error && error->empty()) *error = writer.error();
  return ok;
}

bool RivoPackageExporter::_copyCollection(PackageWriter& writer, const std::string& path,
                                          std::string* error) {
  const std::string collection = _col.path();
  const std::vector<std::string> media =
      includeMedia ? mediaFolderFiles(_col.media().dir()) : std::vector<std::string>();
  uint64_t bytes = sizeOf(collection);
  for (const std::string& file : media) bytes += sizeOf(file);
  if (std::string problem = PackageWriter::checkSpace(path, bytes, _col.tmpDir());
      !problem.empty()) {
    if (error) *error = problem;
    return false;
  }
  _count = _col.cardCount();
  // Closing saves, and leaves the file whole for the copy.
  _col.close();
  const bool copied =
      writer.addFile(kCollectionEntry, collection, -1,
                     [this](uint64_t done, uint64_t total) { _progress(done, total); });
  _col.reopen();
  if (!_col.ok()) {
    if (error) *error = "The collection couldn't be opened again after the copy.";
    return false;
  }
  return copied && _addMedia(writer, media);
}

bool RivoPackageExporter::_buildSubset(PackageWriter& writer, const std::string& path,
                                       std::string* error) {
  const std::string built = getUniqueFilenameInFolder(_col.tmpDir(), "rivo2");
  bool ok = RivoExporter::exportInto(built, error);
  if (ok) {
    uint64_t bytes = sizeOf(built);
    for (const std::string& file : mediaFiles()) bytes += sizeOf(file);
    std::string problem = PackageWriter::checkSpace(path, bytes, _col.tmpDir());
    if (!problem.empty() && error) *error = problem;
    ok = problem.empty() && writer.addFile(kCollectionEntry, built) &&
         _addMedia(writer, includeMedia ? mediaFiles() : std::vector<std::string>());
  }
  std::error_code ec;
  fs::remove(built, ec);
  return ok;
}

bool RivoPackageExporter::_addMedia(PackageWriter& writer, const std::vector<std::string>& files) {
  Json map = Json::object();
  int n = 0;
  for (const std::string& file : files) {
    const std::string entry = std::to_string(n);
    if (!writer.addFile(entry, file, kStored)) return false;
    // The importer looks names up in their composed form.
    map[entry] = MediaManager::nfc(fs::path(file).filename().string());
    ++n;
    _col.updateProgressWithBlock(
        [n] { return "Exported " + std::to_string(n) + " media files..."; });
  }
  _mediaCount = n;
  return writer.add(kMediaEntry, map.dump());
}

}  // namespace rivo
