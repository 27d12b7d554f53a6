#include "app/Screen.h"

namespace rivo {

namespace {

const char* accessoryName(Screen::Accessory a) {
  switch (a) {
    case Screen::Accessory::push:
      return "push";
    case Screen::Accessory::expanded:
      return "expanded";
    case Screen::Accessory::collapsed:
      return "collapsed";
    case Screen::Accessory::check:
      return "check";
    case Screen::Accessory::none:
      break;
  }
  return "";
}

Json buttons(const std::vector<Screen::Button>& list) {
  Json out = Json::array();
  for (const auto& b : list) {
    Json j{{"id", b.id}, {"title", b.title}};
    if (!b.icon.empty()) j["icon"] = b.icon;
    if (!b.enabled) j["enabled"] = false;
    if (!b.accept.empty()) j["accept"] = b.accept;
    if (!b.tone.empty()) j["tone"] = b.tone;
    if (!b.detail.empty()) j["detail"] = b.detail;
    if (b.selected) j["selected"] = true;
    if (b.on) j["on"] = true;
    if (b.imageWidth) j["imageWidth"] = b.imageWidth;
    if (b.recordSeconds) j["recordSeconds"] = b.recordSeconds;
    out.push_back(std::move(j));
  }
  return out;
}

// Only what differs from a plain row is written: a deck list has thousands of rows.
Json row(const Screen::Row& r) {
  Json j{{"id", r.id}, {"text", r.text}};
  if (!r.detail.empty()) j["detail"] = r.detail;
  if (r.indent) j["indent"] = r.indent;
  if (r.accessory != Screen::Accessory::none) j["accessory"] = accessoryName(r.accessory);
  if (!r.counts.empty()) {
    Json counts = Json::array();
    for (const auto& c : r.counts) counts.push_back({{"text", c.text}, {"tone", c.tone}});
    j["counts"] = std::move(counts);
  }
  if (!r.tone.empty()) j["tone"] = r.tone;
  if (!r.selectable) j["selectable"] = false;
  if (r.canDelete) j["canDelete"] = true;
  if (r.hasMenu) j["hasMenu"] = true;
  if (r.hasField) {
    j["field"] = r.field;
    if (!r.keyboard.empty()) j["keyboard"] = r.keyboard;
  }
  if (r.hasSlider)
    j["slider"] = {{"min", r.min},     {"max", r.max},           {"step", r.step},
                   {"value", r.value}, {"decimals", r.decimals}, {"unit", r.unit}};
  if (r.hasSwitch) j["switch"] = r.on;
  if (r.lines) j["lines"] = r.lines;
  return j;
}

Json counts(const std::vector<Screen::Count>& list) {
  Json out = Json::array();
  for (const auto& c : list) {
    Json j{{"text", c.text}, {"tone", c.tone}};
    if (!c.colour.empty()) j["colour"] = c.colour;
    if (c.underline) j["underline"] = true;
    out.push_back(std::move(j));
  }
  return out;
}

// What a screen adds around its web view; nothing for a plain page.
void webExtras(const Screen& s, Json& j) {
  if (!s.status.empty()) j["status"] = counts(s.status);
  if (!s.actions.empty()) j["actions"] = buttons(s.actions);
  for (const auto& control : s.controls) j["controls"].push_back(buttons(control));
  if (s.bigActions) j["bigActions"] = true;
  if (!s.badge.empty()) j["badge"] = s.badge;
  if (s.flashSeq) j["flash"] = {{"icon", s.flash}, {"seq", s.flashSeq}};
  if (s.field.shown)
    j["field"] = {{"text", s.field.text},         {"placeholder", s.field.placeholder},
                  {"font", s.field.font},         {"size", s.field.size},
                  {"focusSeq", s.field.focusSeq}, {"blurSeq", s.field.blurSeq}};
  if (s.pad.shown)
    j["pad"] = {{"clearSeq", s.pad.clearSeq},
                {"forceFactor", s.pad.forceFactor},
                {"extraWidth", s.pad.extraWidth}};
}

}  // namespace

Json Screen::toJson() const {
  Json j{{"title", title},
         {"left", buttons(left)},
         {"right", buttons(right)},
         {"toolbar", buttons(toolbar)}};
  if (titleIsButton) j["titleIsButton"] = true;
  if (refreshable) j["refreshable"] = true;
  if (!emptyText.empty()) j["emptyText"] = emptyText;
  if (search.shown)
    j["search"] = {
        {"text", search.text}, {"placeholder", search.placeholder}, {"focusSeq", search.focusSeq}};
  if (hasMore) j["hasMore"] = true;
  if (navBarHidden) j["navBarHidden"] = true;
  if (modal) j["modal"] = true;
  if (progress.shown) {
    j["progress"] = {{"text", progress.text}, {"activity", progress.activity}};
    if (progress.fraction >= 0) j["progress"]["fraction"] = progress.fraction;
    if (!progress.up.empty()) j["progress"]["up"] = progress.up;
    if (!progress.down.empty()) j["progress"]["down"] = progress.down;
  }
  if (!segments.empty()) j["segments"] = buttons(segments);
  if (!keys.empty()) {
    Json list = Json::array();
    for (const auto& k : keys) list.push_back({{"key", k.key}, {"id", k.id}, {"title", k.title}});
    j["keys"] = std::move(list);
  }
  if (!webView.empty()) {
    j["webView"] = webView;
    webExtras(*this, j);
    return j;
  }
  Json list = Json::array();
  for (const auto& s : sections) {
    Json rows = Json::array();
    for (const auto& r : s.rows) rows.push_back(row(r));
    Json section{{"rows", std::move(rows)}};
    if (!s.title.empty()) section["title"] = s.title;
    if (!s.footer.empty()) section["footer"] = s.footer;
    list.push_back(std::move(section));
  }
  j["sections"] = std::move(list);
  return j;
}

}  // namespace rivo
