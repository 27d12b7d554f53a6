#pragma once
// A code-described options table: sections of RVConfigTableRow filled by its delegate, shown
// as a Screen. Text fields commit when the page reports their edit; an invalid text shows the
// stored value again. An enum row opens a detail table (a controller of its own over that
// row) whose choice is reported when it closes. Closing the table (not covering it with
// another) runs `onClose`. Owns its delegate and rows; main loop only.

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/RVConfigTableDelegate.h"
#include "app/RVConfigTableRow.h"
#include "app/ViewController.h"

namespace rivo {

class RVConfigTableController : public ViewController {
 public:
  RVConfigTableController() = default;
  // The table of a delegate: calls setupConfigTable at once.
  explicit RVConfigTableController(std::shared_ptr<RVConfigTableDelegate> delegate);
  // The detail table of an enum or multi-enum row.
  static std::shared_ptr<RVConfigTableController> detailFor(std::shared_ptr<RVConfigTableRow> row);

  std::string title;
  std::vector<RVConfigTableSection> sections;
  std::function<void()> onClose;
  // A button in the navigation bar: "+" when `onAdd` is set, and one named `rightTitle`.
  std::function<void()> onAdd;
  std::string rightTitle;
  std::function<void()> onRight;

  RVConfigTableDelegate* delegate() const { return _delegate.get(); }
  // Shows a screen above this one without closing it.
  void push(std::shared_ptr<ViewController> vc);
  // Redraws from the closures (and a detail table from its row's data).
  void reloadData();

  // Expires when this table is destroyed, for answers that come later.
  std::weak_ptr<bool> lifeToken() const { return _alive; }
  // A number as a plain number field reads it: the whole text (blanks around allowed), or
  // nothing.
  static std::optional<double> numberFromText(const std::string& text);

  // The detail table's chosen lines.
  int idx() const { return _idx; }
  const std::set<int>& chosen() const { return _chosen; }

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override { _covered = false; }
  void viewWillDisappear() override;

 private:
  std::shared_ptr<RVConfigTableRow> _rowForId(const std::string& id) const;
  Screen _describeDetail();
  bool _handleDetail(const Event& event);

  std::shared_ptr<RVConfigTableDelegate> _delegate;
  std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
  bool _covered = false;
  bool _closed = false;
  // Detail tables only: the row they belong to, its choices and what is checked.
  std::shared_ptr<RVConfigTableRow> _detailOf;
  std::vector<std::string> _choices;
  int _idx = -1;
  std::set<int> _chosen;
};

}  // namespace rivo
