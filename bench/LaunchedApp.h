// The application launched on a data folder as `rivo` launches it, with the screens on and no
// signal handling, for benchmarks that drive it without a browser. Main thread only.
#pragma once

#include <memory>
#include <string>

#include "app/AppDelegate.h"
#include "shell/BrowserBridge.h"

namespace rivo::bench {

// The bridge must outlive the application returned; the caller closes it and shuts the
// application's dispatch down before destroying either.
std::unique_ptr<AppDelegate> launchApp(BrowserBridge& bridge, const std::string& dataDir);

}  // namespace rivo::bench
