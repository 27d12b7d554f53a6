#pragma once
// One row of a code-described options table: plain data whose value is reached through the
// closures its owner (an RVConfigTableDelegate) sets. Every closure is optional. Main loop
// only, like the table that holds it.

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace rivo {

class RVConfigTableController;

struct RVConfigTableRow {
  enum class Kind { edit, toggle, enumeration, multiEnum, action };

  // The choices of an enum row and the index of the chosen one (-1: none).
  struct EnumData {
    std::vector<std::string> choices;
    int idx = -1;
  };
  struct MultiEnumData {
    std::vector<std::string> choices;
    std::set<int> chosen;
  };
  struct ActionData {
    std::string title;
    std::string detail;
  };

  Kind kind = Kind::action;
  std::string title;

  // Edit row: `getTxt` gives the text shown, `txtIsValid` judges a new one, `setTxt` stores it.
  std::function<std::string()> getTxt;
  std::function<bool(const std::string&)> txtIsValid;
  std::function<void(const std::string&)> setTxt;
  std::string keyboardType;  // "number" for digits, "search" for a wide search field

  // Switch row.
  std::function<bool()> getVal;
  std::function<void(bool)> setVal;

  // Enum row: its detail screen lists the choices; closing it reports the index.
  std::function<EnumData()> getData;
  std::function<void(int)> setIdx;
  std::function<bool(int)> onCanEditSubrow;
  std::function<void(RVConfigTableController& detail, int)> onCommitEdit;  // a deletion
  std::function<void(RVConfigTableController& detail)> addItem;
  std::function<void()> onDetailModeExit;

  // Multi-enum row.
  std::function<MultiEnumData()> getMultiData;
  std::function<void(const std::set<int>&)> setChosen;
  std::function<std::string(const MultiEnumData&)> summarizeChoices;
  std::function<void()> onClose;

  // Action row: its title and detail text, and what a tap does.
  std::function<ActionData()> getActionData;
  std::function<void(RVConfigTableController&)> onSelect;
};

struct RVConfigTableSection {
  std::string title;
  std::string footer;
  std::vector<std::shared_ptr<RVConfigTableRow>> rows;
};

}  // namespace rivo
