// Answers the cards of a collection, committing after each answer, and reports each answer
// on standard output ("answered CID RID") only once its commit has returned. The kill test
// stops it with SIGKILL at random moments and checks that every reported answer survived.

#include <cstdio>
#include <memory>
#include <string>

#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Scheduler.h"
#include "librivo/Storage.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: rivo-killdriver COLLECTION\n");
    return 2;
  }
  std::unique_ptr<rivo::Col> col = rivo::Storage::open(argv[1]);
  if (!col) {
    std::fprintf(stderr, "the collection can't be opened\n");
    return 1;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  std::printf("ready\n");
  rivo::Scheduler& sched = col->sched();
  for (;;) {
    std::unique_ptr<rivo::Card> card = sched.getCard();
    if (!card) {
      // Everything answered for now: the cards start over, so the driver never runs dry.
      // Said before it is committed, so that the test stops expecting the old card rows.
      std::printf("forgetting\n");
      sched.forgetCards(col->db()->ids("select id from cards"));
      col->save();
      sched.reset();
      continue;
    }
    sched.answerCard(*card, 3);
    col->save();
    const int64_t rid =
        col->db()->scalarInt("select max(id) from revlog where cid = ?", {card->id});
    std::printf("answered %lld %lld\n", static_cast<long long>(card->id),
                static_cast<long long>(rid));
  }
}
