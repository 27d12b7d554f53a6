#pragma once
// The HTTP side of the browser front end (cpp-httplib): the page, its event stream and the
// events it posts. Every request must carry this run's secret (as the cookie the first visit
// with the secret in the URL sets), a Host that names the address listened on (no DNS
// rebinding) and, when it has an Origin, our own; anything else gets 403 and changes nothing.
// Bodies are small JSON events, but for uploads, which are streamed to disk; files offered for
// download are streamed from disk under a random token, behind the same checks.
// The one exception is read-only: the frames' documents, the profile's media and the
// resources, under this run's token (BrowserBridge::token()) and from an allowed Host.
//
// Threads: start() and stop() from one thread; requests are served on the server's pool,
// which calls only the BrowserBridge.

#include <cstdint>
#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
class ContentReader;
struct Request;
struct Response;
}  // namespace httplib

namespace rivo {

class BrowserBridge;

class WebServer {
 public:
  struct Options {
    std::string host = "127.0.0.1";
    int port = 0;  // 0: a free port
    // Given for tests; a random one otherwise.
    std::string secret;
    // Seconds between keep-alive comments on an idle event stream; a write that fails is how
    // a closed tab is noticed.
    double heartbeat = 5;
    // Where uploaded files are stored (each in a folder of its own); none are taken without.
    std::string uploadDir = {};
    uint64_t maxUpload = uint64_t{2} << 30;
  };

  WebServer(BrowserBridge& bridge, Options options);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Binds and serves on a thread of its own. Raises AppError when the address can't be had.
  void start();
  void stop();

  int port() const { return _port; }
  // The address to open once: it carries the secret.
  std::string url() const;
  const std::string& secret() const { return _secret; }
  std::string cookieName() const;

 private:
  bool _allowed(const httplib::Request& req) const;
  bool _hostAllowed(const std::string& host) const;
  void _routes();
  void _serveResource(const std::string& name, const char* type, httplib::Response& res) const;
  // POST /upload?screen=ID&button=ID&name=NAME with the file as the body, streamed to disk
  // within the size limit and the free space, then handed to the screen's button.
  void _upload(const httplib::Request& req, httplib::Response& res,
               const httplib::ContentReader& read);
  // GET /download/TOKEN: a file the bridge offered, as an attachment under its name.
  void _download(const std::string& token, httplib::Response& res);
  // A refusal the user hears of, as an alert on every tab, and the same text in the answer.
  void _refuseUpload(httplib::Response& res, int status, const std::string& text);
  // "/m/TOKEN/..." and "/r/TOKEN/..." with this run's token, read from an allowed Host.
  bool _tokenPath(const httplib::Request& req) const;
  void _servePage(const std::string& id, httplib::Response& res) const;
  void _serveMedia(const std::string& name, httplib::Response& res) const;

  BrowserBridge& _bridge;
  Options _options;
  std::string _secret;
  int _port = 0;
  std::unique_ptr<httplib::Server> _server;
  std::thread _thread;
};

}  // namespace rivo
