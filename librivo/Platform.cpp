#include "librivo/Platform.h"

#include <sys/utsname.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace rivo {

std::string platformDesc() {
  utsname info{};
  if (uname(&info) != 0) return "linux:";
  return std::string("linux:") + info.release;
}

std::string readHiddenLine(const std::string& prompt) {
  const bool tty = isatty(STDIN_FILENO) == 1;
  termios saved{};
  if (tty) {
    std::fputs(prompt.c_str(), stderr);
    std::fflush(stderr);
    tcgetattr(STDIN_FILENO, &saved);
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
  }
  std::string line;
  char* buffer = nullptr;
  size_t capacity = 0;
  ssize_t n = getline(&buffer, &capacity, stdin);
  if (n > 0) line.assign(buffer, static_cast<size_t>(n));
  std::free(buffer);
  if (tty) {
    tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    std::fputs("\n", stderr);
  }
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  return line;
}

}  // namespace rivo
