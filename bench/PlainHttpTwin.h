#pragma once
// The bare twin of the sync benchmarks: bytes moved by a plain HTTP transfer (curl to
// cpp-httplib on the loopback, streamed from and to files), so that a sync's figure can be
// read as a ratio. Serves on a thread of its own from construction to destruction.

#include <httplib.h>

#include <cstdint>
#include <string>
#include <thread>

namespace rivo::bench {

class PlainHttpTwin {
 public:
  // Uploads are stored in `scratch`; downloads serve `source`.
  PlainHttpTwin(std::string scratch, std::string source);
  ~PlainHttpTwin();

  // `bytes` of the source file up, or the whole source down, each to a file.
  void transfer(bool up, int64_t bytes);

 private:
  std::string _scratch;
  std::string _source;
  httplib::Server _server;
  std::thread _serving;
  int _port = 0;
};

}  // namespace rivo::bench
