#include "librivo/ZipWriter.h"

#include <minizip/zip.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace rivo {

ZipWriter::ZipWriter(const std::string& path) : _path(path) {
  _zip = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
  if (!_zip) _error = "couldn't create the zip file " + path;
}

ZipWriter::~ZipWriter() {
  if (_zip) zipClose(_zip, nullptr);
}

bool ZipWriter::_fail(const std::string& what, int code) {
  if (!_error.empty()) return false;
  // The zip layer reports a failed read or write of the file as ZIP_ERRNO, with errno set.
  _error = what + (code == ZIP_ERRNO ? std::string(": ") + std::strerror(errno)
                                     : " (zip error " + std::to_string(code) + ")");
  return false;
}

bool ZipWriter::_open(const std::string& name, int level, bool zip64) {
  if (!ok()) return false;
  zip_fileinfo info{};
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  info.tmz_date.tm_sec = local.tm_sec;
  info.tmz_date.tm_min = local.tm_min;
  info.tmz_date.tm_hour = local.tm_hour;
  info.tmz_date.tm_mday = local.tm_mday;
  info.tmz_date.tm_mon = local.tm_mon;
  info.tmz_date.tm_year = local.tm_year + 1900;
  const int method = level == 0 ? 0 : Z_DEFLATED;
  const int rc = zipOpenNewFileInZip64(_zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                       method, level, zip64 ? 1 : 0);
  return rc == ZIP_OK || _fail("couldn't add the entry " + name, rc);
}

bool ZipWriter::_write(const std::string& name, std::string_view bytes) {
  // zipWriteInFileInZip takes an unsigned int length: large pieces go in parts.
  constexpr size_t kPart = 1 << 30;
  for (size_t at = 0; at < bytes.size(); at += kPart) {
    const size_t n = std::min(kPart, bytes.size() - at);
    const int rc = zipWriteInFileInZip(_zip, bytes.data() + at, static_cast<unsigned>(n));
    if (rc != ZIP_OK) return _fail("couldn't write the entry " + name, rc);
  }
  return true;
}

bool ZipWriter::_finish(const std::string& name, bool written) {
  const int closed = zipCloseFileInZip(_zip);
  if (!written) return false;
  return closed == ZIP_OK || _fail("couldn't finish the entry " + name, closed);
}

bool ZipWriter::add(const std::string& name, std::string_view bytes, int level) {
  if (!_open(name, level, bytes.size() >= 0xffffffffu)) return false;
  return _finish(name, _write(name, bytes));
}

bool ZipWriter::addFile(const std::string& name, const std::string& path, int level,
                        const Progress& progress) {
  if (!ok()) return false;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat st {};
  if (fd < 0 || fstat(fd, &st) != 0) {
    _fail("couldn't read " + path, ZIP_ERRNO);
    if (fd >= 0) ::close(fd);
    return false;
  }
  const uint64_t total = static_cast<uint64_t>(st.st_size);
  bool written = _open(name, level, total >= 0xffffffffu);
  if (!written) {
    ::close(fd);
    return false;
  }
  std::string piece(std::min<uint64_t>(total, 1 << 20) + 1, '\0');
  uint64_t done = 0;
  while (written) {
    const ssize_t n = ::read(fd, piece.data(), piece.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) written = _fail("couldn't read " + path, ZIP_ERRNO);
    if (n <= 0) break;
    written = _write(name, std::string_view(piece.data(), static_cast<size_t>(n)));
    done += static_cast<uint64_t>(n);
    if (written && progress) progress(done, total);
  }
  ::close(fd);
  return _finish(name, written);
}

bool ZipWriter::close() {
  if (!_zip) return false;
  const int rc = zipClose(_zip, nullptr);
  _zip = nullptr;
  if (rc != ZIP_OK) return _fail("couldn't finish the zip file", rc);
  return _error.empty();
}

}  // namespace rivo
