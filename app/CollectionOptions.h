#pragma once
// The scheduling options of the whole collection: the mixing of new cards and reviews
// ("newSpread"), the hour the day starts (kept inside the creation time `crt`) and the
// learn-ahead time ("collapseTime"). Each row writes and saves at once. Main loop only.

#include <cstdint>

#include "app/RVConfigTableDelegate.h"

namespace rivo {

class AppDelegate;
class Col;

class CollectionOptions : public RVConfigTableDelegate {
 public:
  explicit CollectionOptions(AppDelegate& app) : _app(app) {}

  void setupConfigTable(RVConfigTableController& table) override;

  // The local hour of `crt`.
  static int crtHour(int64_t crt);
  // Moves `crt` to the given hour of its own day; marks and saves the collection.
  static void setCrtFromHour(Col& col, int hour);

 private:
  AppDelegate& _app;
};

}  // namespace rivo
