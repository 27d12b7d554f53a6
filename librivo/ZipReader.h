#pragma once
// Reads a zip file: its entries in order, or one by name, each checked against its CRC. An
// entry is never read past the size the directory gives it, so a caller that checks the sizes
// first (plausible(), limits of its own) bounds what a hostile file can make it hold.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace rivo {

class ZipReader {
 public:
  struct Entry {
    std::string name;
    bool stored = false;  // no compression at all
    uint64_t size = 0;    // uncompressed, as the central directory says
    uint64_t compressedSize = 0;
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
  // The entry as the directory describes it; nothing when absent.
  std::optional<Entry> find(const std::string& name);
  // Whether the directory's sizes can be true: a stored entry's two sizes agree, a deflated one
  // grows at most as much as deflate can make it grow, and the data fits in the file.
  bool plausible(const Entry& entry) const;
  // The whole entry; nothing when it is absent, damaged, or larger than `limit` bytes.
  std::optional<std::string> read(const std::string& name, uint64_t limit = UINT64_MAX);
  // Streams the entry to the open file `fd` in pieces of `piece` bytes, so that it is never held
  // whole. False (error() set) when it is absent or damaged, or a write fails.
  bool extract(const std::string& name, int fd, size_t piece = 1 << 20);
  // Reads every entry in the zip's order and hands it over; `each` returns false to stop.
  // False when an entry is damaged (nothing more is read) or the directory is.
  bool forEach(const std::function<bool(const std::string& name, std::string bytes)>& each);

 private:
  std::optional<Entry> _current();
  std::optional<std::string> _readCurrent(const Entry& entry);
  bool _fail(const std::string& what);

  // Positions of the entries by name, made at the first lookup: the zip's own lookup walks
  // the whole directory each time.
  bool _index();
  struct Position {
    uint64_t directory = 0;
    uint64_t number = 0;
  };

  void* _zip = nullptr;
  uint64_t _fileSize = 0;
  std::optional<std::unordered_map<std::string, Position>> _positions;
  std::string _path;
  std::string _error;
};

}  // namespace rivo
