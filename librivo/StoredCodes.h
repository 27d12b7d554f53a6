#pragma once
// Codes the collection file stores as numbers. Other devices read the same file and sync the
// same rows, so these values never change. SQL text keeps the numbers themselves, as the
// comment beside each query says; the C++ around it uses these names.
//
//   cards.queue   0 new, 1 learning due today, 2 review, 3 learning due on a later day,
//                 -1 suspended, -2 buried
//   cards.type    0 new, 1 learning, 2 review (also while a lapsed card is relearnt)
//   revlog.type   0 learning, 1 review, 2 relearning, 3 learning or relearning in a filtered deck
//   graves.type   0 card, 1 note, 2 deck
//   a note type's "type" key   0 standard, 1 cloze

namespace rivo {

inline constexpr int kQueueBuried = -2;
inline constexpr int kQueueSuspended = -1;
inline constexpr int kQueueNew = 0;
inline constexpr int kQueueLearning = 1;
inline constexpr int kQueueReview = 2;
inline constexpr int kQueueDayLearning = 3;

inline constexpr int kTypeNew = 0;
inline constexpr int kTypeLearning = 1;
inline constexpr int kTypeReview = 2;

inline constexpr int kRevlogLearning = 0;
inline constexpr int kRevlogReview = 1;
inline constexpr int kRevlogRelearning = 2;
inline constexpr int kRevlogFiltered = 3;

inline constexpr int kGraveCard = 0;
inline constexpr int kGraveNote = 1;
inline constexpr int kGraveDeck = 2;

inline constexpr int kModelStandard = 0;
inline constexpr int kModelCloze = 1;

}  // namespace rivo
