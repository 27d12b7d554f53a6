#pragma once
// Picks the current note type or the current deck for the editor: one list by name with the
// current one ticked. Choosing makes it current, runs the completion and goes back. In deck
// mode "Add New" makes a deck and chooses it. Main loop only.

#include <functional>
#include <string>
#include <vector>

#include "app/ViewController.h"

namespace rivo {

class AppDelegate;

class DeckAndNoteTypeSelector : public ViewController {
 public:
  enum Mode { kNoteTypes, kDecks };

  DeckAndNoteTypeSelector(AppDelegate& app, Mode mode, std::function<void()> completion);

  Screen describe() override;
  bool handle(const Event& event) override;

  void choose(int64_t id);
  // The answer to "Add Deck": refusals as alerts, else the deck is made and chosen.
  void addDeck(const std::string& name);

 private:
  AppDelegate& _app;
  Mode _mode;
  std::function<void()> _completion;
};

}  // namespace rivo
