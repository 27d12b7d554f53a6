#include "shell/StatsCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "app/AppDelegate.h"
#include "app/Resources.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/Files.h"
#include "librivo/HtmlEscape.h"
#include "librivo/Json.h"
#include "librivo/stats/CollectionStats.h"
#include "librivo/stats/RivoJS.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

int periodType(const std::string& period) {
  if (period == "year") return CollectionStats::kYear;
  if (period == "life") return CollectionStats::kLife;
  return CollectionStats::kMonth;
}

// Written beside the target and renamed over it, so a failure never leaves half a page.
void writeFile(const std::string& path, const std::string& text) {
  std::string problem;
  if (!writeFileAtomically(path, text, 0666, &problem))
    throw std::runtime_error("can't write " + path);
}

}  // namespace

void StatsCommand::run(AppDelegate& app, const Options& options) {
  Col& col = *app.col();
  // The size the statistics screen uses, which the page's layout is made for.
  CollectionStats stats(col, 260, 100);
  stats.wholeCollection = options.whole;
  const Json* current = col.decks().current();
  const std::string deck = options.whole || !current ? "Collection" : jsonText(*current, "name");
  const std::string page =
      selfContained(stats.reportOfType(periodType(options.period)), "Statistics: " + deck);
  if (options.out.empty()) {
    std::fwrite(page.data(), 1, page.size(), stdout);
    return;
  }
  writeFile(options.out, page);
  std::printf("Wrote %s\n", options.out.c_str());
}

std::string StatsCommand::selfContained(const std::string& page, const std::string& title) {
  std::string out = "<meta charset=\"utf-8\"><title>" + stringByEscapingForHTML(title) +
                    "</title>\n" + CollectionStats::kWideStyle + "\n" + page;
  for (const std::string& path :
       {RivoJS::jQuery(), RivoJS::plot(), RivoJS::pie(), RivoJS::stack()}) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string tag = "<script src=\"" + name + "\" type=\"text/javascript\"></script>";
    const size_t at = out.find(tag);
    auto script = Resources::get(path);
    if (at == std::string::npos || !script) continue;
    out.replace(at, tag.size(),
                "<script type=\"text/javascript\">" + std::string(*script) + "</script>");
  }
  return out;
}

CLI::App* StatsCommand::add(CLI::App& cli) {
  CLI::App* sub = cli.add_subcommand(
      "stats", "Write the statistics page (self-contained HTML) of the current deck or all decks.");
  sub->add_option("--period", _options.period, "month (default), year or life")
      ->check(CLI::IsMember({"month", "year", "life"}));
  sub->add_flag("--whole", _options.whole, "the whole collection, not the current deck");
  sub->add_option("--out", _options.out, "the page to write (default: standard output)");
  return sub;
}

int StatsCommand::main(const CommandSettings& settings) {
  if (!_options.out.empty()) _options.out = fs::absolute(_options.out).string();
  return withApp(settings, false, [this](AppDelegate& app) { run(app, _options); });
}

}  // namespace rivo
