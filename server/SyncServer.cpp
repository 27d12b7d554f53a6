#include "server/SyncServer.h"

#include <fcntl.h>
#include <httplib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "librivo/Checksum.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Files.h"
#include "librivo/Storage.h"
#include "librivo/syncing/SyncMessages.h"
#include "server/AccountStore.h"
#include "server/GzipInflater.h"
#include "server/MediaStore.h"
#include "server/MultipartReader.h"
#include "server/SyncSession.h"

namespace rivo {

namespace fs = std::filesystem;
using Clock_ = std::chrono::steady_clock;

namespace {

// httplib parses multipart bodies itself and refuses the protocol's bodies that end without
// a closing delimiter, so the boundary is moved to this header and the body read raw.
constexpr const char* kBoundaryHeader = "X-Rivo-Boundary";
constexpr size_t kMaxFieldBytes = 4096;
constexpr size_t kMaxFields = 16;
constexpr size_t kMaxSessionKey = 64;
constexpr int kMaxJsonDepth = 64;
constexpr size_t kDownloadSlice = 256 * 1024;

const std::set<std::string> kMethods = {"hostKey", "meta",       "start",        "applyChanges",
                                        "chunk",   "applyChunk", "sanityCheck2", "finish",
                                        "upload",  "download"};
const std::set<std::string> kMediaMethods = {"begin", "mediaChanges", "downloadFiles",
                                             "uploadChanges", "mediaSanity"};

// Scratch of the request being served on this thread, for its log line.
struct RequestNote {
  Clock_::time_point start;
  std::string user;
  std::string note;
};
thread_local RequestNote tRequest;

// Calls whose payload may be large: it goes to a file, never into memory.
bool isUploadPath(const std::string& path) {
  return path == "/sync/upload" || path == "/msync/uploadChanges";
}

int64_t declaredLength(const httplib::Request& req) {
  const std::string text = req.get_header_value("Content-Length");
  if (text.empty()) return -1;
  char* end = nullptr;
  long long n = std::strtoll(text.c_str(), &end, 10);
  return end && *end == '\0' && n >= 0 ? n : -1;
}

bool syncFile(std::FILE* f) {
  return std::fflush(f) == 0 && ::fsync(fileno(f)) == 0;
}

}  // namespace

struct SyncServer::Incoming {
  std::string address;  // the client's
  std::map<std::string, std::string> fields;
  bool hasData = false;
  std::string data;        // the payload of a JSON call, inflated
  std::string uploadPath;  // a full upload, inflated, in DIR/tmp
  ~Incoming() {
    if (!uploadPath.empty()) ::unlink(uploadPath.c_str());
  }
  std::string field(const std::string& name) const {
    auto it = fields.find(name);
    return it == fields.end() ? std::string() : it->second;
  }
};

struct SyncServer::Reply {
  int status = 200;
  std::string body;
  std::string type = "text/plain";
  bool streamed = false;

