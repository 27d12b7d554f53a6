#pragma once
// The options table of a filtered deck: search, limit, order, rescheduling and custom steps,
// with "Build" (a deck made for this visit) or "Rebuild". A new deck that still holds no card
// when the table closes is removed, so an abandoned one leaves no trace. Main loop only; the
// build runs as a job.

#include <memory>
#include <string>

#include "app/DynDeckOptions.h"
#include "app/RVConfigTableDelegate.h"
#include "librivo/Value.h"

namespace rivo {

class AppDelegate;
class RVConfigTableController;

class DynDeckViewController : public RVConfigTableDelegate {
 public:
  // `isNew`: the deck was made for this visit.
  DynDeckViewController(AppDelegate& app, Id did, bool isNew);

  void setupConfigTable(RVConfigTableController& table) override;

  static const std::vector<std::string>& orderLabels();
  const DynDeckOptions& options() const { return _options; }

 private:
  void _accept();
  void _close();

  AppDelegate& _app;
  Id _did;
  bool _isNew;
  DynDeckOptions _options;
  RVConfigTableController* _table = nullptr;
  std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
};

}  // namespace rivo
