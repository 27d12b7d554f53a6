#include "app/ExportViewController.h"

#include <algorithm>
#include <memory>
#include <optional>

#include "app/AppDelegate.h"
#include "app/NavigationController.h"
#include "app/ProfileManager.h"
#include "app/Ui.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/MediaManager.h"
#include "librivo/RivoPackageExporter.h"

namespace rivo {

namespace {

const char* const kDeckRow = "deck:";

Screen::Row switchRow(const std::string& id, const std::string& text, bool on) {
  Screen::Row row;
  row.id = id;
  row.text = text;
  row.selectable = false;
  row.hasSwitch = true;
  row.on = on;
  return row;
}

}  // namespace

ExportViewController::ExportViewController(AppDelegate& app) : _app(app) {}

void ExportViewController::viewWillAppear() {
  _decks = {""};
  std::shared_ptr<Col> col = _app.col();
  if (!col) return;
  // A filtered deck holds cards of other decks: those decks are what is exported.
  std::vector<std::string> names = col->decks().allNames(false);
  std::sort(names.begin(), names.end());
  _decks.insert(_decks.end(), names.begin(), names.end());
}

std::string ExportViewController::fileNameFor(const std::string& deck, bool includeSched) {
  if (deck.empty()) return includeSched ? "collection.rpkg" : "collection (no scheduling).rpkg";
  std::string name = deck;
  for (size_t at; (at = name.find("::")) != std::string::npos;) name.replace(at, 2, " - ");
  name = MediaManager::stripIllegal(name);
  if (name.empty() || name.starts_with(".") || name == "collection") name = "deck " + name;
  return name + ".rpkg";
}

Screen ExportViewController::describe() {
  Screen s;
  s.title = "Export";
  Screen::Section options;
  options.rows = {switchRow("media", "Include Media", _exportMedia),
                  switchRow("sched", "Include Scheduling", _exportSched)};
  options.footer = "Without scheduling, every card is new again and no review history goes along.";
  s.sections.push_back(std::move(options));
  Screen::Section exports;
  exports.title = "Export";
  exports.footer = "The package is saved in Documents (" + _app.pm().backupFolder() +
                   ") and downloaded by your browser.";
  for (const std::string& deck : _decks) {
    Screen::Row row;
    row.id = deck.empty() ? "collection" : kDeckRow + deck;
    row.text = "Export " + deck;
    if (deck.empty()) row.detail = "The whole collection";
    exports.rows.push_back(std::move(row));
  }
  s.sections.push_back(std::move(exports));
  return s;
}

bool ExportViewController::handle(const Event& e) {
  if (e.element != "row") return false;
  if (e.kind == "change" && e.value.is_boolean()) {
    if (e.id == "media")
      _exportMedia = e.value.get<bool>();
    else if (e.id == "sched")
      _exportSched = e.value.get<bool>();
    else
      return false;
    setNeedsDisplay();
    return true;
  }
  if (e.kind != "select") return false;
  if (e.id == "collection") {
    doExport(0);
    return true;
  }
  if (!e.id.starts_with(kDeckRow)) return false;
  auto it = std::find(_decks.begin() + 1, _decks.end(), e.id.substr(std::string(kDeckRow).size()));
  if (it == _decks.end()) return false;
  doExport(static_cast<size_t>(it - _decks.begin()));
  return true;
}

void ExportViewController::doExport(size_t index) {
  std::shared_ptr<Col> col = _app.col();
  if (!col || index >= _decks.size()) return;
  const std::string deck = _decks[index];
  std::optional<Id> did;
  if (!deck.empty()) {
    did = col->decks().getID(deck, false);
    if (!*did) {
      _app.showInfo("Error in export: There is no deck named '" + deck + "'.");
      return;
    }
  }
  const std::string name = fileNameFor(deck, _exportSched);
  const std::string folder = _app.pm().backupFolder();
  const std::string path = folder + "/" + name;
  struct Outcome {
    bool ok = false;
    std::string error;
  };
  auto outcome = std::make_shared<Outcome>();
  const bool media = _exportMedia, sched = _exportSched;
  AppDelegate& app = _app;
  ViewController* self = this;
  app.doWork(
      "Exporting...",
      [&app, did, media, sched, path, outcome] {
        std::shared_ptr<Col> c = app.col();
        if (!c) return;
        RivoPackageExporter exporter(*c, did);
        exporter.includeMedia = media;
        exporter.includeSched = sched;
        outcome->ok = exporter.copyInto(path, &outcome->error);
      },
      [&app, self, outcome, path, name, folder] {
        if (!outcome->ok) {
          app.showInfo("Error in export: " + outcome->error);
          return;
        }
        if (app.nc() && app.nc()->top() == self) app.nc()->pop();
        app.showInfo(name + " saved to Documents (" + folder + ").");
        app.ui().offerDownload(path, name);
      });
}

}  // namespace rivo