  static Reply json(const Json& value) { return {200, value.dump(), "application/json"}; }
  static Reply error(int status, std::string text) { return {status, std::move(text)}; }
};

SyncServer::SyncServer(Options options)
    : _options(std::move(options)),
      _logins(_options.loginFailures, std::chrono::duration_cast<Clock_::duration>(
                                          std::chrono::duration<double>(_options.loginWindow))) {
  _store = std::make_unique<AccountStore>(_options.dataDir);
  const std::string tmp = _options.dataDir + "/tmp";
  std::error_code ec;
  fs::create_directories(tmp, ec);
  clearTempDir(tmp);
  _http = std::make_unique<httplib::Server>();
  const int threads = std::max(1, _options.threads);
  _http->new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
  // Each request of the protocol comes on a connection of its own; closing after the reply
  // also ends a refused body at once instead of reading it.
  _http->set_keep_alive_max_count(1);
  _http->set_read_timeout(60);
  _http->set_write_timeout(60);
  // Each method's own limit is checked as the body arrives; this is only the outer bound.
  _http->set_payload_max_length(
      static_cast<size_t>(std::max(_options.maxJsonBytes, _options.maxUploadBytes)));

  auto limitFor = [this](const std::string& path) {
    return isUploadPath(path) ? _options.maxUploadBytes : _options.maxJsonBytes;
  };
  _http->set_expect_100_continue_handler(
      [limitFor](const httplib::Request& req, httplib::Response&) {
        return declaredLength(req) > limitFor(req.path) ? 413 : 100;
      });
  _http->set_pre_routing_handler([limitFor](const httplib::Request& req, httplib::Response& res) {
    tRequest = RequestNote{Clock_::now(), {}, {}};
    if (declaredLength(req) > limitFor(req.path)) {
      res.status = 413;
      res.set_content("request too large", "text/plain");
      return httplib::Server::HandlerResponse::Handled;
    }
    // The request object is the server's own, handed over as const; see kBoundaryHeader.
    auto& editable = const_cast<httplib::Request&>(req);
    std::string boundary = MultipartReader::boundaryOf(req.get_header_value("Content-Type"));
    editable.headers.erase("Content-Type");
    editable.headers.erase(kBoundaryHeader);
    editable.set_header("Content-Type", "application/octet-stream");
    if (!boundary.empty()) editable.set_header(kBoundaryHeader, boundary);
    return httplib::Server::HandlerResponse::Unhandled;
  });
  _http->Post(R"(/sync/([A-Za-z0-9]+))", [this](const httplib::Request& req, httplib::Response& res,
                                                const httplib::ContentReader& reader) {
    _handle(req, res, reader, req.matches[1].str());
  });
  _http->Post(R"(/msync/([A-Za-z0-9]+))",
              [this](const httplib::Request& req, httplib::Response& res,
                     const httplib::ContentReader& reader) {
                _handleMedia(req, res, reader, req.matches[1].str());
              });
  _http->set_logger(
      [this](const httplib::Request& req, const httplib::Response& res) { _log(req, res); });
}

SyncServer::~SyncServer() {
  stop();
  if (_reaper.joinable()) {
    {
      std::lock_guard lock(_reaperMutex);
      _stopping = true;
    }
    _reaperWake.notify_all();
    _reaper.join();
  }
  _abortAll();
}

int SyncServer::bind() {
  if (_options.port == 0) return _http->bind_to_any_port(_options.host);
  return _http->bind_to_port(_options.host.c_str(), _options.port) ? _options.port : -1;
}

bool SyncServer::listen() {
  {
    std::lock_guard lock(_reaperMutex);
    _stopping = false;
  }
  _reaper = std::thread([this] { _reapIdle(); });
  bool ok = _http->listen_after_bind();
  {
    std::lock_guard lock(_reaperMutex);
    _stopping = true;
  }
  _reaperWake.notify_all();
  _reaper.join();
  _abortAll();
  return ok;
}

void SyncServer::stop() {
  if (_http) _http->stop();
}

void SyncServer::_log(const httplib::Request& req, const httplib::Response& res) {
  if (!_options.log) return;
  const auto ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock_::now() - tRequest.start).count();
  std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char when[32];
  std::strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%SZ", &utc);
  const size_t bytes = res.body.empty() ? res.content_length_ : res.body.size();
  std::lock_guard lock(_logMutex);
  std::fprintf(_options.log, "%s %s %s %s %d %zuB %lldms %s%s%s\n", when, req.remote_addr.c_str(),
               req.method.c_str(), req.path.c_str(), res.status, bytes, static_cast<long long>(ms),
               tRequest.user.empty() ? "-" : tRequest.user.c_str(),
               tRequest.note.empty() ? "" : " ", tRequest.note.c_str());
  std::fflush(_options.log);
}

// Requests.

