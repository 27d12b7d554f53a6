#include "tests/support/TempDir.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace rivo::test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "rivo-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  _path = pattern;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(_path, ec);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void writeFile(const std::string& path, const std::string& contents) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
}

}  // namespace rivo::test
