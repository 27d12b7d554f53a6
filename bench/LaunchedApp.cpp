#include "bench/LaunchedApp.h"

namespace rivo::bench {

std::unique_ptr<AppDelegate> launchApp(BrowserBridge& bridge, const std::string& dataDir) {
  AppDelegate::Options o;
  o.dataDir = dataDir;
  o.handleSignals = false;
  o.screens = true;
  auto app = std::make_unique<AppDelegate>(bridge, o);
  bridge.attach(*app);
  app->launch();
  return app;
}

}  // namespace rivo::bench
