#include "librivo/Exporter.h"

#include <cerrno>
#include <cstring>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Ids.h"

namespace rivo {

Exporter::Exporter(Col& col, std::optional<Id> did) : _col(col), _did(did) {}

bool Exporter::exportInto(const std::string& path, std::string* error) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (!file) {
    if (error) *error = path + " can't be written: " + std::strerror(errno) + ".";
    return false;
  }
  doExport(file);
  const bool ok = std::fclose(file) == 0;
  if (!ok && error) *error = path + " can't be written: " + std::strerror(errno) + ".";
  return ok;
}

std::string Exporter::escapeText(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '\n')
      out += "<br>";
    else if (c == '\t')
      out += "        ";
    else
      out += c;
  }
  return out;
}

std::vector<Id> Exporter::deckIds() {
  std::vector<Id> out;
  if (!_did) return out;
  out.push_back(*_did);
  for (const auto& [name, id] : _col.decks().children(Json(*_did))) out.push_back(id);
  return out;
}

std::vector<Id> Exporter::cardIds() {
  std::vector<Value> rows;
  if (_did)
    rows =
        _col.db()->list("select id from cards where (case when odid then odid else did end) in " +
                        ids2str(deckIds()));
  else
    rows = _col.db()->list("select id from cards");
  std::vector<Id> out;
  out.reserve(rows.size());
  for (const Value& v : rows) out.push_back(toInt(v));
  _count = static_cast<int64_t>(out.size());
  return out;
}

}  // namespace rivo
