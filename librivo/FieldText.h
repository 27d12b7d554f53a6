#pragma once
// The text of note fields: the fields of a note as one value, visible text without markup, and
// text made safe for a script or a pattern.

#include <string>
#include <string_view>
#include <vector>

namespace rivo {

std::string stripHTML(const std::string& text);
// As stripHTML, but an image first turns into its file name.
std::string stripHTMLMedia(const std::string& text);
std::string stripSounds(const std::string& text);
std::string joinFields(const std::vector<std::string>& fields);
std::vector<std::string> splitFields(std::string_view text);
// A JavaScript string literal, with image file names made ASCII so that the web view finds them.
std::string jsEscape(const std::string& text);
// Puts a backslash before each of "[\^$.|?*+(){}", so that the text matches itself as a pattern.
std::string escapeRegexFromString(const std::string& text);
// Reversed by UTF-16 code unit.
std::string reverseString(const std::string& text);

}  // namespace rivo
