#pragma once
// LaTeX in card text: "[latex]...[/latex]", "[$]...[/$]" and "[$$]...[/$$]" become pictures
// named after the SHA-1 of their source. This program never runs LaTeX; the pictures come
// with the media from a desktop program, and the review page handles a missing one.

#include <string>

#include "librivo/Json.h"

namespace rivo {

class Latex {
 public:
  // Every LaTeX tag of a rendered card side replaced by its picture. The note type plays no
  // part in the names, so that one source always finds one picture.
  static std::string mungeQAForHtml(const std::string& html, const Json& model);
  // `text` with every LaTeX tag and its content removed.
  static std::string stripLatex(const std::string& text);

  // "<img class=latex ... src="latex-SHA1.png">" for one LaTeX source, wrapping included.
  static std::string _imgLinkForLatex(const std::string& latex, const Json& model);
  // The LaTeX source as typed in the editor: line breaks back to newlines, no markup, and
  // named entities decoded.
  static std::string _latexFromHtml(const std::string& latex);
};

}  // namespace rivo
