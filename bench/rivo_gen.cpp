// rivo-gen: writes a large generated collection into a data directory, for benchmarks.
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>

#include "bench/CollectionGenerator.h"
#include "librivo/DB.h"

int main(int argc, char** argv) {
  CLI::App app{"Write a large generated collection into DIR/profiles/PROFILE for benchmarks."};
  std::string data, profile = "User 1";
  rivo::GeneratorOptions opt;
  bool check = false;
  app.add_option("--data", data, "data directory")->required();
  app.add_option("--profile", profile, "profile name");
  app.add_option("--notes", opt.notes, "number of notes")->check(CLI::NonNegativeNumber);
  app.add_option("--cards", opt.cards, "number of cards")->check(CLI::NonNegativeNumber);
  app.add_option("--decks", opt.decks, "number of decks")->check(CLI::NonNegativeNumber);
  app.add_option("--revlog", opt.revlog, "number of review rows")->check(CLI::NonNegativeNumber);
  app.add_option("--seed", opt.seed, "random seed");
  app.add_flag("--check", check, "run an integrity check afterwards");
  CLI11_PARSE(app, argc, argv);
  try {
    auto start = std::chrono::steady_clock::now();
    rivo::CollectionGenerator gen(opt);
    auto report = gen.generate(data, profile, [](const std::string& stage) {
      std::fprintf(stderr, "%s...\n", stage.c_str());
    });
    double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%lld notes, %lld cards, %lld decks, %lld review rows, %lld tags in %.1f s\n",
                static_cast<long long>(report.notes), static_cast<long long>(report.cards),
                static_cast<long long>(report.decks), static_cast<long long>(report.revlog),
                static_cast<long long>(report.tags), secs);
    if (check) {
      rivo::DB db(data + "/profiles/" + profile + "/collection.rivo2");
      auto v = db.scalar("pragma integrity_check");
      std::string result = v ? rivo::toText(*v) : "no answer";
      std::printf("integrity_check: %s\n", result.c_str());
      if (result != "ok") return 1;
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "rivo-gen: %s\n", e.what());
    return 1;
  }
  return 0;
}
