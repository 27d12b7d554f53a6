#include "app/UrlText.h"

#include <cctype>

namespace rivo {

std::string UrlText::percentDecode(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() &&
        std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string UrlText::lastPathComponent(std::string url) {
  url = url.substr(0, url.find_first_of("?#"));
  size_t scheme = url.find("://");
  if (scheme != std::string::npos) {
    size_t path = url.find('/', scheme + 3);
    url = path == std::string::npos ? "" : url.substr(path);
  }
  while (!url.empty() && url.back() == '/') url.pop_back();
  return percentDecode(url.substr(url.rfind('/') + 1));
}

std::string UrlText::schemeOf(const std::string& url) {
  size_t colon = url.find(':');
  if (colon == std::string::npos) return "";
  std::string scheme = url.substr(0, colon);
  for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return scheme;
}

std::string UrlText::replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

}  // namespace rivo
