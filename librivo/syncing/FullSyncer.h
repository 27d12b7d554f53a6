#pragma once
// Moves the whole collection file one way when the two sides can't be merged: download
// replaces the local file with the server's, upload sends the local file. Neither holds the
// file in memory: the upload is read and gzipped 1 MiB at a time, the download is spooled to
// a temporary file and moved into place. Same threading as HttpSyncer.

#include <string>

#include "librivo/Error.h"
#include "librivo/syncing/HttpSyncer.h"

namespace rivo {

class Col;

class FullSyncer : public HttpSyncer {
 public:
  // `col` is not owned. Sets the form fields k and v before the transport starts.
  FullSyncer(Col* col, const std::string& hkey);
  std::string syncURL() const override { return syncBase() + "sync/"; }

  // Puts the server's collection in the local file's place; the collection is closed and
  // `col` cleared, so the caller reopens it. A download that isn't a sound collection leaves
  // the local file untouched.
  bool download(Error* err);
  // Sends the local collection, which beforeUpload leaves closed (also on failure).
  bool upload(Error* err);

  // "rivomobile,VERSION (bBUILD),linux:RELEASE".
  static std::string clientVersion();

  Col* col;
};

}  // namespace rivo
