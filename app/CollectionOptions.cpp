#include "app/CollectionOptions.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <memory>

#include "app/AppDelegate.h"
#include "app/RVConfigTableController.h"
#include "librivo/Col.h"

namespace rivo {

int CollectionOptions::crtHour(int64_t crt) {
  std::time_t t = static_cast<std::time_t>(crt);
  std::tm local{};
  localtime_r(&t, &local);
  return local.tm_hour;
}

void CollectionOptions::setCrtFromHour(Col& col, int hour) {
  col.setCrt(col.crt() + static_cast<int64_t>(hour - crtHour(col.crt())) * 3600);
  col.setMod();
  col.save();
}

void CollectionOptions::setupConfigTable(RVConfigTableController& table) {
  AppDelegate& app = _app;
  table.title = "Scheduling";

  auto order = std::make_shared<RVConfigTableRow>();
  order->kind = RVConfigTableRow::Kind::enumeration;
  order->title = "New/Review Order";
  order->getData = [&app] {
    return RVConfigTableRow::EnumData{
        {"Mix", "Reviews first", "New first"},
        static_cast<int>(jsonNumberInt(app.col()->conf()["newSpread"]))};
  };
  order->setIdx = [&app](int idx) {
    Col& col = *app.col();
    col.conf()["newSpread"] = idx;
    col.setMod();
    col.save();
  };

  auto dayStarts = std::make_shared<RVConfigTableRow>();
  dayStarts->kind = RVConfigTableRow::Kind::enumeration;
  dayStarts->title = "Day Starts";
  dayStarts->getData = [&app] {
    RVConfigTableRow::EnumData data;
    for (int h = 0; h < 24; ++h) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "%02d:00", h);
      data.choices.push_back(buf);
    }
    data.idx = crtHour(app.col()->crt());
    return data;
  };
  dayStarts->setIdx = [&app](int hour) { setCrtFromHour(*app.col(), hour); };

  auto learnAhead = std::make_shared<RVConfigTableRow>();
  learnAhead->kind = RVConfigTableRow::Kind::edit;
  learnAhead->title = "Learn Ahead Minutes";
  learnAhead->keyboardType = "number";
  learnAhead->getTxt = [&app] {
    return std::to_string(jsonNumberInt(app.col()->conf()["collapseTime"]) / 60);
  };
  learnAhead->txtIsValid = [](const std::string& t) {
    return RVConfigTableController::numberFromText(t).has_value();
  };
  learnAhead->setTxt = [&app](const std::string& t) {
    Col& col = *app.col();
    double minutes = *RVConfigTableController::numberFromText(t);
    col.conf()["collapseTime"] = static_cast<int64_t>(std::trunc(minutes * 60));
    col.setMod();
    col.save();
  };

  table.sections = {{"Scheduling", "", {order, dayStarts, learnAhead}}};
  // The queues follow the new boundary and order.
  table.onClose = [&app] {
    if (std::shared_ptr<Col> col = app.col()) col->reset();
  };
}

}  // namespace rivo
