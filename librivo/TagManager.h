#pragma once
// The registry of tag names with their usns (the `tags` blob of the collection), and the
// string form in which a note carries its tags: " tag1 tag2 ".

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class Col;

class TagManager {
 public:
  explicit TagManager(Col& col) : _col(col) {}

  void load(const std::string& json);
  // Writes the blob only when something was registered or save() was called.
  void flush();
  void save() { _changed = true; }
  void beforeUpload();

  // Adds the names not yet known, with this usn or, without one, the collection's. A known
  // name keeps the usn it was first seen with; empty names are skipped.
  void register_(const std::vector<std::string>& names, std::optional<int64_t> usn = {});
  // Registers the tags of these notes; with none given, rebuilds the registry from every note,
  // forgetting unused tags and all old usns.
  void registerNotes(const std::optional<std::vector<Id>>& nids = {});
  // The registered names in case-insensitive order.
  std::vector<std::string> all() const;
  // The registry itself: name to usn. Sync reads it.
  Json& allItems() { return _tags; }
  bool changed() const { return _changed; }

  // The names in a tag string; runs of blanks and blanks at the ends give no name.
  static std::vector<std::string> split(const std::string& text);
  // " a b ": one blank between names and one at each end, so no tags gives two blanks.
  static std::string join(const std::vector<std::string>& names);
  // A sorted copy: locale-aware and case-insensitive. Nothing is removed or changed.
  static std::vector<std::string> canonify(const std::vector<std::string>& names);
  // Whether the list holds the name, ignoring case.
  static bool isTagInList(const std::string& name, const std::vector<std::string>& list);

  // The current tag string without the tags to remove (matched ignoring case); not re-sorted.
  static std::string remFromStr(const std::string& remove, const std::string& current);
  // The current tag string with the names it lacks (ignoring case) added, sorted.
  static std::string addToStr(const std::string& add, const std::string& current);

  // Ids of the notes with any of the wanted tags and none of the unwanted ones; with neither
  // list, every note. Tags are `like` patterns: "%" and "_" inside one act as wildcards.
  std::vector<Id> selTagNidsMatching(const std::vector<std::string>& wanted,
                                     const std::vector<std::string>& unwanted);
  // Moves every card of those notes to the deck.
  void setDeckForTagsMatching(const std::vector<std::string>& wanted,
                              const std::vector<std::string>& unwanted, Id did);

 private:
  Col& _col;
  Json _tags = Json::object();
  bool _changed = false;
};

}  // namespace rivo
