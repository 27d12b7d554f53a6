#pragma once
// The export screen: the switches "Include Media" and "Include Scheduling", then the rows
// "Export %@" over `decks`, whose first element (empty) is the whole collection and the others
// the normal decks by name. A row runs the job "Exporting...": the package is written to
// Documents under a name of its own ("collection.rpkg" for the whole collection as it stands,
// else the deck's name), offered to the browser as a download, and the screen goes back; a
// failure says "Error in export: %@". Main loop only; the job's blocks take copies of what
// they need.

#include <string>
#include <vector>

#include "app/ViewController.h"

namespace rivo {

class AppDelegate;

class ExportViewController : public ViewController {
 public:
  explicit ExportViewController(AppDelegate& app);

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;

  // Exports the whole collection (index 0) or the deck of that element of decks().
  void doExport(size_t index);
  // The name the package of a deck ("" for the whole collection) is saved under. A deck's never
  // is "collection.rpkg", which an import takes for a whole collection to replace.
  static std::string fileNameFor(const std::string& deck, bool includeSched);

  const std::vector<std::string>& decks() const { return _decks; }

 private:
  AppDelegate& _app;
  std::vector<std::string> _decks{""};
  bool _exportMedia = true;
  bool _exportSched = true;
};

}  // namespace rivo
