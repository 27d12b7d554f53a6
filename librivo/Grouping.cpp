#include "librivo/Grouping.h"

#include <unicode/unistr.h>

#include "librivo/IcuText.h"

namespace rivo {

bool caseInsensitiveLess(const std::string& a, const std::string& b) {
  return icutext::utf16(a).caseCompare(icutext::utf16(b), U_FOLD_CASE_DEFAULT) < 0;
}

}  // namespace rivo
