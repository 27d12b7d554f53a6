#include "librivo/stats/CollectionStats.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <stdexcept>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Ids.h"
#include "librivo/Scheduler.h"
#include "librivo/StringFormat.h"
#include "librivo/TimeSpan.h"
#include "librivo/stats/RivoJS.h"

namespace rivo {

namespace {

// A card is mature from this interval on; the SQL below writes the number itself.
constexpr int kMatureIvl = 21;

const char* const kCss =
    "<style type=\"text/css\">\nbody { font-family: Arial; font-size:10pt; margin:0;} .main { "
    "width: 320px; margin-left: auto; margin-right: auto; } h1 { margin-bottom: 0; margin-top: "
    "1em; }\n.tickLabel { font-size: 8px; }.pielabel { text-align:center; padding:0px; "
    "color:white;} table{font-size:8pt}\n</style>";

// The chart's frame: the legend, the rotated left label, the plot's box, the rotated right
// label, and the script that hands the data to flot.
const char* const kGraphFormat =
    "<div style=\"display:float; left:-50%%;\"><div id=%sLegend style=\"display:float; "
    "left:50%%;\"></div></div>\n<div style=\"display:inline-block; -webkit-transform: "
    "rotate(-90deg) translateY(%ipx) translateX(%ipx); width: 150px; position:absolute; "
    "font-size:10px;text-align:center;\ntext-align:center;\n\">\n%s\n</div>\n<div class=middle "
    "id=\"%s\" style=\"width:%i; height:%i;\">\n</div>\n<div style=\"display:inline-block; "
    "-webkit-transform: rotate(90deg) translateY(%ipx) translateX(%ipx); width: 150px; "
    "position:absolute; font-size:10px;text-align:center;\ntext-align:center;\n\">\n%s\n</div>\n"
    "<script type=\"text/javascript\">\n$(function () { \nvar conf = %s; \nif (conf.timeTicks) "
    "{ \n    conf.xaxis.tickFormatter = function (val, axis) { \n        return "
    "val.toFixed(0)+conf.timeTicks; \n    } \n} \nconf.yaxis.minTickSize = 1; "
    "\nconf.yaxis.tickFormatter = function (val, axis) { \n    if (val >= 1000000) v =(val / "
    "1000000).toFixed(1) + 'M';    else if (val >= 1000) v = (val / 1000).toFixed(1) + 'K';    "
    "else v = val.toFixed(0);    return '<span style=\"font-size:8px;\">' + v + '</span>';} "
    "\nif (conf.series.pie) { \n    conf.series.pie.label.formatter = function(label, series){ "
    "\n        return '<div class=pielabel>'+Math.round(series.percent)+'%%</div>'; \n    }; "
    "\n} \n$.plot($(\"#%s\"), %s, conf); \n}); \n       </script>\n";

std::string lastPathComponent(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// "%@" of a number: an integer without a fraction.
std::string numText(int64_t n) {
  return std::to_string(n);
}

// A double's integer part as an int, within int's range whatever the data (NaN is 0).
int truncInt(double x) {
  if (!(x == x)) return 0;
  return static_cast<int>(std::clamp(x, -2147483648.0, 2147483647.0));
}

int64_t intAt(const Row& row, size_t i) {
  return i < row.size() ? toInt(row[i]) : 0;
}

double doubleAt(const Row& row, size_t i) {
  return i < row.size() ? toDouble(row[i]) : 0;
}

// Each piece joined with " and " behind "where ", or nothing.
std::string whereClause(const std::vector<std::string>& conditions) {
  std::string out;
  for (const std::string& c : conditions) {
    if (c.empty()) continue;
    out += out.empty() ? "where " : " and ";
    out += c;
  }
  return out;
}

int hourOfDay(int64_t epochSeconds) {
  time_t t = static_cast<time_t>(epochSeconds);
  struct tm local {};
  localtime_r(&t, &local);
  return local.tm_hour;
}

}  // namespace

CollectionStats::CollectionStats(Col& col, int width, int height)
    : width(width),
      height(height),
      css(kCss),
      colors({{"colYoung", "#7c7"},
              {"colMature", "#070"},
              {"colCum", "rgba(0,0,0,0.9)"},
              {"colLearn", "#00F"},
              {"colRelearn", "#c00"},
              {"colCram", "#ff0"},
              {"colIvl", "#077"},
              {"colHour", "#ccc"},
              {"colTime", "#770"},
              {"colUnseen", "#000"},
              {"colSusp", "#ff0"}}),
      _col(col) {}

std::string CollectionStats::reportOfType(int type_) {
  type = type_;
  std::string body =
      "<head><meta name=\"viewport\" "
      "content=\"width=device-width,initial-scale=1.0,maximum-scale=10.0\"/></head><div "
      "class=main>";
  body += todayStats();
  body += dueGraph();
  body += repsGraph();
  body += ivlGraph();
  body += hourGraph();
  body += easeGraph();
  body += cardGraph();
  const std::string script = "<script src=\"%s\" type=\"text/javascript\"></script>";
  return css + "\n" +
         stringWithFormat(script.c_str(), lastPathComponent(RivoJS::jQuery()).c_str()) + "\n" +
         stringWithFormat(script.c_str(), lastPathComponent(RivoJS::plot()).c_str()) + "\n" +
         stringWithFormat(script.c_str(), lastPathComponent(RivoJS::pie()).c_str()) +
         stringWithFormat(script.c_str(), lastPathComponent(RivoJS::stack()).c_str()) +
         "\n<center>\n" + body + "\n</center></div>";
}

// --- Today ---

std::string CollectionStats::todayStats() {
  std::string b = _title("Today", "");
  const int64_t time = _dayCutOff() * 1000 - 86400000;
  std::string lim = _revlogLimit();
  if (!lim.empty()) lim = " and " + lim;
  auto today = _col.db()->first(
      "select count(), sum(time)/1000,sum(case when ease = 1 then 1 else 0 end), /* failed "
      "*/sum(case when type = 0 then 1 else 0 end), /* learning */sum(case when type = 1 then 1 "
      "else 0 end), /* review */sum(case when type = 2 then 1 else 0 end), /* relearn */sum(case "
      "when type = 3 then 1 else 0 end) /* filter */from revlog where id > ? " +
          lim,
      {time});
  const Row r = today.value_or(Row{});
  const int64_t cards = intAt(r, 0), failed = intAt(r, 2);
  b += stringWithFormat(
      "Studied %s %s in %s today.", numText(cards).c_str(), cards == 1 ? "card" : "cards",
      fmtTimeSpan(0, 0, false, false, 1, static_cast<float>(intAt(r, 1))).c_str());
  if (cards != 0) {
    b += stringWithFormat("<br>Again count: %s (%0.1f%% correct)", numText(failed).c_str(),
                          (1 - static_cast<double>(failed) / static_cast<double>(cards)) * 100);
    b += stringWithFormat("<br>Learn: %s, Review: %s, Relearn: %s, Filtered: %s",
                          numText(intAt(r, 3)).c_str(), numText(intAt(r, 4)).c_str(),
                          numText(intAt(r, 5)).c_str(), numText(intAt(r, 6)).c_str());
  }
  auto mature = _col.db()->first(
      "select count(), sum(case when ease = 1 then 0 else 1 end) from revlog where lastIvl >= "
      "21 and id > ? " +
          lim,
      {time});
  const Row m = mature.value_or(Row{});
  const int64_t mcnt = intAt(m, 0), msum = intAt(m, 1);
  b += "<br>";
  if (mcnt != 0) {
    b += stringWithFormat("Correct answers on mature cards: %d/%d (%.1f%%)", static_cast<int>(msum),
                          static_cast<int>(mcnt),
                          static_cast<double>(msum) / static_cast<double>(mcnt) * 100);
  } else {
    b += "No mature cards were studied today.";
  }
  return b;
}

// --- Forecast ---

std::string CollectionStats::dueGraph() {
  const int chunk = _chunk();
  const std::optional<int> bars = _bars(true);
  Json young = Json::array(), mature = Json::array(), cum = Json::array();
  int64_t tot = 0;
  for (const Row& row : _dueWithStart(0, bars, chunk)) {
    const int64_t day = intAt(row, 0), y = intAt(row, 1), m = intAt(row, 2);
    young.push_back({day, y});
    mature.push_back({day, m});
    tot += y + m;
    cum.push_back({day, tot});
  }
  Json data = Json::array();
  data.push_back({{"data", mature}, {"color", colors["colMature"]}, {"label", "Mature"}});
  data.push_back({{"data", young}, {"color", colors["colYoung"]}, {"label", "Young"}});
  if (cum.size() > 1) {
    data.push_back({{"data", cum},
                    {"color", colors["colCum"]},
                    {"label", "Cumulative"},
                    {"yaxis", 2},
                    {"bars", {{"show", false}}},
                    {"lines", {{"show", true}}},
                    {"stack", false}});
  }
  std::string txt = _title("Forecast", "The number of reviews due in the future.");
  Chart chart;
  chart.conf["xaxis"] = {{"tickDecimals", 0}, {"min", -0.5}};
  if (bars) chart.conf["xaxis"]["max"] = *bars - 0.5;
  chart.conf["yaxes"] =
      Json::array({{{"min", 0}}, {{"min", 0}, {"tickDecimals", 0}, {"position", "right"}}});
  chart.ylabel2 = "Cumulative Cards";
  txt += _graphForID("due", data, chart);
  txt += _dueInfo(tot, static_cast<int64_t>(cum.size()) * chunk);
  return txt;
}

std::string CollectionStats::_dueInfo(int64_t total, int64_t num) {
  std::vector<std::string> lines;
  _line(lines, "Total", stringWithFormat("%i reviews", static_cast<int>(total)));
  _line(lines, "Average", _avgDay(static_cast<double>(total), static_cast<double>(num), "reviews"));
  const int64_t tomorrow = _col.db()->scalarInt(
      "select count() from cards where did in " + _limit() +
      " and queue in (2,3) and due = " + std::to_string(_col.sched().today() + 1));
  _line(lines, "Due tomorrow", numText(tomorrow));
  return _lineTbl(lines);
}

std::vector<Row> CollectionStats::_dueWithStart(std::optional<int> start, std::optional<int> end,
                                                int chunk) {
  const int64_t today = _col.sched().today();
  std::string lim;
  if (start) lim += " and due-" + std::to_string(today) + " >= " + std::to_string(*start);
  if (end) lim += " and day < " + std::to_string(*end);
  return _col.db()->all(
      "select (due - " + std::to_string(today) + ") / " + std::to_string(chunk) +
      " as day, sum(case when ivl < 21 then 1 else 0 end), sum(case when ivl >= 21 then 1 else "
      "0 end) from cards where did in " +
      _limit() + " and queue in (2,3) " + lim + " group by day order by day");
}

// --- History ---

std::string CollectionStats::repsGraph() {
  const std::vector<Row> data = _doneForNum(_bars(false), _chunk());
  if (data.empty()) return "";
  return _repsGraphForData(data, _bars(false), "Review Count", "Review Time");
}

std::vector<Row> CollectionStats::_doneForNum(std::optional<int> num, int chunk) {
  const int64_t cutoff = _dayCutOff();
  std::vector<std::string> lims;
  if (num)
    lims.push_back(stringWithFormat(
        "id > %lli", static_cast<long long>((cutoff - int64_t{chunk} * *num * 86400) * 1000)));
  lims.push_back(_revlogLimit());
  const int64_t tf = type == kMonth ? 60 : 3600;
  return _col.db()->all(
      "select (cast((id/1000.0 - ?) / 86400.0 as int))/? as day, sum(case when type = 0 then 1 "
      "else 0 end), sum(case when type = 1 and lastIvl < 21 then 1 else 0 end), sum(case when "
      "type = 1 and lastIvl >= 21 then 1 else 0 end), sum(case when type = 2 then 1 else 0 end), "
      "sum(case when type = 3 then 1 else 0 end), sum(case when type = 0 then time/1000.0 else 0 "
      "end)/?, sum(case when type = 1 and lastIvl < 21 then time/1000.0 else 0 end)/?, sum(case "
      "when type = 1 and lastIvl >= 21 then time/1000.0 else 0 end)/?, sum(case when type = 2 "
      "then time/1000.0 else 0 end)/?, sum(case when type = 3 then time/1000.0 else 0 end)/? "
      "from revlog " +
          whereClause(lims) + " group by day order by day",
      {cutoff, int64_t{chunk}, tf, tf, tf, tf, tf});
}

std::string CollectionStats::_repsGraphForData(const std::vector<Row>& data,
                                               std::optional<int> days, const std::string& reptitle,
                                               const std::string& timetitle) {
  Chart chart;
  chart.conf["xaxis"] = {{"tickDecimals", 0}, {"max", 0.5}};
  if (days) chart.conf["xaxis"]["min"] = -*days + 0.5;
  chart.conf["yaxes"] = Json::array({{{"min", 0}}, {{"min", 0}, {"position", "right"}}});
  const std::vector<Spec> counts = {{3, "colMature", "Mature"},
                                    {2, "colYoung", "Young"},
                                    {4, "colRelearn", "Relearn"},
                                    {1, "colLearn", "Learn"},
                                    {5, "colCram", "Cram"}};
  auto [series, totd] = _splitRepData(data, counts);
  std::string txt = _title(reptitle, "The number of questions you have answered.");
  chart.ylabel = "Answers";
  chart.ylabel2 = "Cumulative Answers";
  txt += _graphForID("reps", series, chart);
  const int64_t studied = _daysStudied().first;
  double total = 0;
  if (auto info = _ansInfo(totd, studied, "reviews")) {
    txt += info->first;
    total = info->second;
  }
  const std::vector<Spec> times = {{8, "colMature", "Mature"},
                                   {7, "colYoung", "Young"},
                                   {9, "colRelearn", "Relearn"},
                                   {6, "colLearn", "Learn"},
                                   {10, "colCram", "Cram"}};
  std::tie(series, totd) = _splitRepData(data, times);
  const std::string unit = type == kMonth ? "Minutes" : "Hours";
  txt += _title(timetitle, "The time taken to answer the questions.");
  chart.ylabel = unit;
  chart.ylabel2 = "Cumulative " + unit;
  txt += _graphForID("time", series, chart);
  if (auto info = _ansInfo(totd, studied, "minutes", type != kMonth, total)) txt += info->first;
  return txt;
}

std::pair<Json, Json> CollectionStats::_splitRepData(const std::vector<Row>& data,
                                                     const std::vector<Spec>& spec) {
  std::vector<Json> bars(spec.size(), Json::array()), lines(spec.size(), Json::array());
  std::vector<double> sums(spec.size(), 0);
  Json totd = Json::array();
  double total = 0;
  for (const Row& row : data) {
    const int64_t day = intAt(row, 0);
    for (size_t i = 0; i < spec.size(); ++i) {
      const double value = doubleAt(row, static_cast<size_t>(spec[i].column));
      bars[i].push_back({day, value});
      sums[i] += value;
      total += value;
      lines[i].push_back({day, sums[i]});
    }
    totd.push_back({day, total});
  }
  Json series = Json::array();
  for (size_t i = 0; i < spec.size(); ++i) {
    if (sums[i] == 0) continue;
    series.push_back(
        {{"data", bars[i]}, {"color", colors[spec[i].color]}, {"label", spec[i].label}});
    series.push_back({{"data", lines[i]},
                      {"color", colors[spec[i].color]},
                      {"label", nullptr},
                      {"yaxis", 2},
                      {"bars", {{"show", false}}},
                      {"lines", {{"show", true}}},
                      {"stack", -spec[i].column}});
  }
  return {series, totd};
}

std::pair<int64_t, int64_t> CollectionStats::_daysStudied() {
  std::vector<std::string> lims;
  if (const int days = _periodDays())
    lims.push_back(stringWithFormat(
        "id > %lli", static_cast<long long>((_dayCutOff() - int64_t{days} * 86400) * 1000)));
  lims.push_back(_revlogLimit());
  auto r = _col.db()->first(
      "select count(), abs(min(day)) from (select (cast((id/1000 - ?) / 86400.0 as int)+1) as "
      "day from revlog " +
          whereClause(lims) + " group by day order by day)",
      {_dayCutOff()});
  const Row row = r.value_or(Row{});
  return {intAt(row, 0), intAt(row, 1)};
}

std::optional<std::pair<std::string, double>> CollectionStats::_ansInfo(
    const Json& totd, int64_t studied, const std::string& unit, bool convHours, double total) {
  if (totd.empty()) return std::nullopt;
  int64_t tot = truncInt(totd.back()[1].get<double>());
  int64_t period = _periodDays();
  if (period == 0) period = _deckAge("review");
  std::vector<std::string> lines;
  _line(lines, "Days studied",
        stringWithFormat("<b>%i%%</b> (%s of %i)",
                         truncInt(static_cast<double>(studied) / static_cast<double>(period) * 100),
                         numText(studied).c_str(), static_cast<int>(period)),
        false);
  _line(lines, "Total",
        stringWithFormat("%i %s", static_cast<int>(tot), convHours ? "hours" : unit.c_str()));
  if (convHours) tot *= 60;
  const double t = static_cast<double>(tot);
  _line(lines, "Average for days studied", _avgDay(t, static_cast<double>(studied), unit));
  _line(lines, "If you studied every day", _avgDay(t, static_cast<double>(period), unit));
  if (tot != 0 && total != 0) {
    _line(lines, "Average answer time",
          stringWithFormat("%0.1fs (%i cards/ minute)", t * 60 / total, truncInt(total / t)));
  }
  return std::make_pair(_lineTbl(lines), t);
}

std::string CollectionStats::_avgDay(double total, double num, const std::string& unit) {
  if (total == 0 || num == 0) return "";
  return stringWithFormat("%0.1f %s/day", total / num, unit.c_str());
}

int CollectionStats::_deckAge(const std::string& by) {
  if (by != "review") throw std::logic_error("_deckAge: only \"review\" is known");
  const std::string lim = _revlogLimit();
  auto first =
      _col.db()->scalar("select id from revlog " + (lim.empty() ? std::string() : " where " + lim) +
                        " order by id limit 1");
  if (!first || isNull(*first)) return 1;
  const int64_t age = (_dayCutOff() - toInt(*first) / 1000) / 86400 + 1;
  return static_cast<int>(std::clamp<int64_t>(age, 1, INT32_MAX));
}

// --- Intervals ---

std::string CollectionStats::ivlGraph() {
  const std::string lim = type == kMonth ? " and grp <= 30" : type == kYear ? " and grp <= 52" : "";
  const std::vector<Row> ivls =
      _col.db()->all("select ivl / ? as grp, count() from cards where did in " + _limit() +
                         " and queue = 2 " + lim + " group by grp order by grp",
                     {int64_t{_chunk()}});
  auto r = _col.db()->first("select count(), avg(ivl), max(ivl) from cards where did in " +
                            _limit() + " and queue = 2");
  const Row all = r.value_or(Row{});
  const int64_t count = intAt(all, 0);
  if (ivls.empty() || count == 0) return "";
  Json groups = Json::array(), percentages = Json::array();
  int64_t running = 0;
  for (const Row& row : ivls) {
    running += intAt(row, 1);
    groups.push_back({intAt(row, 0), intAt(row, 1)});
    percentages.push_back(
        {intAt(row, 0), static_cast<double>(running) / static_cast<double>(count) * 100});
  }
  const double xmax = type == kMonth ? 31.5
                      : type == kYear
                          ? 52.5
                          : static_cast<double>(std::max<int64_t>(5, intAt(ivls.back(), 0))) + 0.5;
  std::string txt = _title("Intervals", "Delays until review are shown again.");
  Json data = Json::array();
  data.push_back({{"data", groups}, {"color", colors["colIvl"]}});
  data.push_back({{"data", percentages},
                  {"color", colors["colCum"]},
                  {"yaxis", 2},
                  {"bars", {{"show", false}}},
                  {"lines", {{"show", true}}},
                  {"stack", false}});
  Chart chart;
  chart.conf["xaxis"] = {{"min", -0.5}, {"max", xmax}};
  chart.conf["yaxes"] = Json::array({Json::object(), {{"position", "right"}, {"max", 105}}});
  chart.ylabel2 = "Percentage";
  txt += _graphForID("ivl", data, chart);
  std::vector<std::string> lines;
  _line(lines, "Average interval",
        fmtTimeSpan(0, 0, false, false, 99, static_cast<float>(doubleAt(all, 1) * 86400)));
  _line(lines, "Longest interval",
        fmtTimeSpan(0, 0, false, false, 99, static_cast<float>(doubleAt(all, 2) * 86400)));
  return txt + _lineTbl(lines);
}

// --- Hours ---

std::string CollectionStats::hourGraph() {
  std::string lim = _revlogLimit();
  if (!lim.empty()) lim = " and " + lim;
  if (const int days = _periodDays())
    lim += stringWithFormat(" and id > %lli",
                            static_cast<long long>((_dayCutOff() - int64_t{days} * 86400) * 1000));
  const int64_t start = _dayCutOff() - int64_t{hourOfDay(_col.crt())} * 3600;
  const std::vector<Row> rows = _col.db()->all(
      "select 23 - ((cast((? - id/1000) / 3600.0 as int)) % 24) as hour, sum(case when ease = 1 "
      "then 0 else 1 end) / cast(count() as float) * 100, count() from revlog where type in "
      "(0,1,2) " +
          lim + " group by hour having count() > 30 order by hour",
      {start});
  if (rows.empty()) return "";
  std::vector<std::pair<int64_t, double>> pcts;
  std::vector<std::pair<int64_t, int64_t>> counts;
  double peak = 0;
  int64_t peakCount = 0;
  for (const Row& row : rows) {
    const int64_t hour = ((intAt(row, 0) - 4) % 24 + 24) % 24;
    pcts.emplace_back(hour, doubleAt(row, 1));
    counts.emplace_back(hour, intAt(row, 2));
    peak = std::max(peak, doubleAt(row, 1));
    peakCount = std::max(peakCount, intAt(row, 2));
  }
  std::sort(pcts.begin(), pcts.end());
  std::sort(counts.begin(), counts.end());
  if (rows.size() < 4) return "";
  std::string txt = _title("Hourly Breakdown", "Review success rate for each hour of the day.");
  Json pctData = Json::array(), countData = Json::array();
  for (const auto& [h, p] : pcts) pctData.push_back({h, p});
  for (const auto& [h, c] : counts) countData.push_back({h, c});
  Json data = Json::array();
  data.push_back({{"data", pctData}, {"color", colors["colCum"]}, {"label", "% Correct"}});
  data.push_back({{"data", countData},
                  {"color", colors["colHour"]},
                  {"yaxis", 2},
                  {"bars", {{"barWidth", 0.2}}},
                  {"stack", false}});
  Chart chart;
  chart.conf["xaxis"] = {
      {"ticks", Json::array({{0, "4AM"}, {6, "10AM"}, {12, "4PM"}, {18, "10PM"}, {23, "3AM"}})}};
  chart.conf["yaxes"] =
      Json::array({{{"max", truncInt(peak)}}, {{"position", "right"}, {"max", peakCount}}});
  chart.ylabel = "% Correct";
  chart.ylabel2 = "Reviews";
  txt += _graphForID("hour", data, chart);
  // In a block of its own: inline text beside the chart's right label would pull the label into
  // the middle of the chart.
  return txt + "<div>Hours with less than 30 reviews are not shown.</div>";
}

// --- Answer buttons ---

std::string CollectionStats::easeGraph() {
  std::vector<std::string> lims = {_revlogLimit()};
  if (type == kMonth || type == kYear) {
    const int64_t span = type == kMonth ? 2592000 : 31536000;
    lims.push_back(
        stringWithFormat("id > %lld", static_cast<long long>((_dayCutOff() - span) * 1000)));
  }
  const std::vector<Row> eases = _col.db()->all(
      "select (case when type in (0,2) then 0 when lastIvl < 21 then 1 else 2 end) as thetype, "
      "(case when type in (0,2) and ease = 4 then 3 else ease end), count() from revlog " +
      whereClause(lims) + " group by thetype, ease order by thetype, ease");
  Json kinds[3] = {Json::array(), Json::array(), Json::array()};
  for (const Row& row : eases) {
    const int64_t kind = std::clamp<int64_t>(intAt(row, 0), 0, 2);
    kinds[kind].push_back({intAt(row, 1) + kind * 5, intAt(row, 2)});
  }
  std::string txt = _title("Answer Buttons", "The number of times you have pressed each button.");
  Json data = Json::array();
  data.push_back({{"data", kinds[0]}, {"color", colors["colLearn"]}, {"label", "Learning"}});
  data.push_back({{"data", kinds[1]}, {"color", colors["colYoung"]}, {"label", "Young"}});
  data.push_back({{"data", kinds[2]}, {"color", colors["colMature"]}, {"label", "Mature"}});
  Chart chart;
  chart.conf["xaxis"] = {{"ticks", Json::array({{1, 1},
                                                {2, 2},
                                                {3, 3},
                                                {6, 1},
                                                {7, 2},
                                                {8, 3},
                                                {9, 4},
                                                {11, 1},
                                                {12, 2},
                                                {13, 3},
                                                {14, 4}})},
                         {"min", 0},
                         {"max", 15}};
  chart.type = "barsLine";
  chart.ylabel = "Answers";
  txt += _graphForID("ease", data, chart);
  return txt + _easeInfo(eases);
}

std::string CollectionStats::_easeInfo(const std::vector<Row>& eases) {
  int64_t right[3] = {0, 0, 0}, wrong[3] = {0, 0, 0};
  for (const Row& row : eases) {
    const int64_t kind = std::clamp<int64_t>(intAt(row, 0), 0, 2);
    (intAt(row, 1) == 1 ? wrong : right)[kind] += intAt(row, 2);
  }
  const char* const names[3] = {"Learning", "Young", "Mature"};
  std::string cells;
  for (int k = 0; k < 3; ++k) {
    const int64_t total = right[k] + wrong[k];
    const double pct = total ? static_cast<double>(right[k]) / static_cast<double>(total) * 100 : 0;
    if (k) cells += " ";
    cells += stringWithFormat("Correct %s: <b>%0.2f%%</b> (%i of %i)<br>", names[k], pct,
                              static_cast<int>(right[k]), static_cast<int>(total));
  }
  return stringWithFormat(
      "<center><table width=%ipx><tr><td align=center></td><td align=center>%s</td></tr></table>"
      "</center>",
      width, cells.c_str());
}

// --- Card types ---

std::string CollectionStats::cardGraph() {
  auto r = _col.db()->first(
      "select sum(case when queue=2 and ivl >= 21 then 1 else 0 end), sum(case when queue in "
      "(1,3) or (queue=2 and ivl < 21) then 1 else 0 end), sum(case when queue=0 then 1 else 0 "
      "end), sum(case when queue<0 then 1 else 0 end) from cards where did in " +
      _limit());
  const Row div = r.value_or(Row{});
  const std::pair<const char*, const char*> kinds[4] = {{"Mature", "colMature"},
                                                        {"Young+Learn", "colYoung"},
                                                        {"Unseen", "colUnseen"},
                                                        {"Buried+Suspended", "colSusp"}};
  Json data = Json::array();
  for (size_t i = 0; i < 4; ++i) {
    const int64_t n = intAt(div, i);
    data.push_back({{"data", n},
                    {"label", stringWithFormat("%s: %i", kinds[i].first, static_cast<int>(n))},
                    {"color", colors[kinds[i].second]}});
  }
  std::vector<std::string> lines;
  auto totals = _col.db()->first("select count(id), count(distinct nid) from cards where did in " +
                                 _limit() + " ");
  const Row t = totals.value_or(Row{});
  _line(lines, "Total cards", numText(intAt(t, 0)));
  _line(lines, "Total notes", numText(intAt(t, 1)));
  auto factors = _col.db()->first(
      "select min(factor) / 10.0, avg(factor) / 10.0, max(factor) / 10.0 from cards where did "
      "in " +
      _limit() + " and queue = 2");
  const Row f = factors.value_or(Row{});
  if (!f.empty() && !isNull(f[0]) && toDouble(f[0]) != 0) {
    _line(lines, "Lowest ease", stringWithFormat("%i%%", truncInt(toDouble(f[0]))));
    _line(lines, "Average ease", stringWithFormat("%i%%", truncInt(doubleAt(f, 1))));
    _line(lines, "Highest ease", stringWithFormat("%i%%", truncInt(doubleAt(f, 2))));
  }
  std::string joined;
  for (size_t i = 0; i < lines.size(); ++i) joined += (i ? "\n" : "") + lines[i];
  const std::string table =
      stringWithFormat("<table width='100%%'>%s</table><p>", joined.c_str()) +
      "A card's <i>ease</i> is the size of the next interval when you answer \"good\" on a "
      "review.";
  std::string txt = _title("Card Types", "The division of cards in your deck(s).");
  Chart chart;
  chart.type = "pie";
  chart.ylabel = "";
  txt += _graphForID("cards", data, chart);
  return txt + table;
}

// --- Pieces ---

std::string CollectionStats::_graphForID(const std::string& id, const Json& data,
                                         const Chart& chart) {
  Json conf = chart.conf.is_object() ? chart.conf : Json::object();
  std::string ylabel = chart.ylabel;
  int w = width, h = height;
  conf["legend"] = {{"container", "#" + id + "Legend"},
                    {"noColumns", chart.type == "pie" ? 2 : 10}};
  conf["series"] = {{"stack", true}};
  if (!conf.contains("yaxis") || !conf["yaxis"].is_object()) conf["yaxis"] = Json::object();
  conf["yaxis"]["labelWidth"] = 20;
  if (!conf.contains("xaxis")) conf["xaxis"] = Json::object();
  if (chart.timeTicks) conf["timeTicks"] = _tickSuffix();
  if (chart.type == "bars" || chart.type == "barsLine") {
    conf["series"]["bars"] = {{"show", true},
                              {"barWidth", 0.8},
                              {"align", "center"},
                              {"fill", 0.7},
                              {"lineWidth", chart.type == "bars" ? 0 : 3}};
  } else if (chart.type == "fill") {
    conf["series"]["lines"] = {{"show", true}, {"fill", true}};
  } else if (chart.type == "pie") {
    w /= 2;
    h = static_cast<int>(h * 1.5);
    ylabel = " ";
    conf["series"]["pie"] = {{"show", true},
                             {"radius", 1},
                             {"stroke", {{"color", "#fff"}, {"width", 2}}},
                             {"label",
                              {{"show", true},
                               {"radius", 0.8},
                               {"threshold", 0.01},
                               {"background", {{"opacity", 0.5}, {"color", "#000"}}}}}};
  }
  return stringWithFormat(kGraphFormat, id.c_str(), -220, -40, ylabel.c_str(), id.c_str(), w, h,
                          -70, -60, chart.ylabel2.c_str(), conf.dump().c_str(), id.c_str(),
                          data.dump().c_str());
}

std::string CollectionStats::_title(const std::string& title, const std::string& subtitle) {
  return "<h1>" + title + "</h1>" + subtitle;
}

void CollectionStats::_line(std::vector<std::string>& lines, const std::string& a,
                            const std::string& b, bool bold) {
  lines.push_back(stringWithFormat(bold
                                       ? "<tr><td width=50%% align=right>%s%s</td><td><b>%s</b>"
                                         "</td></tr>"
                                       : "<tr><td width=50%% align=right>%s%s</td><td>%s</td></tr>",
                                   a.c_str(), ":", b.c_str()));
}

std::string CollectionStats::_lineTbl(const std::vector<std::string>& lines) {
  std::string rows;
  for (const std::string& l : lines) rows += l;
  return "<table width=100%>" + rows + "</table>";
}

std::string CollectionStats::_limit() {
  if (wholeCollection) return ids2str(_col.decks().allIds());
  return _col.sched()._deckLimit();
}

std::string CollectionStats::_revlogLimit() {
  if (wholeCollection) return "";
  return "cid in (select id from cards where did in " + ids2str(_col.decks().active()) + ")";
}

int CollectionStats::_periodDays() const {
  return type == kMonth ? 30 : type == kYear ? 365 : 0;
}

int CollectionStats::_chunk() const {
  return type == kMonth ? 1 : type == kYear ? 7 : 30;
}

std::optional<int> CollectionStats::_bars(bool forecast) const {
  if (type == kMonth) return forecast ? 31 : 30;
  if (type == kYear) return 52;
  return std::nullopt;
}

std::string CollectionStats::_tickSuffix() const {
  return type == kMonth ? "d" : type == kYear ? "w" : "mo";
}

int64_t CollectionStats::_dayCutOff() {
  return _col.sched().dayCutOff();
}

}  // namespace rivo
