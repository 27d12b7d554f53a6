#include "librivo/stats/CardStats.h"

#include <algorithm>
#include <ctime>

#include "librivo/Card.h"
#include "librivo/Clock.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/HtmlEscape.h"
#include "librivo/Scheduler.h"
#include "librivo/StoredCodes.h"
#include "librivo/StringFormat.h"
#include "librivo/TimeSpan.h"

namespace rivo {

std::string CardStats::report() {
  Card& c = _card;
  DB& db = *_col.db();
  _txt = "<table width=100%>";
  addLine(dateForTime(c.id / 1000), "Added");
  auto first = db.scalar("select min(id) from revlog where cid = ?", {c.id});
  auto last = db.scalar("select max(id) from revlog where cid = ?", {c.id});
  if (first && !isNull(*first) && toInt(*first) != 0) {
    addLine(dateForTime(toInt(*first) / 1000), "First Review");
    addLine(dateForTime(last ? toInt(*last) / 1000 : 0), "Latest Review");
  }
  if (c.type == kTypeLearning || c.type == kTypeReview) {
    if (c.odid == 0 && c.queue >= 0) {
      const bool byDay = c.queue == kQueueReview || c.queue == kQueueDayLearning;
      // In doubles: a damaged row's due must not overflow.
      const double days = static_cast<double>(c.due) - static_cast<double>(_col.sched().today());
      const double due =
          byDay ? static_cast<double>(intTime(1)) + days * 86400 : static_cast<double>(c.due);
      addLine(dateForTime(static_cast<int64_t>(std::clamp(due, -1e15, 1e15))), "Due");
    }
    if (c.queue == kQueueReview)
      addLine(fmtTimeSpan(0, 0, true, false, 99,
                          static_cast<float>(static_cast<double>(c.ivl) * 86400)),
              "Interval");
    addLine(stringWithFormat("%i%%", static_cast<int>(c.factor / 10.0)), "Ease");
    addLine(std::to_string(c.reps), "Reviews");
    addLine(std::to_string(c.lapses), "Lapses");
    auto times = db.first("select count(), sum(time)/1000 from revlog where cid = ?", {c.id});
    const int64_t count = times ? toInt((*times)[0]) : 0;
    if (count != 0) {
      const int64_t total = toInt((*times)[1]);
      addLine(timeForTime(total / count), "Average Time");
      addLine(timeForTime(total), "Total");
    }
  } else if (c.queue == kQueueNew) {
    addLine(std::to_string(c.due), "Position");
  }
  const Json* tmpl = c.template_();
  const Json* model = c.model();
  addLine(stringByEscapingForHTML(tmpl ? jsonText(*tmpl, "name") : std::string()), "Card Type");
  addLine(stringByEscapingForHTML(model ? jsonText(*model, "name") : std::string()), "Note Type");
  addLine(stringByEscapingForHTML(_col.decks().name(c.did)), "Deck");
  _txt += "</table>";
  return _txt;
}

void CardStats::addLine(const std::string& value, const std::string& key) {
  _txt += makeLine(value, key);
}

std::string CardStats::makeLine(const std::string& value, const std::string& key) {
  return "<tr><td class=left align=left style='padding-right: 3px;'>" +
         stringWithFormat("<b>%s</b></td><td class=right>%s</td></tr>", key.c_str(), value.c_str());
}

std::string CardStats::dateForTime(int64_t seconds) {
  time_t t = static_cast<time_t>(seconds);
  struct tm local {};
  localtime_r(&t, &local);
  return stringWithFormat("%li-%li-%li", static_cast<long>(local.tm_year) + 1900,
                          static_cast<long>(local.tm_mon) + 1, static_cast<long>(local.tm_mday));
}

std::string CardStats::timeForTime(int64_t seconds) {
  const int64_t m = seconds - ((seconds % 60) + 60) % 60;
  std::string text;
  if (seconds >= 60) text = fmtTimeSpan(0, -1, true, false, 1, static_cast<float>(m));
  if (m == seconds && !text.empty()) return text;
  return text +
         fmtTimeSpan(0, text.empty() ? 2 : -1, true, false, 99, static_cast<float>(seconds - m));
}

}  // namespace rivo
