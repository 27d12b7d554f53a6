#pragma once
// The base of the importers: the file read, the target collection, the lines that report the
// run, and a running id base. One object serves one run, on the thread that owns the target
// collection (the work queue).

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace rivo {

class Col;

// A source that can't be imported, refused before the target was changed (or after it was
// put back as it was). what() is a sentence for the user.
class ImportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Importer {
 public:
  // `col` is the open collection, which outlives the importer.
  Importer(Col& col, std::string file);
  virtual ~Importer() = default;
  Importer(const Importer&) = delete;
  Importer& operator=(const Importer&) = delete;

  virtual void run() {}

  const std::string& file() const { return _file; }
  // What the run did, one line each ("12 cards imported.").
  const std::vector<std::string>& log() const { return _log; }
  int64_t total() const { return _total; }

 protected:
  // A running id base above every note and card id of the target.
  void _prepareTS();
  int64_t ts() { return ++_ts; }

  std::string _file;
  std::vector<std::string> _log;
  Col& _col;
  Col* _dst = nullptr;
  int64_t _total = 0;
  int64_t _ts = 0;
};

}  // namespace rivo
