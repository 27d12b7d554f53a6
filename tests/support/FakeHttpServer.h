#pragma once
// An HTTP server on 127.0.0.1 for tests, answering every POST through a function the test
// sets: a sync service that misbehaves on purpose, or a proxy in front of a real one.
// Bodies reach the function raw (multipart included, unparsed).

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
struct Response;
}  // namespace httplib

namespace rivo::test {

class FakeHttpServer {
 public:
  struct Request {
    std::string path;
    std::string contentType;
    std::string body;
  };
  using Responder = std::function<void(const Request&, httplib::Response&)>;

  FakeHttpServer();
  ~FakeHttpServer();

  // "http://127.0.0.1:PORT/"
  std::string base() const;
  void respond(Responder responder);
  std::vector<Request> requests();
  // For a responder that must never answer: blocks until the server stops.
  void hang();

  // Answers with this status and body.
  static void reply(httplib::Response& res, int status, const std::string& body);
  // Sends headers promising a body, then drops the connection.
  static void cut(httplib::Response& res);

 private:
  std::unique_ptr<httplib::Server> _http;
  std::thread _thread;
  int _port = 0;
  std::mutex _mutex;  // guards what follows
  Responder _responder;
  std::vector<Request> _requests;
  bool _stopping = false;
  std::condition_variable _stopped;
};

}  // namespace rivo::test
