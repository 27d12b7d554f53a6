#pragma once
// The base of the exporters: the collection, the deck exported with its children (or the whole
// collection), and how many cards went out. One object serves one run, on the thread that owns
// the collection (the work queue).

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "librivo/Value.h"

namespace rivo {

class Col;

class Exporter {
 public:
  // `col` outlives the exporter. Without `did`, the whole collection.
  explicit Exporter(Col& col, std::optional<Id> did = std::nullopt);
  virtual ~Exporter() = default;
  Exporter(const Exporter&) = delete;
  Exporter& operator=(const Exporter&) = delete;

  // Writes the export to `path`; false with `error` set to a sentence for the user. Here the
  // file is opened, given to doExport(), and closed.
  virtual bool exportInto(const std::string& path, std::string* error);

  // Line feeds become "<br>", tabs eight blanks.
  static std::string escapeText(const std::string& text);
  // The cards whose home is the deck or one of its children, wherever they are shown now (a
  // filtered deck holds cards of other decks), or every card; count() then says how many.
  std::vector<Id> cardIds();
  // The deck and its children, or nothing for the whole collection.
  std::vector<Id> deckIds();

  Col& col() const { return _col; }
  const std::optional<Id>& did() const { return _did; }
  int64_t count() const { return _count; }

 protected:
  virtual void doExport(std::FILE* file) { (void)file; }

  Col& _col;
  std::optional<Id> _did;
  int64_t _count = 0;
};

}  // namespace rivo
