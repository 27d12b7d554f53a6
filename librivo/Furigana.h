#pragma once
// Ruby readings written as "word[reading]": kept as ruby, or reduced to the word or the reading.

#include <string>

namespace rivo {

class Furigana {
 public:
  // The replacement that turns a match of the reading pattern into ruby markup.
  static constexpr const char* ruby = "<ruby><rb>$1</rb><rt>$2</rt></ruby>";

  // The words alone.
  std::string kanji(const std::string& txt) const;
  // The readings alone.
  std::string kana(const std::string& txt) const;
  // Words with their readings above them.
  std::string furigana(const std::string& txt) const;

  // "&nbsp;" becomes a blank, then every "word[reading]" (with the blank before it, if any)
  // becomes `repl`, in which $1 is the word and $2 the reading. "[sound:...]" stays as it is.
  std::string noSoundForString(const std::string& txt, const std::string& repl) const;
};

}  // namespace rivo
