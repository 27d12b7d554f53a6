#pragma once
// The typed answer of the review screen: a template's "[[type:Field]]" placeholder opens a
// text field on the question side, and on the answer side becomes a coloured comparison of
// what was typed with the field's text. This holds the values a question sets for its
// answer (the correct text, the field's font) and the two filters. Main loop only.

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace rivo {

class Card;
class MediaManager;

class TypedAnswer {
 public:
  enum Operation { kDelete = 1, kInsert = 2, kEqual = 3 };
  struct DiffPart {
    Operation operation;
    std::string text;
  };

  static constexpr const char* typeAnswerPat = R"(\[\[type:(.+?)\]\])";
  static constexpr const char* failedCharColour = "#FF0000";
  static constexpr const char* passedCharColour = "#00FF00";

  // `log` takes the lines this writes to the collection's log.
  explicit TypedAnswer(std::function<void(const std::string&)> log = {}) : _log(std::move(log)) {}

  // The question side: removes the placeholders, and notes the correct text and the field's
  // font; shouldShowTypeField() then tells whether a field opens.
  std::string typeAnsQuestionFilter(const std::string& html, Card& card);
  // The answer side: the placeholders become the comparison of `given` with the correct text.
  std::string typeAnsAnswerFilter(const std::string& html, const std::string& given,
                                  MediaManager& media);
  // The placeholders gone, as `neverTypeAnswer` wants on both sides.
  static std::string removePlaceholders(const std::string& html);

  // Green for what matches, red for what was added, red dashes for what was missed.
  std::string correctForA(const std::string& correct, const std::string& given);
  // The texts of the cloze deletions numbered `index` in `text`, without hints, joined by
  // ", "; nothing when there is none.
  static std::optional<std::string> _contentForClozeInString(const std::string& text, int index);
  // The parts turning `a` into `b`, character by character (code points); deletions come
  // before insertions between two equal parts.
  static std::vector<DiffPart> diff(const std::string& a, const std::string& b);

  const std::optional<std::string>& typeCorrect() const { return _typeCorrect; }
  bool shouldShowTypeField() const { return _shouldShowTypeField; }
  void clearShouldShowTypeField() { _shouldShowTypeField = false; }
  const std::string& typeFont() const { return _typeFont; }
  int typeSize() const { return _typeSize; }

 private:
  std::function<void(const std::string&)> _log;
  std::optional<std::string> _typeCorrect;
  std::string _typeFont;
  int _typeSize = 0;
  bool _shouldShowTypeField = false;
};

}  // namespace rivo
