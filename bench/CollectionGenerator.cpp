#include "bench/CollectionGenerator.h"

#include <algorithm>
#include <filesystem>
#include <random>
#include <vector>

#include "librivo/Checksum.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/FieldText.h"
#include "librivo/ModelManager.h"
#include "librivo/Random.h"
#include "librivo/Storage.h"
#include "librivo/TagManager.h"

namespace rivo {

namespace {

const char* const kWords[] = {"house",   "water",   "light",    "river",    "stone",   "bread",
                              "cloud",   "green",   "night",    "music",    "table",   "window",
                              "garden",  "letter",  "mountain", "question", "answer",  "morning",
                              "evening", "journey", "picture",  "kitchen",  "teacher", "number",
                              "colour",  "animal",  "winter",   "summer",   "forest",  "island",
                              "bridge",  "market",  "friend",   "family",   "school"};
constexpr int kWordCount = sizeof(kWords) / sizeof(kWords[0]);

class Rng {
 public:
  explicit Rng(uint64_t seed) : _g(seed) {}
  int64_t between(int64_t lo, int64_t hi) {  // inclusive
    return std::uniform_int_distribution<int64_t>(lo, hi)(_g);
  }
  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(_g) < p; }
  std::string word() { return kWords[between(0, kWordCount - 1)]; }
  std::string words(int n) {
    std::string s;
    for (int i = 0; i < n; ++i) s += (i ? " " : "") + word();
    return s;
  }

 private:
  std::mt19937_64 _g;
};

// A field as people write them: mostly words, now and then markup, an image or a sound.
std::string fieldText(Rng& rng) {
  std::string text = rng.words(static_cast<int>(rng.between(1, 6)));
  switch (rng.between(0, 9)) {
    case 0:
      return "<b>" + text + "</b>";
    case 1:
      return "<div>" + text + "</div><div>" + rng.word() + "</div>";
    case 2:
      return text + "<br><img src=\"" + rng.word() + ".jpg\">";
    case 3:
      return text + " [sound:" + rng.word() + ".mp3]";
    case 4:
      return text + " &amp; " + rng.word();
    default:
      return text;
  }
}

std::vector<std::string> deckNames(int64_t count) {
  // Breadth first: ten subjects, units under them, lessons under units, until `count`.
  std::vector<std::string> names;
  std::vector<std::string> level;
  for (int i = 1; i <= 10 && static_cast<int64_t>(names.size()) < count; ++i) {
    names.push_back("Subject " + std::to_string(i));
    level.push_back(names.back());
  }
  const char* kinds[] = {"Unit", "Lesson", "Part", "Step"};
  for (int depth = 0; static_cast<int64_t>(names.size()) < count && depth < 4; ++depth) {
    std::vector<std::string> next;
    int perParent = depth == 0 ? 7 : 6;
    for (const std::string& parent : level) {
      for (int i = 1; i <= perParent && static_cast<int64_t>(names.size()) < count; ++i) {
        names.push_back(parent + "::" + kinds[depth] + " " + std::to_string(i));
        next.push_back(names.back());
      }
    }
    level = std::move(next);
  }
  return names;
}

}  // namespace

