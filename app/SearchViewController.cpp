#include "app/SearchViewController.h"

#include <algorithm>

#include "app/ActionsManager.h"
#include "app/AppDelegate.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/FieldText.h"
#include "librivo/Ids.h"
#include "librivo/ModelManager.h"
#include "librivo/StoredCodes.h"

namespace rivo {

SearchViewController::SearchViewController(AppDelegate& app) : _app(app) {}

void SearchViewController::viewWillAppear() {
  if (!_appeared) {
    _appeared = true;
    ++_focusSeq;
  }
  if (_editing) {
    _editing = false;
    const size_t shown = _shown;
    doSearch();
    _shown = shown;
  }
}

void SearchViewController::doSearch() {
  _searchResults = _app.col()->findCards(_text, std::string("n.id, c.ord"));
  _texts.clear();
  _shown = kPageRows;
  setNeedsDisplay();
}

void SearchViewController::clear() {
  _text.clear();
  _searchResults.clear();
  _texts.clear();
  _shown = kPageRows;
  setNeedsDisplay();
}

void SearchViewController::_loadTexts(size_t from, size_t to) {
  std::vector<Id> ids;
  for (size_t i = from; i < to && i < _searchResults.size(); ++i)
    if (!_texts.count(_searchResults[i])) ids.push_back(_searchResults[i]);
  if (ids.empty()) return;
  Col& col = *_app.col();
  const auto rows = col.db()->all(
      "select c.id, c.ord, n.flds, n.mid, (select count() from cards where nid = n.id) "
      "from cards c, notes n where c.nid = n.id and c.id in " +
      ids2str(ids));
  for (const Row& row : rows) {
    const std::vector<std::string> fields = splitFields(toText(row[2]));
    std::string text;
    for (size_t i = 0; i < fields.size(); ++i) text += (i ? "; " : "") + fields[i];
    if (toInt(row[4]) >= 2) {
      const int ord = static_cast<int>(toInt(row[1]));
      const Json* model = col.models().get(toInt(row[3]));
      std::string prefix;
      if (model && jsonInt(model->value("type", Json(0))) == kModelCloze) {
        prefix = "Cloze " + std::to_string(ord + 1);
      } else if (model && model->contains("tmpls")) {
        for (const Json& t : (*model)["tmpls"])
          if (jsonInt(t.value("ord", Json(-1))) == ord) prefix = jsonText(t, "name");
      }
      text = "[" + prefix + "] " + text;
    }
    _texts[toInt(row[0])] = stripHTML(text);
  }
  // A card deleted meanwhile shows an empty row rather than shifting the others.
  for (Id id : ids) _texts.emplace(id, "");
}

std::string SearchViewController::cellTextForCid(int64_t cid) {
  auto it = _texts.find(cid);
  if (it != _texts.end()) return it->second;
  const auto at = std::find(_searchResults.begin(), _searchResults.end(), cid);
  if (at == _searchResults.end()) return "";
  const size_t i = static_cast<size_t>(at - _searchResults.begin());
  _loadTexts(i, i + 1);
  return _texts[cid];
}

Screen SearchViewController::describe() {
  Screen s;
  s.title = "Search";
  s.search = {true, _text, "Search", _focusSeq};
  const size_t count = std::min(_shown, _searchResults.size());
  _loadTexts(0, count);
  Screen::Section section;
  for (size_t i = 0; i < count; ++i) {
    Screen::Row row;
    row.id = std::to_string(_searchResults[i]);
    row.text = _texts[_searchResults[i]];
    row.hasMenu = true;
    row.lines = 2;
    section.rows.push_back(std::move(row));
  }
  if (!_searchResults.empty())
    section.footer =
        std::to_string(_searchResults.size()) + (_searchResults.size() == 1 ? " card" : " cards");
  s.sections.push_back(std::move(section));
  s.hasMore = count < _searchResults.size();
  return s;
}

bool SearchViewController::handle(const Event& e) {
  if (e.element == "search") {
    if (e.kind == "submit" && e.value.is_string()) {
      _text = e.value.get<std::string>();
      doSearch();
      return true;
    }
    if (e.kind == "clear") {
      clear();
      return true;
    }
    return false;
  }
  if (e.element == "more") {
    if (_shown >= _searchResults.size()) return true;
    _shown += kPageRows;
    setNeedsDisplay();
    return true;
  }
  if (e.element != "row") return false;
  const Id cid = std::strtoll(e.id.c_str(), nullptr, 10);
  const size_t count = std::min(_shown, _searchResults.size());
  if (std::find(_searchResults.begin(), _searchResults.begin() + count, cid) ==
      _searchResults.begin() + count)
    return false;
  if (e.kind == "menu") {
    _app.acts().showCardInfo(cid);
    return true;
  }
  if (e.kind != "select") return false;
  if (!_app.col()->db()->scalarInt("select count() from cards where id = ?", {cid})) {
    // Deleted since the search ran (from the editor's menu, or another tab).
    doSearch();
    return true;
  }
  _editing = true;
  _app.acts().openEditor(std::make_unique<Card>(*_app.col(), cid));
  return true;
}

}  // namespace rivo