void SyncServer::_handle(const httplib::Request& req, httplib::Response& res,
                         const httplib::ContentReader& reader, const std::string& method) {
  Reply reply;
  Incoming in;
  in.address = req.remote_addr;
  if (!kMethods.count(method)) {
    reply = Reply::error(404, "unknown method");
  } else if (_readBody(req, reader, method == "upload", in, reply)) {
    try {
      reply = _dispatch(method, in, res);
    } catch (const std::exception& e) {
      tRequest.note = e.what();
      reply = Reply::error(500, "internal error");
    }
  }
  if (reply.streamed) return;
  res.status = reply.status;
  res.set_content(reply.body, reply.type.c_str());
}

bool SyncServer::_readBody(const httplib::Request& req, const httplib::ContentReader& reader,
                           bool upload, Incoming& in, Reply& refusal) {
  const std::string boundary = req.get_header_value(kBoundaryHeader);
  if (boundary.empty()) {
    refusal = Reply::error(400, "expected a multipart/form-data body");
    return false;
  }
  const int64_t limit = upload ? _options.maxUploadBytes : _options.maxJsonBytes;
  int64_t raw = 0, inflated = 0;
  bool tooLarge = false, damaged = false;
  std::string problem, field, value;
  bool inData = false;
  std::FILE* out = nullptr;
  std::unique_ptr<GzipInflater> inflater;

  auto store = [&](const char* p, size_t n) {
    inflated += static_cast<int64_t>(n);
    if (inflated > limit) {
      tooLarge = true;
      return false;
    }
    if (!out) {
      in.data.append(p, n);
      return true;
    }
    if (std::fwrite(p, 1, n, out) == n) return true;
    problem = "the upload can't be stored";
    return false;
  };
  MultipartReader::Handler handler;
  handler.begin = [&](const std::string& name, const std::string&) {
    if (in.hasData) {
      problem = "a part after the data";
      return false;
    }
    if (name != "data") {
      if (in.fields.size() >= kMaxFields || in.fields.count(name)) {
        problem = "too many fields";
        return false;
      }
      field = name;
      value.clear();
      return true;
    }
    const std::string c = in.field("c");
    if (c != "0" && c != "1") {
      problem = "no field c before the data";
      return false;
    }
    in.hasData = inData = true;
    if (c == "1") inflater = std::make_unique<GzipInflater>(store);
    if (upload) {
      std::string path = (fs::path(_options.dataDir) / "tmp" / "upload-XXXXXX").string();
      int fd = mkstemp(path.data());
      out = fd >= 0 ? fdopen(fd, "wb") : nullptr;
      if (!out) {
        if (fd >= 0) ::close(fd);
        problem = "the upload can't be stored";
        return false;
      }
      in.uploadPath = path;
    }
    return true;
  };
  handler.data = [&](const char* p, size_t n) {
    if (!inData) {
      if (value.size() + n > kMaxFieldBytes) {
        problem = "a field is too long";
        return false;
      }
      value.append(p, n);
      return true;
    }
    if (!inflater) return store(p, n);
    if (inflater->feed(p, n)) return true;
    damaged = !tooLarge && problem.empty();
    return false;
  };
  handler.end = [&] {
    if (!inData) in.fields[field] = value;
    inData = false;
    return true;
  };
  MultipartReader body(boundary, handler);
  bool ok = reader([&](const char* p, size_t n) {
    raw += static_cast<int64_t>(n);
    if (raw > limit) {
      tooLarge = true;
      return false;
    }
    return body.feed(p, n);
  });
  ok = ok && body.finish();
  if (ok && inflater && !inflater->finish()) {
    ok = false;
    damaged = true;
  }
  if (out) {
    if (!syncFile(out)) ok = ok && (problem = "the upload can't be stored").empty();
    std::fclose(out);
  }
  if (tooLarge) {
    refusal = Reply::error(413, "request too large");
    return false;
  }
  if (!ok) {
    std::string why = damaged ? "the gzip data is damaged or cut short"
                              : (!problem.empty() ? problem : body.error());
    if (why.empty()) why = "the body could not be read";
    tRequest.note = why;
    refusal = Reply::error(400, "bad request: " + why);
    return false;
  }
  return true;
}

