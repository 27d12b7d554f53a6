#include "librivo/ZipReader.h"

#include <minizip/unzip.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "librivo/Files.h"

namespace rivo {

namespace {

// Deflate can't expand data by more than this factor (its maximum is about 1032:1), plus a
// little for the stream's own framing.
constexpr uint64_t kMaxDeflateRatio = 1032;
constexpr uint64_t kDeflateSlack = 1024;

}  // namespace

ZipReader::ZipReader(const std::string& path) : _path(path) {
  _zip = unzOpen64(path.c_str());
  if (!_zip) _error = "couldn't open " + path + " as a zip file";
  struct stat st {};
  if (stat(path.c_str(), &st) == 0) _fileSize = static_cast<uint64_t>(st.st_size);
}

bool ZipReader::_fail(const std::string& what) {
  _error = what;
  return false;
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
  entry.compressedSize = info.compressed_size;
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

bool ZipReader::_index() {
  if (_positions) return true;
  std::unordered_map<std::string, Position> positions;
  int rc = unzGoToFirstFile(_zip);
  for (; rc == UNZ_OK; rc = unzGoToNextFile(_zip)) {
    auto entry = _current();
    unz64_file_pos pos{};
    if (!entry || unzGetFilePos64(_zip, &pos) != UNZ_OK)
      return _fail("damaged zip directory in " + _path);
    // The first of two entries of one name is the one found, as the zip's own lookup finds it.
    positions.try_emplace(entry->name, Position{pos.pos_in_zip_directory, pos.num_of_file});
  }
  if (rc != UNZ_END_OF_LIST_OF_FILE) return _fail("damaged zip directory in " + _path);
  _positions = std::move(positions);
  return true;
}

std::optional<ZipReader::Entry> ZipReader::find(const std::string& name) {
  if (!_zip || !_index()) return std::nullopt;
  auto it = _positions->find(name);
  unz64_file_pos pos{};
  if (it != _positions->end()) pos = {it->second.directory, it->second.number};
  if (it == _positions->end() || unzGoToFilePos64(_zip, &pos) != UNZ_OK) {
    _error = "no entry " + name + " in " + _path;
    return std::nullopt;
  }
  return _current();
}

bool ZipReader::plausible(const Entry& entry) const {
  if (entry.compressedSize > _fileSize) return false;
  if (entry.stored) return entry.size == entry.compressedSize;
  return entry.size <= entry.compressedSize * kMaxDeflateRatio + kDeflateSlack;
}

std::optional<std::string> ZipReader::read(const std::string& name, uint64_t limit) {
  auto entry = find(name);
  if (!entry) return std::nullopt;
  if (entry->size > limit) {
    _error = "the entry " + name + " of " + _path + " is larger than " + std::to_string(limit) +
             " bytes";
    return std::nullopt;
  }
  return _readCurrent(*entry);
}

bool ZipReader::extract(const std::string& name, int fd, size_t piece) {
  auto entry = find(name);
  if (!entry) return false;
  if (unzOpenCurrentFile(_zip) != UNZ_OK) return _fail("can't read the entry " + name);
  // No larger than the entry: most media files are far smaller than a piece.
  std::vector<char> buffer(static_cast<size_t>(std::clamp<uint64_t>(entry->size, 1, piece)));
  uint64_t total = 0;
  int n;
  bool written = true;
  while ((n = unzReadCurrentFile(_zip, buffer.data(), static_cast<unsigned>(buffer.size()))) > 0) {
    total += static_cast<uint64_t>(n);
    if (!(written = writeAll(fd, std::string_view(buffer.data(), static_cast<size_t>(n))))) break;
  }
  const std::string why = written ? std::string() : std::strerror(errno);
  // Closing checks the CRC once the whole entry has been read.
  const int closed = unzCloseCurrentFile(_zip);
  if (!written) return _fail("can't write the entry " + name + ": " + why);
  if (n < 0 || closed != UNZ_OK || total != entry->size)
    return _fail("the entry " + name + " of " + _path + " is damaged");
  return true;
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
