#include "librivo/MediaManager.h"

#include <dirent.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unicode/normalizer2.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>

#include "librivo/Checksum.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Error.h"
#include "librivo/Files.h"
#include "librivo/Grouping.h"
#include "librivo/IcuText.h"
#include "librivo/Json.h"
#include "librivo/Note.h"
#include "librivo/ZipReader.h"
#include "librivo/ZipWriter.h"

namespace fs = std::filesystem;

namespace rivo {

namespace {

using icutext::utf16;
using icutext::utf8;

// The characters a media name can't hold: brackets, angle brackets, colon, double quote,
// slash, question mark, asterisk, caret, backslash and vertical bar.
constexpr std::string_view kIllegalChars = "][><:\"/?*^\\|";

// Upload batches: the row limit, and the size after which no further file is taken.
constexpr int kBatchRows = 25;
constexpr int64_t kBatchBytes = 0x280000;

const icu::RegexPattern& soundRef() {
  static const auto p = icutext::compile(utf16(MediaManager::regexps()[0]));
  return *p;
}
const icu::RegexPattern& imageRef() {
  static const auto p = icutext::compile(utf16(MediaManager::regexps()[1]));
  return *p;
}
const icu::RegexPattern& urlScheme() {
  static const auto p = icutext::compile(u"(https?|ftp)://");
  return *p;
}

bool isAscii(std::string_view s) {
  return std::all_of(s.begin(), s.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// What any name used as a path must be: one component, inside the folder.
bool staysInFolder(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

bool isUrl(const icu::UnicodeString& name) {
  UErrorCode status = U_ZERO_ERROR;
  return icutext::matcher(urlScheme(), name)->find(status);
}

std::string errnoText() {
  return std::strerror(errno);
}

// Reads a whole regular file relative to an open folder (or an absolute path with AT_FDCWD).
// With the size known from a stat already made, reading stops there: a file that grows
// meanwhile has a new time, and the next scan reads it again.
bool readAt(int dirFd, const char* name, std::string& out, int64_t knownSize = -1) {
  const int fd = openat(dirFd, name, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return false;
  bool ok = true;
  size_t limit = SIZE_MAX, initial = static_cast<size_t>(knownSize);
  if (knownSize >= 0) {
    limit = initial;
  } else {
    struct stat st {};
    ok = fstat(fd, &st) == 0;
    if (ok && !S_ISREG(st.st_mode)) {
      errno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
      ok = false;
    }
    // One byte more than the size, so that the read that meets the end needs no growth.
    initial = static_cast<size_t>(st.st_size) + 1;
  }
  out.clear();
  if (ok) {
    out.resize(initial);
    size_t got = 0;
    while (got < limit) {
      if (got == out.size()) out.resize(got + 65536);
      const ssize_t n = read(fd, out.data() + got, std::min(out.size(), limit) - got);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) ok = false;
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    out.resize(got);
  }
  close(fd);
  return ok;
}

bool readWhole(const std::string& path, std::string& out) {
  return readAt(AT_FDCWD, path.c_str(), out);
}

// Names in a folder, one level, without "." and "..". False when it can't be listed.
bool listFolder(const std::string& dir,
                const std::function<void(int dirFd, const dirent& entry)>& each) {
  DIR* d = opendir(dir.c_str());
  if (!d) return false;
  const int fd = dirfd(d);
  while (const dirent* e = readdir(d)) {
    if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
    each(fd, *e);
  }
  closedir(d);
  return true;
}

bool isDirectoryEntry(int dirFd, const dirent& e) {
  if (e.d_type != DT_UNKNOWN) return e.d_type == DT_DIR;
  struct stat st {};
  return fstatat(dirFd, e.d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

// As a web view wants a URL path: letters, digits and the characters URLs allow stay.
std::string percentEscape(const std::string& text) {
  static constexpr std::string_view kKept = "-_.!~*'();/?:@&=+$,#";
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (std::isalnum(c) && c < 0x80) {
      out += ch;
    } else if (c < 0x80 && kKept.find(ch) != std::string_view::npos) {
      out += ch;
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::vector<std::string> groupsOf(const icu::RegexMatcher& m) {
  UErrorCode status = U_ZERO_ERROR;
  std::vector<std::string> groups;
  for (int32_t g = 0; g <= m.groupCount(); ++g) groups.push_back(utf8(m.group(g, status)));
  return groups;
}

// Each match of `pattern` replaced by what `fn` returns for it, in one pass.
icu::UnicodeString replaceEach(
    const icu::RegexPattern& pattern, const icu::UnicodeString& text,
    const std::function<icu::UnicodeString(const icu::RegexMatcher&)>& fn) {
  auto m = icutext::matcher(pattern, text);
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString out;
  int32_t copied = 0;
  while (m->find(status) && U_SUCCESS(status)) {
    const int32_t start = m->start(status);
    out.append(text, copied, start - copied).append(fn(*m));
    copied = m->end(status);
  }
  if (copied == 0 && out.isEmpty()) return text;
  out.append(text, copied, text.length() - copied);
  return out;
}

// " (1)" is appended to a stem, and a stem ending in a parenthesised run of the letter d
// gets " (0)" there instead: the number is never counted up, so names grow as a.png,
// a (1).png, a (1) (1).png.
std::string nextStem(const std::string& stem) {
  const size_t open = stem.rfind(" (");
  if (open != std::string::npos && stem.size() > open + 3 && stem.back() == ')') {
    const std::string_view run(stem.data() + open + 2, stem.size() - open - 3);
    if (std::all_of(run.begin(), run.end(), [](char c) { return c == 'd'; }))
      return stem.substr(0, open) + " (0)";
  }
  return stem + " (1)";
}

// Both files readable and equal, compared piece by piece: neither is ever held whole.
bool sameBytes(const std::string& a, const std::string& b) {
  struct stat sa {
  }, sb{};
  if (stat(a.c_str(), &sa) != 0 || stat(b.c_str(), &sb) != 0 || sa.st_size != sb.st_size)
    return false;
  const int fa = open(a.c_str(), O_RDONLY | O_CLOEXEC), fb = open(b.c_str(), O_RDONLY | O_CLOEXEC);
  bool same = fa >= 0 && fb >= 0;
  std::vector<char> x(1 << 16), y(1 << 16);
  while (same) {
    const ssize_t n = read(fa, x.data(), x.size());
    if (n <= 0) {
      same = n == 0 && read(fb, y.data(), 1) == 0;
      break;
    }
    size_t got = 0;
    while (got < static_cast<size_t>(n)) {
      const ssize_t m = read(fb, y.data() + got, static_cast<size_t>(n) - got);
      if (m <= 0) break;
      got += static_cast<size_t>(m);
    }
    same = got == static_cast<size_t>(n) && std::memcmp(x.data(), y.data(), got) == 0;
  }
  if (fa >= 0) close(fa);
  if (fb >= 0) close(fb);
  return same;
}

bool isThumbsDb(std::string_view name) {
  constexpr std::string_view kName = "thumbs.db";
  return name.size() == kName.size() &&
         std::equal(name.begin(), name.end(), kName.begin(), [](char a, char b) {
           return std::tolower(static_cast<unsigned char>(a)) == b;
         });
}

bool exists(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0;
}

void setError(Error* error, const std::string& message) {
  if (error) *error = errorWithMessage("mediaError", message);
}

}  // namespace

const std::array<std::string, 2>& MediaManager::regexps() {
  static const std::array<std::string, 2> patterns{
      "(?i)(\\[sound:([^]]+)\\])",
      "(?i)(<img[^>]+src=[\"']?([^\"'>]+)[\"']?[^>]*>)",
  };
  return patterns;
}

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

// --- Database ---

void MediaManager::connect() {
  if (_server) return;
  const std::string path = _dir + ".rm.db3";
  std::error_code ec;
  bool existed = fs::exists(path, ec);
  _db = std::make_unique<DB>(path);
  if (existed && !_dbUsable()) {
    // Only the change log is lost: a fresh database scans every file again and the next
    // sync starts from nothing, which is what a forced resync does.
    _col.log({"media database unreadable, rebuilding it"});
    _db->close();
    fs::rename(path, path + ".corrupt", ec);
    if (ec) fs::remove(path, ec);
    for (const char* suffix : {"-journal", "-wal", "-shm"}) fs::remove(path + suffix, ec);
    _db = std::make_unique<DB>(path);
    existed = false;
  }
  if (!existed) _initDB();
}

bool MediaManager::_dbUsable() {
  // The header, the schema and the one meta row: a file that is no database, or not this one,
  // fails here. A full check of every page would cost a read of the whole file at every open.
  if (!_db->isOpen()) return false;
  return _db->first("select dirMod, lastUsn from meta").has_value() &&
         _db->execute("select fname, csum, mtime, dirty from media limit 0");
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

DB& MediaManager::_mdb() {
  if (!_db) throw std::logic_error("the media database is closed");
  return *_db;
}

void MediaManager::_notify(const std::string& text) {
  if (_statusSink) _statusSink(text);
}

// --- Files ---

std::string MediaManager::_tempPath(int* fd) {
  static thread_local std::mt19937_64 random{std::random_device{}()};
  for (int attempt = 0; attempt < 100; ++attempt) {
    char name[40];
    std::snprintf(name, sizeof name, ".incoming-%016llx:tmp",
                  static_cast<unsigned long long>(random()));
    // The colon keeps the folder scan away from it; the media check shows a leftover.
    std::string path = _dir + "/" + name;
    *fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (*fd >= 0) return path;
    if (errno != EEXIST) return {};
  }
  return {};
}

std::string MediaManager::stage(const Fill& fill, std::string* problem) {
  int fd = -1;
  const std::string tmp = _tempPath(&fd);
  if (tmp.empty()) {
    *problem = "can't create a file in " + _dir + ": " + errnoText();
    return {};
  }
  bool written = fill(fd, problem);
  if (::close(fd) != 0 && written) {
    written = false;
    *problem = "can't write a file in " + _dir + ": " + errnoText();
  }
  if (!written) {
    unlink(tmp.c_str());
    return {};
  }
  return tmp;
}

bool MediaManager::place(const std::string& staged, const std::string& fname, bool replace,
                         std::string* problem) {
  const std::string target = _dir + "/" + fname;
  int rc;
  if (!staysInFolder(fname)) {
    errno = EINVAL;
    rc = -1;
  } else if (replace) {
    rc = rename(staged.c_str(), target.c_str());
  } else {
    // A link fails if the name is taken, so a file that appeared meanwhile is kept.
    rc = link(staged.c_str(), target.c_str());
    if (rc != 0 && errno != EEXIST && !exists(target)) rc = rename(staged.c_str(), target.c_str());
  }
  if (rc != 0) *problem = "can't store " + target + ": " + errnoText();
  unlink(staged.c_str());
  return rc == 0;
}

void MediaManager::discard(const std::string& staged) {
  if (!staged.empty()) unlink(staged.c_str());
}

bool MediaManager::_writeFile(const std::string& target, std::string_view bytes, bool replace,
                              std::string* problem) {
  const std::string staged = stage(
      [&](int fd, std::string* why) {
        if (writeAll(fd, bytes)) return true;
        *why = "can't write " + target + ": " + errnoText();
        return false;
      },
      problem);
  if (staged.empty()) return false;
  return place(staged, target.substr(target.rfind('/') + 1), replace, problem);
}

bool MediaManager::_copyFile(const std::string& source, const std::string& target,
                             std::string* problem) {
  std::string bytes;
  if (!readWhole(source, bytes)) {
    *problem = "can't read " + source + ": " + errnoText();
    return false;
  }
  return _writeFile(target, bytes, false, problem);
}

std::string MediaManager::addFile(const std::string& path) {
  std::string base = path;
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  if (const size_t slash = base.rfind('/'); slash != std::string::npos)
    base = base.substr(slash + 1);
  const std::string fname = nfc(stripIllegal(base));
  if (!staysInFolder(fname)) {
    _col.log({"Error copying audio: no usable file name in " + path});
    return {};
  }
  const std::string target = _dir + "/" + fname;
  if (!exists(target)) {
    std::string problem;
    if (!_copyFile(path, target, &problem)) _col.log({"Error copying audio: " + problem});
    return fname;
  }
  if (sameBytes(path, target)) return fname;
  const fs::path p(fname);
  std::string stem = p.stem().string();
  const std::string ext = p.extension().string();
  std::string candidate;
  for (;;) {
    candidate = stem + ext;
    if (!exists(_dir + "/" + candidate)) break;
    stem = nextStem(stem);
  }
  // Other bytes under a taken name are stored under the free name, so the note that asks for
  // them finds them; the file already in the folder stays as it was.
  std::string problem;
  if (!_copyFile(path, _dir + "/" + candidate, &problem))
    _col.log({"Error copying audio: " + problem});
  return candidate;
}

bool MediaManager::filesIdentical(const std::string& path1, const std::string& path2) {
  return sameBytes(path1, path2);
}

std::string MediaManager::pathOf(const std::string& fname) {
  if (_dir.empty() || !staysInFolder(fname)) return {};
  std::string path = _dir + "/" + fname;
  if (exists(path)) return path;
  if (isAscii(fname)) return {};
  const std::string composed = nfc(fname);
  if (composed != fname && staysInFolder(composed) && exists(_dir + "/" + composed))
    return _dir + "/" + composed;
  struct stat st {};
  if (stat(_dir.c_str(), &st) != 0) return {};
  if (!_variantsStamp || _variantsStamp->tv_sec != st.st_mtim.tv_sec ||
      _variantsStamp->tv_nsec != st.st_mtim.tv_nsec) {
    _variants.clear();
    listFolder(_dir, [&](int, const dirent& e) {
      if (isAscii(e.d_name)) return;
      std::string key = nfc(e.d_name);
      if (key != e.d_name) _variants[key] = e.d_name;
    });
    _variantsStamp = st.st_mtim;
  }
  auto it = _variants.find(composed);
  return it == _variants.end() ? std::string() : _dir + "/" + it->second;
}

bool MediaManager::have(const std::string& fname) {
  return !pathOf(fname).empty();
}

// --- Names ---

std::string MediaManager::stripIllegal(const std::string& name) {
  std::string out;
  out.reserve(name.size());
  for (char c : name)
    if (kIllegalChars.find(c) == std::string_view::npos) out += c;
  return out;
}

bool MediaManager::hasIllegal(const std::string& name) {
  return name.find_first_of(kIllegalChars) != std::string::npos;
}

bool MediaManager::isPlainName(std::string_view name) {
  if (!staysInFolder(name)) return false;
  return std::none_of(name.begin(), name.end(), [](char ch) {
    const auto c = static_cast<unsigned char>(ch);
    return c < 0x20 || c == 0x7f || c == '\\';
  });
}

std::string MediaManager::nfc(const std::string& text) {
  if (isAscii(text)) return text;
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* normalizer = icu::Normalizer2::getNFCInstance(status);
  const icu::UnicodeString u = utf16(text);
  if (U_FAILURE(status)) return utf8(u);
  if (normalizer->isNormalized(u, status) && U_SUCCESS(status)) return utf8(u);
  status = U_ZERO_ERROR;
  icu::UnicodeString composed = normalizer->normalize(u, status);
  return U_SUCCESS(status) ? utf8(composed) : utf8(u);
}

// --- References ---

std::vector<std::string> MediaManager::filesInStr(Id, const std::string& text, bool remote) {
  std::vector<std::string> out;
  if (text.find('[') == std::string::npos && text.find('<') == std::string::npos) return out;
  const icu::UnicodeString u = utf16(text);
  for (const icu::RegexPattern* pattern : {&soundRef(), &imageRef()}) {
    auto m = icutext::matcher(*pattern, u);
    UErrorCode status = U_ZERO_ERROR;
    while (m->find(status) && U_SUCCESS(status)) {
      const icu::UnicodeString name = m->group(2, status);
      if (!remote && !isUrl(name)) out.push_back(utf8(name));
    }
  }
  return out;
}

std::string MediaManager::strip(const std::string& text) {
  icu::UnicodeString u = utf16(text);
  u = icutext::replaceAll(soundRef(), u, icu::UnicodeString());
  u = icutext::replaceAll(imageRef(), u, icu::UnicodeString());
  return utf8(u);
}

std::string MediaManager::escapeImages(const std::string& text) {
  if (text.find('<') == std::string::npos) return text;
  return utf8(replaceEach(imageRef(), utf16(text), [](const icu::RegexMatcher& m) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::UnicodeString ref = m.group(1, status), name = m.group(2, status);
    if (isUrl(name)) return ref;
    return icutext::replaceLiteral(ref, name, utf16(percentEscape(utf8(name))));
  }));
}

std::string MediaManager::transformNames(const std::string& text, const NameTransform& fn) {
  // Every reference starts with one of these; most field text has neither.
  if (text.find('[') == std::string::npos && text.find('<') == std::string::npos) return text;
  icu::UnicodeString u = utf16(text);
  for (const icu::RegexPattern* pattern : {&soundRef(), &imageRef()})
    u = replaceEach(*pattern, u,
                    [&](const icu::RegexMatcher& m) { return utf16(fn(groupsOf(m))); });
  return utf8(u);
}

// --- Folder scan ---

int64_t MediaManager::_mtime(const std::string& path) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) {
    _col.log({"Error getting file attributes for path " + path + ": " + errnoText()});
    return 0;
  }
  return static_cast<int64_t>(st.st_mtim.tv_sec);
}

std::optional<int64_t> MediaManager::_changed() {
  const int64_t dirMod = _mdb().scalarInt("select dirMod from meta");
  const int64_t mtime = _mtime(_dir);
  if (dirMod != 0 && mtime == dirMod) return std::nullopt;
  return mtime;
}

std::pair<std::vector<MediaManager::Change>, std::vector<std::string>> MediaManager::_changes() {
  _cache.clear();
  _mdb().execute("select fname, csum, mtime from media where csum is not null", {},
                 [&](sqlite3_stmt* st) {
                   auto text = [st](int col) {
                     const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(st, col));
                     return std::string(p ? p : "", sqlite3_column_bytes(st, col));
                   };
                   _cache.emplace(text(0), CacheEntry{text(1), sqlite3_column_int64(st, 2)});
                 });
  std::vector<Change> added;
  std::string bytes;
  const bool listed = listFolder(_dir, [&](int dirFd, const dirent& e) {
    const std::string name = e.d_name;
    if (e.d_type == DT_DIR) return;
    struct stat st {};
    if (fstatat(dirFd, e.d_name, &st, 0) != 0) {
      _col.log(
          {"Error getting file attributes for path " + _dir + "/" + name + ": " + errnoText()});
      return;
    }
    // Folders are skipped, and so is anything that isn't a plain file (a pipe would block).
    if (!S_ISREG(st.st_mode)) return;
    if (isThumbsDb(name) || hasIllegal(name)) return;
    if (st.st_size == 0) {
      if (unlinkat(dirFd, e.d_name, 0) != 0) _col.log({errnoText()});
      return;
    }
    const std::string fname = nfc(name);
    // Both spellings of one name on disk: the composed one is the file the name opens, so the
    // other is left out rather than the two taking turns in the log.
    struct stat twin {};
    if (fname != name && fstatat(dirFd, fname.c_str(), &twin, 0) == 0 && S_ISREG(twin.st_mode))
      return;
    const int64_t mtime = st.st_mtim.tv_sec;
    auto it = _cache.find(fname);
    if (it != _cache.end() && mtime == it->second.mtime) {
      it->second.seen = true;
      return;
    }
    if (!readAt(dirFd, e.d_name, bytes, st.st_size)) {
      // Unreadable now: a known file keeps its row rather than turning into a deletion.
      _col.log({"Error reading media file " + name + ": " + errnoText()});
      if (it != _cache.end()) it->second.seen = true;
      return;
    }
    std::string csum = checksum(bytes);
    if (it == _cache.end()) {
      added.push_back({fname, std::move(csum), mtime});
    } else {
      if (csum != it->second.csum) added.push_back({fname, std::move(csum), mtime});
      it->second.seen = true;
    }
  });
  std::vector<std::string> removed;
  if (!listed) {
    // A folder that can't be listed says nothing about its files: none count as removed.
    _col.log({"Error listing media folder " + _dir + ": " + errnoText()});
    return {};
  }
  for (const auto& [name, entry] : _cache)
    if (!entry.seen) removed.push_back(name);
  std::sort(removed.begin(), removed.end());
  return {std::move(added), std::move(removed)};
}

void MediaManager::_logChanges() {
  auto [added, removed] = _changes();
  std::vector<Row> rows;
  rows.reserve(added.size() + removed.size());
  for (size_t i = 0; i < added.size(); ++i) {
    if (i % 25 == 0) _notify("Scanned " + std::to_string(i + 1) + " media file(s)...");
    rows.push_back({added[i].fname, added[i].csum, added[i].mtime, int64_t{1}});
  }
  for (const std::string& name : removed) rows.push_back({name, Null{}, int64_t{0}, int64_t{1}});
  _notify("Updating...");
  DB& db = _mdb();
  db.executeMany("insert or replace into media values (?,?,?,?)", rows);
  db.run("update meta set dirMod = ?", {_mtime(_dir)});
  db.commit();
}

void MediaManager::findChanges() {
  if (_changed()) _logChanges();
}

// --- Change log ---

bool MediaManager::haveDirty() {
  return _mdb().scalar("select 1 from media where dirty=1 limit 1").has_value();
}

int64_t MediaManager::dirtyCount() {
  return _mdb().scalarInt("select count() from media where dirty=1");
}

int64_t MediaManager::mediaCount() {
  return _mdb().scalarInt("select count() from media where csum is not null");
}

int64_t MediaManager::lastUsn() {
  return _mdb().scalarInt("select lastUsn from meta");
}

void MediaManager::setLastUsn(int64_t usn) {
  _mdb().run("update meta set lastUsn = ?", {usn});
  _mdb().commit();
}

std::pair<std::string, int64_t> MediaManager::syncInfo(const std::string& fname) {
  auto row = _mdb().first("select csum, dirty from media where fname=?", {fname});
  if (!row) return {"", 0};
  return {isNull((*row)[0]) ? std::string() : toText((*row)[0]), toInt((*row)[1])};
}

void MediaManager::markClean(const std::vector<std::string>& fnames) {
  std::vector<Row> rows;
  rows.reserve(fnames.size());
  for (const std::string& f : fnames) rows.push_back({f});
  _mdb().executeMany("update media set dirty=0 where fname=?", rows);
}

void MediaManager::syncDelete(const std::string& fname) {
  const std::string path = pathOf(fname);
  if (!path.empty() && unlink(path.c_str()) != 0) _col.log({errnoText()});
  _mdb().run("delete from media where fname=?", {fname});
}

void MediaManager::forceResync() {
  _col.log({"force resync"});
  DB& db = _mdb();
  db.run("delete from media");
  db.run("update meta set lastUsn=0,dirMod=0");
  db.commit();
  db.execute("vacuum");
  db.execute("analyze");
}

// --- Zip batches ---

std::optional<MediaManager::Batch> MediaManager::mediaChangesZip(Error* error) {
  const std::string zipPath = getUniqueFilenameInFolder(_col.tmpDir(), "zip");
  struct Remover {
    const std::string& path;
    ~Remover() { unlink(path.c_str()); }
  } remover{zipPath};
  ZipWriter zip(zipPath);
  Batch batch;
  Json meta = Json::array();
  int64_t size = 0;
  int ordinal = 0;
  std::string bytes;
  for (const Row& row :
       _mdb().all("select fname, csum from media where dirty=1 limit ?", {kBatchRows})) {
    const std::string fname = toText(row[0]);
    batch.names.push_back(fname);
    if (isNull(row[1])) {
      meta.push_back({fname, ""});
    } else {
      const std::string path = pathOf(fname);
      if (path.empty()) {
        setError(error, "Couldn't find media file to send");
        return std::nullopt;
      }
      if (!readWhole(path, bytes)) {
        setError(error, "Couldn't read media file to send: " + fname + ": " + errnoText());
        return std::nullopt;
      }
      const std::string entry = std::to_string(ordinal);
      if (!zip.add(entry, bytes, 0)) {
        setError(error, zip.error());
        return std::nullopt;
      }
      size += static_cast<int64_t>(bytes.size());
      meta.push_back({fname, entry});
    }
    if (size >= kBatchBytes) break;
    ++ordinal;
  }
  std::string jsonError;
  const std::string metaText = jsonString(meta, &jsonError);
  if (!jsonError.empty()) {
    setError(error, "Couldn't list the media files to send: " + jsonError);
    return std::nullopt;
  }
  if (!zip.add("_meta", metaText, -1) || !zip.close()) {
    setError(error, zip.error());
    return std::nullopt;
  }
  if (!readWhole(zipPath, batch.zip)) {
    setError(error, "Couldn't read back the media batch " + zipPath + ": " + errnoText());
    return std::nullopt;
  }
  return batch;
}

int MediaManager::addFilesFromZip(std::string_view data, Error* error) {
  if (!_db) connect();
  const std::string tmp = tmpFileFromData(_col.tmpDir(), data);
  // Everything is read and checked before the first file is written, so a damaged batch
  // changes nothing in the folder.
  std::vector<std::pair<std::string, std::string>> files;
  std::string problem;
  {
    ZipReader zip(tmp);
    std::optional<std::string> metaText;
    Json meta;
    if (!zip.ok()) {
      problem = "The media batch from the server isn't a readable zip file.";
    } else if (!(metaText = zip.read("_meta"))) {
      problem = "The media batch from the server has no readable list of files.";
    } else if (meta = decodeJson(*metaText, &problem); !problem.empty() || !meta.is_object()) {
      problem = "The media batch from the server has a damaged list of files.";
    } else {
      std::string stray;
      const bool read = zip.forEach([&](const std::string& entry, std::string bytes) {
        if (entry == "_meta") return true;
        auto it = meta.find(entry);
        if (it == meta.end() || !it->is_string()) {
          stray = entry;
          return false;
        }
        files.emplace_back(it->get<std::string>(), std::move(bytes));
        return true;
      });
      if (!read)
        problem = "The media batch from the server is damaged: " + zip.error();
      else if (!stray.empty())
        problem = "The media batch from the server holds a file it doesn't name: " + stray;
      else if (files.size() != meta.size())
        problem = "The media batch from the server names files it doesn't hold.";
    }
  }
  unlink(tmp.c_str());
  if (!problem.empty()) {
    _col.log({problem});
    setError(error, problem);
    return 0;
  }
  int count = 0;
  std::vector<Row> rows;
  for (const auto& [fname, bytes] : files) {
    ++count;
    if (!isPlainName(fname)) {
      _col.log({"Refused a media file name from the server: " + jsonString(Json(fname))});
      continue;
    }
    std::string target = pathOf(fname);
    if (target.empty()) target = _dir + "/" + fname;
    if (!_writeFile(target, bytes, true, &problem)) {
      _col.log({problem});
      setError(error, "Couldn't save a media file from the server: " + problem);
      return 0;
    }
    rows.push_back({fname, checksum(bytes), _mtime(target), int64_t{0}});
  }
  if (!rows.empty()) _mdb().executeMany("insert or replace into media values (?,?,?,?)", rows);
  return count;
}

// --- Media check ---

std::string MediaManager::CheckResult::report() const {
  std::string text =
      std::to_string(missing.size()) + " file(s) referenced in notes but missing file:\n";
  for (const std::string& name : missing) text += name + "\n";
  if (missing.empty()) text += "<none>\n";
  text += "\n" + std::to_string(unused.size()) + " file(s) present but not used by any notes:\n";
  for (const std::string& name : unused) text += name + "\n";
  if (unused.empty()) text += "<none>\n";
  if (haveLatex)
    text += "\nLaTeX use found. Please use the computer version to check LaTeX files.\n";
  return text;
}

int MediaManager::removeUnused(const std::string& dir, const std::vector<std::string>& names,
                               const CheckProgress& progress) {
  int removed = 0;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i % 20 == 0 && !progress("Deleted " + std::to_string(i) + " files...")) break;
    std::error_code ec;
    if (std::filesystem::remove(std::filesystem::path(dir) / names[i], ec)) ++removed;
  }
  return removed;
}

std::optional<MediaManager::CheckResult> MediaManager::check(const CheckProgress& progress) {
  CheckResult result;
  std::set<std::string> referenced;
  std::vector<Id> toFix;
  int64_t count = 0;
  bool cancelled = false;
  _col.db()->execute("select id,mid,flds from notes", {}, [&](sqlite3_stmt* st) {
    if (cancelled) return;
    if (count++ % 20 == 0 && !progress("Scanned " + std::to_string(count) + " notes...")) {
      cancelled = true;
      return;
    }
    const std::string flds = toText(columnValue(st, 2));
    const std::string composed = nfc(flds);
    if (composed != flds) toFix.push_back(toInt(columnValue(st, 0)));
    for (std::string& name : filesInStr(toInt(columnValue(st, 1)), composed)) {
      if (name.starts_with("_")) continue;
      if (name.starts_with("latex-"))
        result.haveLatex = true;
      else
        referenced.insert(std::move(name));
    }
  });
  if (cancelled) return std::nullopt;

  for (size_t i = 0; i < toFix.size(); ++i) {
    if (i % 20 == 0 && !progress("Fixed " + std::to_string(i + 1) + " note refs..."))
      return std::nullopt;
    auto note = _col.getNote(toFix[i]);
    for (std::string& field : note->fields) field = nfc(field);
    note->flush();
  }
  if (!toFix.empty()) {
    progress("Saving notes...");
    _col.save();
  }

  count = 0;
  listFolder(_dir, [&](int dirFd, const dirent& e) {
    if (cancelled) return;
    if (count++ % 20 == 0 && !progress("Scanned " + std::to_string(count) + " files...")) {
      cancelled = true;
      return;
    }
    if (isDirectoryEntry(dirFd, e)) return;
    const std::string name = e.d_name;
    if (name.starts_with("_")) return;
    if (name.starts_with("latex-")) {
      result.haveLatex = true;
      return;
    }
    if (referenced.erase(nfc(name)) == 0) result.unused.push_back(name);
  });
  if (cancelled) return std::nullopt;
  // The order is free; the user reads these lists, so they go by name.
  result.missing.assign(referenced.begin(), referenced.end());
  std::sort(result.unused.begin(), result.unused.end());
  std::stable_sort(result.missing.begin(), result.missing.end(), caseInsensitiveLess);
  std::stable_sort(result.unused.begin(), result.unused.end(), caseInsensitiveLess);
  return result;
}

}  // namespace rivo
