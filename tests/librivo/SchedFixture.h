#pragma once
// A collection on day 100, with the pinned clock at noon of that day: the day began 12 hours
// ago and ends 12 hours from now. Cards are written and read back with plain SQL, so that what
// a test compares is what the file holds.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "librivo/Card.h"
#include "librivo/DeckManager.h"
#include "librivo/Scheduler.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo::test {

inline constexpr int64_t kNow = 1773144000;
inline constexpr int64_t kToday = 100;
inline constexpr int64_t kCrt = kNow - kToday * 86400 - 43200;
inline constexpr int64_t kCutoff = kNow + 43200;

// The scheduling columns of a card row.
struct Cols {
  int64_t type = 0, queue = 0, due = 0, ivl = 0, factor = 0, reps = 0, lapses = 0, left = 0,
          odue = 0;
  bool operator==(const Cols&) const = default;
  friend void PrintTo(const Cols& c, std::ostream* os) {
    *os << "{type " << c.type << ", queue " << c.queue << ", due " << c.due << ", ivl " << c.ivl
        << ", factor " << c.factor << ", reps " << c.reps << ", lapses " << c.lapses << ", left "
        << c.left << ", odue " << c.odue << "}";
  }
};

// A revlog row, all nine columns.
struct Log {
  int64_t id = 0, cid = 0, usn = 0, ease = 0, ivl = 0, lastIvl = 0, factor = 0, time = 0, type = 0;
  bool operator==(const Log&) const = default;
  friend void PrintTo(const Log& l, std::ostream* os) {
    *os << "{id " << l.id << ", cid " << l.cid << ", usn " << l.usn << ", ease " << l.ease
        << ", ivl " << l.ivl << ", lastIvl " << l.lastIvl << ", factor " << l.factor << ", time "
        << l.time << ", type " << l.type << "}";
  }
};

class SchedTest : public CollectionTest {
 protected:
  void SetUp() override {
    CollectionTest::SetUp();
    col->setCrt(kCrt);
    col->reset();
    ASSERT_EQ(sched().today(), kToday);
    ASSERT_EQ(sched().dayCutOff(), kCutoff);
  }

  Scheduler& sched() { return col->sched(); }
  Json& group(const Json& id = "1") { return *col->decks().getConf(id); }
  Json& deck(Id did) { return *col->decks().getDeck(did); }

  // A deck with an option group of its own, a copy of the defaults with these daily limits.
  Id deckWithLimits(const std::string& name, int newPerDay, int revPerDay) {
    DeckManager& dm = col->decks();
    const Id did = dm.getID(name);
    const Id gid = dm.confIdForName(name);
    (*dm.getConf(gid))["new"]["perDay"] = newPerDay;
    (*dm.getConf(gid))["rev"]["perDay"] = revPerDay;
    dm.setConf(*dm.getDeck(did), gid);
    return did;
  }

  // A note of the two-sided type; the scheduler reads only its id and tags.
  Id addNote() {
    const Id nid = nextId++;
    std::string guid = "g";
    guid += std::to_string(nid);
    col->db()->run("insert into notes values (?, ?, ?, 100, 5, '  ', ?, '', 0, 0, '')",
                   {nid, guid, kBasicId,
                    std::string("front\x1f"
                                "back")});
    return nid;
  }

  // A card of a note of its own (or of `nid`), with these scheduling columns.
  Id addCard(const Cols& c, Id did = 1, Id nid = 0, int ord = 0) {
    if (!nid) nid = addNote();
    const Id cid = insertCard(nid, ord);
    col->db()->run(
        "update cards set type=?, queue=?, due=?, ivl=?, factor=?, reps=?, lapses=?, left=?, "
        "odue=?, did=?, mod=555 where id=?",
        {c.type, c.queue, c.due, c.ivl, c.factor, c.reps, c.lapses, c.left, c.odue, did, cid});
    return cid;
  }
  Id addNew(Id did = 1, int64_t due = 0) { return addCard({.due = due}, did); }
  Id addReview(int64_t due, Id did = 1) {
    return addCard({.type = 2, .queue = 2, .due = due, .ivl = 10, .factor = 2500}, did);
  }

  Cols row(Id cid) {
    auto r = col->db()->first(
        "select type, queue, due, ivl, factor, reps, lapses, left, odue from cards where id=?",
        {cid});
    if (!r) return {};
    const Row& v = *r;
    return {toInt(v[0]), toInt(v[1]), toInt(v[2]), toInt(v[3]), toInt(v[4]),
            toInt(v[5]), toInt(v[6]), toInt(v[7]), toInt(v[8])};
  }
  int64_t queueOf(Id cid) { return row(cid).queue; }
  Id didOf(Id cid) { return col->db()->scalarInt("select did from cards where id=?", {cid}); }

  Log lastLog() {
    auto r = col->db()->first(
        "select id, cid, usn, ease, ivl, lastIvl, factor, time, type from revlog "
        "order by id desc limit 1");
    if (!r) return {};
    const Row& v = *r;
    return {toInt(v[0]), toInt(v[1]), toInt(v[2]), toInt(v[3]), toInt(v[4]),
            toInt(v[5]), toInt(v[6]), toInt(v[7]), toInt(v[8])};
  }
  int64_t logCount() { return col->db()->scalarInt("select count() from revlog"); }

  // Answers the card as its row stands, shown 4 seconds earlier. The clock first moves on by
  // 2 ms, within the same second, so that two answers never share a log id.
  std::unique_ptr<Card> answer(Id cid, int ease) {
    clock.advance(0.002);
    auto card = col->getCard(cid);
    card->timerStarted = intTime(1000) - 4000;
    sched().answerCard(*card, ease);
    return card;
  }

  // [day, count] of a daily counter of a deck, as held in memory.
  std::pair<int64_t, int64_t> counter(Id did, const char* key) {
    const Json& c = deck(did)[key];
    return {jsonInt(c[0]), jsonInt(c[1])};
  }
};

}  // namespace rivo::test
