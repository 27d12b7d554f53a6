#pragma once
// Writes a package file (an export or a backup) so that no half-written file ever stands under
// its name: the zip is made in the temporary folder it is given, synced, and moved over the
// target only once it is whole. A writer that isn't committed removes its temporary file; a
// process killed meanwhile leaves it in the temporary folder, which the application empties at
// each launch. Sentences in error() are for the user.
//
// One thread at a time; the object owns its temporary file.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "librivo/ZipWriter.h"

namespace rivo {

class PackageWriter {
 public:
  // Room a package always leaves on a disk.
  static constexpr uint64_t kReserveBytes = 16 << 20;

  // Why a package can't be written at `target`, or "": its folder must exist and be writable,
  // and the target must not be a folder.
  static std::string checkTarget(const std::string& target);
  // Why `bytes` won't fit on the disks of the temporary folder `tmp` and of the target, or "".
  static std::string checkSpace(const std::string& target, uint64_t bytes, const std::string& tmp);

  // Creates the temporary zip in the folder `tmp`; check ok() afterwards.
  PackageWriter(std::string target, const std::string& tmp);
  ~PackageWriter();
  PackageWriter(const PackageWriter&) = delete;
  PackageWriter& operator=(const PackageWriter&) = delete;

  bool ok() const { return _zip && _zip->ok(); }
  const std::string& error() const { return _error; }

  bool add(const std::string& name, std::string_view bytes, int level = -1);
  bool addFile(const std::string& name, const std::string& path, int level = -1,
               const ZipWriter::Progress& progress = {});
  // Finishes the zip, syncs it and moves it over the target. False (error() set, the target as
  // it was) when any step failed.
  bool commit();

 private:
  bool _failed();

  std::string _target;
  std::string _tmpPath;
  std::unique_ptr<ZipWriter> _zip;
  std::string _error;
};

}  // namespace rivo
