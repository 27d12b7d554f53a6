#include "server/MultipartReader.h"

#include <algorithm>
#include <cctype>

namespace rivo {

namespace {

constexpr size_t kMaxHeaders = 8192;

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t");
  if (b == std::string::npos) return {};
  size_t e = s.find_last_not_of(" \t");
  return s.substr(b, e - b + 1);
}

// The value of one parameter (name="x") of a header value, without its quotes.
std::string parameter(const std::string& value, const std::string& key) {
  size_t pos = 0;
  while (pos < value.size()) {
    size_t semi = value.find(';', pos);
    std::string item = trim(value.substr(pos, semi == std::string::npos ? semi : semi - pos));
    size_t eq = item.find('=');
    if (eq != std::string::npos && lower(trim(item.substr(0, eq))) == key) {
      std::string v = trim(item.substr(eq + 1));
      if (v.size() >= 2 && v.front() == '"' && v.back() == '"') v = v.substr(1, v.size() - 2);
      return v;
    }
    if (semi == std::string::npos) break;
    pos = semi + 1;
  }
  return {};
}

}  // namespace

MultipartReader::MultipartReader(std::string boundary, Handler handler)
    : _delimiter("\r\n--" + std::move(boundary)), _handler(std::move(handler)) {}

std::string MultipartReader::boundaryOf(const std::string& contentType) {
  size_t semi = contentType.find(';');
  if (lower(trim(contentType.substr(0, semi))) != "multipart/form-data" ||
      semi == std::string::npos)
    return {};
  std::string b = parameter(contentType.substr(semi + 1), "boundary");
  return b.size() <= 200 ? b : std::string();
}

bool MultipartReader::_fail(const std::string& why) {
  if (_state != State::Failed) _error = why;
  _state = State::Failed;
  return false;
}

bool MultipartReader::feed(const char* data, size_t size) {
  if (_state == State::Failed) return false;
  if (_state == State::Done) return true;
  _buf.append(data, size);
  return _run();
}

bool MultipartReader::_startPart(const std::string& headers) {
  std::string disposition;
  size_t pos = 0;
  while (pos < headers.size()) {
    size_t eol = headers.find("\r\n", pos);
    std::string line = headers.substr(pos, eol == std::string::npos ? eol : eol - pos);
    size_t colon = line.find(':');
    if (colon != std::string::npos && lower(trim(line.substr(0, colon))) == "content-disposition")
      disposition = line.substr(colon + 1);
    if (eol == std::string::npos) break;
    pos = eol + 2;
  }
  const std::string name = parameter(disposition, "name");
  if (name.empty()) return _fail("a part has no name");
  const std::string filename = parameter(disposition, "filename");
  _inFile = disposition.find("filename") != std::string::npos;
  if (_handler.begin && !_handler.begin(name, filename)) return _fail("refused part " + name);
  return true;
}

bool MultipartReader::_run() {
  // The first delimiter has no CRLF before it when the body starts with it.
  const std::string first = _delimiter.substr(2);
  for (;;) {
    switch (_state) {
      case State::Preamble: {
        size_t at = _buf.rfind(first, 0) == 0 ? 0 : _buf.find(_delimiter);
        if (at == std::string::npos) {
          if (_buf.size() > kMaxHeaders) return _fail("no boundary");
          return true;
        }
        _buf.erase(0, at + (at == 0 ? first.size() : _delimiter.size()));
        _state = State::AfterDelimiter;
        break;
      }
      case State::AfterDelimiter:
        if (_buf.size() < 2) return true;
        if (_buf.compare(0, 2, "--") == 0) {
          _state = State::Done;
          _buf.clear();
          return true;
        }
        if (_buf.compare(0, 2, "\r\n") != 0) return _fail("bad delimiter line");
        _buf.erase(0, 2);
        _state = State::Headers;
        break;
      case State::Headers: {
        size_t end = _buf.find("\r\n\r\n");
        if (end == std::string::npos) {
          if (_buf.size() > kMaxHeaders) return _fail("part headers too long");
          return true;
        }
        if (!_startPart(_buf.substr(0, end))) return false;
        _buf.erase(0, end + 4);
        _state = State::Body;
        break;
      }
      case State::Body: {
        // A delimiter counts only when CRLF or "--" follows it.
        size_t at = _buf.find(_delimiter);
        bool waiting = false;
        while (at != std::string::npos) {
          size_t after = at + _delimiter.size();
          if (after + 2 > _buf.size()) {
            waiting = true;
            break;
          }
          if (_buf.compare(after, 2, "\r\n") == 0 || _buf.compare(after, 2, "--") == 0) break;
          at = _buf.find(_delimiter, at + 1);
        }
        const size_t keep = _delimiter.size() + 1;
        size_t emit = at != std::string::npos ? at : _buf.size() > keep ? _buf.size() - keep : 0;
        if (emit && _handler.data && !_handler.data(_buf.data(), emit))
          return _fail("refused data");
        if (at == std::string::npos || waiting) {
          _buf.erase(0, emit);
          return true;
        }
        _buf.erase(0, at + _delimiter.size());
        if (_handler.end && !_handler.end()) return _fail("refused part");
        _state = State::AfterDelimiter;
        break;
      }
      case State::Done:
        return true;
      case State::Failed:
        return false;
    }
  }
}

bool MultipartReader::finish() {
  if (_state == State::Done) return true;
  if (_state == State::Failed) return false;
  // A field may end the body with its CRLF and no closing delimiter.
  if (_state == State::Body && !_inFile && _buf.size() >= 2 &&
      _buf.compare(_buf.size() - 2, 2, "\r\n") == 0) {
    if (_buf.size() > 2 && _handler.data && !_handler.data(_buf.data(), _buf.size() - 2))
      return _fail("refused data");
    _buf.clear();
    if (_handler.end && !_handler.end()) return _fail("refused part");
    _state = State::Done;
    return true;
  }
  return _fail("the body ended early");
}

}  // namespace rivo
