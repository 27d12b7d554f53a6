#pragma once
// The custom study table over CustomStudy: the study type, the number row of that type, the
// tag choices of the tag modes, and the estimate of matching cards under them; "Done"
// accepts. Opened on the current deck (never a filtered one). Main loop only.

#include <memory>

#include "app/CustomStudy.h"
#include "app/RVConfigTableDelegate.h"
#include "app/RVConfigTableRow.h"

namespace rivo {

class AppDelegate;
class RVConfigTableController;

class CustomStudyViewController : public RVConfigTableDelegate {
 public:
  explicit CustomStudyViewController(AppDelegate& app);

  void setupConfigTable(RVConfigTableController& table) override;
  CustomStudy& study() { return _study; }

 private:
  // The "Options" section for the mode, with a fresh estimate as its footer.
  void _setOptionsForMode();
  void _accept();

  AppDelegate& _app;
  CustomStudy _study;
  RVConfigTableController* _table = nullptr;
};

}  // namespace rivo
