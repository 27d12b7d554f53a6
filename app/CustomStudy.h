#pragma once
// Studying one deck outside its schedule: raising today's limits, or a "Custom Study Session"
// filtered deck built from a few choices. This holds the dialog's values and runs its
// operations; the configuration table that shows them draws on these.

#include <set>
#include <string>
#include <vector>

#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class Col;

enum class CustomStudyMode {
  kNewLimit = 0,
  kRevLimit = 1,
  kForgotten = 2,
  kAhead = 3,
  kPreviewNew = 4,
  kNewWithTags = 5,
  kDueWithTags = 6,
  kCramWithTags = 7,
};

class CustomStudy {
 public:
  static constexpr const char* kSessionDeck = "Custom Study Session";

  // The current deck is the one studied.
  explicit CustomStudy(Col& col);

  static const std::vector<std::string>& modeLabels();
  // The label and the greatest value of the mode's number row.
  static std::string rowLabel(CustomStudyMode mode);
  static int rowMax(CustomStudyMode mode);

  CustomStudyMode mode() const { return _mode; }
  // Entering day study brings dayLimit down to the new mode's greatest value.
  void setMode(CustomStudyMode mode);
  // The mode's number row: extendNew or extendRev of the deck (saved), dayLimit or cardLimit.
  // A value outside 1 to rowMax is refused with false.
  int rowValue() const;
  bool setRowValue(int value);
  int dayLimit() const { return _dayLimit; }
  int cardLimit() const { return _cardLimit; }

  // Tags of the notes of the active decks, sorted.
  const std::vector<std::string>& allValidTags();
  const std::set<std::string>& includedTags() const { return _included; }
  const std::set<std::string>& excludedTags() const { return _excluded; }
  // Stored in the deck under activeTags and inactiveTags.
  void setIncludedTags(const std::set<std::string>& tags);
  void setExcludedTags(const std::set<std::string>& tags);
  // What the tag row shows.
  std::string tagRowText(bool included);

  std::string searchString() const;
  std::string tagSearchString() const;
  int cardCountForSearch();
  // The text under the options.
  std::string updateEstimateForSearch();

  // After an accept: `done` means leave for the study screen (the scheduler has been reset);
  // `message` is what to tell the user, if anything.
  struct Outcome {
    bool done = false;
    std::string message;
  };
  Outcome accept();
  Outcome acceptLimitIncrease();
  Outcome acceptCustomStudy();
  // The emptied session deck, made if needed and selected; null when a normal deck has its
  // name.
  Json* customStudyDeck();

  Id did() const { return _did; }

 private:
  Json& _deck() const;
  void _checkMode() const;

  Col& _col;
  Id _did = 0;
  CustomStudyMode _mode = CustomStudyMode::kNewLimit;
  int _dayLimit = 1;
  int _cardLimit = 100;
  bool _haveTags = false;
  std::vector<std::string> _allValidTags;
  std::set<std::string> _included, _excluded;
};

}  // namespace rivo
