#include "librivo/Card.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Ids.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"
#include "librivo/StoredCodes.h"

namespace rivo {

namespace {

int64_t modelType(const Json& model) {
  auto t = model.find("type");
  return t == model.end() ? kModelStandard : jsonInt(*t);
}

}  // namespace

Card::Card(Col& c) : col(&c) {
  id = timestampID(*c.db(), "cards");
  crt = intTime(1);
}

Card::Card(Col& c, Id cardId) : col(&c), id(cardId) {
  load();
}

void Card::load() {
  _note.reset();
  _qa.reset();
  auto row = col->db()->first("select * from cards where id = ?", {id});
  if (!row || row->size() < 18) return;
  const Row& r = *row;
  id = toInt(r[0]);
  nid = toInt(r[1]);
  did = toInt(r[2]);
  ord = static_cast<int>(toInt(r[3]));
  mod = toInt(r[4]);
  usn = static_cast<int>(toInt(r[5]));
  type = static_cast<int>(toInt(r[6]));
  queue = static_cast<int>(toInt(r[7]));
  due = toInt(r[8]);
  ivl = toInt(r[9]);
  factor = static_cast<int>(toInt(r[10]));
  reps = static_cast<int>(toInt(r[11]));
  lapses = static_cast<int>(toInt(r[12]));
  left = static_cast<int>(toInt(r[13]));
  odue = toInt(r[14]);
  odid = toInt(r[15]);
  flags = toInt(r[16]);
  data = toText(r[17]);
}

void Card::_stamp() {
  const Col::Stamp now = col->stamp();
  mod = now.mod;
  usn = static_cast<int>(now.usn);
}

void Card::flush() {
  _stamp();
  col->db()->run(
      "insert or replace into cards values (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
      {id, nid, did, int64_t{ord}, mod, int64_t{usn}, int64_t{type}, int64_t{queue}, due, ivl,
       int64_t{factor}, int64_t{reps}, int64_t{lapses}, int64_t{left}, odue, odid, flags, data});
  if (col->logging()) col->log({"flush", description()});
}

void Card::flushSched() {
  _stamp();
  col->db()->run(
      "update cards set mod=?, usn=?, type=?, queue=?, due=?, ivl=?, factor=?, reps=?, "
      "lapses=?, left=?, odue=?, odid=?, did=? where id = ?",
      {mod, int64_t{usn}, int64_t{type}, int64_t{queue}, due, ivl, int64_t{factor}, int64_t{reps},
       int64_t{lapses}, int64_t{left}, odue, odid, did, id});
  if (col->logging()) col->log({"flushSched", description()});
}

std::shared_ptr<Note> Card::noteAndReload(bool reload) {
  if ((!_note || reload) && col) _note = col->getNote(nid);
  return _note;
}

Json* Card::model() {
  auto n = note();
  return n ? col->models().get(n->mid) : nullptr;
}

const Json* Card::template_() {
  const Json* m = model();
  if (!m) return nullptr;
  auto tmpls = m->find("tmpls");
  if (tmpls == m->end() || !tmpls->is_array() || tmpls->empty()) return nullptr;
  // A cloze type has one template that serves every ordinal. Any type but standard takes it
  // here, while generation tests for cloze exactly: meant, every device picks templates so.
  if (modelType(*m) != kModelStandard) return &(*tmpls)[0];
  if (ord < 0 || static_cast<size_t>(ord) >= tmpls->size()) return nullptr;
  return &(*tmpls)[static_cast<size_t>(ord)];
}

void Card::startTimer() {
  timerStarted = intTime(1000);
}

const Json* Card::_homeConf() {
  DeckManager& dm = col->decks();
  const Json* conf = dm.homeConf(Json(odid ? odid : did));
  // Meant: a card whose deck is gone takes the default group's options.
  return conf ? conf : dm.getConf(Json("1"));
}

int64_t Card::timeLimit() {
  const Json* conf = _homeConf();
  if (!conf) return 0;
  auto maxTaken = conf->find("maxTaken");
  return maxTaken == conf->end() ? 0 : jsonInt(*maxTaken) * 1000;
}

bool Card::shouldShowTimer() {
  const Json* conf = _homeConf();
  if (!conf) return false;
  auto timer = conf->find("timer");
  return timer != conf->end() && jsonInt(*timer) != 0;
}

int64_t Card::timeTaken() {
  return std::min<int64_t>(intTime(1000) - timerStarted, timeLimit());
}

bool Card::isEmpty() {
  auto n = note();
  if (!n) return true;
  const Json* m = model();
  const std::vector<int> ords = ModelManager::availOrds(m ? *m : Json::object(), n->joinedFields());
  return std::find(ords.begin(), ords.end(), ord) == ords.end();
}

std::string Card::emptyMessage() {
  const Json* m = model();
  char buf[512];
  if (m && modelType(*m) == kModelCloze)
    std::snprintf(buf, sizeof buf, kMissingClozeFormat, ord + 1, kSupportSite);
  else
    std::snprintf(buf, sizeof buf, kBlankFrontFormat, kSupportSite);
  return buf;
}

std::string Card::q() {
  if (isEmpty()) {
    col->log({"is empty"});
    return emptyMessage();
  }
  return qAndReload(false, false);
}

std::string Card::qAndReload(bool reload, bool browser) {
  const std::string& question = _getQA(reload, browser).q;
  return _css() + question;
}

std::string Card::a() {
  const std::string& answer = _getQA().a;
  return _css() + answer;
}

std::string Card::_css() {
  const Json* m = model();
  std::string css;
  if (m) {
    auto it = m->find("css");
    if (it != m->end() && it->is_string()) css = it->get<std::string>();
  }
  return "<style>" + css + "</style>";
}

namespace {

// A browser format the template has; a missing one leaves the normal format in use.
std::optional<std::string> browserFormat(const Json& tmpl, const char* key) {
  auto it = tmpl.find(key);
  if (it == tmpl.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

}  // namespace

const RenderedQA& Card::_getQA(bool reload, bool browser) {
  if (_qa && !reload) return *_qa;
  std::shared_ptr<Note> n = noteAndReload(reload);
  if (!n) throw std::logic_error("f");
  const Json* tmpl = template_();
  if (!tmpl) {
    _qa = RenderedQA{id, kInvalidCardMessage, kInvalidCardMessage};
    return *_qa;
  }
  const Row row{id,           n->id,           n->mid,           odid != 0 ? odid : did,
                int64_t{ord}, n->stringTags(), n->joinedFields()};
  if (browser)
    _qa = col->_renderQA(row, browserFormat(*tmpl, "bqfmt"), browserFormat(*tmpl, "bafmt"));
  else
    _qa = col->_renderQA(row);
  return *_qa;
}

std::string Card::description() const {
  char buf[512];
  std::snprintf(buf, sizeof buf,
                "<Card id:%lld nid:%lld did:%lld ord:%d mod:%lld type:%d queue:%d due:%lld "
                "ivl:%lld factor:%d reps:%d lapses:%d left:%d odue:%lld odid:%lld>",
                static_cast<long long>(id), static_cast<long long>(nid),
                static_cast<long long>(did), ord, static_cast<long long>(mod), type, queue,
                static_cast<long long>(due), static_cast<long long>(ivl), factor, reps, lapses,
                left, static_cast<long long>(odue), static_cast<long long>(odid));
  return buf;
}

}  // namespace rivo
