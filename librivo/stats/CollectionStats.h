#pragma once
// The statistics report: one HTML page of seven sections and six charts, made from aggregate
// queries over `revlog` and `cards`. The page carries its numbers and chart options as JSON;
// jQuery and flot (the files RivoJS names) draw them in the browser.
//
// Holds a reference to the Col, which outlives it. Not thread-safe: one thread at a time,
// normally the work queue, as any other reader of the collection.

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class Col;

class CollectionStats {
 public:
  // Values of `type`.
  static constexpr int kMonth = 0;
  static constexpr int kYear = 1;
  static constexpr int kLife = 2;

  // A style for a window wider than a phone: the page, laid out for 320 pixels, shown larger.
  static constexpr const char* kWideStyle =
      "<style>@media (min-width: 800px) { .main { zoom: 1.6; } }</style>";

  explicit CollectionStats(Col& col, int width = 600, int height = 200);

  std::string report() { return reportOfType(kMonth); }
  // Stores the period and returns the whole page.
  std::string reportOfType(int type);

  // The sections, in the page's order; each is empty when there is nothing to show.
  std::string todayStats();
  std::string dueGraph();
  std::string repsGraph();
  std::string ivlGraph();
  std::string hourGraph();
  std::string easeGraph();
  std::string cardGraph();

  int type = kMonth;
  int width, height;
  // All decks rather than the active ones.
  bool wholeCollection = false;
  const std::string css;
  const Json colors;

  // The pieces, public for tests.
  struct Chart {
    Json conf = Json::object();
    std::string type = "bars";
    std::string ylabel = "Cards";
    bool timeTicks = true;
    std::string ylabel2;
  };
  std::string _graphForID(const std::string& id, const Json& data, const Chart& chart);
  std::string _limit();
  std::string _revlogLimit();
  int _periodDays() const;
  int _deckAge(const std::string& by);
  // [count of days studied, first day]
  std::pair<int64_t, int64_t> _daysStudied();
  std::vector<Row> _doneForNum(std::optional<int> num, int chunk);
  std::vector<Row> _dueWithStart(std::optional<int> start, std::optional<int> end, int chunk);

 private:
  struct Spec {
    int column;
    const char* color;
    const char* label;
  };
  std::string _repsGraphForData(const std::vector<Row>& data, std::optional<int> days,
                                const std::string& reptitle, const std::string& timetitle);
  std::pair<Json, Json> _splitRepData(const std::vector<Row>& data, const std::vector<Spec>& spec);
  std::optional<std::pair<std::string, double>> _ansInfo(const Json& totd, int64_t studied,
                                                         const std::string& unit,
                                                         bool convHours = false, double total = 0);
  std::string _dueInfo(int64_t total, int64_t num);
  std::string _easeInfo(const std::vector<Row>& eases);
  std::string _title(const std::string& title, const std::string& subtitle = "");
  static void _line(std::vector<std::string>& lines, const std::string& a, const std::string& b,
                    bool bold = true);
  static std::string _lineTbl(const std::vector<std::string>& lines);
  static std::string _avgDay(double total, double num, const std::string& unit);
  // The period table's values for `type`.
  int _chunk() const;
  std::optional<int> _bars(bool forecast) const;
  std::string _tickSuffix() const;
  int64_t _dayCutOff();

  Col& _col;
};

}  // namespace rivo
