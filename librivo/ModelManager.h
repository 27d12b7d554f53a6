#pragma once
// The note types of the collection: the `models` blob, loaded with the collection.

#include <vector>

#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class Col;

class ModelManager {
 public:
  explicit ModelManager(Col& col) : _col(col) {}

  void load(const std::string& json);
  // Marks the blob for writing; with a model, stamps its mod and usn first.
  void save(Json* model = nullptr);
  void flush();
  void beforeUpload();

  Json& models() { return _models; }
  bool changed() const { return _changed; }

  // The model under this id (a number or its decimal text), or null. The pointer stays valid
  // until the blob is loaded again or the model is removed.
  Json* get(Id id);
  Json* get(const Json& id);
  // The model named by conf "curModel", else any model; null when there is none.
  Json* current();

  // Field name to [ord, field dictionary].
  static Json fieldMap(const Json& model);
  // The model's "sortf": the field that feeds the notes' sort field.
  static int sortIdx(const Json& model);

  // The template ordinals for which a note of this model with these fields has a card, read
  // from the model's "req" (standard) or from the cloze numbers in the fields (cloze).
  static std::vector<int> availOrds(const Json& model, const std::string& flds);
  static std::vector<int> _availClozeOrds(const Json& model, const std::string& flds);

 private:
  Col& _col;
  Json _models = Json::object();
  bool _changed = false;
};

}  // namespace rivo
