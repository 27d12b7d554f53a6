#pragma once
// Where the chart scripts of the statistics page are, as paths under the program's resources.
// The page names each by its last component, so a web view whose base is the scripts' folder
// finds them. The files come from Debian's jQuery and flot packages, copied in at build time.
// Plain functions of constants: any thread.

#include <string>

namespace rivo {

class RivoJS {
 public:
  static std::string jQuery() { return "js/jquery-1.5.min.js"; }
  static std::string plot() { return "js/jquery.flot.min.js"; }
  static std::string pie() { return "js/jquery.flot.pie.min.js"; }
  static std::string stack() { return "js/jquery.flot.stack.min.js"; }
};

}  // namespace rivo
