#include "shell/WebServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <openssl/crypto.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "app/AppError.h"
#include "app/Resources.h"
#include "librivo/Files.h"
#include "librivo/Json.h"
#include "librivo/MediaManager.h"
#include "shell/BrowserBridge.h"

namespace rivo {

namespace {

// Request threads: each open tab holds one for its event stream.
const size_t kThreads = 24;
const size_t kMaxBody = 256 * 1024;
const int kMaxDepth = 8;

bool sameSecret(const std::string& a, const std::string& b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string cookieValue(const std::string& header, const std::string& name) {
  size_t pos = 0;
  while (pos < header.size()) {
    size_t end = header.find(';', pos);
    if (end == std::string::npos) end = header.size();
    std::string part = header.substr(pos, end - pos);
    size_t start = part.find_first_not_of(' ');
    if (start != std::string::npos) part = part.substr(start);
    if (part.size() > name.size() && part.compare(0, name.size(), name) == 0 &&
        part[name.size()] == '=')
      return part.substr(name.size() + 1);
    pos = end + 1;
  }
  return "";
}

bool isIpLiteral(const std::string& host) {
  unsigned char buffer[16];
  if (inet_pton(AF_INET, host.c_str(), buffer) == 1) return true;
  return host.size() > 2 && host.front() == '[' && host.back() == ']' &&
         inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), buffer) == 1;
}

// The content type of a file by its extension; what a card may refer to.
const char* contentType(const std::string& name) {
  static const std::map<std::string, const char*> types = {{"jpg", "image/jpeg"},
                                                           {"jpeg", "image/jpeg"},
                                                           {"png", "image/png"},
                                                           {"gif", "image/gif"},
                                                           {"svg", "image/svg+xml"},
                                                           {"webp", "image/webp"},
                                                           {"bmp", "image/bmp"},
                                                           {"ico", "image/x-icon"},
                                                           {"mp3", "audio/mpeg"},
                                                           {"m4a", "audio/mp4"},
                                                           {"aac", "audio/aac"},
                                                           {"wav", "audio/wav"},
                                                           {"ogg", "audio/ogg"},
                                                           {"oga", "audio/ogg"},
                                                           {"opus", "audio/ogg"},
                                                           {"flac", "audio/flac"},
                                                           {"mp4", "video/mp4"},
                                                           {"webm", "video/webm"},
                                                           {"css", "text/css"},
                                                           {"js", "text/javascript"},
                                                           {"json", "application/json"},
                                                           {"html", "text/html; charset=utf-8"},
                                                           {"txt", "text/plain; charset=utf-8"},
                                                           {"ttf", "font/ttf"},
                                                           {"otf", "font/otf"},
                                                           {"woff", "font/woff"},
                                                           {"woff2", "font/woff2"}};
  size_t dot = name.rfind('.');
  if (dot == std::string::npos) return "application/octet-stream";
  std::string ext = name.substr(dot + 1);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  auto it = types.find(ext);
  return it == types.end() ? "application/octet-stream" : it->second;
}

void answer(httplib::Response& res, int status, const Json& body) {
  res.status = status;
  res.set_content(body.dump(), "application/json");
}

uint64_t declaredLength(const httplib::Request& req) {
  try {
    return std::stoull(req.get_header_value("Content-Length"));
  } catch (const std::exception&) {
    return 0;
  }
}

}  // namespace

WebServer::WebServer(BrowserBridge& bridge, Options options)
    : _bridge(bridge), _options(std::move(options)) {
  _secret = _options.secret.empty() ? BrowserBridge::randomToken() : _options.secret;
}

WebServer::~WebServer() {
  stop();
}

std::string WebServer::cookieName() const {
  // Per port: two programs on one machine share the browser's cookies for 127.0.0.1.
  return "rivo-" + std::to_string(_port);
}

std::string WebServer::url() const {
  std::string host = _options.host == "0.0.0.0" ? "127.0.0.1" : _options.host;
  if (host.find(':') != std::string::npos) host = "[" + host + "]";
  return "http://" + host + ":" + std::to_string(_port) + "/?k=" + _secret;
}

