#pragma once
// A screen as data: what a view controller shows, in the words of a table-based phone
// interface (title, bar buttons, a toolbar, sections of rows, or one web view). The browser
// page draws it; events name the screen, the element and the row or button by their ids.
// Plain values, no behaviour beyond turning into JSON.

#include <string>
#include <vector>

#include "librivo/Json.h"

namespace rivo {

struct Screen {
  struct Button {
    std::string id;
    std::string title;
    // A symbol the page may draw instead of the title ("help", "refresh", "add", "more").
    std::string icon;
    bool enabled = true;
    // Not empty: a file chooser for these extensions (".rpkg"). The chosen file arrives stored
    // on this machine, as the event "upload" on the button with the value {"name": its name,
    // "path": where it lies}; the screen removes it when done with it.
    std::string accept = {};
  };

  // A number beside a row's text; `tone` says which kind ("review", "new") for its colour.
  struct Count {
    std::string text;
    std::string tone;
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
    // "number" for digits only.
    bool hasField = false;
    std::string field;
    std::string keyboard;
  };

  struct Section {
    std::string title;
    std::string footer;
    std::vector<Row> rows;
  };

  std::string title;
  bool titleIsButton = false;  // the title sends "title" when tapped
  std::vector<Button> left, right, toolbar;
  // A table, or else the web view of that id.
  std::vector<Section> sections;
  std::string webView;
  // Text shown in place of an empty table.
  std::string emptyText;
  // Pull to refresh (a refresh button on a desktop) sends "refresh".
  bool refreshable = false;

  Json toJson() const;
};

}  // namespace rivo
