#include "shell/StudySession.h"

#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <regex>
#include <vector>

#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/FieldText.h"
#include "librivo/HtmlEscape.h"
#include "librivo/Scheduler.h"

namespace rivo {

namespace {

// What a key asks for; 1 to 4 are eases.
constexpr int kReveal = 0;
constexpr int kUndo = -1;
constexpr int kQuit = -2;
constexpr int kNone = -3;

// Marks a block boundary: a line break only when the line so far holds text.
constexpr char kSoftBreak = '\x01';

const char* const kRule = "----------------------------------------";

std::string collapseBlanks(const std::string& line) {
  std::string out;
  for (char c : line) {
    if (c == ' ' && (out.empty() || out.back() == ' ')) continue;
    out += c;
  }
  if (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

std::vector<std::string> buttonNames(int buttons) {
  if (buttons == 2) return {"Again", "Good"};
  if (buttons == 3) return {"Again", "Good", "Easy"};
  return {"Again", "Hard", "Good", "Easy"};
}

}  // namespace

StudySession::StudySession(Col& col, int in, std::FILE* out)
    : _col(col), _in(in), _out(out), _colour(isatty(fileno(out)) && !std::getenv("NO_COLOR")) {}

std::string StudySession::plainText(const std::string& html) {
  std::string s = stripSounds(html);
  // Source line breaks are blanks in HTML; the tags below decide where lines end.
  for (char& c : s)
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
  static const std::regex lineBreak(R"(<\s*br\b[^>]*>)", std::regex::icase);
  static const std::regex block(R"(<\s*/?\s*(div|p|hr|li|ul|ol|tr|table|h[1-6])\b[^>]*>)",
                                std::regex::icase);
  s = std::regex_replace(s, lineBreak, "\n");
  s = std::regex_replace(s, block, std::string(1, kSoftBreak));
  s = stringByUnescapingFromHTML(stripHTMLMedia(s));

  std::vector<std::string> lines{""};
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\n') {
      lines.emplace_back();
    } else if (s[i] == kSoftBreak) {
      if (!collapseBlanks(lines.back()).empty()) lines.emplace_back();
    } else if (s.compare(i, 2, "\xc2\xa0") == 0) {  // no-break space
      lines.back() += ' ';
      ++i;
    } else {
      lines.back() += s[i];
    }
  }
  // At most one empty line in a row, none at either end.
  std::string out;
  bool gap = false;
  for (const std::string& raw : lines) {
    std::string line = collapseBlanks(raw);
    if (!line.empty() && line.front() == ' ') line.erase(0, 1);
    if (line.empty()) {
      gap = !out.empty();
      continue;
    }
    if (!out.empty()) out += gap ? "\n\n" : "\n";
    out += line;
    gap = false;
  }
  return out;
}

std::string StudySession::answerOnly(const std::string& html) {
  static const std::regex marker(R"(<\s*hr\b[^>]*\bid\s*=\s*["']?answer\b[^>]*>)",
                                 std::regex::icase);
  std::smatch m;
  if (!std::regex_search(html, m, marker)) return html;
  return m.suffix().str();
}

void StudySession::run() {
  // Single keys without echo. Ctrl-C arrives as a key too, so that quitting always restores
  // the terminal and saves, rather than waiting on the main loop this session occupies.
  termios saved{};
  const bool raw = isatty(_in) && tcgetattr(_in, &saved) == 0;
  if (raw) {
    termios keys = saved;
    keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
    keys.c_cc[VMIN] = 1;
    keys.c_cc[VTIME] = 0;
    tcsetattr(_in, TCSANOW, &keys);
  }
  try {
    _loop();
  } catch (...) {
    if (raw) tcsetattr(_in, TCSANOW, &saved);
    throw;
  }
  if (raw) tcsetattr(_in, TCSANOW, &saved);
}

void StudySession::_loop() {
  Scheduler& sched = _col.sched();
  for (;;) {
    _col.save();
    std::unique_ptr<Card> card = sched.getCard();
    if (!card) {
      std::fprintf(_out, "%s\nCongratulations! You have finished this deck for now.\n", kRule);
      break;
    }
    _showQuestion(*card);
    int action = _nextAction(0);
    if (action == kReveal) {
      _showAnswer(*card);
      action = _nextAction(sched.answerButtons(*card));
    }
    if (action == kQuit) break;
    if (action == kUndo) {
      _col.undoSavingCurrentCard(card.get());
      std::fprintf(_out, "Undone.\n");
      continue;
    }
    sched.answerCard(*card, action);
    ++_answered;
  }
  _col.save();
  std::fflush(_out);
}

int StudySession::_readKey() {
  std::fflush(_out);
  unsigned char c = 0;
  for (;;) {
    ssize_t n = ::read(_in, &c, 1);
    if (n == 1) return c;
    if (n < 0 && errno == EINTR) continue;
    return 'q';
  }
}

int StudySession::_nextAction(int buttons) {
  for (;;) {
    const int key = _readKey();
    int action = kNone;
    switch (key) {
      case 'q':
      case 'Q':
      case 3:  // Ctrl-C
      case 4:  // Ctrl-D
        action = kQuit;
        break;
      case 'u':
      case 'U':
        if (_col.canUndo())
          action = kUndo;
        else
          std::fprintf(_out, "Nothing to undo.\n");
        break;
      case ' ':
      case '\n':
      case '\r':
        // On the answer side, the default button.
        action = buttons == 0 ? kReveal : (buttons == 4 ? 3 : 2);
        break;
      case '1':
      case '2':
      case '3':
      case '4':
        // The numbers answer only once the answer shows; 2 works whatever the button count.
        if (buttons > 0 && (key == '1' || key == '2' || key - '0' <= buttons)) action = key - '0';
        break;
      default:
        break;
    }
    if (action != kNone) return action;
  }
}

void StudySession::_showQuestion(Card& card) {
  const std::array<int, 3> counts = _col.sched().countsForCard(&card);
  const int current = Scheduler::countIdx(card);
  // New, learning, review: the colours of the study screen; the card's own queue stands out.
  static const char* const colours[] = {"\x1b[36m", "\x1b[33m", "\x1b[32m"};
  std::string line;
  for (int i = 0; i < 3; ++i) {
    if (i) line += " + ";
    const std::string n = std::to_string(counts[static_cast<size_t>(i)]);
    if (_colour)
      line += std::string(colours[i]) + (i == current ? "\x1b[4m" : "") + n + "\x1b[0m";
    else
      line += i == current ? "[" + n + "]" : n;
  }
  std::fprintf(_out, "%s\n%s\n\n%s\n\n  space: show answer   u: undo   q: quit\n", kRule,
               line.c_str(), plainText(card.q()).c_str());
}

void StudySession::_showAnswer(Card& card) {
  Scheduler& sched = _col.sched();
  const int buttons = sched.answerButtons(card);
  const std::vector<std::string> names = buttonNames(buttons);
  std::string row;
  for (int ease = 1; ease <= buttons; ++ease) {
    row += "  " + std::to_string(ease) + ": " + names[static_cast<size_t>(ease - 1)] + " (" +
           sched.nextIvlStr(card, ease, true) + ")";
  }
  std::fprintf(_out, "\n%s\n\n%s\n", plainText(answerOnly(card.a())).c_str(), row.c_str());
}

}  // namespace rivo
