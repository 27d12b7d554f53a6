#include "app/CustomStudyViewController.h"

#include "app/ActionsManager.h"
#include "app/AppDelegate.h"
#include "app/RVConfigTableController.h"
#include "librivo/Col.h"

namespace rivo {

CustomStudyViewController::CustomStudyViewController(AppDelegate& app)
    : _app(app), _study(*app.col()) {}

void CustomStudyViewController::setupConfigTable(RVConfigTableController& table) {
  _table = &table;
  table.title = "Custom Study";
  table.rightTitle = "Done";
  table.onRight = [this] { _accept(); };
  auto mode = std::make_shared<RVConfigTableRow>();
  mode->kind = RVConfigTableRow::Kind::enumeration;
  mode->title = "Study Type";
  mode->getData = [this] {
    return RVConfigTableRow::EnumData{CustomStudy::modeLabels(), static_cast<int>(_study.mode())};
  };
  mode->setIdx = [this](int idx) {
    if (idx == static_cast<int>(_study.mode())) return;
    _study.setMode(static_cast<CustomStudyMode>(idx));
    _setOptionsForMode();
  };
  table.sections = {{"Study Type", "", {mode}}, {}};
  _setOptionsForMode();
}

void CustomStudyViewController::_setOptionsForMode() {
  CustomStudyMode m = _study.mode();
  auto number = std::make_shared<RVConfigTableRow>();
  number->kind = RVConfigTableRow::Kind::edit;
  number->title = CustomStudy::rowLabel(m);
  number->keyboardType = "number";
  number->getTxt = [this] { return std::to_string(_study.rowValue()); };
  // Whole numbers from 1 to the mode's greatest; anything else shows the value again.
  number->txtIsValid = [m](const std::string& t) {
    std::optional<double> n = RVConfigTableController::numberFromText(t);
    return n && *n == static_cast<int>(*n) && *n >= 1 && *n <= CustomStudy::rowMax(m);
  };
  number->setTxt = [this](const std::string& t) {
    _study.setRowValue(static_cast<int>(*RVConfigTableController::numberFromText(t)));
    _table->sections[1].footer = _study.updateEstimateForSearch();
  };
  RVConfigTableSection options{"Options", "", {number}};
  if (m == CustomStudyMode::kNewWithTags || m == CustomStudyMode::kDueWithTags ||
      m == CustomStudyMode::kCramWithTags) {
    for (bool included : {true, false}) {
      auto tags = std::make_shared<RVConfigTableRow>();
      tags->kind = RVConfigTableRow::Kind::multiEnum;
      tags->title = included ? "Include cards with tag" : "Exclude cards with tag";
      tags->getMultiData = [this, included] {
        RVConfigTableRow::MultiEnumData data;
        data.choices = _study.allValidTags();
        const std::set<std::string>& set = included ? _study.includedTags() : _study.excludedTags();
        for (size_t i = 0; i < data.choices.size(); ++i)
          if (set.count(data.choices[i])) data.chosen.insert(static_cast<int>(i));
        return data;
      };
      tags->summarizeChoices = [this, included](const RVConfigTableRow::MultiEnumData&) {
        return _study.tagRowText(included);
      };
      tags->setChosen = [this, included](const std::set<int>& chosen) {
        std::set<std::string> names;
        const std::vector<std::string>& all = _study.allValidTags();
        for (int i : chosen)
          if (i >= 0 && i < static_cast<int>(all.size())) names.insert(all[i]);
        if (included)
          _study.setIncludedTags(names);
        else
          _study.setExcludedTags(names);
        _table->sections[1].footer = _study.updateEstimateForSearch();
      };
      options.rows.push_back(tags);
    }
  }
  options.footer = _study.updateEstimateForSearch();
  _table->sections[1] = options;
  _table->reloadData();
}

void CustomStudyViewController::_accept() {
  CustomStudy::Outcome out = _study.accept();
  if (out.done) {
    _app.acts().showStudyScreen();
    if (!out.message.empty()) _app.showInfo(out.message);
  } else if (!out.message.empty()) {
    _app.showInfo(out.message);
  }
}

}  // namespace rivo
