#include "librivo/MediaManager.h"

#include <filesystem>

#include "librivo/Col.h"
#include "librivo/DB.h"

namespace fs = std::filesystem;

namespace rivo {

MediaManager::MediaManager(Col& col, bool server) : _col(col), _server(server) {
  if (_server) return;
  _dir = (fs::path(_col.path()).parent_path() / "media").string();
  std::error_code ec;
  fs::create_directories(_dir, ec);
  connect();
}

MediaManager::~MediaManager() {
  close();
}

void MediaManager::connect() {
  if (_server) return;
  std::string path = _dir + ".rm.db3";
  bool existed = fs::exists(path);
  _db = std::make_unique<DB>(path);
  if (!existed) _initDB();
}

void MediaManager::_initDB() {
  _col.log({"creating media DB tables"});
  _db->executeScript(
      "create table media (fname text not null primary key, csum text,  mtime int not null, "
      "dirty int not null); create index idx_media_dirty on media (dirty); create table meta "
      "(dirMod int, lastUsn int); insert into meta values (0, 0)");
  _db->commit();
}

void MediaManager::close() {
  if (_server || !_db) return;
  _db->close();
  _db.reset();
}

}  // namespace rivo
