#include "server/MediaStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "librivo/Checksum.h"
#include "librivo/DB.h"
#include "librivo/Files.h"
#include "librivo/MediaManager.h"
#include "librivo/ZipReader.h"
#include "librivo/ZipWriter.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSchema =
    "create table if not exists media (fname text not null primary key, usn int not null, "
    "csum text); create index if not exists idx_media_usn on media (usn); create table if not "
    "exists meta (usn int not null); insert into meta select 0 where not exists (select 1 from "
    "meta)";

std::string dbPath(const std::string& folder) {
  return folder + "/media.db";
}

bool readFile(const std::string& path, std::string& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  out = std::move(bytes).str();
  return !in.bad();
}

// Writes to a hidden temporary file in the folder; its path, or "" on failure. Not yet on
// disk: see syncAll().
std::string stageFile(const std::string& dir, const std::string& bytes) {
  std::string path = dir + "/.incoming-XXXXXX";
  int fd = mkstemp(path.data());
  if (fd < 0) return {};
  bool ok = writeAll(fd, bytes);
  ::close(fd);
  if (!ok) {
    ::unlink(path.c_str());
    return {};
  }
  return path;
}

// Puts the files on disk side by side: the file system joins flushes that wait together into
// one journal commit, where one after the other each would pay for its own.
bool syncAll(const std::vector<std::string>& paths) {
  std::atomic<bool> ok{true};
  std::vector<std::thread> workers;
  for (const std::string& path : paths)
    workers.emplace_back([&ok, &path] {
      int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0 || ::fdatasync(fd) != 0) ok = false;
      if (fd >= 0) ::close(fd);
    });
  for (std::thread& w : workers) w.join();
  return ok;
}

}  // namespace

MediaStore::MediaStore(const std::string& folder) : _dir(folder + "/media") {
  std::error_code ec;
  fs::create_directories(_dir, ec);
  _db = std::make_unique<DB>(dbPath(folder));
  _db->executeScript(kSchema);
  _db->commit();
}

MediaStore::~MediaStore() {
  if (_db) _db->close();
}

int64_t MediaStore::usnOf(const std::string& folder) {
  std::error_code ec;
  if (!fs::exists(dbPath(folder), ec)) return 0;
  DB db(dbPath(folder));
  int64_t usn = db.scalarInt("select usn from meta");
  db.close();
  return usn;
}

int64_t MediaStore::usn() {
  return _db->scalarInt("select usn from meta");
}

int64_t MediaStore::count() {
  return _db->scalarInt("select count() from media where csum is not null");
}

Json MediaStore::changesAfter(int64_t lastUsn) {
  Json changes = Json::array();
  for (const Row& row : _db->all("select fname, usn, csum from media where usn > ? order by usn "
                                 "limit ?",
                                 {lastUsn, int64_t{kChangesPerReply}}))
    changes.push_back({toText(row[0]), toInt(row[1]), isNull(row[2]) ? "" : toText(row[2])});
  return changes;
}

bool MediaStore::zipFiles(const Json& names, const std::string& zipPath, std::string* problem) {
  if (!names.is_array() || names.empty()) {
    *problem = "no files asked for";
    return false;
  }
  ZipWriter zip(zipPath);
  Json meta = Json::object();
  int64_t size = 0;
  std::string bytes;
  for (const Json& name : names) {
    if (meta.size() >= kDownloadFiles || size >= kDownloadBytes) break;
    if (!name.is_string() || !MediaManager::isPlainName(name.get<std::string>())) {
      *problem = "not a media file name: " + name.dump();
      return false;
    }
    const std::string fname = name.get<std::string>();
    const bool held =
        _db->scalarInt("select 1 from media where fname=? and csum is not null", {fname}) == 1;
    if (!held || !readFile(_dir + "/" + fname, bytes)) {
      if (!meta.empty()) break;
      *problem = "no such media file: " + fname;
      return false;
    }
    const std::string entry = std::to_string(meta.size());
    if (!zip.add(entry, bytes, 0)) break;
    meta[entry] = fname;
    size += static_cast<int64_t>(bytes.size());
  }
  if (!zip.add("_meta", meta.dump(), -1) || !zip.close()) {
    *problem = "the zip can't be written: " + zip.error();
    return false;
  }
  return true;
}

std::optional<std::pair<int64_t, int64_t>> MediaStore::applyUpload(const std::string& zipPath,
                                                                   std::string* problem) {
  struct Change {
    std::string fname;
    std::string staged;  // "" for a deletion
    std::string csum;
  };
  std::vector<Change> changes;
  auto discardAll = [&] {
    for (const Change& c : changes)
      if (!c.staged.empty()) ::unlink(c.staged.c_str());
  };
  {
    ZipReader zip(zipPath);
    std::optional<std::string> metaText = zip.ok() ? zip.read("_meta", 1 << 20) : std::nullopt;
    std::string why;
    Json meta = metaText ? decodeJson(*metaText, &why) : Json();
    if (!metaText || !why.empty() || !meta.is_array()) {
      *problem = "the batch has no readable list of changes";
      return std::nullopt;
    }
    std::map<std::string, bool> seen;
    for (const Json& pair : meta) {
      if (!pair.is_array() || pair.size() != 2 || !pair[0].is_string() || !pair[1].is_string() ||
          !MediaManager::isPlainName(pair[0].get<std::string>()) ||
          seen[pair[0].get<std::string>()]) {
        *problem = "not a change: " + pair.dump();
        discardAll();
        return std::nullopt;
      }
      Change change{pair[0].get<std::string>(), {}, {}};
      seen[change.fname] = true;
      const std::string entry = pair[1].get<std::string>();
      if (!entry.empty()) {
        std::optional<ZipReader::Entry> found = zip.find(entry);
        std::optional<std::string> bytes;
        if (found && zip.plausible(*found)) bytes = zip.read(entry);
        if (!bytes) {
          *problem = "the batch has no sound entry " + entry + " for " + change.fname;
          discardAll();
          return std::nullopt;
        }
        change.csum = checksum(*bytes);
        change.staged = stageFile(_dir, *bytes);
        if (change.staged.empty()) {
          *problem = "the media folder can't be written";
          discardAll();
          return std::nullopt;
        }
      }
      changes.push_back(std::move(change));
    }
  }
  std::vector<std::string> staged;
  for (const Change& c : changes)
    if (!c.staged.empty()) staged.push_back(c.staged);
  if (!syncAll(staged)) {
    *problem = "the media folder can't be written";
    discardAll();
    return std::nullopt;
  }
  int64_t next = usn();
  std::vector<Row> rows;
  for (const Change& c : changes) {
    const std::string target = _dir + "/" + c.fname;
    if (c.staged.empty())
      ::unlink(target.c_str());
    else
      ::rename(c.staged.c_str(), target.c_str());
    rows.push_back({c.fname, ++next, c.staged.empty() ? Value() : Value(c.csum)});
  }
  syncPath(_dir);
  _db->executeMany("insert or replace into media values (?,?,?)", rows);
  _db->run("update meta set usn = ?", {next});
  _db->commit();
  return std::make_pair(static_cast<int64_t>(changes.size()), next);
}

}  // namespace rivo
