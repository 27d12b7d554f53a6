#pragma once
// Opens a collection file, creating the database with its schema and default rows if absent.

#include <memory>
#include <string>

namespace rivo {

class Col;
class DB;

class Storage {
 public:
  // Empty when the file can't be read as a collection (a damaged or foreign file).
  // `logFolder` is where the collection's debug.log goes; empty means no debug log.
  static std::unique_ptr<Col> open(const std::string& path, bool lock = true, bool server = false,
                                   bool durable = true, const std::string& logFolder = {});

  // True when every note's fields and tags are valid UTF-8. A file from elsewhere (a package,
  // a download, an upload) is checked before it is taken: none of its notes could be saved.
  static bool notesAreUtf8(DB& db);

  static void _createDB(DB& db);
  static void _addSchema(DB& db);
  static void _updateIndices(DB& db);
};

}  // namespace rivo