namespace {

// The JSON payload of a call; false (with the reason) when it can't be read.
bool parseArgs(const std::string& data, bool hasData, Json& args, std::string& why) {
  if (!hasData) {
    why = "no data";
    return false;
  }
  if (SyncMessages::nestingDepth(data) > kMaxJsonDepth) {
    why = "JSON nested too deeply";
    return false;
  }
  args = decodeJson(data, &why);
  return why.empty();
}

}  // namespace

SyncServer::Reply SyncServer::_dispatch(const std::string& method, Incoming& in,
                                        httplib::Response& res) {
  if (method == "hostKey") return _hostKey(in);
  std::optional<std::string> user = _store->userForKey(in.field("k"));
  if (!user) return Reply::error(403, "unknown host key");
  tRequest.user = *user;
  std::shared_ptr<AccountState> account = _account(*user);
  if (method == "meta") return _meta(*user, *account);
  if (method == "upload") return _upload(*user, *account, in);
  if (method == "download") return _download(*user, account, res);
  return _sessionCall(*user, *account, method, in);
}

SyncServer::Reply SyncServer::_hostKey(const Incoming& in) {
  Json args;
  std::string why;
  if (!parseArgs(in.data, in.hasData, args, why)) return Reply::error(400, "bad request: " + why);
  if (!args.is_object() || !args.value("u", Json()).is_string() ||
      !args.value("p", Json()).is_string())
    return Reply::error(400, "bad request: expected u and p");
  const std::string name = args["u"].get<std::string>();
  tRequest.user = name;
  const std::string throttleKey = in.address + " " + name;
  if (!_logins.allowed(throttleKey, Clock_::now())) {
    tRequest.note = "too many failed logins";
    return Reply::error(503, "too many failed logins; try again later");
  }
  std::optional<std::string> key = _store->login(name, args["p"].get<std::string>());
  if (!key) {
    _logins.failed(throttleKey, Clock_::now());
    tRequest.note = "login refused";
    return Reply::error(403, "wrong name or password");
  }
  _logins.succeeded(throttleKey);
  return Reply::json({{"key", *key}});
}

std::shared_ptr<SyncServer::AccountState> SyncServer::_account(const std::string& user) {
  std::lock_guard lock(_accountsMutex);
  std::shared_ptr<AccountState>& slot = _accounts[user];
  if (!slot) slot = std::make_shared<AccountState>();
  return slot;
}

bool SyncServer::_ensureCollection(const std::string& user) {
  const std::string path = _store->collectionPath(user);
  std::error_code ec;
  if (fs::exists(path, ec)) return true;
  fs::create_directories(_store->userFolder(user), ec);
  std::unique_ptr<Col> col = Storage::open(path, false, true);
  if (!col) return false;
  col->close();
  return true;
}

SyncServer::Reply SyncServer::_meta(const std::string& user, AccountState& account) {
  std::lock_guard lock(account.mutex);
  Json meta;
  if (account.session) {
    // The open sync holds the file; what it started from is what is committed.
    meta = account.session->committedMeta();
  } else {
    if (!_ensureCollection(user)) return Reply::error(500, "the collection can't be created");
    DB db(_store->collectionPath(user));
    std::optional<Row> row = db.first("select mod, scm, usn from col");
    db.close();
    if (!row) return Reply::error(500, "the collection can't be read");
    meta = {{"mod", toInt((*row)[0])}, {"scm", toInt((*row)[1])}, {"usn", toInt((*row)[2])}};
  }
  meta["ts"] = intTime(1);
  {
    std::lock_guard media(account.mediaMutex);
    meta["musn"] = MediaStore::usnOf(_store->userFolder(user));
  }
  meta["msg"] = _message();
  meta["cont"] = true;
  meta["uname"] = user;
  return Reply::json(meta);
}

std::string SyncServer::_message() const {
  std::ifstream in(_options.dataDir + "/" + kMessageFile, std::ios::binary);
  if (!in) return "";
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (text.size() > kMaxMessageBytes) text.resize(kMaxMessageBytes);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  return text;
}

