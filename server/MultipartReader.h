#pragma once
// A streaming reader of multipart/form-data bodies: parts are reported as their bytes arrive,
// so that a large upload never sits in memory. The sync protocol's requests without payload
// end after their last field with no closing delimiter; a body may therefore end inside a
// field part whose bytes end in CRLF. A file part must be closed properly.
//
// Used by one request on one thread.

#include <cstddef>
#include <functional>
#include <string>

namespace rivo {

class MultipartReader {
 public:
  struct Handler {
    // A part starts; `filename` is empty for a plain field. False refuses the body.
    std::function<bool(const std::string& name, const std::string& filename)> begin;
    std::function<bool(const char* data, size_t size)> data;
    std::function<bool()> end;
  };

  MultipartReader(std::string boundary, Handler handler);

  // False once the body is malformed or the handler refused it; error() says why.
  bool feed(const char* data, size_t size);
  // At the end of the body: true when it was complete.
  bool finish();
  const std::string& error() const { return _error; }

  // The boundary parameter of a multipart/form-data content type; empty when there is none.
  static std::string boundaryOf(const std::string& contentType);

 private:
  enum class State { Preamble, AfterDelimiter, Headers, Body, Done, Failed };
  bool _run();
  bool _fail(const std::string& why);
  bool _startPart(const std::string& headers);

  std::string _delimiter;  // "\r\n--" + boundary
  Handler _handler;
  State _state = State::Preamble;
  std::string _buf;
  bool _inFile = false;
  std::string _error;
};

}  // namespace rivo
