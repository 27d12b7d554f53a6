#include "bench/GeneratedCollection.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>

#include "bench/CollectionGenerator.h"
#include "librivo/DB.h"

namespace rivo {

namespace fs = std::filesystem;

const GeneratedCollection& GeneratedCollection::get() {
  static GeneratedCollection instance;
  return instance;
}

GeneratedCollection::GeneratedCollection() {
  fs::path data = fs::temp_directory_path() / ("rivo-bench-" + std::to_string(getpid()));
  fs::remove_all(data);
  CollectionGenerator(GeneratorOptions{}).generate(data.string(), "bench");
  dir = (data / "profiles" / "bench").string();
  path = dir + "/collection.rivo2";
  DB db(path);
  for (const Value& v : db.list("select id from notes order by id")) noteIds.push_back(toInt(v));
  for (const Value& v : db.list("select id from cards order by id")) cardIds.push_back(toInt(v));
}

std::string GeneratedCollection::copy(const std::string& name) const {
  std::string target = dir + "/" + name;
  fs::copy_file(path, target, fs::copy_options::overwrite_existing);
  // So that the first syncs of a timed commit don't write out the copy.
  const int fd = ::open(target.c_str(), O_RDONLY);
  ::fsync(fd);
  ::close(fd);
  return target;
}

GeneratedCollection::~GeneratedCollection() {
  std::error_code ec;
  fs::remove_all(fs::path(dir).parent_path().parent_path(), ec);
}

}  // namespace rivo
