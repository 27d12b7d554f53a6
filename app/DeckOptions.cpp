#include "app/DeckOptions.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "app/AppDelegate.h"
#include "app/RVConfigTableController.h"
#include "app/StudyViewController.h"
#include "app/Ui.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"

namespace rivo {

namespace {

// How an integer row shows and stores its key.
enum class Scale {
  plain,    // the value itself
  tenths,   // stored in tenths of a percent, shown as percent
  percent,  // stored as a real factor, shown as whole percent
};

struct IntField {
  const char* title;
  const char* sub;  // the group's sub-object, or "" for the top level
  const char* key;
  int element;  // index into an array value, or -1
  int64_t lo, hi;
  Scale scale = Scale::plain;
};

Json& valueOf(Json& group, const IntField& item) {
  Json& parent = *item.sub ? group[item.sub] : group;
  Json& v = parent[item.key];
  return item.element >= 0 ? v[item.element] : v;
}

int64_t shown(const Json& v, Scale scale) {
  switch (scale) {
    case Scale::tenths:
      return jsonNumberInt(v) / 10;
    case Scale::percent:
      // 1.15 is 114.999... in binary: nudge before truncating so it shows as typed.
      return static_cast<int64_t>(std::floor(jsonNumber(v) * 100 + 1e-6));
    case Scale::plain:
      break;
  }
  return jsonNumberInt(v);
}

Json stored(int64_t n, Scale scale) {
  switch (scale) {
    case Scale::tenths:
      return n * 10;
    case Scale::percent:
      return static_cast<double>(n) / 100.0;
    case Scale::plain:
      break;
  }
  return n;
}

std::shared_ptr<RVConfigTableRow> switchRow(const char* title, std::function<Json*()> group,
                                            const char* sub, const char* key,
                                            std::function<void()> saved) {
  auto row = std::make_shared<RVConfigTableRow>();
  row->kind = RVConfigTableRow::Kind::toggle;
  row->title = title;
  row->getVal = [group, sub, key] {
    Json* g = group();
    const Json& parent = *sub ? (*g)[sub] : *g;
    return parent.contains(key) && parent[key].is_boolean() && parent[key].get<bool>();
  };
  row->setVal = [group, sub, key, saved](bool on) {
    Json* g = group();
    (*sub ? (*g)[sub] : *g)[key] = on;
    saved();
  };
  return row;
}

std::shared_ptr<RVConfigTableRow> enumRow(const char* title, std::vector<std::string> choices,
                                          std::function<Json*()> group, const char* sub,
                                          const char* key, std::function<void()> saved) {
  auto row = std::make_shared<RVConfigTableRow>();
  row->kind = RVConfigTableRow::Kind::enumeration;
  row->title = title;
  row->getData = [choices, group, sub, key] {
    return RVConfigTableRow::EnumData{choices,
                                      static_cast<int>(jsonNumberInt((*group())[sub][key]))};
  };
  row->setIdx = [group, sub, key, saved](int idx) {
    (*group())[sub][key] = idx;
    saved();
  };
  return row;
}

}  // namespace

std::string DeckOptions::stepsToString(const Json& steps) {
  std::string out;
  if (!steps.is_array()) return out;
  for (const Json& step : steps) {
    if (!out.empty()) out += ' ';
    double d = jsonNumber(step);
    // Whole steps as integers, fractions of a minute as they are.
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", d);
    out += buf;
  }
  return out;
}

std::optional<Json> DeckOptions::stringToSteps(const std::string& text) {
  Json steps = Json::array();
  size_t i = 0;
  while (i < text.size()) {
    size_t j = text.find(' ', i);
    if (j == std::string::npos) j = text.size();
    if (std::optional<double> n = RVConfigTableController::numberFromText(text.substr(i, j - i))) {
      double step = std::clamp(*n, 1.0, 144000.0);
      if (step == std::floor(step))
        steps.push_back(static_cast<int64_t>(step));
      else
        steps.push_back(step);
    }
    i = j + 1;
  }
  if (steps.empty()) return std::nullopt;
  return steps;
}

void DeckOptions::setupConfigTable(RVConfigTableController& table) {
  _table = &table;
  table.title = "Deck Options";
  table.rightTitle = "Defaults";
  table.onRight = [this] { _restoreDefaults(); };
  AppDelegate& app = _app;
  // The next card follows the changed options, and they are on disk before it shows.
  table.onClose = [&app] {
    std::shared_ptr<Col> col = app.col();
    if (!col) return;
    col->save();
    if (StudyViewController* svc = app.svc())
      svc->reset();
    else
      col->reset();
  };
  _buildRows();
}

void DeckOptions::reload() {
  if (!_table) return;
  _table->sections.clear();
  _buildRows();
  _table->reloadData();
}

Json* DeckOptions::_deck() const {
  DeckManager& dm = _app.col()->decks();
  StudyViewController* svc = _app.svc();
  if (svc && svc->card() && svc->card()->odid != 0)
    if (Json* home = dm.getDeck(Json(svc->card()->odid), false)) return home;
  return dm.current();
}

Json* DeckOptions::_group() const {
  return _app.col()->decks().confForDid((*_deck())["id"]);
}

void DeckOptions::_saveGroup() {
  _app.col()->decks().save(_group());
}

void DeckOptions::_buildRows() {
  std::function<Json*()> group = [this] { return _group(); };
  std::function<void()> saved = [this] { _saveGroup(); };

  auto intRow = [&](const IntField& item) {
    auto row = std::make_shared<RVConfigTableRow>();
    row->kind = RVConfigTableRow::Kind::edit;
    row->title = item.title;
    row->keyboardType = "number";
    row->getTxt = [group, item] {
      return std::to_string(shown(valueOf(*group(), item), item.scale));
    };
    row->txtIsValid = [](const std::string& t) {
      return RVConfigTableController::numberFromText(t).has_value();
    };
    row->setTxt = [group, item, saved](const std::string& t) {
      double n = std::trunc(*RVConfigTableController::numberFromText(t));
      int64_t v = static_cast<int64_t>(std::clamp(n, double(item.lo), double(item.hi)));
      valueOf(*group(), item) = stored(v, item.scale);
      saved();
    };
    return row;
  };
  auto stepsRow = [&](const char* sub) {
    auto row = std::make_shared<RVConfigTableRow>();
    row->kind = RVConfigTableRow::Kind::edit;
    row->title = "Steps";
    row->getTxt = [group, sub] { return stepsToString((*group())[sub]["delays"]); };
    row->txtIsValid = [](const std::string& t) { return stringToSteps(t).has_value(); };
    row->setTxt = [group, sub, saved](const std::string& t) {
      (*group())[sub]["delays"] = *stringToSteps(t);
      saved();
    };
    return row;
  };

  RVConfigTableSection groupSection;
  auto groupRow = std::make_shared<RVConfigTableRow>();
  groupRow->kind = RVConfigTableRow::Kind::enumeration;
  groupRow->title = "Options group";
  groupRow->getData = [this] {
    RVConfigTableRow::EnumData data;
    _buildGroupList(data.choices, data.idx);
    return data;
  };
  groupRow->setIdx = [this](int idx) { _setOptionsGroupIdx(idx); };
  groupRow->onCanEditSubrow = [this](int idx) {
    return idx >= 0 && idx < static_cast<int>(_optionGroupIds.size()) &&
           _optionGroupIds[idx] != "1";
  };
  groupRow->onCommitEdit = [this](RVConfigTableController& detail, int idx) {
    _commitOptionsGroupDelete(detail, idx);
  };
  groupRow->addItem = [this](RVConfigTableController& detail) { _addOptionsGroupItem(detail); };
  groupSection.rows.push_back(groupRow);

  RVConfigTableSection newCards{"New cards", "", {}};
  newCards.rows = {
      intRow({"Max new per day", "new", "perDay", -1, 0, 9999}),
      stepsRow("new"),
      enumRow("Order", {"Display in random order", "Display in order added"}, group, "new", "order",
              saved),
      intRow({"Graduating interval", "new", "ints", 0, 1, 365}),
      intRow({"Easy interval", "new", "ints", 1, 1, 365}),
      intRow({"Starting ease", "new", "initialFactor", -1, 130, 999, Scale::tenths}),
      switchRow("Bury related new cards", group, "new", "bury", saved),
  };
  RVConfigTableSection reviews{"Reviews", "", {}};
  reviews.rows = {
      intRow({"Max reviews per day", "rev", "perDay", -1, 0, 9999}),
      intRow({"Easy bonus", "rev", "ease4", -1, 100, 999, Scale::percent}),
      intRow({"Interval modifier", "rev", "ivlFct", -1, 50, 999, Scale::percent}),
      intRow({"Maximum interval", "rev", "maxIvl", -1, 1, 36500}),
      switchRow("Bury related reviews", group, "rev", "bury", saved),
  };
  RVConfigTableSection lapses{"Lapses", "", {}};
  lapses.rows = {
      stepsRow("lapse"),
      intRow({"New interval", "lapse", "mult", -1, 0, 100, Scale::percent}),
      intRow({"Minimum interval", "lapse", "minInt", -1, 1, 365}),
      intRow({"Leech threshold", "lapse", "leechFails", -1, 1, 99}),
      enumRow("Leech action", {"Suspend Card", "Tag Only"}, group, "lapse", "leechAction", saved),
  };
  RVConfigTableSection general{"General", "", {}};
  general.rows = {
      intRow({"Answer time cap", "", "maxTaken", -1, 30, 600}),
      switchRow("Automatically play audio", group, "", "autoplay", saved),
      switchRow("Replay q. audio in answer", group, "", "replayq", saved),
  };
  _table->sections = {groupSection, newCards, reviews, lapses, general};
}

void DeckOptions::_buildGroupList(std::vector<std::string>& texts, int& idx) {
  DeckManager& dm = _app.col()->decks();
  std::map<int64_t, int> used;
  for (Json* deck : dm.all())
    if (deck->contains("conf")) ++used[jsonInt((*deck)["conf"])];
  std::vector<std::pair<std::string, std::string>> list;  // text, id
  for (Json* conf : dm.allConf()) {
    int64_t id = jsonInt((*conf)["id"]);
    list.emplace_back(
        conf->value("name", std::string()) + " (used by " + std::to_string(used[id]) + " decks)",
        std::to_string(id));
  }
  std::sort(list.begin(), list.end());
  texts.clear();
  _optionGroupIds.clear();
  std::string current = std::to_string(jsonInt((*_deck())["conf"], 1));
  idx = -1;
  for (auto& [text, id] : list) {
    if (id == current) idx = static_cast<int>(texts.size());
    texts.push_back(std::move(text));
    _optionGroupIds.push_back(std::move(id));
  }
}

void DeckOptions::_setOptionsGroupIdx(int idx) {
  if (idx < 0 || idx >= static_cast<int>(_optionGroupIds.size())) return;
  DeckManager& dm = _app.col()->decks();
  Id id = std::stoll(_optionGroupIds[idx]);
  // Removed meanwhile (another screen): nothing to point the deck at.
  if (!dm.getConf(Json(id))) {
    _app.showInfo("That options group no longer exists.");
    reload();
    return;
  }
  Json* deck = dm.current();
  if (jsonInt((*deck)["conf"]) == id) return;
  (*deck)["conf"] = id;
  dm.save(deck);
  reload();
}

void DeckOptions::_commitOptionsGroupDelete(RVConfigTableController& detail, int idx) {
  std::string id = _optionGroupIds.at(idx);
  std::weak_ptr<bool> alive = _alive;
  _app.askUser(
      "Deleting this options group will prevent any changes from being merged from other "
      "devices on the next sync. Proceed?",
      "Full Sync Required", [this, id, &detail, alive, shown = detail.lifeToken()](bool yes) {
        if (!yes || alive.expired()) return;
        DeckManager& dm = _app.col()->decks();
        if (dm.getConf(Json(std::stoll(id)))) dm.remConf(Json(std::stoll(id)));
        reload();
        if (!shown.expired()) detail.reloadData();
      });
}

void DeckOptions::_addOptionsGroupItem(RVConfigTableController& detail) {
  std::weak_ptr<bool> alive = _alive;
  _app.ui().askText("Add Options Group", "", {Ui::TextField{}}, "Cancel", "Done",
                    [this, &detail, alive, shown = detail.lifeToken()](
                        int button, std::vector<std::string> texts) {
                      if (button != 1 || alive.expired()) return;
                      std::string name = texts.empty() ? "" : texts[0];
                      if (name.find_first_not_of(" \t") == std::string::npos) return;
                      DeckManager& dm = _app.col()->decks();
                      Id id = dm.confIdForName(name, _group());
                      Json* deck = dm.current();
                      (*deck)["conf"] = id;
                      dm.save(deck);
                      reload();
                      if (!shown.expired()) detail.reloadData();
                    });
}

void DeckOptions::_restoreDefaults() {
  std::weak_ptr<bool> alive = _alive;
  _app.askUser("Reset all settings to defaults?", "Restore Defaults", [this, alive](bool yes) {
    if (!yes || alive.expired()) return;
    _app.col()->decks().restoreToDefault(*_group());
    reload();
  });
}

}  // namespace rivo
