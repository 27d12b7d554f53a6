#include "shell/ServeCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace rivo {

namespace fs = std::filesystem;

namespace {

fs::path selfPath() {
  std::error_code ec;
  return fs::read_symlink("/proc/self/exe", ec);
}

// rivo-web sits beside this program (a build folder, /usr/bin), or in ../lib/rivo from it.
std::string webProgram() {
  const fs::path dir = selfPath().parent_path();
  for (const fs::path& candidate : {dir / "rivo-web", dir.parent_path() / "lib/rivo/rivo-web"})
    if (access(candidate.c_str(), X_OK) == 0) return candidate.string();
  return {};
}

}  // namespace

CLI::App* ServeCommand::add(CLI::App& cli) {
  CLI::App* serve = cli.add_subcommand(
      "serve", "Start Rivo in the browser (what `rivo` alone does); Ctrl+C stops it.");
  serve->add_option("--port", _options.port, "port to listen on (default: a free one)")
      ->check(CLI::Range(0, 65535));
  serve->add_option("--listen", _options.listen,
                    "address to listen on (default 127.0.0.1; 0.0.0.0 lets a phone on the "
                    "network in)");
  serve->add_flag("--no-browser", _noBrowser, "don't open the browser");
  // For tests: every job waits this long under its spinner; the idle time before saving.
  serve->add_option("--job-delay", _options.jobDelay)->group("");
  serve->add_option("--idle-save", _options.idleSeconds)->group("");
  return serve;
}

int ServeCommand::main(const CommandSettings& settings) {
  _options.dataDir = settings.data;
  _options.profile = settings.profile;
  _options.openBrowser = !_noBrowser;
  if (_run) return _run(_options);
  const std::string program = webProgram();
  if (!program.empty()) execv(program.c_str(), _argv);
  return fail(
      "Rivo in the browser needs the program rivo-web, installed with rivo (looked for it "
      "beside " +
      selfPath().string() + " and in ../lib/rivo): " +
      (program.empty() ? std::string("not found") : std::strerror(errno)));
}

}  // namespace rivo
