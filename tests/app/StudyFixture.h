#pragma once
// The review screen over a FakeUi: notes to study, and the page's side of the contract
// (its load, taps, links, keys) as the browser would report them.

#include <string>
#include <vector>

#include "app/ActionsManager.h"
#include "app/DecksViewController.h"
#include "app/ProfileManager.h"
#include "app/StudyViewController.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Note.h"
#include "tests/app/ScreenFixture.h"

namespace rivo::test {

class StudyFixture : public ScreenFixture {
 protected:
  Col& col() { return *app->col(); }
  ProfileManager& pm() { return app->pm(); }
  StudyViewController& svc() { return *app->svc(); }

  // A note of the current note type in the current deck; its id.
  Id addNote(const std::string& front, const std::string& back = "back") {
    auto note = col().newNote();
    note->fields[0] = front;
    note->fields[1] = back;
    col().addNote(*note);
    return note->id;
  }
  // Opens the review screen as selecting the deck does, and lets the page finish loading.
  void study() {
    app->dvc()->loadDecks();
    settle();
    send("row", col().decks().current()->value("name", ""), "select");
    ui.webView->finishLoad();
    settle();
  }
  // The page's report of a tap in a zone, or a gesture.
  void tap(const std::string& zone) {
    ui.webView->navigate("rivotap://" + zone, WebView::NavigationType::other);
    settle();
  }
  void gesture(const WebView::Gesture& g) {
    ui.webView->delegate()->didGesture(*ui.webView, g);
    settle();
  }
  // The scripts sent for the side now shown, joined.
  std::string shown() const {
    std::string all;
    for (const auto& s : ui.webView->scripts) all += s + "\n";
    return all;
  }
  int64_t revlogCount() { return col().db()->scalarInt("select count() from revlog"); }
  int64_t lastEase() {
    return col().db()->scalarInt("select ease from revlog order by id desc limit 1");
  }
};

}  // namespace rivo::test
