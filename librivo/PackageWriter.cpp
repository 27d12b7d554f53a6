#include "librivo/PackageWriter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "librivo/Files.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

std::string folderOf(const std::string& path) {
  const fs::path folder = fs::path(path).parent_path();
  return folder.empty() ? "." : folder.string();
}

bool sameDisk(const std::string& a, const std::string& b) {
  struct stat sa {
  }, sb{};
  return stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev;
}

}  // namespace

std::string PackageWriter::checkTarget(const std::string& target) {
  const std::string folder = folderOf(target);
  std::error_code ec;
  if (!fs::exists(folder, ec)) return "The folder " + folder + " doesn't exist.";
  if (!fs::is_directory(folder, ec)) return folder + " is not a folder.";
  if (fs::is_directory(target, ec)) return target + " is a folder.";
  if (access(folder.c_str(), W_OK | X_OK) != 0)
    return "The folder " + folder + " can't be written to.";
  if (fs::exists(target, ec) && access(target.c_str(), W_OK) != 0)
    return target + " can't be replaced: it is read-only.";
  return {};
}

std::string PackageWriter::checkSpace(const std::string& target, uint64_t bytes,
                                      const std::string& tmp) {
  const std::string folder = folderOf(target);
  // The zip is made in the temporary folder, and copied when the target is on another disk.
  for (const std::string& dir : {tmp, folder}) {
    if (dir == folder && sameDisk(tmp, folder)) break;
    const uint64_t free = freeBytes(dir);
    if (bytes + kReserveBytes > free)
      return "There isn't enough free disk space in " + dir + ": the file needs about " +
             sizeText(bytes) + ", and " + sizeText(free) + " is free.";
  }
  return {};
}

PackageWriter::PackageWriter(std::string target, const std::string& tmp)
    : _target(std::move(target)) {
  _tmpPath = getUniqueFilenameInFolder(tmp, "rpkg.part");
  _zip = std::make_unique<ZipWriter>(_tmpPath);
  if (!_zip->ok()) _error = "A temporary file can't be made in " + tmp + ".";
}

PackageWriter::~PackageWriter() {
  _zip.reset();
  if (!_tmpPath.empty()) unlink(_tmpPath.c_str());
}

bool PackageWriter::_failed() {
  if (_error.empty()) _error = "The file couldn't be written: " + _zip->error() + ".";
  return false;
}

bool PackageWriter::add(const std::string& name, std::string_view bytes, int level) {
  return _zip->add(name, bytes, level) || _failed();
}

bool PackageWriter::addFile(const std::string& name, const std::string& path, int level,
                            const ZipWriter::Progress& progress) {
  return _zip->addFile(name, path, level, progress) || _failed();
}

bool PackageWriter::commit() {
  if (!_error.empty()) return false;
  if (!_zip->close()) return _failed();
  if (!syncPath(_tmpPath)) {
    _error = "The file couldn't be written: it can't be flushed to the disk.";
    return false;
  }
  std::string problem;
  if (!moveFile(_tmpPath, _target, &problem)) {
    _error = "The file couldn't be saved as " + _target + ": " + problem + ".";
    return false;
  }
  _tmpPath.clear();
  return true;
}

}  // namespace rivo
