#pragma once
// Builds a separate collection file from a subset of the open one: the cards of a deck and its
// children (or all cards), their notes and note types, the decks and their option groups. With
// includeSched the cards keep their scheduling and their review history; without it every card
// is new and no history goes along. With includeMedia, mediaFiles() lists the media files the
// exported notes refer to, which a package then carries.
//
// The file is built in a folder of its own under the collection's temporary folder and moved to its
// path only when complete, so nothing else (no media folder) appears beside it and a failure leaves
// nothing. One run per object, on the thread that owns the collection (the work queue); the
// collection is only read.

#include <optional>
#include <string>
#include <vector>

#include "librivo/Exporter.h"

namespace rivo {

class DB;

class RivoExporter : public Exporter {
 public:
  explicit RivoExporter(Col& col, std::optional<Id> did = std::nullopt);

  bool includeSched = false;
  bool includeMedia = true;
  // What kind of file this is, and its extension: labels for a caller that offers formats.
  std::string key = "Rivo Collection";
  std::string ext = ".rivo2";

  // Builds the file at `path`, replacing one there. False with `error` set to a sentence for
  // the user; nothing is left at `path` then.
  bool exportInto(const std::string& path, std::string* error) override;

  // After exportInto with includeMedia: full paths of the media files of the exported notes.
  const std::vector<std::string>& mediaFiles() const { return _mediaFiles; }

 private:
  void _build(Col& dst);
  void _copyDecks(Col& dst);
  void _collectMedia(DB& dst);

  std::vector<std::string> _mediaFiles;
};

}  // namespace rivo
