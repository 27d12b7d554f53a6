#pragma once
// A collection in a temporary folder with two small note types, on a pinned clock, for the
// tests of cards, notes and tags.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "librivo/Checksum.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/FieldText.h"
#include "librivo/ModelManager.h"
#include "librivo/Storage.h"
#include "tests/support/TempDir.h"

namespace rivo::test {

// 2026-03-10 12:00:00 UTC
inline constexpr double kTestNow = 1773144000;
inline constexpr Id kBasicId = 1600000000001;
inline constexpr Id kClozeId = 1600000000002;

class CollectionTest : public ::testing::Test {
 protected:
  CollectionTest() : clock(kTestNow) {}

  void SetUp() override {
    open();
    // Two fields; Card 1 needs Front, Card 2 needs Back. The id is text, as this program
    // writes it.
    col->models().models()[std::to_string(kBasicId)] = Json::parse(R"({
      "id": "1600000000001", "name": "Two-sided", "type": 0, "sortf": 0, "did": 1,
      "tags": ["last", "used"], "flds": [{"name": "Front", "ord": 0}, {"name": "Back", "ord": 1}],
      "tmpls": [{"name": "Card 1", "ord": 0, "qfmt": "{{Front}}"},
                {"name": "Card 2", "ord": 1, "qfmt": "{{Back}}"}],
      "req": [[0, "all", [0]], [1, "any", [1]]]})");
    // The id is a number, as files from elsewhere may have it.
    col->models().models()[std::to_string(kClozeId)] = Json::parse(R"({
      "id": 1600000000002, "name": "Gaps", "type": 1, "sortf": 0, "did": 1, "tags": [],
      "flds": [{"name": "Text", "ord": 0}, {"name": "Extra", "ord": 1}],
      "tmpls": [{"name": "Cloze", "ord": 0, "qfmt": "{{cloze:Text}}"}]})");
    col->models().save();
    col->conf()["curModel"] = kBasicId;
  }

  void open() {
    col = Storage::open(path(), true, false, true, dir.path());
    ASSERT_TRUE(col);
  }
  // Saves, closes and opens the file again, so what follows reads only what was written.
  void reopen() {
    col->save();
    col->close();
    open();
  }
  std::string path() const { return dir.file("collection.rivo2"); }
  std::string debugLog() const { return readFile(dir.file("debug.log")); }
  Json& basic() { return *col->models().get(kBasicId); }

  // Rows written with plain SQL, so that a field string can be anything at all. Tests write
  // the field separator as "\037", which unlike "\x1f" can't swallow the letters after it.
  Id insertNote(const std::string& flds, Id mid = kBasicId, const std::string& tags = "  ") {
    const Id nid = nextId++;
    col->db()->run(
        "insert into notes values (?, ?, ?, 100, 5, ?, ?, '', ?, 0, '')",
        {nid, std::to_string(nid), mid, tags, flds, fieldChecksum(splitFields(flds)[0])});
    return nid;
  }
  Id insertCard(Id nid, int ord) {
    const Id cid = nextId++;
    col->db()->run("insert into cards values (?,?,1,?,0,0,0,0,0,0,0,0,0,0,0,0,0,'')",
                   {cid, nid, int64_t{ord}});
    return cid;
  }
  int64_t sqlInt(const std::string& sql, const Row& vars = {}) {
    return col->db()->scalarInt(sql, vars);
  }
  // The first row's values joined by '|', to compare a whole row at once.
  std::string rowText(const std::string& sql, const Row& vars = {}) {
    std::string out;
    for (const Value& v : col->db()->first(sql, vars).value_or(Row{})) {
      if (!out.empty()) out += '|';
      out += toText(v);
    }
    return out;
  }

  Clock::Override clock;
  TempDir dir;
  std::unique_ptr<Col> col;
  Id nextId = 1000;
};

}  // namespace rivo::test
