#include "app/BackupFolder.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>

#include "librivo/Col.h"
#include "librivo/PackageWriter.h"
#include "librivo/RivoPackageImporter.h"
#include "librivo/ZipReader.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

constexpr auto kExtension = RivoPackageImporter::kExtension;
constexpr auto kCollectionEntry = RivoPackageImporter::kCollectionEntry;
// A backup spares the processor: the collection is stored as it is.
constexpr int kStored = 0;
// More digits could overflow, and no profile makes that many backups.
constexpr size_t kMaxDigits = 18;

int64_t confValue(Col& col, const char* key, int64_t missing) {
  auto it = col.conf().find(key);
  if (it == col.conf().end() || !(it->is_number() || it->is_string())) return missing;
  return jsonInt(*it, missing);
}

int64_t modifiedSeconds(const fs::path& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? static_cast<int64_t>(st.st_mtime) : 0;
}

// A regular file (not a link to one) that opens as a zip holding a collection.
bool isBackup(const fs::path& path) {
  std::error_code ec;
  if (fs::symlink_status(path, ec).type() != fs::file_type::regular) return false;
  ZipReader zip(path.string());
  return zip.ok() && zip.find(kCollectionEntry).has_value();
}

}  // namespace

std::string BackupFolder::prefix(const std::string& profile) {
  return "backup-" + profile + "-";
}

int64_t BackupFolder::numberOf(const std::string& name, const std::string& prefix) {
  const std::string ext = kExtension;
  if (name.size() <= prefix.size() + ext.size() || !name.starts_with(prefix) ||
      !name.ends_with(ext))
    return -1;
  // The prefix is taken literally, so a profile name with pattern characters numbers right.
  const std::string digits = name.substr(prefix.size(), name.size() - prefix.size() - ext.size());
  if (digits.size() > kMaxDigits ||
      !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
    return -1;
  return std::stoll(digits);
}

std::vector<BackupFolder::Entry> BackupFolder::list(std::string* error) const {
  std::vector<Entry> out;
  std::error_code ec;
  for (fs::directory_iterator it(_dir, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    std::error_code ignored;
    if (name.starts_with("backup-") && it->is_regular_file(ignored))
      out.push_back({name, it->path().string(), modifiedSeconds(it->path())});
  }
  if (ec) {
    if (error) *error = ec.message();
    return {};
  }
  std::stable_sort(out.begin(), out.end(), [](const Entry& a, const Entry& b) {
    return a.modified != b.modified ? a.modified > b.modified : a.name > b.name;
  });
  return out;
}

std::vector<BackupFolder::Numbered> BackupFolder::_numbered(
    const std::string& profile, int64_t* highest, std::vector<std::string>* foreign) const {
  const std::string pre = prefix(profile);
  std::vector<Numbered> out;
  *highest = 0;
  std::error_code ec;
  for (fs::directory_iterator it(_dir, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    const int64_t number = numberOf(name, pre);
    if (number < 0) continue;
    *highest = std::max(*highest, number);
    if (isBackup(it->path()))
      out.push_back({number, it->path().string()});
    else
      foreign->push_back(name);
  }
  std::sort(out.begin(), out.end(),
            [](const Numbered& a, const Numbered& b) { return a.number < b.number; });
  std::sort(foreign->begin(), foreign->end());
  return out;
}

BackupFolder::Result BackupFolder::backup(Col& col, const std::string& profile, bool force,
                                          bool prune, const ZipWriter::Progress& progress) const {
  Result result;
  // 0 turns automatic backups off; a forced one is then made and nothing is pruned.
  const int64_t limit = confValue(col, "rmBackups", kDefaultLimit);
  if (limit <= 0) {
    if (!force) {
      result.outcome = Result::Outcome::disabled;
      return result;
    }
    prune = false;
  }
  const int64_t frequency = confValue(col, "rmBackupFreq", kDefaultFrequency) * 60;

  int64_t highest = 0;
  std::vector<Numbered> old = _numbered(profile, &highest, &result.foreign);
  if (!old.empty() && !force) {
    // Files carry the time they were written; the clock of a test doesn't move them.
    const int64_t age = static_cast<int64_t>(std::time(nullptr)) - modifiedSeconds(old.back().path);
    if (age < frequency) {
      col.log({"backup not requried"});
      result.outcome = Result::Outcome::notRequired;
      return result;
    }
  }
  col.log({"backup required, force=" + std::to_string(force ? 1 : 0)});
  result.path = _dir + "/" + prefix(profile) + std::to_string(highest + 1) + kExtension;
  if (!write(col, result.path, &result.error, progress)) {
    col.log({"backup failed: " + result.error});
    result.outcome = Result::Outcome::failed;
    return result;
  }
  result.outcome = Result::Outcome::written;
  // The new backup isn't in the list: with it, `limit` are kept.
  while (prune && !old.empty() && static_cast<int64_t>(old.size()) >= limit) {
    std::error_code ec;
    if (!fs::remove(old.front().path, ec) || ec)
      col.log({"backup: can't remove " + old.front().path + ": " + ec.message()});
    old.erase(old.begin());
  }
  return result;
}

bool BackupFolder::write(Col& col, const std::string& path, std::string* error,
                         const ZipWriter::Progress& progress) {
  std::string problem = PackageWriter::checkTarget(path);
  std::error_code ec;
  if (problem.empty())
    problem = PackageWriter::checkSpace(path, fs::file_size(col.path(), ec), col.tmpDir());
  if (!problem.empty()) {
    if (error) *error = problem;
    return false;
  }
  PackageWriter writer(path, col.tmpDir());
  const std::string collection = col.path();
  col.close();
  bool ok = writer.ok() && writer.addFile(kCollectionEntry, collection, kStored, progress);
  col.reopen();
  ok = ok && writer.add("media", "{}") && writer.commit();
  if (!ok && error) *error = writer.error();
  if (ok && !col.ok()) {
    ok = false;
    if (error) *error = "The collection couldn't be opened again after the backup.";
  }
  return ok;
}

bool BackupFolder::restore(Col& col, const std::string& profile, const std::string& path,
                           std::string* safetyCopy, std::string* error) const {
  if (!isBackup(path)) {
    if (error) *error = fs::path(path).filename().string() + " is not a Rivo backup.";
    return false;
  }
  // The collection as it is now can be brought back in its turn.
  const Result safety = backup(col, profile, true, false);
  if (safety.outcome != Result::Outcome::written) {
    if (error) *error = "The collection couldn't be backed up first: " + safety.error;
    return false;
  }
  if (safetyCopy) *safetyCopy = safety.path;
  RivoPackageImporter importer(col, path);
  return importer.runAndReplaceCollection(true, error);
}

std::string BackupFolder::foreignMessage(const std::vector<std::string>& names) const {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
  return "These files in " + _dir +
         " are named like backups but are not Rivo backups, so they were left as they are: " +
         list + ".";
}

}  // namespace rivo
