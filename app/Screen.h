#pragma once
// A screen as data: what a view controller shows, in the words of a table-based phone
// interface (title, bar buttons, a toolbar, sections of rows, or one web view). The browser
// page draws it; events name the screen, the element and the row or button by their ids.
// Plain values, no behaviour beyond turning into JSON.

#include <cstdint>
#include <string>
#include <vector>

#include "librivo/Json.h"

namespace rivo {

struct Screen {
  struct Button {
    std::string id;
    std::string title;
    // A symbol the page may draw instead of the title ("help", "refresh", "add", "more").
    std::string icon = "";
    bool enabled = true;
    // Not empty: a file chooser for these extensions (".rpkg"). The chosen file arrives stored
    // on this machine, as the event "upload" on the button with the value {"name": its name,
    // "path": where it lies}; the screen removes it when done with it.
    std::string accept = {};
    // For the buttons under a web view: their colour ("red", "green", "tint") and a second,
    // smaller line.
    std::string tone = "";
    std::string detail = "";
    // In a segmented control: the chosen segment.
    bool selected = false;
    // A toolbar button that shows a state (bold at the selection) draws itself pressed.
    bool on = false;
    // With `accept` for images: the page scales a picture down to this width and sends it as
    // JPEG, also one pasted into a web view of the screen.
    int imageWidth = 0;
    // Not zero: the button records from the microphone, for at most this many seconds. The
    // screen gets the event "button" first, then the recording as the event "upload" (see
    // `accept`), or "failed" with {"reason": "denied", "absent", "insecure" or "failed"}.
    int recordSeconds = 0;
  };

  // A number beside a row's text; `tone` says which kind ("review", "new") for its colour.
  // In the status line above a web view, `colour` ("#RRGGBB") gives it exactly.
  struct Count {
    std::string text;
    std::string tone;
    std::string colour = "";
    bool underline = false;
  };

  // A keyboard shortcut: the key as the browser names it (" ", "Enter", "1", "r") sends "key"
  // with the id; `title` says what it does.
  struct Key {
    std::string key;
    std::string id;
    std::string title;
  };

  // A text field under the web view. Edits send "field" events: "begin", "end" and "return",
  // the last two with the text. A new `focusSeq` gives it the input, a new `blurSeq` takes
  // it away.
  struct Field {
    bool shown = false;
    std::string text;
    std::string placeholder;
    std::string font;
    int size = 0;
    uint64_t focusSeq = 0;
    uint64_t blurSeq = 0;
  };

  // A drawing area under the web view, emptied at each new `clearSeq`. A stroke's width is
  // `extraWidth` plus its pressure times `forceFactor`.
  struct Pad {
    bool shown = false;
    uint64_t clearSeq = 0;
    double forceFactor = 2;
    double extraWidth = 2;
  };

  enum class Accessory { none, push, expanded, collapsed, check };

  struct Row {
    std::string id;  // unique within the screen
    std::string text;
    std::string detail;
    int indent = 0;
    Accessory accessory = Accessory::none;
    std::vector<Count> counts;
    // "filtered" for a filtered deck's name, "current" for the chosen one of a list.
    std::string tone;
    bool selectable = true;
    // Swipe or a delete control sends "delete"; long press or a context menu sends "menu".
    bool canDelete = false;
    bool hasMenu = false;
    // A text field beside the text; an edit sends "change" with the new text. `keyboard` is
    // "number" for digits only, "search" for a search given the row's free width.
    bool hasField = false;
    std::string field;
    std::string keyboard;
    // A slider beside the text; moving it sends "change" with the number. The page shows
    // the value with `decimals` fraction digits and `unit` behind, as `detail` does.
    bool hasSlider = false;
    double min = 0, max = 1, step = 0.1, value = 0;
    int decimals = 1;
    std::string unit;
    // A switch beside the text; flipping it sends "change" with true or false.
    bool hasSwitch = false;
    bool on = false;
    // More than 0: the text wraps to at most this many lines.
    int lines = 0;
  };

  struct Section {
    std::string title;
    std::string footer;
    std::vector<Row> rows;
  };

  std::string title;
  bool titleIsButton = false;  // the title sends "title" when tapped
  // A screen with its own way out (a "Cancel" button) has no back button.
  bool hidesBackButton = false;
  std::vector<Button> left, right, toolbar;
  // A table, or else the web view of that id.
  std::vector<Section> sections;
  std::string webView;
  // A search field above the table: Return sends "search" "submit" with the text, its clear
  // button "search" "clear". A new `focusSeq` gives it the input.
  struct SearchBar {
    bool shown = false;
    std::string text;
    std::string placeholder;
    uint64_t focusSeq = 0;
  };
  SearchBar search;
  // More rows follow those sent: the page sends "more" when the user scrolls near the end.
  bool hasMore = false;
  // Text shown in place of an empty table.
  std::string emptyText;
  // Pull to refresh (a refresh button on a desktop) sends "refresh".
  bool refreshable = false;

  std::vector<Key> keys;
  bool navBarHidden = false;
  // No way back: the screen goes away only when its own logic says so.
  bool modal = false;

  // Work under way, above the table: what is being done (with an activity indicator while
  // `activity`), a bar when `fraction` is 0 to 1, and the amounts sent and received.
  struct Progress {
    bool shown = false;
    std::string text;
    bool activity = false;
    double fraction = -1;
    std::string up, down;
  };
  Progress progress;
  // A segmented control in place of the title; a segment sends "segment" with its id.
  std::vector<Button> segments;
  // Segmented controls above the web view, each showing its `selected` segment; a segment
  // sends "segment" with its id.
  std::vector<std::vector<Button>> controls;

  // Around the web view: a status line of numbers above it, a row of large buttons below it
  // (sending "button"), an icon in its corner ("star"), an icon that flashes over it once for
  // each new `flashSeq`, a text field and a drawing area.
  std::vector<Count> status;
  std::vector<Button> actions;
  bool bigActions = false;
  std::string badge;
  std::string flash;
  uint64_t flashSeq = 0;
  Field field;
  Pad pad;

  Json toJson() const;
};

}  // namespace rivo
