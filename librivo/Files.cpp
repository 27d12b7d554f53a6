#include "librivo/Files.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "librivo/Random.h"

namespace rivo {

std::string tmpFileFromData(const std::string& folder, std::string_view bytes) {
  std::string path = (std::filesystem::path(folder) / "XXXXXX.tmp").string();
  const int fd = mkstemps(path.data(), 4);
  if (fd < 0) throw std::runtime_error("could not create a temporary file in " + folder);
  const bool written = writeAll(fd, bytes);
  const bool closed = close(fd) == 0;
  if (!written || !closed) {
    unlink(path.c_str());
    throw std::runtime_error("could not write the temporary file " + path);
  }
  return path;
}

std::string tmpFileFromData(const std::string& folder, const std::vector<uint8_t>& bytes) {
  return tmpFileFromData(
      folder, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string tmpFileFromJSON(const std::string& folder, const Json& value) {
  return tmpFileFromData(folder, jsonString(value));
}

std::string getUniqueFilenameInFolder(const std::string& folder, const std::string& extension) {
  std::string path;
  do {
    std::string name = randomUUID();
    if (!extension.empty()) name += "." + extension;
    path = (std::filesystem::path(folder) / name).string();
  } while (std::filesystem::exists(path));
  return path;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

void clearTempDir(const std::string& dir) {
  namespace fs = std::filesystem;
  std::error_code ec;
  std::vector<fs::path> entries;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
    entries.push_back(it->path());
  for (const fs::path& entry : entries) fs::remove_all(entry, ec);
}

bool syncPath(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = fsync(fd) == 0;
  close(fd);
  return ok;
}

bool moveFile(const std::string& from, const std::string& to, std::string* problem) {
  const std::string folder = std::filesystem::path(to).parent_path().string();
  if (rename(from.c_str(), to.c_str()) == 0) {
    syncPath(folder.empty() ? "." : folder);
    return true;
  }
  if (errno != EXDEV) {
    *problem = std::strerror(errno);
    return false;
  }
  const std::string beside = to + ".incoming";
  std::error_code ec;
  std::filesystem::copy_file(from, beside, std::filesystem::copy_options::overwrite_existing, ec);
  const bool synced = !ec && syncPath(beside);
  if (!synced || rename(beside.c_str(), to.c_str()) != 0) {
    *problem = ec ? ec.message() : std::strerror(errno);
    unlink(beside.c_str());
    return false;
  }
  unlink(from.c_str());
  syncPath(folder.empty() ? "." : folder);
  return true;
}

bool writeFileAtomically(const std::string& path, std::string_view bytes, mode_t mode,
                         std::string* problem) {
  const std::string beside = path + ".tmp";
  // Made afresh, so that a leftover of a crash can't lend the file its permissions.
  unlink(beside.c_str());
  const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (fd < 0) {
    *problem = "can't create " + beside + ": " + std::strerror(errno);
    return false;
  }
  bool written = writeAll(fd, bytes) && fsync(fd) == 0;
  if (!written) *problem = "can't write " + beside + ": " + std::strerror(errno);
  if (close(fd) != 0 && written) {
    written = false;
    *problem = "can't write " + beside + ": " + std::strerror(errno);
  }
  if (written && moveFile(beside, path, problem)) return true;
  unlink(beside.c_str());
  return false;
}

uint64_t freeBytes(const std::string& dir) {
  struct statvfs st {};
  if (statvfs(dir.c_str(), &st) != 0) return UINT64_MAX;
  return static_cast<uint64_t>(st.f_bavail) * st.f_frsize;
}

std::string sizeText(uint64_t bytes) {
  char text[32];
  if (bytes < (1 << 20))
    std::snprintf(text, sizeof text, "%.0f KB", static_cast<double>(bytes) / 1024);
  else if (bytes < (uint64_t{1} << 30))
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / (1 << 20));
  else
    std::snprintf(text, sizeof text, "%.1f GB", static_cast<double>(bytes) / (1 << 30));
  return text;
}

}  // namespace rivo
