#pragma once
// Pieces of the URLs that web views report (links, the program's schemes, the editor's
// fragments). Plain functions of text; any thread.

#include <string>

namespace rivo {

class UrlText {
 public:
  // "%xx" escapes decoded; anything else kept as it is.
  static std::string percentDecode(const std::string& text);
  // The last component of a URL's path, decoded; query and fragment left out.
  static std::string lastPathComponent(std::string url);
  // The scheme in lower case, or "" when there is none.
  static std::string schemeOf(const std::string& url);
  static std::string replaceAll(std::string text, const std::string& from, const std::string& to);
};

}  // namespace rivo