void WebServer::start() {
  _server = std::make_unique<httplib::Server>();
  _server->new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
  // Events are held to kMaxBody by the routes; only uploads may be this large.
  _server->set_payload_max_length(std::max<uint64_t>(_options.maxUpload, kMaxBody));
  _server->set_keep_alive_timeout(5);
  _routes();
  if (_options.port == 0) {
    _port = _server->bind_to_any_port(_options.host);
  } else if (_server->bind_to_port(_options.host, _options.port)) {
    _port = _options.port;
  } else {
    _port = -1;
  }
  if (_port <= 0)
    throw AppError("Can't listen on " + _options.host +
                   (_options.port ? ":" + std::to_string(_options.port) : "") +
                   " (is the port in use?)");
  _thread = std::thread([this] { _server->listen_after_bind(); });
  // So that stop() finds it running; connections meanwhile wait in the backlog.
  while (!_server->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void WebServer::stop() {
  if (!_server) return;
  // Streams blocked waiting for a message must end before the pool can stop.
  _bridge.close();
  _server->stop();
  if (_thread.joinable()) _thread.join();
  _server.reset();
}

bool WebServer::_hostAllowed(const std::string& hostHeader) const {
  size_t colon = hostHeader.rfind(':');
  if (colon == std::string::npos || hostHeader.substr(colon + 1) != std::to_string(_port))
    return false;
  std::string host = hostHeader.substr(0, colon);
  if (host == "localhost" || host == "127.0.0.1") return true;
  std::string listened = _options.host;
  if (listened.find(':') != std::string::npos) listened = "[" + listened + "]";
  if (host == listened) return true;
  // Listening on every interface: any address, but never a name that DNS could rebind.
  return (_options.host == "0.0.0.0" || _options.host == "::") && isIpLiteral(host);
}

bool WebServer::_allowed(const httplib::Request& req) const {
  std::string host = req.get_header_value("Host");
  if (!_hostAllowed(host)) return false;
  if (req.has_header("Origin") && req.get_header_value("Origin") != "http://" + host) return false;
  return sameSecret(cookieValue(req.get_header_value("Cookie"), cookieName()), _secret);
}

bool WebServer::_tokenPath(const httplib::Request& req) const {
  const std::string& token = _bridge.token();
  if (req.method != "GET" && req.method != "HEAD") return false;
  if (req.path.size() < token.size() + 4 || req.path[0] != '/' || req.path[2] != '/' ||
      (req.path[1] != 'm' && req.path[1] != 'r'))
    return false;
  return req.path[3 + token.size()] == '/' && sameSecret(req.path.substr(3, token.size()), token) &&
         _hostAllowed(req.get_header_value("Host"));
}

void WebServer::_servePage(const std::string& id, httplib::Response& res) const {
  std::optional<std::string> doc = _bridge.pageDocument(id);
  if (!doc) {
    res.status = 404;
    return;
  }
  // Framed by the program's page alone, and sandboxed even when opened on its own.
  res.headers.erase("X-Frame-Options");
  res.set_header("X-Frame-Options", "SAMEORIGIN");
  res.set_header("Content-Security-Policy", "sandbox allow-scripts; frame-ancestors 'self'");
  res.set_content(*doc, "text/html; charset=utf-8");
}

void WebServer::_serveMedia(const std::string& name, httplib::Response& res) const {
  std::string folder = _bridge.mediaFolder();
  if (folder.empty() || !MediaManager::isPlainName(name)) {
    res.status = 404;
    return;
  }
  // Names from other systems may be decomposed on disk, or composed.
  std::string path = folder + "/" + name;
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) path = folder + "/" + MediaManager::nfc(name);
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    res.status = 404;
    return;
  }
  auto file = std::make_shared<std::ifstream>(path, std::ios::binary);
  if (!*file) {
    res.status = 404;
    return;
  }
  res.set_header("Cache-Control", "private, max-age=3600");
  res.set_header("Content-Security-Policy", "sandbox");
  res.set_content_provider(
      static_cast<size_t>(st.st_size), contentType(name),
      [file](size_t offset, size_t length, httplib::DataSink& sink) {
        char buffer[64 * 1024];
        file->clear();
        file->seekg(static_cast<std::streamoff>(offset));
        while (length > 0) {
          file->read(buffer, static_cast<std::streamsize>(std::min(length, sizeof buffer)));
          std::streamsize got = file->gcount();
          if (got <= 0 || !sink.write(buffer, static_cast<size_t>(got))) return false;
          length -= static_cast<size_t>(got);
        }
        return true;
      });
}

void WebServer::_serveResource(const std::string& name, const char* type,
                               httplib::Response& res) const {
  auto body = Resources::get(name);
  if (!body) {
    res.status = 404;
    return;
  }
  res.set_content(std::string(*body), type);
}

