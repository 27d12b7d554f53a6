#pragma once
// HTML entity escaping and unescaping of UTF-8 text, with the HTML 4 named entities.

#include <string>
#include <string_view>

namespace rivo {

// Only the markup characters: " & ' < >.
std::string stringByEscapingForHTML(std::string_view text);
// Markup characters and everything above ASCII: by name where HTML 4 has one, else "&#N;".
std::string stringByEscapingForAsciiHTML(std::string_view text);
// Named, decimal and hexadecimal entities back to characters; numbers must lie in 1..65534.
// Anything else that looks like an entity stays as it is.
std::string stringByUnescapingFromHTML(std::string_view text);

}  // namespace rivo
