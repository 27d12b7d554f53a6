#include "shell/AddCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "app/AppDelegate.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/IcuText.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"

namespace rivo {

namespace {

std::string fieldNames(const Note& note) {
  std::string names;
  for (const auto& [name, value] : note.items()) names += (names.empty() ? "" : ", ") + name;
  return names;
}

}  // namespace

CLI::App* AddCommand::add(CLI::App& cli) {
  CLI::App* add =
      cli.add_subcommand("add", "Add one note; print its id and the number of cards it made.");
  add->add_option("--deck", _deck, "deck for its cards (default: the current one)");
  add->add_option("--type", _type, "note type (default: the current one)");
  add->add_option("--tags", _tags, "tags, separated by blanks");
  add->add_option("fields", _fields,
                  "the fields in order; - reads one from standard input; put -- before a "
                  "field starting with -")
      ->required();
  return add;
}

int AddCommand::main(const CommandSettings& settings) {
  readStandardInput(_fields);
  return withApp(settings, false, [this](AppDelegate& app) { _run(app); });
}

void AddCommand::readStandardInput(std::vector<std::string>& fields) {
  bool read = false;
  for (std::string& field : fields) {
    if (field != "-") continue;
    if (read) throw std::runtime_error("only one field can be read from standard input (-)");
    field.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    if (!field.empty() && field.back() == '\n') field.pop_back();
    if (!field.empty() && field.back() == '\r') field.pop_back();
    read = true;
  }
}

void AddCommand::_run(AppDelegate& app) {
  Col& col = *app.col();
  Json* model = _type ? col.models().byName(*_type) : col.models().current();
  if (!model) {
    if (_type) throw std::runtime_error("there is no note type named '" + *_type + "'");
    throw std::runtime_error("the collection has no note type");
  }
  Id did = col.decks().selected();
  if (_deck) {
    did = col.decks().getID(*_deck, false);
    if (!did) throw std::runtime_error("there is no deck named '" + *_deck + "'");
  }
  const std::string typeName = (*model)["name"].get<std::string>();
  Note note(col, *model);
  if (_fields.size() != note.fields.size())
    throw std::runtime_error("'" + typeName + "' has " + std::to_string(note.fields.size()) +
                             " fields (" + fieldNames(note) + "), but " +
                             std::to_string(_fields.size()) + " were given");
  // Bytes that aren't UTF-8 never reach the stored note or the collection's tag list.
  for (size_t i = 0; i < _fields.size(); ++i)
    if (!icutext::isValidUtf8(_fields[i]))
      throw std::runtime_error("field " + std::to_string(i + 1) + " isn't valid UTF-8 text");
  if (!icutext::isValidUtf8(_tags)) throw std::runtime_error("the tags aren't valid UTF-8 text");
  note.fields = _fields;
  note.setTagsFromStr(_tags);
  // The editor's way: new cards go to the note type's deck, which is the one chosen.
  const Json oldDid = model->contains("did") ? (*model)["did"] : Json();
  (*model)["did"] = did;
  const bool duplicate = note.dupeOrEmpty() == 2;
  const int cards = col.addNote(note);
  if (oldDid.is_null())
    model->erase("did");
  else
    (*model)["did"] = oldDid;
  if (!cards) throw std::runtime_error("This note would not generate any cards.");
  col.save();
  if (duplicate)
    std::fprintf(stderr, "rivo: note: another '%s' note has the same first field\n",
                 typeName.c_str());
  std::printf("%lld\t%d\n", static_cast<long long>(note.id), cards);
}

}  // namespace rivo