void WebServer::_routes() {
  httplib::Server& s = *_server;
  s.set_default_headers({{"Cache-Control", "no-store"},
                         {"X-Content-Type-Options", "nosniff"},
                         {"X-Frame-Options", "DENY"},
                         {"Referrer-Policy", "no-referrer"}});
  s.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
    // The first visit trades the secret in the address for a cookie and a clean address.
    if (req.method == "GET" && req.path == "/" && req.has_param("k") &&
        _hostAllowed(req.get_header_value("Host")) &&
        sameSecret(req.get_param_value("k"), _secret)) {
      res.set_header("Set-Cookie",
                     cookieName() + "=" + _secret + "; HttpOnly; SameSite=Strict; Path=/");
      res.set_redirect("/", 303);
      return httplib::Server::HandlerResponse::Handled;
    }
    if (_tokenPath(req)) return httplib::Server::HandlerResponse::Unhandled;
    if (_allowed(req)) {
      if (req.path == "/upload" || declaredLength(req) <= kMaxBody)
        return httplib::Server::HandlerResponse::Unhandled;
      answer(res, 413, {{"error", "Too large."}});
      return httplib::Server::HandlerResponse::Handled;
    }
    res.status = 403;
    res.set_content("Forbidden: open Rivo with the address it printed.\n", "text/plain");
    return httplib::Server::HandlerResponse::Handled;
  });
  s.Get("/", [this](const httplib::Request&, httplib::Response& res) {
    _serveResource("web/index.html", "text/html; charset=utf-8", res);
  });
  s.Get("/rivo.js", [this](const httplib::Request&, httplib::Response& res) {
    _serveResource("web/rivo.js", "text/javascript; charset=utf-8", res);
  });
  s.Get("/rivo.css", [this](const httplib::Request&, httplib::Response& res) {
    _serveResource("web/rivo.css", "text/css; charset=utf-8", res);
  });
  // Read by the sandboxed frames, which have no cookie: the token in the path admits them.
  s.Get(R"(/m/([0-9a-f]+)/(.*))", [this](const httplib::Request& req, httplib::Response& res) {
    if (req.matches[2].str().empty())
      _servePage(req.get_param_value("page"), res);
    else
      _serveMedia(req.matches[2].str(), res);
  });
  s.Get(R"(/r/([0-9a-f]+)/(.+))", [](const httplib::Request& req, httplib::Response& res) {
    std::string name = req.matches[2].str();
    auto body = name.find("..") == std::string::npos ? Resources::get(name) : std::nullopt;
    if (!body) {
      res.status = 404;
      return;
    }
    res.set_header("Cache-Control", "private, max-age=3600");
    res.set_content(std::string(*body), contentType(name));
  });
  s.Get("/events", [this](const httplib::Request&, httplib::Response& res) {
    std::shared_ptr<BrowserBridge::Client> client = _bridge.connect();
    if (!client) {
      answer(res, 503, {{"error", "Too many tabs are open."}});
      return;
    }
    BrowserBridge* bridge = &_bridge;
    res.set_chunked_content_provider(
        "text/event-stream",
        [client, heartbeat = _options.heartbeat](size_t, httplib::DataSink& sink) {
          std::string message;
          if (!client->next(message, heartbeat)) {
            if (client->closed()) return false;
            message = ": ping\n\n";
          }
          return sink.write(message.data(), message.size());
        },
        [bridge, client](bool) { bridge->disconnect(client); });
  });
  s.Get(R"(/download/([0-9a-f]{32}))", [this](const httplib::Request& req, httplib::Response& res) {
    _download(req.matches[1], res);
  });
  s.Post("/upload", [this](const httplib::Request& req, httplib::Response& res,
                           const httplib::ContentReader& read) { _upload(req, res, read); });
  s.Post("/event", [this](const httplib::Request& req, httplib::Response& res) {
    if (req.body.size() > kMaxBody) {
      answer(res, 413, {{"error", "Too large."}});
      return;
    }
    if (req.get_header_value("Content-Type").rfind("application/json", 0) != 0) {
      answer(res, 400, {{"error", "Events are JSON."}});
      return;
    }
    Json event;
    bool tooDeep = false;
    try {
      // Events are flat; deep nesting is refused rather than built.
      event = Json::parse(req.body, [&tooDeep](int depth, Json::parse_event_t, Json&) {
        if (depth > kMaxDepth) tooDeep = true;
        return !tooDeep;
      });
    } catch (const std::exception& e) {
      answer(res, 400, {{"error", std::string("Not JSON: ") + e.what()}});
      return;
    }
    if (tooDeep) {
      answer(res, 400, {{"error", "Nested too deeply."}});
      return;
    }
    uint64_t tab = 0;
    try {
      tab = std::stoull(req.get_header_value("X-Rivo-Tab"));
    } catch (const std::exception&) {
    }
    switch (_bridge.handleEvent(event, tab)) {
      case BrowserBridge::Result::ok:
        answer(res, 200, {{"ok", true}});
        break;
      case BrowserBridge::Result::badRequest:
        answer(res, 400, {{"error", "Malformed event."}});
        break;
      case BrowserBridge::Result::stale:
        answer(res, 409, {{"error", "stale"}});
        break;
      case BrowserBridge::Result::busy:
        answer(res, 409, {{"error", "busy"}});
        break;
      case BrowserBridge::Result::unavailable:
        answer(res, 503, {{"error", "Rivo is stopping."}});
        break;
    }
  });
}

