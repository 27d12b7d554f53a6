#pragma once
// A temporary folder for one test, removed with everything in it when the object goes.

#include <string>

namespace rivo::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return _path; }
  std::string file(const std::string& name) const { return _path + "/" + name; }

 private:
  std::string _path;
};

// Puts an environment variable back as it was when the object goes, whatever the test set.
class SavedEnv {
 public:
  explicit SavedEnv(std::string name);
  ~SavedEnv();
  SavedEnv(const SavedEnv&) = delete;
  SavedEnv& operator=(const SavedEnv&) = delete;

 private:
  std::string _name, _value;
  bool _had;
};

// Whole contents of a file, empty when it can't be read.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& contents);

}  // namespace rivo::test
