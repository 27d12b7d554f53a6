#pragma once
// The note types of the collection: the `models` blob, loaded with the collection. A model, a
// field and a template are plain JSON dictionaries; the operations here take them by reference
// to the dictionaries held in the blob.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class Col;

class ModelManager {
 public:
  // Renders the question side of a render row (card id, note id, model id, deck id, ord, tags,
  // field string). The probing of `req` goes through it.
  using QuestionRenderer = std::function<std::string(const Row& row)>;

  explicit ModelManager(Col& col);

  void load(const std::string& json);
  // Marks the blob for writing. With a model that has an id: stamps its mod and usn and
  // rebuilds its req; with `templates`, also generates the cards its templates now call for.
  void save(Json* model = nullptr, bool templates = false);
  void flush();
  void beforeUpload();

  Json& models() { return _models; }
  bool changed() const { return _changed; }
  // A copy of the model that never changes, for a note to keep: notes made while the model
  // stays as it is share one, so that making or loading a note doesn't copy its type.
  std::shared_ptr<const Json> snapshot(const Json& model);

  // --- Registry ---

  // The model under this id (a number or its decimal text), or null. The pointer stays valid
  // until the blob is loaded again or the model is removed.
  Json* get(Id id);
  Json* get(const Json& id);
  // The model named by conf "curModel", else any model; null when there is none.
  Json* current();
  void setCurrent(const Json& model);
  std::vector<Json*> all();
  std::vector<std::string> ids() const;
  std::vector<std::string> allNames() const;
  Json* byName(const std::string& name);
  bool have(const std::string& id) const { return _models.contains(id); }

  // A fresh, unregistered model: the default with this name and no fields or templates.
  Json new_(const std::string& name) const;
  // Gives the model an id, registers it, makes it current and saves it with its templates.
  // Returns the registered dictionary, which later calls must use.
  Json& add(Json model);
  // Registers the model under its id (after ensureNameUnique) and returns the stored one.
  Json& update(Json model);
  // Removes the type with all its cards and notes. Changes the schema.
  void rem(const Json& model);
  // A copy named "NAME copy" under a new id.
  Json& copy(const Json& model);
  void ensureNameUnique(Json& model);
  void _setID(Json& model);

  std::vector<Id> nids(const Json& model);
  int64_t useCount(const Json& model);
  // SHA-1 of the field names then the template names: equal for types of the same shape.
  static std::string scmhash(const Json& model);

  // --- Fields ---

  Json newField(const std::string& name) const;
  // Field name to [ord, field dictionary].
  static Json fieldMap(const Json& model);
  static std::vector<std::string> fieldNames(const Json& model);
  // The model's "sortf": the field that feeds the notes' sort field.
  static int sortIdx(const Json& model);
  // Raises std::logic_error("check") for an index outside the fields.
  void setSortIdx(Json& model, int idx);
  void addField(Json& model, Json field);
  // `field` is found by its ord in the model. The moved field becomes the sort field.
  void moveField(Json& model, const Json& field, int idx);
  // Rewrites the templates' references; no name removes them.
  void renameField(Json& model, const Json& field, const std::optional<std::string>& newName);
  // Not supported: raises std::logic_error("0").
  [[noreturn]] void remField(Json& model, const Json& field);
  // Rewrites the field list of every note of the model, in one batch.
  void _transformFields(const Json& model,
                        const std::function<void(std::vector<std::string>&)>& step);

  // --- Templates ---

  Json newTemplate(const std::string& name) const;
  void addTemplate(Json& model, Json tmpl);
  // False, with nothing changed, when some note would lose its last card. Raises
  // std::logic_error for the only template of a model.
  bool remTemplate(Json& model, const Json& tmpl);
  void moveTemplate(Json& model, const Json& tmpl, int idx);

  // --- Required fields ---

  void _updateRequired(Json& model);
  // [kind, field ords, null] for one template, found by rendering it with probe values.
  Json _reqForTemplate(const Json& model, const std::vector<std::string>& fieldNames,
                       const Json& tmpl);
  // The template ordinals for which a note of this model with these fields has a card, read
  // from the model's "req" (standard) or from the cloze numbers in the fields (cloze).
  static std::vector<int> availOrds(const Json& model, const std::string& flds);
  static std::vector<int> _availClozeOrds(const Json& model, const std::string& flds);

  // Replaces the question renderer the probing uses (see QuestionRenderer).
  void setQuestionRenderer(QuestionRenderer renderer) { _renderQuestion = std::move(renderer); }

  // --- The standard note types ---

  Json& addBasicModel();
  Json& addForwardReverse();
  Json& addForwardOptionalReverse();
  Json& addClozeModel();
  // All four, in the order that leaves Basic current.
  void addStandardModels();

 private:
  static void _updateFieldOrds(Json& model);
  static void _updateTemplOrds(Json& model);
  void _syncTemplates(const Json& model);

  Col& _col;
  Json _models = Json::object();
  Json _defaultModel, _defaultField, _defaultTemplate;
  QuestionRenderer _renderQuestion;
  bool _changed = false;
  // The last snapshot of each model id; compared with the model before it is handed out again.
  std::unordered_map<Id, std::shared_ptr<const Json>> _snapshots;
};

}  // namespace rivo