void WebServer::_download(const std::string& token, httplib::Response& res) {
  const std::optional<BrowserBridge::Download> file = _bridge.download(token);
  auto fd = std::make_shared<int>(file ? ::open(file->path.c_str(), O_RDONLY | O_CLOEXEC) : -1);
  struct stat st {};
  if (*fd < 0 || fstat(*fd, &st) != 0) {
    if (*fd >= 0) ::close(*fd);
    res.status = 404;
    res.set_content("That file is no longer there.\n", "text/plain");
    return;
  }
  // The name as it is where it can be (UTF-8, percent-escaped), and a plain one for the rest.
  std::string plain, escaped;
  for (unsigned char c : file->name) {
    plain += (c < 0x20 || c >= 0x7f || c == '"' || c == '\\') ? '_' : static_cast<char>(c);
    char hex[4];
    std::snprintf(hex, sizeof hex, "%%%02X", c);
    escaped += std::isalnum(c) || c == '.' || c == '-' || c == '_'
                   ? std::string(1, static_cast<char>(c))
                   : hex;
  }
  res.set_header("Content-Disposition",
                 "attachment; filename=\"" + plain + "\"; filename*=UTF-8''" + escaped);
  res.set_content_provider(
      static_cast<size_t>(st.st_size), "application/octet-stream",
      [fd](size_t offset, size_t length, httplib::DataSink& sink) {
        std::string piece(std::min<size_t>(length, 1 << 20), '\0');
        const ssize_t n = ::pread(*fd, piece.data(), piece.size(), static_cast<off_t>(offset));
        return n > 0 && sink.write(piece.data(), static_cast<size_t>(n));
      },
      [fd](bool) { ::close(*fd); });
}

void WebServer::_refuseUpload(httplib::Response& res, int status, const std::string& text) {
  _bridge.uploadFailed(text);
  answer(res, status, {{"error", text}});
}

void WebServer::_upload(const httplib::Request& req, httplib::Response& res,
                        const httplib::ContentReader& read) {
  const std::string name = req.get_param_value("name"), button = req.get_param_value("button");
  uint64_t screen = 0;
  try {
    screen = std::stoull(req.get_param_value("screen"));
  } catch (const std::exception&) {
  }
  if (_options.uploadDir.empty() || !screen || button.empty() || button.size() > 64 ||
      name.size() > 255 || !MediaManager::isPlainName(name)) {
    answer(res, 400, {{"error", "Malformed upload."}});
    return;
  }
  // The size is known before a byte is stored, or nothing is.
  const uint64_t length = declaredLength(req);
  if (!req.has_header("Content-Length")) {
    answer(res, 411, {{"error", "An upload needs its length."}});
    return;
  }
  if (length > _options.maxUpload)
    return _refuseUpload(
        res, 413,
        name + " is larger than " + sizeText(_options.maxUpload) + ", the most Rivo takes.");
  struct statvfs disk {};
  if (statvfs(_options.uploadDir.c_str(), &disk) == 0 &&
      length > static_cast<uint64_t>(disk.f_bavail) * disk.f_frsize)
    return _refuseUpload(res, 507, "There isn't enough free disk space to upload " + name + ".");

  const std::string dir =
      _options.uploadDir + "/upload-" + BrowserBridge::randomToken().substr(0, 16);
  const std::string path = dir + "/" + name;
  const int fd = mkdir(dir.c_str(), 0700) == 0
                     ? ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)
                     : -1;
  if (fd < 0)
    return _refuseUpload(res, 500, "The upload can't be stored: " + std::string(strerror(errno)));
  _bridge.uploadStarted();
  uint64_t received = 0, shown = 0;
  bool written = true;
  const bool complete = read([&](const char* data, size_t size) {
    received += size;
    if (received > length || !writeAll(fd, std::string_view(data, size))) {
      written = false;
      return false;
    }
    // A step of the spinner for each hundredth.
    if ((received - shown) * 100 >= length) {
      shown = received;
      _bridge.uploadProgress(received, length);
    }
    return true;
  });
  if (::close(fd) != 0) written = false;
  _bridge.uploadEnded();
  std::error_code ec;
  if (!complete || !written || received != length) {
    std::filesystem::remove_all(dir, ec);
    return _refuseUpload(res, 400, "The upload of " + name + " didn't arrive whole.");
  }
  const BrowserBridge::Result result = _bridge.handleUpload(screen, button, name, path);
  if (result == BrowserBridge::Result::ok) {
    answer(res, 200, {{"ok", true}});
    return;
  }
  std::filesystem::remove_all(dir, ec);
  answer(res, result == BrowserBridge::Result::unavailable ? 503 : 409,
         {{"error", "The screen can't take the file now."}});
}

}  // namespace rivo
