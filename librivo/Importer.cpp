#include "librivo/Importer.h"

#include <string>

#include "librivo/Col.h"
#include "librivo/Ids.h"

namespace rivo {

Importer::Importer(Col& col, std::string file) : _file(std::move(file)), _col(col) {}

void Importer::_prepareTS() {
  _ts = std::stoll(maxID(*(_dst ? _dst : &_col)->db()));
}

}  // namespace rivo
