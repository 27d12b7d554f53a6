#pragma once
// A launched application with its screens over a FakeUi, and helpers to act as the page does.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "app/AppDelegate.h"
#include "app/NavigationController.h"
#include "tests/app/FakeUi.h"
#include "tests/support/TempDir.h"

namespace rivo::test {

class ScreenFixture : public ::testing::Test {
 protected:
  void SetUp() override { launch(); }

  void launch() {
    app.reset();
    AppDelegate::Options o;
    o.dataDir = dir.file("data");
    o.handleSignals = false;
    o.popupDuration = 0.01;
    o.screens = true;
    app = std::make_unique<AppDelegate>(ui, o);
    app->launch();
    settle();
    ui.events.clear();
  }

  // Runs the main loop until no job is queued or running and the delayed loads have started.
  void settle() {
    using namespace std::chrono_literals;
    for (int quiet = 0; quiet < 3;) {
      app->dispatch().main().runUntil([] { return false; }, 15ms);
      bool idle = !app->dispatch().work().busy() && app->spinnerMessages().empty();
      quiet = idle ? quiet + 1 : 0;
    }
  }

  // What the page would send: an event on the screen shown now. False when refused.
  bool send(const std::string& element, const std::string& id = "", const std::string& kind = "",
            const Json& value = nullptr) {
    bool ok = app->nc()->dispatch(ui.screen["id"].get<uint64_t>(), {element, id, kind, value});
    settle();
    return ok;
  }

  // The shown rows' ids, section after section.
  std::vector<std::string> rowIds() const {
    std::vector<std::string> out;
    for (const auto& section : ui.screen["sections"])
      for (const auto& row : section["rows"]) out.push_back(row["id"]);
    return out;
  }
  Json row(const std::string& id) const {
    for (const auto& section : ui.screen["sections"])
      for (const auto& r : section["rows"])
        if (r["id"] == id) return r;
    return nullptr;
  }

  SavedEnv tmpdir{"TMPDIR"};
  TempDir dir;
  FakeUi ui;
  std::unique_ptr<AppDelegate> app;
};

}  // namespace rivo::test
