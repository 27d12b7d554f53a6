#pragma once
// Turns a search typed by the user into one SQL query over cards and notes.
//
// Every value the user types reaches SQLite either as a bound argument or, where the SQL text
// needs it (ids, days, ordinals, property comparisons), as a number checked here first.

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "librivo/Value.h"

namespace rivo {

class Col;

class Finder {
 public:
  explicit Finder(Col& col) : _col(col) {}

  // `order`: nothing for no ordering, "True" for the browser's sort, else an SQL ordering term
  // (from code only: it goes into the query as it stands).
  // A search that can't be built finds nothing.
  std::vector<Id> findCards(const std::string& query,
                            const std::optional<std::string>& order = std::nullopt);
  std::vector<Id> findNotes(const std::string& query);

  // A condition and its arguments; nullopt stands for a search that can't match.
  struct Where {
    std::string sql;
    Row args;
  };

  static std::vector<std::string> _tokenize(const std::string& query);
  std::optional<Where> _where(const std::vector<std::string>& tokens);
  // The ordering clause, and whether the ids must be reversed after the query.
  std::pair<std::string, bool> _order(const std::optional<std::string>& order);
  static std::string _query(const std::string& preds, const std::string& order);

 private:
  // Each gives the condition text, or "" when the term can't be built.
  std::string _findTag(const std::string& val, Row& args);
  std::string _findCardState(const std::string& val);
  std::string _findNids(const std::string& val);
  std::string _findTemplate(const std::string& val);
  std::string _findModel(const std::string& val);
  std::string _findDeck(const std::string& val);
  std::string _findProp(const std::string& val);
  std::string _findRated(const std::string& val);
  std::string _findAdded(const std::string& val);
  std::string _findText(const std::string& val, Row& args);
  std::string _findField(const std::string& field, const std::string& val);

  Col& _col;
};

}  // namespace rivo
