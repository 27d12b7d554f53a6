#pragma once
// One card: a snapshot of its row in `cards`, written back by an explicit flush.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "librivo/Col.h"
#include "librivo/Json.h"
#include "librivo/StoredCodes.h"
#include "librivo/Value.h"

namespace rivo {

class Col;
class Note;

// Where the help links of the empty-card messages point.
inline constexpr const char* kSupportSite = "https://rivo.kelpo.net";

// What a card shows instead of a rendering. The first two are printf formats: the cloze one
// takes the card's ordinal plus 1 and then kSupportSite, the blank one kSupportSite.
inline constexpr const char* kMissingClozeFormat =
    "Missing {{c%d::...}} on cloze. If you no longer need it, please use Tools&gt;Empty Cards in "
    "the computer version to delete this blank card. (<a "
    "href='%s/kb/problems/unexpected-empty-cards-when-using-cloze-deletion'>help</a>)";
inline constexpr const char* kBlankFrontFormat =
    "The front of this card is blank. (<a "
    "href='%s/kb/card-appearance/the-front-of-this-card-is-blank'>help</a>)";
inline constexpr const char* kInvalidCardMessage =
    "This card is invalid. Please use the Check Database feature.";

class Card {
 public:
  // A new card with a fresh id, in deck 1, all scheduling values 0.
  explicit Card(Col& col);
  // Loads the row; a missing row leaves the fields empty.
  Card(Col& col, Id id);

  void load();
  void flush();
  void flushSched();
  // The copy kept for undo: every field, the cached note shared rather than copied.
  Card copy() const { return *this; }
  std::string description() const;

  // The note, loaded once and kept until load() or a reload; null only for a card with no Col.
  std::shared_ptr<Note> note() { return noteAndReload(false); }
  std::shared_ptr<Note> noteAndReload(bool reload);
  // Caches a note the card was made from, saved or not.
  void setNote(std::shared_ptr<Note> note) { _note = std::move(note); }
  // The note's note type, or null when it doesn't exist.
  Json* model();
  // The template this card shows, or null when its ordinal has none.
  const Json* template_();

  // Answer timer, in milliseconds.
  void startTimer();
  int64_t timeLimit();
  bool shouldShowTimer();
  int64_t timeTaken();

  // True when the note's fields no longer call for this card's ordinal.
  bool isEmpty();
  // The text shown in place of an empty card: the cloze or the blank-front message.
  std::string emptyMessage();

  // Rendering. The result is rendered once and kept until load() or a reload.
  // The question for display: the empty-card message when the note no longer calls for this
  // card, else the style sheet and the question.
  std::string q();
  // The style sheet and the question, with no emptiness check. `browser` renders with the
  // template's browser formats; a cached rendering is returned whatever the flag.
  std::string qAndReload(bool reload, bool browser = false);
  std::string a();
  std::string _css();
  const RenderedQA& _getQA(bool reload = false, bool browser = false);

  Col* col = nullptr;
  Id id = 0;
  Id nid = 0;
  Id did = 1;
  int ord = 0;
  int64_t crt = 0;
  int64_t mod = 0;
  int usn = 0;
  int type = kTypeNew;    // a kType code
  int queue = kQueueNew;  // a kQueue code
  int64_t due = 0;
  int64_t ivl = 0;
  int factor = 0;
  int reps = 0;
  int lapses = 0;
  int left = 0;
  int64_t odue = 0;
  Id odid = 0;
  int64_t flags = 0;
  std::string data;
  int64_t timerStarted = 0;
  int64_t lastIvl = 0;

 private:
  void _stamp();
  // The option group of the home deck: odid for a card in a filtered deck, else did.
  const Json* _homeConf();

  std::shared_ptr<Note> _note;
  std::optional<RenderedQA> _qa;
};

}  // namespace rivo
