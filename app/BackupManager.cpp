#include "app/BackupManager.h"

#include <unicode/datefmt.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>

#include "app/AppDelegate.h"
#include "app/NavigationController.h"
#include "app/ProfileManager.h"
#include "app/Ui.h"
#include "librivo/Col.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

const char* const kMaxKey = "rmBackups";
const char* const kFreqKey = "rmBackupFreq";

Screen::Row limitRow(const std::string& id, const std::string& text, int64_t value) {
  Screen::Row row;
  row.id = id;
  row.text = text;
  row.selectable = false;
  row.hasField = true;
  row.field = std::to_string(value);
  row.keyboard = "number";
  return row;
}

}  // namespace

BackupManager::BackupManager(AppDelegate& app) : _app(app) {}

std::optional<int64_t> BackupManager::boundedParse(const std::string& text, int64_t min,
                                                   int64_t max) {
  const size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string::npos) return std::nullopt;
  const size_t end = text.find_last_not_of(" \t") + 1;
  std::string number = text.substr(begin, end - begin);
  const bool negative = number.starts_with("-");
  if (negative || number.starts_with("+")) number.erase(0, 1);
  // A fraction is allowed, and dropped.
  const std::string whole = number.substr(0, number.find('.'));
  const std::string fraction =
      number.find('.') == std::string::npos ? "" : number.substr(number.find('.') + 1);
  auto digits = [](const std::string& s) {
    return std::all_of(s.begin(), s.end(), [](char c) { return std::isdigit((unsigned char)c); });
  };
  if (whole.empty() || !digits(whole) || !digits(fraction)) return std::nullopt;
  int64_t value = 0;
  for (char c : whole) value = std::min<int64_t>(value * 10 + (c - '0'), INT32_MAX);
  if (negative) value = -value;
  return std::clamp(value, min, max);
}

std::string BackupManager::dateText(int64_t seconds) {
  std::unique_ptr<icu::DateFormat> format(
      icu::DateFormat::createDateTimeInstance(icu::DateFormat::kMedium, icu::DateFormat::kMedium));
  if (!format) return std::to_string(seconds);
  icu::UnicodeString text;
  format->format(static_cast<UDate>(seconds) * 1000.0, text);
  std::string out;
  text.toUTF8String(out);
  return out;
}

void BackupManager::viewWillAppear() {
  _reload();
}

void BackupManager::_reload() {
  std::string error;
  _backups = BackupFolder(_app.pm().backupFolder()).list(&error);
  if (!error.empty()) _app.showInfo("An error occurred while scanning backups: " + error);
  setNeedsDisplay();
}

int64_t BackupManager::_limit(const char* key, int64_t missing) const {
  std::shared_ptr<Col> col = _app.col();
  if (!col || !col->conf().contains(key)) return missing;
  return jsonInt(col->conf()[key], missing);
}

Screen BackupManager::describe() {
  Screen s;
  s.title = "Backups";
  s.toolbar.push_back({"create", "Create Now", "add"});
  Screen::Section options;
  options.title = "Options";
  options.rows = {
      limitRow("max", "Maximum backups", _limit(kMaxKey, BackupFolder::kDefaultLimit)),
      limitRow("freq", "Frequency (mins)", _limit(kFreqKey, BackupFolder::kDefaultFrequency))};
  options.footer = "0 backups turns automatic backups off.";
  s.sections.push_back(std::move(options));
  Screen::Section list;
  list.title = "Available backups";
  for (const BackupFolder::Entry& backup : _backups) {
    Screen::Row row;
    row.id = backup.name;
    row.text = dateText(backup.modified);
    row.detail = backup.name;
    row.canDelete = true;
    list.rows.push_back(std::move(row));
  }
  list.footer = (_backups.empty() ? "No backups yet. " : "") + std::string("Backups are kept in ") +
                _app.pm().backupFolder() + ".";
  s.sections.push_back(std::move(list));
  return s;
}

bool BackupManager::handle(const Event& e) {
  if (e.element == "button" && e.id == "create") {
    onCreateNow();
    return true;
  }
  if (e.element != "row") return false;
  if (e.kind == "change" && e.value.is_string()) {
    if (e.id == "max") return _setLimit(kMaxKey, e.value.get<std::string>(), 0, 100);
    if (e.id == "freq") return _setLimit(kFreqKey, e.value.get<std::string>(), 1, 10080);
    return false;
  }
  auto it = std::find_if(_backups.begin(), _backups.end(),
                         [&](const BackupFolder::Entry& b) { return b.name == e.id; });
  if (it == _backups.end()) return false;
  if (e.kind == "select")
    onBackupSelected(e.id);
  else if (e.kind == "delete")
    onDeleteBackup(e.id);
  else
    return false;
  return true;
}

bool BackupManager::_setLimit(const char* key, const std::string& text, int64_t min, int64_t max) {
  std::shared_ptr<Col> col = _app.col();
  if (!col) return false;
  // Text that isn't a number is refused: the field shows the stored value again.
  if (std::optional<int64_t> value = boundedParse(text, min, max)) {
    col->conf()[key] = *value;
    col->setMod();
    col->save();
  }
  setNeedsDisplay();
  return true;
}

void BackupManager::onCreateNow() {
  AppDelegate& app = _app;
  _app.maybeBackup(true, [this, &app] {
    if (app.nc() && app.nc()->top() == this) _reload();
  });
}

void BackupManager::onBackupSelected(const std::string& name) {
  auto it = std::find_if(_backups.begin(), _backups.end(),
                         [&](const BackupFolder::Entry& b) { return b.name == name; });
  if (it == _backups.end()) return;
  const size_t index = static_cast<size_t>(it - _backups.begin());
  _app.askUser("Revert to " + name + "? Any changes made since the backup will be lost.",
               "Revert to backup", [this, index](bool yes) {
                 if (yes) restoreBackupAtIdx(index);
               });
}

void BackupManager::onDeleteBackup(const std::string& name) {
  auto it = std::find_if(_backups.begin(), _backups.end(),
                         [&](const BackupFolder::Entry& b) { return b.name == name; });
  if (it == _backups.end()) return;
  std::error_code ec;
  if (!fs::remove(it->path, ec) || ec)
    _app.showInfo("Error deleting: " + (ec ? ec.message() : name + " is already gone"));
  _reload();
}

void BackupManager::restoreBackupAtIdx(size_t index) {
  if (index >= _backups.size()) return;
  const std::string path = _backups[index].path;
  struct Outcome {
    bool ok = false;
    std::string error;
  };
  auto outcome = std::make_shared<Outcome>();
  AppDelegate& app = _app;
  ViewController* self = this;
  app.doWork(
      "Reverting to backup...",
      [&app, path, outcome] {
        std::shared_ptr<Col> col = app.col();
        if (!col) return;
        col->save();
        std::string safety;
        outcome->ok = BackupFolder(app.pm().backupFolder())
                          .restore(*col, app.pm().currentProfile(), path, &safety, &outcome->error);
      },
      [&app, self, outcome] {
        if (!outcome->ok) {
          app.showInfo("Restore operation failed: " + outcome->error);
          if (app.nc() && app.nc()->top() == self) static_cast<BackupManager*>(self)->_reload();
          return;
        }
        if (app.nc()) app.nc()->popToRoot();
        app.showInfo("Reverted to backup.");
      });
}

}  // namespace rivo
