#include "librivo/Finder.h"

#include <sqlite3.h>
#include <unicode/locid.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/FieldText.h"
#include "librivo/IcuText.h"
#include "librivo/Ids.h"
#include "librivo/Json.h"
#include "librivo/ModelManager.h"
#include "librivo/Scheduler.h"
#include "librivo/StoredCodes.h"

namespace rivo {

// SQL text here compares stored codes as numbers (names in StoredCodes.h): queue 0 new,
// 1 learning, 2 review, 3 learning on a later day, -1 suspended, -2 buried; type 0 new,
// 1 learning, 2 review.

namespace {

// Patterns come from the user's text and may backtrack without end; counted in steps so every
// machine stops at the same point. A pattern that runs out counts as not matching.
constexpr int32_t kMatchTimeLimit = 1000;

// Days beyond this put every id on one side of the cut-off already; the cap keeps the
// arithmetic from overflowing.
constexpr int64_t kMaxDays = 100000000;

std::string lower(const std::string& text) {
  icu::UnicodeString s = icutext::utf16(text);
  s.toLower(icu::Locale::getRoot());
  return icutext::utf8(s);
}

// Keywords are ASCII, so lower-casing them needs no locale.
std::string lowerAscii(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  size_t at = 0;
  while ((at = text.find(from, at)) != std::string::npos) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
  return text;
}

// A whole integer: "3x" is not 3.
std::optional<int64_t> wholeInt(const std::string& text) {
  int64_t n = 0;
  const char* begin = text.data();
  const char* end = begin + text.size();
  if (begin != end && *begin == '+') ++begin;
  auto [ptr, ec] = std::from_chars(begin, end, n);
  if (ec != std::errc() || ptr != end || begin == end) return std::nullopt;
  return n;
}

// A plain decimal number ("5", "-2.5", ".5"): what can go into SQL text as it stands.
bool isDecimal(const std::string& text) {
  size_t i = 0;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  bool digits = false, point = false;
  for (; i < text.size(); ++i) {
    if (text[i] >= '0' && text[i] <= '9') {
      digits = true;
    } else if (text[i] == '.' && !point) {
      point = true;
    } else {
      return false;
    }
  }
  return digits;
}

std::unique_ptr<icu::RegexPattern> tryCompile(const std::string& source) {
  try {
    return icutext::compile(icutext::utf16(source));
  } catch (const std::runtime_error&) {
    return nullptr;
  }
}

// Finds with the step limit; a pattern that runs out of steps doesn't match.
bool findIn(icu::RegexMatcher& m, const icu::UnicodeString& text) {
  m.reset(text);
  UErrorCode status = U_ZERO_ERROR;
  const bool found = m.find(status);
  return U_SUCCESS(status) && found;
}

}  // namespace

// --- Tokenizing ---

// Walking bytes rather than UTF-16 units gives the same tokens: every character with a
// meaning here is ASCII, and no byte of a multi-byte UTF-8 sequence is.
std::vector<std::string> Finder::_tokenize(const std::string& query) {
  std::vector<std::string> tokens;
  std::string token;
  char quote = 0;
  for (char c : query) {
    if (quote) {
      if (c == quote) {
        quote = 0;
        continue;
      }
      if (c != '-' || !token.empty()) {
        token += c;
        continue;
      }
    }
    if (c == ' ') {
      if (!token.empty()) tokens.push_back(std::move(token)), token.clear();
    } else if (c == '"' || c == '\'') {
      if (!token.empty() && token.back() != ':')
        token += c;
      else
        quote = c;
    } else if (c == '(') {
      tokens.emplace_back("(");
    } else if (c == ')') {
      if (!token.empty()) tokens.push_back(std::move(token)), token.clear();
      tokens.emplace_back(")");
    } else if (c == '-' && token.empty()) {
      if (tokens.empty() || tokens.back() != "not") tokens.emplace_back("not");
    } else {
      token += c;
    }
  }
  if (!token.empty()) tokens.push_back(std::move(token));
  return tokens;
}

// --- Building the condition ---

std::optional<Finder::Where> Finder::_where(const std::vector<std::string>& tokens) {
  Where out;
  bool isnot = false, isor = false, join = false, bad = false;
  // Brackets are checked here so that a stray one gives "no match" rather than an SQL error.
  int depth = 0;

  auto add = [&](const std::string& txt, bool wrap) {
    if (txt.empty()) {
      if (isnot)
        isnot = false;
      else
        bad = true;
      return;
    }
    if (txt == "skip") return;
    if (join) {
      if (isor) {
        out.sql += " or ";
        isor = false;
      } else {
        out.sql += " and ";
      }
    }
    if (isnot) {
      out.sql += " not ";
      isnot = false;
    }
    out.sql += wrap ? "(" + txt + ")" : txt;
    join = true;
  };

  for (const std::string& token : tokens) {
    if (bad) return std::nullopt;
    if (token == "not") {
      isnot = true;
    } else if (lowerAscii(token) == "or") {
      isor = true;
    } else if (token == "(") {
      add(token, false);
      join = false;
      ++depth;
    } else if (token == ")") {
      // An empty group would be an SQL error too.
      const size_t last = out.sql.find_last_not_of(' ');
      if (depth == 0 || last == std::string::npos || out.sql[last] == '(') return std::nullopt;
      out.sql += ")";
      --depth;
    } else if (token.find(':') == std::string::npos) {
      add(_findText(token, out.args), true);
    } else {
      const size_t colon = token.find(':');
      const std::string key = lowerAscii(token.substr(0, colon));
      const std::string val = token.substr(colon + 1);
      if (key == "tag") {
        add(_findTag(val, out.args), true);
      } else if (key == "is") {
        add(_findCardState(val), true);
      } else if (key == "nid") {
        add(_findNids(val), true);
      } else if (key == "card") {
        add(_findTemplate(val), true);
      } else if (key == "note") {
        add(_findModel(val), true);
      } else if (key == "deck") {
        add(_findDeck(val), true);
      } else if (key == "prop") {
        add(_findProp(val), true);
      } else if (key == "rated") {
        add(_findRated(val), true);
      } else if (key == "added") {
        add(_findAdded(val), true);
      } else {
        add(_findField(token.substr(0, colon), val), true);
      }
    }
  }
  if (bad || depth != 0) return std::nullopt;
  return out;
}

// --- Search keys ---

std::string Finder::_findTag(const std::string& val, Row& args) {
  if (lowerAscii(val) == "none") return "trim(n.tags) = ''";
  std::string like = replaceAll(val, "*", "%");
  if (like.rfind('%', 0) != 0) like = "% " + like;
  if (like.empty() || like.back() != '%') like += " %";
  args.emplace_back(like);
  return "n.tags like ?";
}

std::string Finder::_findCardState(const std::string& val) {
  const std::string v = lowerAscii(val);
  if (v == "review") return "queue = 2";
  if (v == "new") return "queue = 0";
  if (v == "learn") return "queue in (1, 3)";
  if (v == "suspended") return "c.queue = -1";
  if (v == "buried") return "c.queue = -2";
  if (v == "due") {
    Scheduler& s = _col.sched();
    return "(c.queue in (2,3) and c.due <= " + std::to_string(s.today()) +
           ") or (c.queue = 1 and c.due <= " + std::to_string(s.dayCutOff()) + ")";
  }
  return {};
}

std::string Finder::_findNids(const std::string& val) {
  // Digits between commas only; an empty piece would be an SQL error.
  if (val.find_first_not_of("0123456789,") != std::string::npos) return {};
  if (!val.empty() && (val.front() == ',' || val.back() == ',' || val.find(",,") != val.npos))
    return {};
  return "n.id in (" + val + ")";
}

std::string Finder::_findTemplate(const std::string& val) {
  if (auto n = wholeInt(val); n && *n != 0 && *n > INT32_MIN && *n <= INT32_MAX)
    return "c.ord = " + std::to_string(*n - 1);
  const std::string want = lower(val);
  std::string out;
  for (Json* model : _col.models().all()) {
    const std::string mid = std::to_string(jsonInt((*model)["id"]));
    const bool cloze = jsonInt(model->value("type", Json(kModelStandard))) == kModelCloze;
    for (const Json& t : model->value("tmpls", Json::array())) {
      if (lower(jsonText(t, "name")) != want) continue;
      if (!out.empty()) out += " or ";
      if (cloze)
        out += "(n.mid = " + mid + ")";
      else
        out += "(n.mid = " + mid +
               " and c.ord = " + std::to_string(jsonInt(t.value("ord", Json(0)))) + ")";
    }
  }
  return out;
}

std::string Finder::_findModel(const std::string& val) {
  const std::string want = lower(val);
  std::vector<Id> ids;
  for (Json* model : _col.models().all())
    if (lower(jsonText(*model, "name")) == want) ids.push_back(jsonInt((*model)["id"]));
  return "n.mid in " + ids2str(ids);
}

std::string Finder::_findDeck(const std::string& val) {
  if (val == "*") return "skip";
  const std::string v = lowerAscii(val);
  if (v == "filtered") return "c.odid";
  DeckManager& dm = _col.decks();
  std::vector<Id> ids;
  auto withChildren = [&](Id did) {
    ids.push_back(did);
    for (const auto& child : dm.children(Json(did))) ids.push_back(child.second);
  };
  if (v == "current") {
    withChildren(dm.selected());
  } else if (val.find('*') != std::string::npos) {
    auto pattern = tryCompile("(?i)" + replaceAll(val, "*", ".*"));
    if (pattern) {
      std::unique_ptr<icu::RegexMatcher> m;
      try {
        m = icutext::matcher(*pattern, icu::UnicodeString());
      } catch (const std::runtime_error&) {
        return {};
      }
      UErrorCode status = U_ZERO_ERROR;
      m->setTimeLimit(kMatchTimeLimit, status);
      for (Json* deck : dm.all())
        if (findIn(*m, icutext::utf16(jsonText(*deck, "name"))))
          withChildren(jsonInt((*deck)["id"]));
    }
  } else if (Id did = dm.getID(val, false)) {
    withChildren(did);
  }
  // A deck matched both by itself and as another's child is listed once.
  std::set<Id> seen;
  std::erase_if(ids, [&](Id id) { return !seen.insert(id).second; });
  if (ids.empty()) return {};
  const std::string list = ids2str(ids);
  return "c.did in " + list + " or c.odid in " + list;
}

std::string Finder::_findProp(const std::string& val) {
  static const std::unique_ptr<icu::RegexPattern> pattern =
      icutext::compile(u"(^.+?)(<=|>=|!=|=|<|>)(.+?$)");
  const icu::UnicodeString in = icutext::utf16(val);
  auto m = icutext::matcher(*pattern, in);
  UErrorCode status = U_ZERO_ERROR;
  if (!m->find(status) || U_FAILURE(status)) return {};
  const std::string prop = lowerAscii(icutext::utf8(m->group(1, status)));
  const std::string op = icutext::utf8(m->group(2, status));
  std::string value = icutext::utf8(m->group(3, status));
  if (U_FAILURE(status) || !isDecimal(value)) return {};
  const double number = std::strtod(value.c_str(), nullptr);
  std::vector<std::string> parts;
  std::string column = prop;
  if (prop == "due") {
    if (std::abs(number) > kMaxDays) return {};
    value = std::to_string(_col.sched().today() + static_cast<int64_t>(number));
    parts.emplace_back("(c.queue in (2,3))");
  } else if (prop == "ease") {
    column = "factor";
    char buf[64];
    std::snprintf(buf, sizeof buf, "%f", number * 1000);
    value = buf;
  } else if (prop != "ivl" && prop != "reps" && prop != "lapses") {
    return {};
  }
  parts.push_back(column + " " + op + " " + value);
  std::string out;
  for (const std::string& p : parts) out += (out.empty() ? "" : " and ") + p;
  return out;
}

std::string Finder::_findRated(const std::string& val) {
  const size_t colon = val.find(':');
  const auto days = wholeInt(val.substr(0, colon));
  if (!days || *days == 0) return {};
  std::string ease;
  if (colon != std::string::npos) {
    std::string second = val.substr(colon + 1);
    second = second.substr(0, second.find(':'));
    const auto e = wholeInt(second);
    if (!e || *e < 1 || *e > 4) return {};
    ease = "and ease=" + std::to_string(*e);
  }
  const int64_t capped = std::min<int64_t>(*days, 31);
  const int64_t cutoff = (_col.sched().dayCutOff() - capped * 86400) * 1000;
  return "c.id in (select cid from revlog where id>" + std::to_string(cutoff) + " " + ease + ")";
}

std::string Finder::_findAdded(const std::string& val) {
  const auto days = wholeInt(val);
  if (!days || *days == 0) return {};
  const int64_t capped = std::clamp(*days, -kMaxDays, kMaxDays);
  // 86500, not 86400: an added search reaches a little further back than whole days.
  const int64_t cutoff = (_col.sched().dayCutOff() - capped * 86500) * 1000;
  return "c.id > " + std::to_string(cutoff);
}

std::string Finder::_findText(const std::string& val, Row& args) {
  const std::string like = "%" + replaceAll(val, "*", "%") + "%";
  args.emplace_back(like);
  args.emplace_back(like);
  return "(n.sfld like ? escape '\\' or n.flds like ? escape '\\')";
}

std::string Finder::_findField(const std::string& field, const std::string& val) {
  const std::string name = lower(field);
  const std::string value = replaceAll(val, "*", "%");
  std::map<Id, size_t> ords;
  std::vector<Id> mids;
  for (Json* model : _col.models().all()) {
    for (const Json& f : model->value("flds", Json::array())) {
      if (lower(jsonText(f, "name")) != name) continue;
      const Id mid = jsonInt((*model)["id"]);
      ords.emplace(mid,
                   static_cast<size_t>(std::max<int64_t>(0, jsonInt(f.value("ord", Json(0))))));
      mids.push_back(mid);
      break;
    }
  }
  if (mids.empty()) return {};

  // The value is a regular expression as typed, apart from the two wildcards; one that
  // doesn't compile keeps no note.
  const std::string regex = replaceAll(replaceAll(value, "_", "."), "%", ".*");
  auto pattern = tryCompile("(?i)^" + regex + "$");
  std::vector<Id> kept;
  if (pattern) {
    std::unique_ptr<icu::RegexMatcher> m;
    try {
      m = icutext::matcher(*pattern, icu::UnicodeString());
    } catch (const std::runtime_error&) {
      return {};
    }
    UErrorCode status = U_ZERO_ERROR;
    m->setTimeLimit(kMatchTimeLimit, status);
    // Rows stream one at a time: only the narrowed rows' fields are ever held.
    _col.db()->execute("select id, mid, flds from notes where mid in " + ids2str(mids) +
                           " and flds like ? escape '\\'",
                       {"%" + value + "%"}, [&](sqlite3_stmt* stmt) {
                         auto ord = ords.find(sqlite3_column_int64(stmt, 1));
                         if (ord == ords.end()) return;
                         const char* flds =
                             reinterpret_cast<const char*>(sqlite3_column_text(stmt, 2));
                         const std::vector<std::string> fields =
                             splitFields(flds ? std::string_view(flds) : std::string_view());
                         if (ord->second >= fields.size()) return;
                         if (findIn(*m, icutext::utf16(fields[ord->second])))
                           kept.push_back(sqlite3_column_int64(stmt, 0));
                       });
  }
  if (kept.empty()) return "0";
  return "n.id in " + ids2str(kept);
}

// --- Ordering and the query ---

std::pair<std::string, bool> Finder::_order(const std::optional<std::string>& order) {
  if (!order || order->empty()) return {"", false};
  if (*order != "True") return {" order by " + *order, false};
  static const std::map<std::string, std::string> columns = {
      {"noteCrt", "n.id, c.ord"},
      {"noteMod", "n.mod, c.ord"},
      {"noteFld", "n.sfld collate nocase, c.ord"},
      {"cardMod", "c.mod"},
      {"cardReps", "c.reps"},
      {"cardDue", "c.type, c.due"},
      {"cardEase", "c.factor"},
      {"cardLapses", "c.lapses"},
      {"cardIvl", "c.ivl"}};
  const Json& conf = _col.conf();
  // An unknown sort type sorts as a new collection does, by the sort field.
  auto type = conf.find("sortType");
  auto it = columns.find(type != conf.end() && type->is_string() ? type->get<std::string>() : "");
  const std::string cols = it != columns.end() ? it->second : columns.at("noteFld");
  auto back = conf.find("sortBackwards");
  const bool reverse =
      back != conf.end() && (back->is_boolean() ? back->get<bool>() : jsonInt(*back) != 0);
  return {" order by " + cols, reverse};
}

std::string Finder::_query(const std::string& preds, const std::string& order) {
  std::string sql = preds.find("n.") != std::string::npos || order.find("n.") != std::string::npos
                        ? "select c.id from cards c, notes n where c.nid=n.id and "
                        : "select c.id from cards c where ";
  sql += preds.empty() ? "1" : "(" + preds + ")";
  if (!order.empty()) sql += " " + order;
  return sql;
}

// --- Finding ---

std::vector<Id> Finder::findCards(const std::string& query,
                                  const std::optional<std::string>& order) {
  const auto where = _where(_tokenize(query));
  if (!where) return {};
  const auto [orderBy, reverse] = _order(order);
  std::vector<Id> ids;
  const bool ok =
      _col.db()->execute(_query(where->sql, orderBy), where->args,
                         [&](sqlite3_stmt* stmt) { ids.push_back(sqlite3_column_int64(stmt, 0)); });
  if (!ok) return {};
  if (reverse) std::reverse(ids.begin(), ids.end());
  return ids;
}

std::vector<Id> Finder::findNotes(const std::string& query) {
  const auto where = _where(_tokenize(query));
  if (!where) return {};
  const std::string sql = "select distinct(n.id) from cards c, notes n where c.nid=n.id and " +
                          (where->sql.empty() ? std::string("1") : "(" + where->sql + ")");
  std::vector<Id> ids;
  const bool ok = _col.db()->execute(
      sql, where->args, [&](sqlite3_stmt* stmt) { ids.push_back(sqlite3_column_int64(stmt, 0)); });
  if (!ok) return {};
  return ids;
}

}  // namespace rivo
