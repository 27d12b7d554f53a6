#pragma once
// Studying in a terminal: the review loop of the study screen with plain text for the card
// and single keys for the buttons.

#include <cstdio>
#include <string>

namespace rivo {

class Card;
class Col;

class StudySession {
 public:
  // Keys come from the file descriptor `in`: a terminal is switched to single keys for the
  // session; anything else (a pipe, a file) is read as it comes, its end counting as quit.
  StudySession(Col& col, int in, std::FILE* out);

  // Studies the current deck until it is finished or the user quits; saves after every
  // answer and at the end.
  void run();

  int answered() const { return _answered; }

  // The card's HTML as terminal text: block tags become line breaks, tags, sounds and
  // entities go, and blank runs collapse. Images show as their file names.
  static std::string plainText(const std::string& html);
  // The answer side without the repeated question: what follows the answer marker, if any.
  static std::string answerOnly(const std::string& html);

 private:
  void _loop();
  // The next key; end of input reads as 'q'.
  int _readKey();
  // Waits for a key that means something on this side: 0 reveals (question side, `buttons`
  // 0), 1 to 4 answer, -1 undoes, -2 quits.
  int _nextAction(int buttons);
  void _showQuestion(Card& card);
  void _showAnswer(Card& card);

  Col& _col;
  int _in;
  std::FILE* _out;
  bool _colour;
  int _answered = 0;
};

}  // namespace rivo