bool SyncServer::_expired(const AccountState& account) const {
  return Clock_::now() - account.lastUsed > std::chrono::duration<double>(_options.idleTimeout);
}

SyncServer::Reply SyncServer::_sessionCall(const std::string& user, AccountState& account,
                                           const std::string& method, const Incoming& in) {
  Json args;
  std::string why;
  if (!parseArgs(in.data, in.hasData, args, why)) return Reply::error(400, "bad request: " + why);
  const std::string skey = in.field("s");
  if (skey.empty() || skey.size() > kMaxSessionKey)
    return Reply::error(400, "bad request: no session key");

  std::shared_ptr<SyncSession> session;
  {
    std::lock_guard lock(account.mutex);
    if (method == "start" && !(account.session && account.session->skey == skey)) {
      if (account.session) {
        std::unique_lock idle(account.session->mutex, std::try_to_lock);
        if (!idle || !_expired(account)) return Reply::error(409, "another sync is in progress");
        account.session->abort();
        idle.unlock();
        account.session.reset();
      }
      if (account.transferring) return Reply::error(409, "a full sync is in progress");
      if (!_ensureCollection(user)) return Reply::error(500, "the collection can't be created");
      account.session = std::make_shared<SyncSession>(user, skey, _store->collectionPath(user));
    } else if (!account.session || account.session->skey != skey) {
      return Reply::error(400, "bad request: no sync in progress for this session");
    }
    session = account.session;
    account.lastUsed = Clock_::now();
  }

  Reply reply;
  {
    std::unique_lock busy(session->mutex, std::try_to_lock);
    if (!busy) return Reply::error(409, "a call of this sync is still running");
    try {
      reply.body = session->call(method, args);
      reply.type = method == "finish" ? "text/plain" : "application/json";
    } catch (const std::invalid_argument& e) {
      session->abort();
      tRequest.note = e.what();
      reply = Reply::error(400, std::string("bad request: ") + e.what());
    } catch (const std::exception& e) {
      session->abort();
      tRequest.note = e.what();
      reply = Reply::error(500, "internal error");
    }
  }
  std::lock_guard lock(account.mutex);
  if (account.session == session) {
    if (session->over())
      account.session.reset();
    else
      account.lastUsed = Clock_::now();
  }
  return reply;
}

SyncServer::Reply SyncServer::_upload(const std::string& user, AccountState& account,
                                      Incoming& in) {
  if (!in.hasData || in.uploadPath.empty()) return Reply::error(400, "bad request: no data");
  bool sound = false;
  {
    // The client ran the full integrity check before sending, and gzip's checksums guard the
    // way here; the quick check confirms the file's structure in a fraction of the time.
    DB db(in.uploadPath);
    auto check = db.scalar("pragma quick_check");
    // Notes whose text isn't UTF-8 could never be saved by the clients that download them.
    sound = check && toText(*check) == "ok" && db.first("select mod, scm, usn from col") &&
            Storage::notesAreUtf8(db);
    db.close();
  }
  if (!sound) {
    tRequest.note = "not a sound collection";
    return Reply::error(400, "bad request: the upload is not a sound collection");
  }
  std::lock_guard lock(account.mutex);
  if (account.session || account.transferring) return Reply::error(409, "a sync is in progress");
  const std::string folder = _store->userFolder(user);
  const std::string path = _store->collectionPath(user);
  std::error_code ec;
  fs::create_directories(folder, ec);
  // A journal left by a crash belongs to the old file and must never meet the new one.
  for (const char* suffix : {"-journal", "-wal", "-shm"}) fs::remove(path + suffix, ec);
  std::string problem;
  if (!moveFile(in.uploadPath, path, &problem)) {
    tRequest.note = problem;
    return Reply::error(500, "the upload can't be stored");
  }
  in.uploadPath.clear();
  return {200, "OK", "text/plain"};
}

