#include "librivo/syncing/HttpSyncer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <vector>

#include "librivo/Checksum.h"
#include "librivo/Compression.h"
#include "librivo/Error.h"
#include "librivo/Files.h"
#include "librivo/SysLog.h"
#include "librivo/Version.h"
#include "librivo/syncing/CurlLibrary.h"
#include "librivo/syncing/SyncListener.h"

#ifndef RIVO_SYNC_BASE
#define RIVO_SYNC_BASE "https://sync.rivoweb.invalid/"
#endif

namespace rivo {

namespace {

constexpr const char* kBusy =
    "RivoWeb is too busy at the moment. Please try again in a few minutes.";

// "%@" of a form field's value.
std::string fieldText(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  return value.dump();
}

// A new empty file in the temporary folder, open for writing; its path goes to `path`.
std::FILE* newTmpFile(const std::string& folder, std::string* path) {
  std::string name = (std::filesystem::path(folder) / "XXXXXX.tmp").string();
  int fd = mkstemps(name.data(), 4);
  if (fd < 0) return nullptr;
  std::FILE* f = fdopen(fd, "w+b");
  if (!f) {
    ::close(fd);
    ::unlink(name.c_str());
    return nullptr;
  }
  *path = name;
  return f;
}

bool writeAll(std::FILE* f, const std::string& bytes) {
  return bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
}

// Removes a temporary file of ours; one that is already gone is fine.
void removeTmp(const std::string& path) {
  if (path.empty()) return;
  if (::unlink(path.c_str()) != 0 && errno != ENOENT)
    sysLog("could not remove " + path + ": " + std::strerror(errno));
}

std::string sessionKey() {
  std::random_device random;
  long value = static_cast<long>(random() & 0x7fffffff);
  return checksum(std::to_string(value)).substr(0, 8);
}

}  // namespace

std::string syncBase() {
  if (const char* base = std::getenv("SYNC_BASE")) return base;
  return RIVO_SYNC_BASE;
}

Error makeError(const std::string& domain, const std::string& text) {
  return errorWithMessage(domain, text.empty() ? domain : text);
}

std::optional<Error> errorForStatus(long status) {
  switch (status) {
    case 200:
      return std::nullopt;
    case 403:
      return makeError("badAuth", "badAuth");
    case 405:
    case 503:
      return makeError("syncError", kBusy);
    case 409:
      return makeError("syncError",
                       "Only one client can access RivoWeb at a time. If a previous sync failed, "
                       "please try again in a few minutes.");
    case 500:
      return makeError("syncError",
                       "RivoWeb encountered a problem. Please wait a few minutes and try again, "
                       "and if the problem persists, please let us know.");
    case 501:
      return makeError("syncError",
                       "Please download the free update from the app store to continue syncing.");
    case 502:
      return makeError("syncError",
                       "An error occurred on RivoWeb. Please wait a few minutes and then try "
                       "again.");
    default:
      return makeError("syncError", "Unknown HTTP response code: " + std::to_string(status) + ".");
  }
}

HttpSyncer::HttpSyncer(std::string key, Json postVars)
    : hkey(std::move(key)), _postVars(std::move(postVars)), _skey(sessionKey()) {
  if (_postVars.is_null()) _postVars = Json::object();
}

HttpSyncer::~HttpSyncer() {
  if (_transfer.joinable()) {
    waitForCompletion();
  }
  if (_download) std::fclose(_download);
  if (_body) std::fclose(_body);
  removeTmp(_bodyPath);
  removeTmp(downloadPath);
  hkey.clear();
}

void HttpSyncer::notifySyncStatus(const std::string& text) {
  if (listener) listener->syncNotify(text);
}

void HttpSyncer::setCompleted(bool completed) {
  std::lock_guard lock(_completedMutex);
  _completed = completed;
  _completedCond.notify_all();
}

bool HttpSyncer::_writeBody(const Payload& fobj, int comp, std::string* problem) {
  const std::string delimiter = std::string("--") + kBoundary;
  std::string text;
  for (const auto& [name, value] : _postVars.items())
    text += delimiter + "\r\n" + "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" +
            fieldText(value) + "\r\n";
  _body = newTmpFile(tmpDir, &_bodyPath);
  if (!_body) {
    *problem = "could not create a temporary file in " + tmpDir;
    return false;
  }
  bool ok = true;
  if (std::holds_alternative<std::monostate>(fobj)) {
    ok = writeAll(_body, text);
  } else {
    const std::string* tmpPath = std::get_if<std::string>(&fobj);
    std::FILE* in = tmpPath ? std::fopen(tmpPath->c_str(), "rb") : std::get<std::FILE*>(fobj);
    if (!in) {
      *problem = "could not read " + *tmpPath;
      return false;
    }
    fseeko(in, 0, SEEK_SET);
    text += delimiter + "\r\n" +
            "Content-Disposition: form-data; name=\"data\"; filename=\"data\"\r\n"
            "Content-Type: application/octet-stream\r\n\r\n";
    ok = writeAll(_body, text);
    ok = ok && _writeSlices(in, comp);
    if (std::ferror(in)) ok = false;
    ok = ok && writeAll(_body, "\r\n" + delimiter + "--\r\n");
    if (tmpPath) {
      std::fclose(in);
      if (::unlink(tmpPath->c_str()) != 0)
        throw std::logic_error("could not remove the payload file " + *tmpPath);
    }
  }
  if (ok) ok = std::fflush(_body) == 0;
  if (!ok) {
    *problem = "could not write the request to " + _bodyPath;
    return false;
  }
  _bodySize = ftello(_body);
  fseeko(_body, 0, SEEK_SET);
  return true;
}

// Copies the payload into the body 1 MiB slice at a time, each slice gzipped by itself when
// `comp` is set. Slices are independent, so a few are compressed side by side (the bytes are
// the same as one at a time); memory stays at a few slices whatever the payload's size.
bool HttpSyncer::_writeSlices(std::FILE* in, int comp) {
  const size_t batch = comp ? std::clamp<size_t>(std::thread::hardware_concurrency(), 1, 4) : 1;
  std::vector<std::vector<uint8_t>> slices(batch), packed(batch);
  for (;;) {
    size_t filled = 0;
    for (; filled < batch; ++filled) {
      slices[filled].resize(kSliceSize);
      size_t n = std::fread(slices[filled].data(), 1, kSliceSize, in);
      slices[filled].resize(n);
      if (n == 0) break;
    }
    if (filled == 0) return !std::ferror(in);
    if (comp) {
      std::vector<std::thread> workers;
      for (size_t i = 1; i < filled; ++i)
        workers.emplace_back([&, i] { packed[i] = gzipDeflate(slices[i], comp); });
      packed[0] = gzipDeflate(slices[0], comp);
      for (std::thread& w : workers) w.join();
    }
    for (size_t i = 0; i < filled; ++i) {
      const std::vector<uint8_t>& out = comp ? packed[i] : slices[i];
      if (out.empty() || std::fwrite(out.data(), 1, out.size(), _body) != out.size()) return false;
    }
    if (filled < batch) return !std::ferror(in);
  }
}

void HttpSyncer::reqWithMethod(const std::string& method, const Payload& fobj, int comp) {
  sysLog("reqWithMethod: " + method);
  if (_transfer.joinable()) waitForCompletion();
  setCompleted(false);
  _lastErr.reset();
  _postVars["c"] = comp ? 1 : 0;
  if (_body) std::fclose(_body);
  _body = nullptr;
  removeTmp(_bodyPath);
  _bodyPath.clear();
  sentBytes = 0;
  uploadProgress = 0;
  _lastSentTotal = 0;

  std::string problem;
  bool ok = _writeBody(fobj, comp, &problem);
  if (ok) {
    if (downloadPath.empty()) {
      std::FILE* f = newTmpFile(tmpDir, &downloadPath);
      if (f) std::fclose(f);
    }
    _download = downloadPath.empty() ? nullptr : std::fopen(downloadPath.c_str(), "wb");
    if (!_download) {
      ok = false;
      problem = "could not create a temporary file in " + tmpDir;
    }
  }
  if (!ok) {
    // Nothing went out: the request fails as a connection would.
    _finish(makeError("syncError", "The sync request could not be prepared: " + problem + "."));
    return;
  }
  _transfer = std::thread(&HttpSyncer::_run, this, syncURL() + method);
}

namespace {

size_t readBody(char* buffer, size_t size, size_t count, void* file) {
  return std::fread(buffer, size, count, static_cast<std::FILE*>(file));
}

int seekBody(void* file, curl_off_t offset, int origin) {
  return fseeko(static_cast<std::FILE*>(file), offset, origin) == 0 ? CURL_SEEKFUNC_OK
                                                                    : CURL_SEEKFUNC_FAIL;
}

}  // namespace

void HttpSyncer::_run(std::string url) {
  std::string loadError;
  const CurlLibrary* lib = CurlLibrary::get(&loadError);
  if (!lib) {
    _finish(makeError("syncError", loadError));
    return;
  }
  CURL* curl = lib->easy_init();
  if (!curl) {
    _finish(makeError("network", "The network library could not start."));
    return;
  }
  char errbuf[CURL_ERROR_SIZE] = {0};
  const std::string contentType =
      std::string("Content-Type: multipart/form-data; boundary=") + kBoundary;
  curl_slist* headers = lib->slist_append(nullptr, contentType.c_str());
  const std::string agent = std::string("rivo/") + kVersion;

  lib->easy_setopt(curl, CURLOPT_URL, url.c_str());
  lib->easy_setopt(curl, CURLOPT_ERRORBUFFER, errbuf);
  lib->easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  lib->easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  lib->easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  lib->easy_setopt(curl, CURLOPT_USERAGENT, agent.c_str());
  lib->easy_setopt(curl, CURLOPT_POST, 1L);
  lib->easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  lib->easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(_bodySize));
  lib->easy_setopt(curl, CURLOPT_READFUNCTION, readBody);
  lib->easy_setopt(curl, CURLOPT_READDATA, _body);
  // The body can be sent again from its file, as a redirect or an authentication may need.
  lib->easy_setopt(curl, CURLOPT_SEEKFUNCTION, seekBody);
  lib->easy_setopt(curl, CURLOPT_SEEKDATA, _body);
  lib->easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  lib->easy_setopt(curl, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
  lib->easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
  lib->easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeout * 1000));
  lib->easy_setopt(
      curl, CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t count, void* self) {
        auto* s = static_cast<HttpSyncer*>(self);
        size_t n = std::fwrite(data, size, count, s->_download) * size;
        if (s->listener && n) s->listener->receivedData(static_cast<int64_t>(n));
        return n;
      });
  lib->easy_setopt(curl, CURLOPT_WRITEDATA, this);
  lib->easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  lib->easy_setopt(
      curl, CURLOPT_XFERINFOFUNCTION,
      +[](void* self, curl_off_t, curl_off_t dlnow, curl_off_t ultotal, curl_off_t ulnow) {
        auto* s = static_cast<HttpSyncer*>(self);
        // The time-out counts from the last byte that moved either way.
        auto now = std::chrono::steady_clock::now();
        if (dlnow != s->_lastReceivedTotal || ulnow != s->_lastSentTotal) {
          s->_lastReceivedTotal = dlnow;
          s->_lastActivity = now;
        } else if (now - s->_lastActivity > std::chrono::duration<double>(s->timeout)) {
          s->_timedOut = true;
          return 1;
        }
        if (ulnow > s->_lastSentTotal) {
          s->sentBytes = ulnow - s->_lastSentTotal;
          s->_lastSentTotal = ulnow;
          s->uploadProgress = ultotal ? static_cast<float>(ulnow) / static_cast<float>(ultotal) : 0;
          if (s->listener) s->listener->sentData(s->sentBytes, s->uploadProgress);
        }
        return 0;
      });
  lib->easy_setopt(curl, CURLOPT_XFERINFODATA, this);

  _lastActivity = std::chrono::steady_clock::now();
  _lastReceivedTotal = 0;
  _timedOut = false;
  CURLcode rc = lib->easy_perform(curl);
  long status = 0;
  lib->easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  lib->slist_free_all(headers);
  lib->easy_cleanup(curl);

  if (_timedOut) {
    _finish(makeError("network", "The request timed out: nothing moved for " +
                                     std::to_string(static_cast<int>(timeout)) + " seconds."));
    return;
  }
  if (rc != CURLE_OK) {
    std::string text = lib->easy_strerror(rc);
    if (errbuf[0]) text += std::string(": ") + errbuf;
    _finish(makeError("network", text));
    return;
  }
  _finish(errorForStatus(status));
}

