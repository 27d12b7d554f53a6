#pragma once
// Writes a large, realistic collection for benchmarks: notes, cards in every queue, a deck
// tree, tags and years of review history.

#include <cstdint>
#include <functional>
#include <string>

namespace rivo {

class Col;

struct GeneratorOptions {
  int64_t notes = 100000;
  int64_t cards = 200000;
  int64_t decks = 500;
  int64_t revlog = 1000000;
  uint64_t seed = 42;
};

struct GeneratorReport {
  int64_t notes = 0, cards = 0, decks = 0, revlog = 0, tags = 0;
};

class CollectionGenerator {
 public:
  explicit CollectionGenerator(GeneratorOptions options) : _opt(options) {}

  // Fills an open, empty collection and saves it. `progress` hears each stage's name.
  GeneratorReport fill(Col& col, const std::function<void(const std::string&)>& progress = {});

  // Makes DIR/profiles/PROFILE/collection.rivo2 (replacing one that is there) and fills it.
  GeneratorReport generate(const std::string& dataDir, const std::string& profile,
                           const std::function<void(const std::string&)>& progress = {});

 private:
  GeneratorOptions _opt;
};

}  // namespace rivo
