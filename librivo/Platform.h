#pragma once
// What the program learns from the system it runs on and the terminal it runs in.

#include <string>

namespace rivo {

// "linux:" and the kernel release.
std::string platformDesc();
// One line of standard input without its line end; on a terminal, `prompt` goes to standard
// error first and the typed text isn't shown (for passwords).
std::string readHiddenLine(const std::string& prompt);

}  // namespace rivo