SyncServer::Reply SyncServer::_download(const std::string& user,
                                        const std::shared_ptr<AccountState>& account,
                                        httplib::Response& res) {
  int fd = -1;
  struct stat st {};
  {
    std::lock_guard lock(account->mutex);
    if (account->session || account->transferring)
      return Reply::error(409, "a sync is in progress");
    if (!_ensureCollection(user)) return Reply::error(500, "the collection can't be created");
    const std::string path = _store->collectionPath(user);
    {
      // Reading once rolls back a journal a crash may have left.
      DB db(path);
      db.scalar("select count() from col");
      db.close();
    }
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || ::fstat(fd, &st) != 0) {
      if (fd >= 0) ::close(fd);
      return Reply::error(500, "the collection can't be read");
    }
    account->transferring = true;
  }
  res.status = 200;
  res.set_content_provider(
      static_cast<size_t>(st.st_size), "application/octet-stream",
      [fd](size_t offset, size_t length, httplib::DataSink& sink) {
        std::vector<char> buf(std::min(length, kDownloadSlice));
        ssize_t n = ::pread(fd, buf.data(), buf.size(), static_cast<off_t>(offset));
        return n > 0 && sink.write(buf.data(), static_cast<size_t>(n));
      },
      [fd, account](bool) {
        ::close(fd);
        std::lock_guard lock(account->mutex);
        account->transferring = false;
      });
  Reply reply;
  reply.streamed = true;
  return reply;
}

// Media sync. Every refusal after the body was read is the protocol's envelope with "err".

namespace {

Json envelope(const Json& data) {
  return {{"data", data}, {"err", ""}};
}

Json refusalEnvelope(const std::string& text) {
  tRequest.note = text;
  return {{"data", nullptr}, {"err", text}};
}

std::string newMediaSessionKey() {
  std::random_device random;
  return checksum(std::to_string(random()) + std::to_string(random()) + std::to_string(random()))
      .substr(0, 16);
}

}  // namespace

void SyncServer::_handleMedia(const httplib::Request& req, httplib::Response& res,
                              const httplib::ContentReader& reader, const std::string& method) {
  Reply reply;
  Incoming in;
  in.address = req.remote_addr;
  if (!kMediaMethods.count(method)) {
    reply = Reply::error(404, "unknown method");
  } else if (_readBody(req, reader, method == "uploadChanges", in, reply)) {
    try {
      reply = method == "begin" ? _mediaBegin(in) : _mediaCall(method, in);
    } catch (const std::exception& e) {
      tRequest.note = e.what();
      reply = Reply::error(500, "internal error");
    }
  }
  res.status = reply.status;
  res.set_content(reply.body, reply.type.c_str());
}

SyncServer::Reply SyncServer::_mediaBegin(const Incoming& in) {
  std::optional<std::string> user = _store->userForKey(in.field("k"));
  if (!user) return Reply::error(403, "unknown host key");
  tRequest.user = *user;
  std::shared_ptr<AccountState> account = _account(*user);
  int64_t usn = 0;
  {
    std::lock_guard lock(account->mediaMutex);
    MediaStore store(_store->userFolder(*user));
    usn = store.usn();
  }
  const std::string sk = newMediaSessionKey();
  const auto now = Clock_::now();
  const auto idle = std::chrono::duration<double>(_options.idleTimeout);
  std::lock_guard lock(_mediaSessionsMutex);
  std::erase_if(_mediaSessions,
                [&](const auto& item) { return now - item.second.lastUsed > idle; });
  _mediaSessions[sk] = MediaSession{*user, now};
  return Reply::json(envelope({{"usn", usn}, {"sk", sk}}));
}

