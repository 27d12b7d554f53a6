#include "shell/WebServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <chrono>
#include <cstdio>

#include "app/AppError.h"
#include "app/Resources.h"
#include "librivo/Json.h"
#include "shell/BrowserBridge.h"

namespace rivo {

namespace {

// Request threads: each open tab holds one for its event stream.
const size_t kThreads = 24;
const size_t kMaxBody = 256 * 1024;
const int kMaxDepth = 8;

std::string randomSecret() {
  unsigned char bytes[24];
  if (RAND_bytes(bytes, sizeof bytes) != 1) throw AppError("No random bytes for the secret.");
  std::string out;
  char hex[3];
  for (unsigned char b : bytes) {
    std::snprintf(hex, sizeof hex, "%02x", b);
    out += hex;
  }
  return out;
}

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

void answer(httplib::Response& res, int status, const Json& body) {
  res.status = status;
  res.set_content(body.dump(), "application/json");
}

}  // namespace

WebServer::WebServer(BrowserBridge& bridge, Options options)
    : _bridge(bridge), _options(std::move(options)) {
  _secret = _options.secret.empty() ? randomSecret() : _options.secret;
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
  _server->set_payload_max_length(kMaxBody);
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
    if (_allowed(req)) return httplib::Server::HandlerResponse::Unhandled;
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
  s.Post("/event", [this](const httplib::Request& req, httplib::Response& res) {
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
    switch (_bridge.handleEvent(event)) {
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

}  // namespace rivo
