#pragma once
// Writes a zip file entry by entry: media batches, packages and backups.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace rivo {

class ZipWriter {
 public:
  // Creates (or truncates) the file; check ok() afterwards.
  explicit ZipWriter(const std::string& path);
  // Closes the file if close() wasn't called; a failure then goes unnoticed.
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  // False once anything has failed; error() says what.
  bool ok() const { return _zip != nullptr && _error.empty(); }
  const std::string& error() const { return _error; }

  // Level 0 writes a stored entry (no deflate stream at all), -1 deflates at zlib's default
  // level, 1 to 9 at that level.
  bool add(const std::string& name, std::string_view bytes, int level = -1);
  // The file at `path` as one entry, read in pieces so that it is never held whole; `progress`
  // gets the bytes written so far and the file's size after each piece.
  using Progress = std::function<void(uint64_t done, uint64_t total)>;
  bool addFile(const std::string& name, const std::string& path, int level = -1,
               const Progress& progress = {});
  // Writes the central directory and closes the file.
  bool close();

 private:
  bool _fail(const std::string& what, int code);
  bool _open(const std::string& name, int level, bool zip64);
  bool _write(const std::string& name, std::string_view bytes);
  bool _finish(const std::string& name, bool written);

  void* _zip = nullptr;
  std::string _path;
  std::string _error;
};

}  // namespace rivo