SyncServer::Reply SyncServer::_mediaCall(const std::string& method, Incoming& in) {
  const std::string sk = in.field("sk");
  std::string user;
  {
    std::lock_guard lock(_mediaSessionsMutex);
    auto it = _mediaSessions.find(sk);
    if (it == _mediaSessions.end() ||
        Clock_::now() - it->second.lastUsed > std::chrono::duration<double>(_options.idleTimeout))
      return Reply::json(refusalEnvelope("no media sync in progress for this session"));
    it->second.lastUsed = Clock_::now();
    user = it->second.user;
    if (method == "mediaSanity") _mediaSessions.erase(it);
  }
  tRequest.user = user;
  Json args;
  if (method != "uploadChanges") {
    std::string why;
    if (!parseArgs(in.data, in.hasData, args, why) || !args.is_object())
      return Reply::json(refusalEnvelope("bad request: " + (why.empty() ? "not an object" : why)));
  } else if (!in.hasData || in.uploadPath.empty()) {
    return Reply::json(refusalEnvelope("bad request: no data"));
  }
  std::shared_ptr<AccountState> account = _account(user);
  std::lock_guard lock(account->mediaMutex);
  MediaStore store(_store->userFolder(user));
  std::string problem;
  if (method == "mediaChanges") {
    const Json lastUsn = args.value("lastUsn", Json());
    if (!lastUsn.is_number_integer())
      return Reply::json(refusalEnvelope("bad request: expected lastUsn"));
    return Reply::json(envelope(store.changesAfter(lastUsn.get<int64_t>())));
  }
  if (method == "mediaSanity") {
    const Json local = args.value("local", Json());
    if (!local.is_number_integer())
      return Reply::json(refusalEnvelope("bad request: expected local"));
    return Reply::json(envelope(local.get<int64_t>() == store.count() ? "OK" : "FAILED"));
  }
  if (method == "uploadChanges") {
    std::optional<std::pair<int64_t, int64_t>> done = store.applyUpload(in.uploadPath, &problem);
    if (!done) return Reply::json(refusalEnvelope("media batch refused: " + problem));
    return Reply::json(envelope({done->first, done->second}));
  }
  // downloadFiles
  std::string zipPath = (fs::path(_options.dataDir) / "tmp" / "media-XXXXXX").string();
  int fd = mkstemp(zipPath.data());
  if (fd < 0) return Reply::error(500, "internal error");
  ::close(fd);
  Reply reply;
  if (!store.zipFiles(args.value("files", Json()), zipPath, &problem)) {
    reply = Reply::json(refusalEnvelope(problem));
  } else {
    std::ifstream zip(zipPath, std::ios::binary);
    std::ostringstream bytes;
    bytes << zip.rdbuf();
    reply = {200, std::move(bytes).str(), "application/zip"};
  }
  ::unlink(zipPath.c_str());
  return reply;
}

// Idle syncs.

void SyncServer::_reapIdle() {
  const auto period = std::chrono::duration<double>(std::min(1.0, _options.idleTimeout / 4));
  std::unique_lock wait(_reaperMutex);
  while (!_reaperWake.wait_for(wait, period, [this] { return _stopping; })) {
    std::vector<std::pair<std::string, std::shared_ptr<AccountState>>> accounts;
    {
      std::lock_guard lock(_accountsMutex);
      accounts.assign(_accounts.begin(), _accounts.end());
    }
    for (auto& [user, account] : accounts) {
      std::lock_guard lock(account->mutex);
      if (!account->session || !_expired(*account)) continue;
      std::unique_lock idle(account->session->mutex, std::try_to_lock);
      if (!idle) continue;
      account->session->abort();
      idle.unlock();
      account->session.reset();
      if (_options.log) {
        std::lock_guard logLock(_logMutex);
        std::fprintf(_options.log, "rolled back the idle sync of %s\n", user.c_str());
        std::fflush(_options.log);
      }
    }
  }
}

void SyncServer::_abortAll() {
  std::lock_guard lock(_accountsMutex);
  for (auto& [user, account] : _accounts) {
    std::lock_guard accountLock(account->mutex);
    if (!account->session) continue;
    std::lock_guard sessionLock(account->session->mutex);
    account->session->abort();
    account->session.reset();
  }
}

}  // namespace rivo
