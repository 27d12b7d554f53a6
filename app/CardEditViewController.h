#pragma once
// The older note editor (preference "useOldEditor"): the fields and tags as plain text areas
// in a table, and, when adding, the note type and deck as rows that open their chooser. Its
// saving rules are its own: newlines become "<br>", an empty first field is refused, and the
// chosen deck and tags are stored on the note type for the next note. Main loop only.

#include <memory>
#include <string>

#include "app/ViewController.h"

namespace rivo {

class AppDelegate;
class Card;
class Note;

class CardEditViewController : public ViewController {
 public:
  explicit CardEditViewController(AppDelegate& app);
  ~CardEditViewController() override;

  // None: a new note of the current type, with the type's last tags. A card: its note.
  void setupWithCard(std::unique_ptr<Card> card);

  Screen describe() override;
  bool handle(const Event& event) override;

  void saveChanges();
  void cancel();

  Note* note() const { return _note.get(); }

 private:
  void _newNote();
  void _close();

  AppDelegate& _app;
  std::unique_ptr<Card> _card;
  std::shared_ptr<Note> _note;
  bool _adding = true;
  std::string _tags;
};

}  // namespace rivo
