#include "tests/support/TempDir.h"

#include <stdlib.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

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

SavedEnv::SavedEnv(std::string name) : _name(std::move(name)) {
  const char* value = std::getenv(_name.c_str());
  _had = value != nullptr;
  if (_had) _value = value;
}

SavedEnv::~SavedEnv() {
  if (_had)
    setenv(_name.c_str(), _value.c_str(), 1);
  else
    unsetenv(_name.c_str());
  if (_name == "TZ") tzset();
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
