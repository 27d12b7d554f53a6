#include "app/DynDeckOptions.h"

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "librivo/Col.h"
#include "librivo/DeckManager.h"

namespace rivo {

namespace {

std::string numberText(const Json& n) {
  if (n.is_number_integer()) return std::to_string(n.get<int64_t>());
  if (n.is_number_unsigned()) return std::to_string(n.get<uint64_t>());
  if (n.is_number_float()) {
    const double d = n.get<double>();
    if (d == std::floor(d) && std::fabs(d) < 1e15) return std::to_string(static_cast<int64_t>(d));
    std::string s = std::to_string(d);
    s.erase(s.find_last_not_of('0') + 1);
    return s;
  }
  return {};
}

}  // namespace

DynDeckOptions DynDeckOptions::load(const Json& deck) {
  DynDeckOptions o;
  const Json* term = nullptr;
  if (deck.contains("terms") && deck["terms"].is_array() && !deck["terms"].empty())
    term = &deck["terms"][0];
  if (term && term->is_array() && term->size() >= 3) {
    if ((*term)[0].is_string()) o.search = (*term)[0].get<std::string>();
    o.limitText = numberText((*term)[1]);
    o.order = static_cast<int>(jsonInt((*term)[2]));
  }
  const auto delays = deck.find("delays");
  if (delays == deck.end() || delays->is_null()) {
    o.customSteps = false;
    o.stepsText = "1 10";
  } else {
    o.customSteps = true;
    o.stepsText = listToUser(*delays);
  }
  const auto resched = deck.find("resched");
  o.resched = resched != deck.end() &&
              (resched->is_boolean() ? resched->get<bool>()
                                     : resched->is_number() && resched->get<double>() != 0);
  return o;
}

std::optional<DynDeckAlert> DynDeckOptions::save(Col& col, Json& deck) const {
  Json delays;
  if (customSteps) {
    DynDeckAlert alert;
    std::optional<Json> steps = userToList(stepsText, &alert);
    if (!steps) return alert;
    delays = std::move(*steps);
  }
  deck["delays"] = delays;
  Json& terms = deck["terms"];
  if (!terms.is_array()) terms = Json::array();
  Json term = Json::array({search, intValue(limitText), order});
  if (terms.empty())
    terms.push_back(term);
  else
    terms[0] = term;
  deck["resched"] = resched;
  col.decks().save(&deck);
  return std::nullopt;
}

std::string DynDeckOptions::listToUser(const Json& list) {
  std::string out;
  if (!list.is_array()) return out;
  for (const Json& n : list) {
    if (!out.empty()) out += ' ';
    out += numberText(n);
  }
  return out;
}

std::optional<Json> DynDeckOptions::userToList(const std::string& text, DynDeckAlert* alert) {
  auto refuse = [alert](const char* message) -> std::optional<Json> {
    if (alert) *alert = {"Invalid step", message};
    return std::nullopt;
  };
  Json out = Json::array();
  // Every whitespace character splits, so two in a row leave an empty part that is no number.
  size_t start = 0;
  for (;;) {
    size_t end = start;
    while (end < text.size() && !std::isspace(static_cast<unsigned char>(text[end]))) ++end;
    const std::string part = text.substr(start, end - start);
    char* stop = nullptr;
    const double d = part.empty() ? 0 : std::strtod(part.c_str(), &stop);
    if (part.empty() || *stop != '\0' || !std::isfinite(d)) return refuse("Steps must be numbers.");
    if (d == std::floor(d) && std::fabs(d) < 1e15)
      out.push_back(static_cast<int64_t>(d));
    else
      out.push_back(d);
    if (end >= text.size()) break;
    start = end + 1;
  }
  if (out.empty()) return refuse("At least one step is required.");
  return out;
}

int DynDeckOptions::intValue(const std::string& text) {
  size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t value = 0;
  for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > INT_MAX) return negative ? INT_MIN : INT_MAX;
  }
  return static_cast<int>(negative ? -value : value);
}

}  // namespace rivo
