#pragma once
// The collection's media folder and the small database that records changes for media sync.

#include <memory>
#include <string>

namespace rivo {

class Col;
class DB;

class MediaManager {
 public:
  // Client side: makes the folder if missing and connects. Server side: opens nothing.
  MediaManager(Col& col, bool server);
  ~MediaManager();

  void connect();
  void close();

  const std::string& dir() const { return _dir; }
  DB* db() const { return _db.get(); }

 private:
  void _initDB();

  Col& _col;
  bool _server;
  std::string _dir;
  std::unique_ptr<DB> _db;
};

}  // namespace rivo
