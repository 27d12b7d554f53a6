#pragma once
// One note: a snapshot of its row in `notes`, written back by an explicit flush.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class Card;
class Col;

class Note {
 public:
  // A new, unsaved note of this note type: a fresh id and guid, one empty value per field,
  // and the tags last used with the type.
  Note(Col& col, const Json& model);
  // Loads the row; a missing row leaves the fields empty.
  Note(Col& col, Id id);

  void load();
  // Writes the row. With mod 0 the time is now, and a note whose tags and fields equal the
  // stored row is not written at all, so an edit that changes nothing stays out of the next
  // sync. A given mod is written as it is, whatever changed.
  void flush(int64_t mod = 0);

  std::string joinedFields() const;
  // The note's cards in template order, each loaded.
  std::vector<Card> cards();
  // The note type as it was when the note was made or loaded; null when it doesn't exist.
  const Json& model() const { return *_model; }
  // The note's own copy, made first when the note shares it.
  Json& model();

  // Fields by name. A note may hold fewer values than its type has fields (a missing one
  // reads as empty) or more (the extra ones are kept and written back).
  std::vector<std::string> keys() const;
  const std::vector<std::string>& values() const { return fields; }
  std::vector<std::pair<std::string, std::string>> items() const;
  // The value of the field, or empty when the type has no field of that name.
  std::string get(const std::string& name) const;
  // Raises std::invalid_argument when the type has no field of that name.
  void set(const std::string& name, const std::string& value);

  bool hasTag(const std::string& tag) const;
  // The tag string to store: duplicates dropped, sorted, with the surrounding blanks.
  std::string stringTags() const;
  void setTagsFromStr(const std::string& text);
  // No duplicate check: stringTags drops them when the note is written.
  void addTag(const std::string& tag);
  // Removes every tag that is exactly this text.
  void delTag(const std::string& tag);

  // 1 when the first field is blank; 2 when another note of the same type has the same first
  // field (compared without HTML); 0 otherwise.
  int dupeOrEmpty();

  Col* col = nullptr;
  Id id = 0;
  std::vector<std::string> fields;
  std::vector<std::string> tags;
  // The deck for cards made from this note: set by the caller, not stored in the row.
  Id did = 0;
  Id mid = 0;
  std::string guid;
  int64_t flags = 0;
  std::string data;
  int64_t scm = 0;
  int64_t mod = 0;
  int usn = 0;
  // The raw columns as loaded.
  std::string tagsString;
  std::string fieldsString;
  std::string sfld;
  int64_t csum = 0;
  bool newlyAdded = false;

 private:
  void _preFlush();
  void _postFlush();
  // The field's ordinal, or -1 when the note type has no field of that name.
  int _fieldOrd(const std::string& name) const;

  const Json& _fieldMap() const;

  std::shared_ptr<const Json> _model;
  // Field name to [ord, field dictionary], from _model.
  mutable std::optional<Json> _fmap;
};

}  // namespace rivo
