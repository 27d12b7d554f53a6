#include "librivo/ZipReader.h"

#include <minizip/unzip.h>

#include <algorithm>

namespace rivo {

ZipReader::ZipReader(const std::string& path) : _path(path) {
  _zip = unzOpen64(path.c_str());
  if (!_zip) _error = "couldn't open " + path + " as a zip file";
}

ZipReader::~ZipReader() {
  if (_zip) unzClose(_zip);
}

std::optional<ZipReader::Entry> ZipReader::_current() {
  unz_file_info64 info{};
  if (unzGetCurrentFileInfo64(_zip, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) {
    _error = "damaged zip directory in " + _path;
    return std::nullopt;
  }
  Entry entry;
  entry.name.resize(info.size_filename);
  if (unzGetCurrentFileInfo64(_zip, &info, entry.name.data(), info.size_filename, nullptr, 0,
                              nullptr, 0) != UNZ_OK) {
    _error = "damaged zip directory in " + _path;
    return std::nullopt;
  }
  entry.stored = info.compression_method == 0;
  entry.size = info.uncompressed_size;
  return entry;
}

std::optional<std::string> ZipReader::_readCurrent(const Entry& entry) {
  if (unzOpenCurrentFile(_zip) != UNZ_OK) {
    _error = "can't read the entry " + entry.name + " of " + _path;
    return std::nullopt;
  }
  std::string bytes;
  // The declared size is only a hint for the first allocation: the data may be short.
  bytes.reserve(static_cast<size_t>(std::min<uint64_t>(entry.size, 1 << 24)));
  char buffer[1 << 16];
  int n;
  while ((n = unzReadCurrentFile(_zip, buffer, sizeof buffer)) > 0) bytes.append(buffer, n);
  // Closing checks the CRC once the whole entry has been read.
  const int closed = unzCloseCurrentFile(_zip);
  if (n < 0 || closed != UNZ_OK || bytes.size() != entry.size) {
    _error = "the entry " + entry.name + " of " + _path + " is damaged";
    return std::nullopt;
  }
  return bytes;
}

std::vector<ZipReader::Entry> ZipReader::entries() {
  std::vector<Entry> out;
  if (!_zip) return out;
  int rc = unzGoToFirstFile(_zip);
  for (; rc == UNZ_OK; rc = unzGoToNextFile(_zip)) {
    auto entry = _current();
    if (!entry) return {};
    out.push_back(std::move(*entry));
  }
  if (rc != UNZ_END_OF_LIST_OF_FILE) {
    _error = "damaged zip directory in " + _path;
    return {};
  }
  return out;
}

std::optional<std::string> ZipReader::read(const std::string& name) {
  if (!_zip) return std::nullopt;
  if (unzLocateFile(_zip, name.c_str(), 1) != UNZ_OK) {
    _error = "no entry " + name + " in " + _path;
    return std::nullopt;
  }
  auto entry = _current();
  if (!entry) return std::nullopt;
  return _readCurrent(*entry);
}

bool ZipReader::forEach(
    const std::function<bool(const std::string& name, std::string bytes)>& each) {
  if (!_zip) return false;
  int rc = unzGoToFirstFile(_zip);
  for (; rc == UNZ_OK; rc = unzGoToNextFile(_zip)) {
    auto entry = _current();
    if (!entry) return false;
    auto bytes = _readCurrent(*entry);
    if (!bytes) return false;
    if (!each(entry->name, std::move(*bytes))) return true;
  }
  if (rc != UNZ_END_OF_LIST_OF_FILE) {
    _error = "damaged zip directory in " + _path;
    return false;
  }
  return true;
}

}  // namespace rivo