void HttpSyncer::_finish(std::optional<Error> error) {
  bool failed = error && error->domain == "network";
  if (_body) std::fclose(_body);
  _body = nullptr;
  removeTmp(_bodyPath);
  _bodyPath.clear();
  if (_download) std::fclose(_download);
  _download = nullptr;
  // A connection that failed leaves no reply; a status error leaves its reply for the next
  // request to replace.
  if (failed) removeTmp(downloadPath);
  _lastErr = std::move(error);
  setCompleted(true);
}

bool HttpSyncer::waitForCompletion(Error* err) {
  {
    std::unique_lock lock(_completedMutex);
    _completedCond.wait(lock, [this] { return _completed; });
  }
  if (_transfer.joinable()) _transfer.join();
  if (_lastErr) {
    if (err) *err = *_lastErr;
    return false;
  }
  return true;
}

std::optional<std::string> HttpSyncer::waitForReqData(Error* err) {
  if (!waitForCompletion(err)) return std::nullopt;
  std::error_code ec;
  auto size = std::filesystem::file_size(downloadPath, ec);
  if (ec || static_cast<int64_t>(size) > maxReplyBytes) {
    removeTmp(downloadPath);
    if (err)
      *err = makeError("syncError", ec ? "The reply from RivoWeb could not be read."
                                       : "The reply from RivoWeb was too large.");
    return std::nullopt;
  }
  std::string data(size, '\0');
  std::FILE* f = std::fopen(downloadPath.c_str(), "rb");
  size_t n = f ? std::fread(data.data(), 1, data.size(), f) : 0;
  if (f) std::fclose(f);
  removeTmp(downloadPath);
  if (n != data.size()) {
    if (err) *err = makeError("syncError", "The reply from RivoWeb could not be read.");
    return std::nullopt;
  }
  return data;
}

}  // namespace rivo
