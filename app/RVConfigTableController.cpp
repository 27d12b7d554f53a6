#include "app/RVConfigTableController.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "app/NavigationController.h"

namespace rivo {

using Kind = RVConfigTableRow::Kind;

RVConfigTableController::RVConfigTableController(std::shared_ptr<RVConfigTableDelegate> delegate)
    : _delegate(std::move(delegate)) {
  _delegate->setupConfigTable(*this);
}

std::shared_ptr<RVConfigTableController> RVConfigTableController::detailFor(
    std::shared_ptr<RVConfigTableRow> row) {
  auto detail = std::make_shared<RVConfigTableController>();
  detail->title = row->title;
  detail->_detailOf = std::move(row);
  detail->reloadData();
  if (detail->_detailOf->addItem) {
    RVConfigTableController* self = detail.get();
    detail->onAdd = [self] { self->_detailOf->addItem(*self); };
  }
  return detail;
}

std::optional<double> RVConfigTableController::numberFromText(const std::string& text) {
  size_t b = text.find_first_not_of(" \t\n");
  if (b == std::string::npos) return std::nullopt;
  size_t e = text.find_last_not_of(" \t\n");
  std::string t = text.substr(b, e - b + 1);
  // Decimal only: no hex, exponents, infinities or NaN from strtod's wider grammar.
  if (t.find_first_not_of("0123456789.+-") != std::string::npos) return std::nullopt;
  char* end = nullptr;
  double d = std::strtod(t.c_str(), &end);
  if (end != t.c_str() + t.size() || !std::isfinite(d)) return std::nullopt;
  return d;
}

void RVConfigTableController::push(std::shared_ptr<ViewController> vc) {
  NavigationController* nc = navigationController();
  if (!nc) return;
  _covered = true;
  nc->push(std::move(vc));
}

void RVConfigTableController::reloadData() {
  std::vector<std::string> before = _choices;
  if (_detailOf && _detailOf->kind == Kind::multiEnum && _detailOf->getMultiData) {
    RVConfigTableRow::MultiEnumData data = _detailOf->getMultiData();
    _choices = std::move(data.choices);
    _chosen = std::move(data.chosen);
  } else if (_detailOf && _detailOf->getData) {
    RVConfigTableRow::EnumData data = _detailOf->getData();
    _choices = std::move(data.choices);
    _idx = data.idx;
  }
  // Lines are picked by position: once one is added or removed, a pick from the old list
  // would land on its neighbour.
  if (_choices != before) renewScreenId();
  setNeedsDisplay();
}

std::shared_ptr<RVConfigTableRow> RVConfigTableController::_rowForId(const std::string& id) const {
  size_t s = 0, r = 0;
  if (std::sscanf(id.c_str(), "s%zur%zu", &s, &r) != 2) return nullptr;
  if (s >= sections.size() || r >= sections[s].rows.size()) return nullptr;
  return sections[s].rows[r];
}

Screen RVConfigTableController::describe() {
  if (_detailOf) return _describeDetail();
  Screen s;
  s.title = title;
  if (onAdd) s.right.push_back({"add", "Add", "add"});
  if (!rightTitle.empty()) s.right.push_back({"right", rightTitle});
  for (size_t i = 0; i < sections.size(); ++i) {
    Screen::Section out{sections[i].title, sections[i].footer, {}};
    for (size_t j = 0; j < sections[i].rows.size(); ++j) {
      const RVConfigTableRow& row = *sections[i].rows[j];
      Screen::Row r;
      r.id = "s" + std::to_string(i) + "r" + std::to_string(j);
      r.text = row.title;
      switch (row.kind) {
        case Kind::edit:
          r.selectable = false;
          r.hasField = true;
          r.field = row.getTxt ? row.getTxt() : "";
          r.keyboard = row.keyboardType;
          break;
        case Kind::toggle:
          r.selectable = false;
          r.hasSwitch = true;
          r.on = row.getVal && row.getVal();
          break;
        case Kind::enumeration: {
          RVConfigTableRow::EnumData data =
              row.getData ? row.getData() : RVConfigTableRow::EnumData{};
          if (data.idx >= 0 && data.idx < static_cast<int>(data.choices.size()))
            r.detail = data.choices[data.idx];
          r.accessory = Screen::Accessory::push;
          break;
        }
        case Kind::multiEnum: {
          RVConfigTableRow::MultiEnumData data =
              row.getMultiData ? row.getMultiData() : RVConfigTableRow::MultiEnumData{};
          if (row.summarizeChoices) r.detail = row.summarizeChoices(data);
          r.accessory = Screen::Accessory::push;
          break;
        }
        case Kind::action:
          if (row.getActionData) {
            RVConfigTableRow::ActionData data = row.getActionData();
            if (!data.title.empty()) r.text = data.title;
            r.detail = data.detail;
          }
          break;
      }
      out.rows.push_back(std::move(r));
    }
    s.sections.push_back(std::move(out));
  }
  return s;
}

Screen RVConfigTableController::_describeDetail() {
  Screen s;
  s.title = title;
  if (onAdd) s.right.push_back({"add", "Add", "add"});
  Screen::Section out;
  bool multi = _detailOf->kind == Kind::multiEnum;
  for (size_t i = 0; i < _choices.size(); ++i) {
    Screen::Row r;
    r.id = "c" + std::to_string(i);
    r.text = _choices[i];
    int n = static_cast<int>(i);
    bool checked = multi ? _chosen.count(n) > 0 : n == _idx;
    if (checked) r.accessory = Screen::Accessory::check;
    r.canDelete = !multi && _detailOf->onCommitEdit &&
                  (!_detailOf->onCanEditSubrow || _detailOf->onCanEditSubrow(n));
    out.rows.push_back(std::move(r));
  }
  s.sections.push_back(std::move(out));
  return s;
}

bool RVConfigTableController::handle(const Event& e) {
  if (e.element == "button" && e.id == "add" && onAdd) {
    onAdd();
    return true;
  }
  if (e.element == "button" && e.id == "right" && onRight) {
    onRight();
    return true;
  }
  if (_detailOf) return _handleDetail(e);
  if (e.element != "row") return false;
  std::shared_ptr<RVConfigTableRow> row = _rowForId(e.id);
  if (!row) return false;
  switch (row->kind) {
    case Kind::edit: {
      if (e.kind != "change" || !e.value.is_string()) return false;
      std::string text = e.value.get<std::string>();
      if (row->setTxt && (!row->txtIsValid || row->txtIsValid(text))) row->setTxt(text);
      // The field shows the stored form, or falls back to it.
      setNeedsDisplay();
      return true;
    }
    case Kind::toggle:
      if (e.kind != "change" || !e.value.is_boolean()) return false;
      if (row->setVal) row->setVal(e.value.get<bool>());
      setNeedsDisplay();
      return true;
    case Kind::enumeration:
    case Kind::multiEnum:
      if (e.kind != "select") return false;
      push(detailFor(row));
      return true;
    case Kind::action:
      if (e.kind != "select") return false;
      if (row->onSelect) row->onSelect(*this);
      setNeedsDisplay();
      return true;
  }
  return false;
}

bool RVConfigTableController::_handleDetail(const Event& e) {
  if (e.element != "row" || e.id.size() < 2 || e.id[0] != 'c') return false;
  int n = std::atoi(e.id.c_str() + 1);
  if (n < 0 || n >= static_cast<int>(_choices.size())) return false;
  if (e.kind == "select") {
    if (_detailOf->kind == Kind::multiEnum) {
      if (!_chosen.erase(n)) _chosen.insert(n);
    } else {
      _idx = n;
    }
    setNeedsDisplay();
    return true;
  }
  if (e.kind == "delete" && _detailOf->onCommitEdit &&
      (!_detailOf->onCanEditSubrow || _detailOf->onCanEditSubrow(n))) {
    _detailOf->onCommitEdit(*this, n);
    return true;
  }
  return false;
}

void RVConfigTableController::viewWillDisappear() {
  if (_covered || _closed) return;
  _closed = true;
  if (_detailOf) {
    if (_detailOf->kind == Kind::multiEnum) {
      if (_detailOf->setChosen) _detailOf->setChosen(_chosen);
      if (_detailOf->onClose) _detailOf->onClose();
    } else {
      if (_detailOf->setIdx && _idx >= 0) _detailOf->setIdx(_idx);
      if (_detailOf->onDetailModeExit) _detailOf->onDetailModeExit();
    }
  }
  if (onClose) onClose();
}

}  // namespace rivo