GeneratorReport CollectionGenerator::fill(Col& col,
                                          const std::function<void(const std::string&)>& progress) {
  auto say = [&](const std::string& s) {
    if (progress) progress(s);
  };
  Rng rng(_opt.seed);
  GeneratorReport report;
  DB& db = *col.db();
  const int64_t now = intTime(1);
  const int64_t crt = now - 3 * 365 * 86400 - (now % 86400) + 4 * 3600;
  col.setCrt(crt);
  const int64_t today = (now - crt) / 86400;

  // The standard note types: those of a new collection, else made here.
  say("note types");
  ModelManager& mm = col.models();
  if (!mm.byName("Basic") || !mm.byName("Basic (and reversed card)") || !mm.byName("Cloze"))
    mm.addStandardModels();
  auto idOf = [&](const char* name) { return jsonInt((*mm.byName(name))["id"]); };
  const int64_t midBasic = idOf("Basic"), midRev = idOf("Basic (and reversed card)"),
                midCloze = idOf("Cloze");
  // Fields sit where the real types put them; the sort field is each type's own.
  const int sortBasic = ModelManager::sortIdx(*mm.get(midBasic));
  const int sortRev = ModelManager::sortIdx(*mm.get(midRev));
  const int sortCloze = ModelManager::sortIdx(*mm.get(midCloze));
  mm.setCurrent(*mm.get(midBasic));
  // Keeps the buried cards buried across opens, as a collection from elsewhere may.
  col.conf()["newBury"] = true;
  col.conf()["lastUnburied"] = today;

  // Decks.
  say("decks");
  Json& decks = col.decks().decks();
  std::vector<int64_t> leafDecks;
  std::vector<std::string> names = deckNames(std::max<int64_t>(0, _opt.decks - 1));
  const int64_t deckBase = 1600000000000;
  for (size_t i = 0; i < names.size(); ++i) {
    Json deck = DeckManager::getDefaultDeck();
    int64_t id = deckBase + static_cast<int64_t>(i);
    deck["id"] = id;
    deck["name"] = names[i];
    deck["mod"] = now;
    decks[std::to_string(id)] = deck;
  }
  for (size_t i = 0; i < names.size(); ++i) {
    bool hasChild = i + 1 < names.size() && names[i + 1].rfind(names[i] + "::", 0) == 0;
    bool parentOfLater =
        std::any_of(names.begin() + static_cast<long>(i) + 1, names.end(),
                    [&](const std::string& n) { return n.rfind(names[i] + "::", 0) == 0; });
    if (!hasChild && !parentOfLater) leafDecks.push_back(deckBase + static_cast<int64_t>(i));
  }
  if (leafDecks.empty()) leafDecks.push_back(1);
  col.decks().save();
  report.decks = static_cast<int64_t>(decks.size());

  // Tags.
  std::vector<std::string> tagNames;
  for (int i = 0; i < 60; ++i)
    tagNames.push_back(std::string(kWords[i % kWordCount]) + "_" + std::to_string(i / kWordCount));
  for (const std::string& t : tagNames) col.tags().allItems()[t] = 0;
  col.tags().save();
  report.tags = static_cast<int64_t>(tagNames.size());

  // Notes and cards.
  say("notes and cards");
  std::vector<Row> noteRows, cardRows;
  noteRows.reserve(static_cast<size_t>(_opt.notes));
  cardRows.reserve(static_cast<size_t>(_opt.cards));
  std::vector<int64_t> reviewCards;
  const int64_t noteBase = (now - 3 * 365 * 86400) * 1000;
  int64_t cardsLeft = _opt.cards;
  int64_t clozeNotesLeft = (_opt.notes + 4) / 5;
  int64_t position = 1;
  int64_t cardId = noteBase;
  for (int64_t i = 0; i < _opt.notes; ++i) {
    int64_t notesLeft = _opt.notes - i;
    int kind = static_cast<int>(i % 10);
    int64_t mid;
    int64_t n;
    std::vector<std::string> fields;
    if (kind < 4 || (kind < 8 && cardsLeft < notesLeft * 2)) {
      mid = midBasic, n = 1;
      fields = {fieldText(rng), fieldText(rng)};
    } else if (kind < 8) {
      mid = midRev, n = 2;
      fields = {fieldText(rng), fieldText(rng)};
    } else {
      mid = midCloze;
      int64_t otherNotes = notesLeft - 1;
      n = clozeNotesLeft > 0 ? (cardsLeft - otherNotes) / clozeNotesLeft : 1;
      n = std::clamp<int64_t>(n, 1, 20);
      --clozeNotesLeft;
      std::string text;
      for (int64_t c = 1; c <= n; ++c)
        text += rng.words(2) + " {{c" + std::to_string(c) + "::" + rng.word() + "}} ";
      fields = {text, fieldText(rng)};
    }
    if (i == _opt.notes - 1) n = std::max<int64_t>(1, cardsLeft);  // exact total
    if (mid != midCloze) n = std::min<int64_t>(n, mid == midRev ? 2 : 1);
    if (i == _opt.notes - 1 && n < cardsLeft) {
      // Top up with a cloze note so the total comes out exact.
      mid = midCloze;
      n = cardsLeft;
      std::string text;
      for (int64_t c = 1; c <= n; ++c)
        text += "{{c" + std::to_string(c) + "::" + rng.word() + "}} ";
      fields = {text, ""};
    }
    cardsLeft -= n;
    const int sortf = mid == midCloze ? sortCloze : mid == midRev ? sortRev : sortBasic;

    int64_t nid = noteBase + i;
    std::string tags;
    int tagCount = static_cast<int>(rng.between(0, 3));
    for (int t = 0; t < tagCount; ++t) tags += " " + tagNames[rng.between(0, 59)];
    if (!tags.empty()) tags += " ";
    int64_t noteMod = now - rng.between(0, 3 * 365 * 86400);
    noteRows.push_back({nid, guid64(), mid, noteMod, int64_t{rng.chance(0.02) ? -1 : 0}, tags,
                        joinFields(fields), stripHTML(fields[static_cast<size_t>(sortf)]),
                        fieldChecksum(fields[0]), int64_t{0}, std::string()});
    int64_t did =
        leafDecks[static_cast<size_t>(rng.between(0, static_cast<int64_t>(leafDecks.size()) - 1))];
    for (int64_t ord = 0; ord < n; ++ord) {
      int64_t id = ++cardId;
      int type = 0, queue = 0, factor = 0, reps = 0, lapses = 0, left = 0;
      int64_t due = position, ivl = 0;
      int64_t roll = rng.between(0, 99);
      if (roll < 30) {         // new
      } else if (roll < 32) {  // learning today
        type = 1, queue = 1, due = now + rng.between(-600, 3600), left = 1002, reps = 1;
        factor = 2500;
      } else if (roll < 33) {  // learning, due on a later day
        type = 1, queue = 3, due = today + rng.between(0, 2), left = 1001, reps = 2;
        factor = 2500;
      } else {
        type = 2, queue = 2, ivl = rng.between(1, 400);
        due = today + rng.between(-30, ivl);
        factor = static_cast<int>(rng.between(1300, 3500));
        reps = static_cast<int>(rng.between(1, 40));
        lapses = static_cast<int>(rng.between(0, 5));
        if (roll >= 93 && roll < 97)
          queue = -1;
        else if (roll >= 97)
          queue = -2;
        reviewCards.push_back(id);
      }
      cardRows.push_back({id, nid, did, ord, noteMod, int64_t{0}, int64_t{type}, int64_t{queue},
                          due, ivl, int64_t{factor}, int64_t{reps}, int64_t{lapses}, int64_t{left},
                          int64_t{0}, int64_t{0}, int64_t{0}, std::string()});
    }
    ++position;
  }
  db.executeMany("insert into notes values (?,?,?,?,?,?,?,?,?,?,?)", noteRows);
  db.executeMany("insert into cards values (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                 cardRows);
  report.notes = static_cast<int64_t>(noteRows.size());
  report.cards = static_cast<int64_t>(cardRows.size());
  col.conf()["nextPos"] = position;
  noteRows.clear();
  noteRows.shrink_to_fit();
  cardRows.clear();
  cardRows.shrink_to_fit();

  // Review history over the past years, in time order.
  say("review history");
  if (!reviewCards.empty() && _opt.revlog > 0) {
    std::vector<Row> rows;
    rows.reserve(static_cast<size_t>(std::min<int64_t>(_opt.revlog, 200000)));
    int64_t start = (now - 3 * 365 * 86400) * 1000;
    int64_t step = std::max<int64_t>(1, (now * 1000 - start) / _opt.revlog);
    for (int64_t r = 0; r < _opt.revlog; ++r) {
      int64_t id = start + r * step + rng.between(0, step - 1);
      int64_t cid = reviewCards[static_cast<size_t>(
          rng.between(0, static_cast<int64_t>(reviewCards.size()) - 1))];
      int64_t ease = rng.between(1, 4);
      int64_t lastIvl = rng.between(-600, 200);
      int64_t ivl = ease == 1 ? -600 : rng.between(1, 300);
      rows.push_back({id, cid, int64_t{0}, ease, ivl, lastIvl, rng.between(1300, 3500),
                      rng.between(1500, 60000), rng.between(0, 2)});
      if (rows.size() == rows.capacity()) {
        db.executeMany("insert into revlog values (?,?,?,?,?,?,?,?,?)", rows);
        rows.clear();
      }
    }
    db.executeMany("insert into revlog values (?,?,?,?,?,?,?,?,?)", rows);
    report.revlog = _opt.revlog;
  }

  say("saving");
  col.setMod();
  col.save();
  return report;
}

GeneratorReport CollectionGenerator::generate(
    const std::string& dataDir, const std::string& profile,
    const std::function<void(const std::string&)>& progress) {
  namespace fs = std::filesystem;
  fs::path folder = fs::path(dataDir) / "profiles" / profile;
  fs::create_directories(folder);
  fs::create_directories(fs::path(dataDir) / "Documents");
  fs::path path = folder / "collection.rivo2";
  fs::remove(path);
  auto col = Storage::open(path.string(), true, false, false, {});
  if (!col) throw std::runtime_error("could not create " + path.string());
  GeneratorReport report = fill(*col, progress);
  col->close();
  return report;
}

}  // namespace rivo
