#include "bench/PlainHttpTwin.h"

#include <curl/curl.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

namespace rivo::bench {

PlainHttpTwin::PlainHttpTwin(std::string scratch, std::string source)
    : _scratch(std::move(scratch)), _source(std::move(source)) {
  _server.Post("/put", [this](const httplib::Request&, httplib::Response& res,
                              const httplib::ContentReader& reader) {
    std::ofstream out(_scratch + "/plain-up.bin", std::ios::binary);
    reader([&](const char* data, size_t n) {
      out.write(data, static_cast<std::streamsize>(n));
      return true;
    });
    res.set_content("OK", "text/plain");
  });
  _server.Get("/get", [this](const httplib::Request&, httplib::Response& res) {
    auto in = std::make_shared<std::ifstream>(_source, std::ios::binary);
    res.set_content_provider(std::filesystem::file_size(_source), "application/octet-stream",
                             [in](size_t offset, size_t length, httplib::DataSink& sink) {
                               std::vector<char> buf(std::min<size_t>(length, 256 * 1024));
                               in->seekg(static_cast<std::streamoff>(offset));
                               in->read(buf.data(), static_cast<std::streamsize>(buf.size()));
                               return sink.write(buf.data(), static_cast<size_t>(in->gcount()));
                             });
  });
  _port = _server.bind_to_any_port("127.0.0.1");
  _serving = std::thread([this] { _server.listen_after_bind(); });
}

PlainHttpTwin::~PlainHttpTwin() {
  _server.stop();
  _serving.join();
}

void PlainHttpTwin::transfer(bool up, int64_t bytes) {
  CURL* curl = curl_easy_init();
  const std::string url = "http://127.0.0.1:" + std::to_string(_port) + (up ? "/put" : "/get");
  std::FILE* src = up ? std::fopen(_source.c_str(), "rb") : nullptr;
  std::FILE* dst = std::fopen((_scratch + "/plain-down.bin").c_str(), "wb");
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  if (up) {
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_READDATA, src);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(bytes));
  }
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, dst);
  curl_easy_perform(curl);
  curl_easy_cleanup(curl);
  if (src) std::fclose(src);
  std::fclose(dst);
}

}  // namespace rivo::bench
