#pragma once
// Imports a package (".rpkg"): a zip holding "collection.rivo2", the "media" list (a JSON object
// from entry name to media file name) and one entry per media file. It either merges the
// package into the open collection (see Rivo2Importer) or replaces the collection with it.
//
// The package is checked whole before anything changes: a readable zip whose entries' sizes can
// be true, a collection entry that opens as a collection, a media list that is a JSON object of
// plain file names whose entries exist, and room on the disk for what will be written. A package
// that fails is refused with a sentence for the user, and the collection and the media folder
// stay as they were. Entries are read only up to the sizes the zip gives them, and the
// collection and every media file are streamed to disk, never held whole.
//
// A replace stages every media file it needs before the collection is swapped, and swaps it by
// an atomic rename; the old file is kept until the new one has opened. A merge that fails is
// rolled back (Rivo2Importer).
//
// Entry point, for the deck list, the command line and restores:
//   RivoPackageImporter importer(col, path);
//   std::string error;
//   bool ok = importer.runAndReplaceCollection(replace, &error);  // importer.log() on success
// One run per object, on the thread that owns the collection (the work queue). Progress goes
// through the collection's updateProgressWithBlock.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "librivo/Rivo2Importer.h"
#include "librivo/ZipReader.h"

namespace rivo {

class RivoPackageImporter : public Rivo2Importer {
 public:
  // The package's names, shared with whatever writes one.
  static constexpr const char* kExtension = ".rpkg";
  static constexpr const char* kCollectionEntry = "collection.rivo2";
  static constexpr const char* kMediaEntry = "media";

  // Largest media list read; a real one for 100,000 files is a few MiB.
  static constexpr uint64_t kMaxMapBytes = 64 << 20;
  // Room the import always leaves on a disk.
  static constexpr uint64_t kReserveBytes = 16 << 20;

  RivoPackageImporter(Col& col, std::string file);
  ~RivoPackageImporter() override;

  // Replaces the collection (true) or merges into it (false). False, with `error` set to a
  // sentence for the user, when the package is refused or the import fails. The collection
  // stays open either way.
  bool runAndReplaceCollection(bool replace, std::string* error);

 protected:
  std::string _srcMediaData(const std::string& fname) override;
  // Bytes free for this program on the disk holding `dir`; a test may pretend the disk is full.
  virtual uint64_t _freeBytes(const std::string& dir);

 private:
  struct Staged {
    std::string path;
    std::string fname;
  };

  void _check();
  void _openZip();
  void _readMediaMap();
  void _checkSpace();
  void _copyCollection();
  void _merge();
  void _replace();
  std::string _stageEntry(const std::string& entry);
  void _swapCollection();
  void _progress(int done);

  std::unique_ptr<ZipReader> _zip;
  std::map<std::string, ZipReader::Entry> _entries;
  // Zip entry to media file name, as the package's list gives it.
  std::map<std::string, std::string> _mediaMap;
  std::unordered_map<std::string, std::string> _nameToNum;
  int _filesImported = 0;
  std::string _tmpPath;
  std::vector<Staged> _staged;
};

}  // namespace rivo
