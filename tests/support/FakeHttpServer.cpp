#include "tests/support/FakeHttpServer.h"

#include <httplib.h>

namespace rivo::test {

FakeHttpServer::FakeHttpServer() : _http(std::make_unique<httplib::Server>()) {
  // Keeps httplib from parsing multipart bodies, so the responder sees them as sent.
  _http->set_pre_routing_handler([](const httplib::Request& req, httplib::Response&) {
    auto& editable = const_cast<httplib::Request&>(req);
    std::string type = req.get_header_value("Content-Type");
    editable.headers.erase("Content-Type");
    editable.set_header("Content-Type", "application/octet-stream");
    editable.set_header("X-Original-Content-Type", type);
    return httplib::Server::HandlerResponse::Unhandled;
  });
  _http->Post(".*", [this](const httplib::Request& req, httplib::Response& res) {
    Request r{req.path, req.get_header_value("X-Original-Content-Type"), req.body};
    Responder responder;
    {
      std::lock_guard lock(_mutex);
      _requests.push_back(r);
      responder = _responder;
    }
    if (responder)
      responder(r, res);
    else
      reply(res, 200, "{}");
  });
  _port = _http->bind_to_any_port("127.0.0.1");
  _thread = std::thread([this] { _http->listen_after_bind(); });
  while (!_http->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

FakeHttpServer::~FakeHttpServer() {
  {
    std::lock_guard lock(_mutex);
    _stopping = true;
  }
  _stopped.notify_all();
  _http->stop();
  _thread.join();
}

std::string FakeHttpServer::base() const {
  return "http://127.0.0.1:" + std::to_string(_port) + "/";
}

void FakeHttpServer::respond(Responder responder) {
  std::lock_guard lock(_mutex);
  _responder = std::move(responder);
}

std::vector<FakeHttpServer::Request> FakeHttpServer::requests() {
  std::lock_guard lock(_mutex);
  return _requests;
}

void FakeHttpServer::hang() {
  std::unique_lock lock(_mutex);
  _stopped.wait(lock, [this] { return _stopping; });
}

void FakeHttpServer::reply(httplib::Response& res, int status, const std::string& body) {
  res.status = status;
  res.set_content(body, "application/octet-stream");
}

void FakeHttpServer::cut(httplib::Response& res) {
  res.status = 200;
  res.set_content_provider(1000, "application/octet-stream",
                           [](size_t, size_t, httplib::DataSink&) { return false; });
}

}  // namespace rivo::test
