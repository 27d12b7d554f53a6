#pragma once
// Reads a zip file: its entries in order, or one by name, each checked against its CRC.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace rivo {

class ZipReader {
 public:
  struct Entry {
    std::string name;
    bool stored = false;  // no compression at all
    uint64_t size = 0;    // uncompressed, as the central directory says
  };

  // Opens the file; check ok() afterwards (false for a missing, truncated or foreign file).
  explicit ZipReader(const std::string& path);
  ~ZipReader();
  ZipReader(const ZipReader&) = delete;
  ZipReader& operator=(const ZipReader&) = delete;

  bool ok() const { return _zip != nullptr; }
  // Why the last operation failed.
  const std::string& error() const { return _error; }

  // In the zip's order; empty (with error() set) when the directory can't be walked.
  std::vector<Entry> entries();
  // The whole entry; nothing when it is absent or damaged.
  std::optional<std::string> read(const std::string& name);
  // Reads every entry in the zip's order and hands it over; `each` returns false to stop.
  // False when an entry is damaged (nothing more is read) or the directory is.
  bool forEach(const std::function<bool(const std::string& name, std::string bytes)>& each);

 private:
  std::optional<Entry> _current();
  std::optional<std::string> _readCurrent(const Entry& entry);

  void* _zip = nullptr;
  std::string _path;
  std::string _error;
};

}  // namespace rivo
