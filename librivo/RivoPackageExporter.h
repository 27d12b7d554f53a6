#pragma once
// Writes a package (".rpkg", the format RivoPackageImporter reads): "collection.rivo2", the
// "media" list (entry name to file name, NFC) and one stored entry per media file.
//
// copyInto() is the whole export. With no deck and with scheduling (the default) it copies the
// collection as it stands: the collection is closed (which saves it), its file copied, and it
// is reopened, also after a failure; with "Include Media" every file of the media folder goes
// along. A deck, or an export without scheduling, takes the file RivoExporter builds instead,
// with only the media its notes use.
//
// The package is written through PackageWriter: nothing ever stands half-written under the
// target's name, and a failed export leaves an older file there as it was. Progress goes
// through the collection's updateProgressWithBlock. One run per object, on the thread that owns
// the collection (the work queue), with nothing else using the collection meanwhile.

#include <optional>
#include <string>

#include "librivo/RivoExporter.h"

namespace rivo {

class PackageWriter;

class RivoPackageExporter : public RivoExporter {
 public:
  explicit RivoPackageExporter(Col& col, std::optional<Id> did = std::nullopt);

  // Shown with the share copied ("Exporting... 40%") while the collection is being copied.
  std::string progressText = "Exporting...";

  // A package is written by copyInto; this writes nothing.
  bool exportInto(const std::string& path, std::string* error) override;
  // False with `error` set to a sentence for the user; the collection is open either way.
  bool copyInto(const std::string& path, std::string* error);

  // Media files in the last package written.
  int mediaCount() const { return _mediaCount; }

 private:
  bool _copyCollection(PackageWriter& writer, const std::string& path, std::string* error);
  bool _buildSubset(PackageWriter& writer, const std::string& path, std::string* error);
  bool _addMedia(PackageWriter& writer, const std::vector<std::string>& files);
  void _progress(uint64_t done, uint64_t total);

  int _mediaCount = 0;
};

}  // namespace rivo
