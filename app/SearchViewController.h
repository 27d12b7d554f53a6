#pragma once
// The search screen: a search field ("deck:current " to start) over the matching cards in
// note order, each row opening the editor on its card; the search runs again on return from
// the editor. Rows go to the page a page at a time as the user scrolls, and their text is
// read only for the rows sent, so a search matching every card of a large collection stays
// quick. A row's menu opens the card's statistics. Main loop only.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "app/ViewController.h"

namespace rivo {

class AppDelegate;

class SearchViewController : public ViewController {
 public:
  static constexpr size_t kPageRows = 100;

  explicit SearchViewController(AppDelegate& app);

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;

  void doSearch();
  void clear();
  // The row text of a card: its note's fields joined, with the template's name in front
  // when the note has more than one card, HTML stripped.
  std::string cellTextForCid(int64_t cid);

  const std::string& text() const { return _text; }
  const std::vector<int64_t>& searchResults() const { return _searchResults; }
  size_t shown() const { return _shown; }

 private:
  // Reads the row texts of the cards about to be sent, in one query.
  void _loadTexts(size_t from, size_t to);

  AppDelegate& _app;
  std::string _text = "deck:current ";
  std::vector<int64_t> _searchResults;
  std::map<int64_t, std::string> _texts;
  size_t _shown = kPageRows;
  bool _editing = false;
  bool _appeared = false;
  uint64_t _focusSeq = 0;
};

}  // namespace rivo
