#include "app/ConsoleUi.h"

#include "app/WebView.h"

#include <unistd.h>

#include <cctype>
#include <cstdlib>

namespace rivo {

namespace {

std::string headed(const std::string& title, const std::string& text) {
  if (title.empty()) return text;
  char last = title.back();
  bool punctuated = last == '!' || last == '?' || last == '.' || last == ':';
  return title + (punctuated ? " " : ": ") + text;
}

std::string trimmedLower(const char* data, size_t size) {
  size_t begin = 0, end = size;
  while (begin < end && std::isspace(static_cast<unsigned char>(data[begin]))) ++begin;
  while (end > begin && std::isspace(static_cast<unsigned char>(data[end - 1]))) --end;
  std::string out;
  for (size_t i = begin; i < end; ++i)
    out += static_cast<char>(std::tolower(static_cast<unsigned char>(data[i])));
  return out;
}

}  // namespace

ConsoleUi::ConsoleUi()
    : ConsoleUi(stdin, stderr, ::isatty(STDIN_FILENO) == 1, ::isatty(STDERR_FILENO) == 1) {}

ConsoleUi::ConsoleUi(std::FILE* in, std::FILE* err, bool interactive, bool errIsTerminal)
    : _in(in), _err(err), _interactive(interactive), _errIsTerminal(errIsTerminal) {}

void ConsoleUi::showAlert(const std::string& title, const std::string& text) {
  std::fprintf(_err, "%s\n", headed(title, text).c_str());
  std::fflush(_err);
}

void ConsoleUi::askQuestion(const std::string& title, const std::string& text,
                            const std::string& cancelButton, const std::string& otherButton,
                            std::function<void(int buttonIndex)> answered) {
  std::string prompt = headed(title, text);
  if (!_interactive) {
    std::fprintf(_err, "%s (%s)\n", prompt.c_str(), cancelButton.c_str());
    std::fflush(_err);
    answered(0);
    return;
  }
  std::fprintf(_err, "%s [%s/%s] ", prompt.c_str(), otherButton.c_str(), cancelButton.c_str());
  std::fflush(_err);
  char* line = nullptr;
  size_t capacity = 0;
  ssize_t length = ::getline(&line, &capacity, _in);
  std::string reply = length > 0 ? trimmedLower(line, static_cast<size_t>(length)) : "";
  std::free(line);
  if (length < 0) std::fprintf(_err, "\n");
  std::string other = trimmedLower(otherButton.data(), otherButton.size());
  bool yes = reply == "y" || reply == "yes" || (!reply.empty() && reply == other);
  answered(yes ? 1 : 0);
}

void ConsoleUi::showPopupView(const std::string& text, bool activity) {
  _popupShown = true;
  if (activity) {
    _spinnerLine(text);
  } else {
    // A brief message is news to the user, wherever standard error goes.
    std::fprintf(_err, "%s\n", text.c_str());
    std::fflush(_err);
    _lastSpinnerText = text;
  }
}

void ConsoleUi::setPopupText(const std::string& text) {
  if (_popupShown) _spinnerLine(text);
}

void ConsoleUi::hidePopupView() {
  _popupShown = false;
  _lastSpinnerText.clear();
}

void ConsoleUi::_spinnerLine(const std::string& text) {
  if (text == _lastSpinnerText) return;
  _lastSpinnerText = text;
  if (!_errIsTerminal) return;
  std::fprintf(_err, "%s\n", text.c_str());
  std::fflush(_err);
}

namespace {

// A page nobody sees: loads are forgotten and scripts give nothing.
class NoWebView : public WebView {
 public:
  void loadHTMLString(const std::string&, const std::string&) override {}
  std::string evaluateJavaScript(const std::string&) override { return ""; }
  std::string id() const override { return "none"; }
};

}  // namespace

void ConsoleUi::askText(const std::string& title, const std::string& text,
                        std::vector<TextField> fields, const std::string& cancelButton,
                        const std::string& otherButton,
                        std::function<void(int, std::vector<std::string>)> answered) {
  (void)text, (void)otherButton;
  std::fprintf(_err, "%s: %s\n", title.c_str(), cancelButton.c_str());
  answered(0, std::vector<std::string>(fields.size()));
}

void ConsoleUi::showActionSheet(const std::string& title, const std::vector<std::string>& buttons,
                                const std::string& cancelButton, std::function<void(int)> chosen) {
  (void)title, (void)buttons, (void)cancelButton;
  chosen(-1);
}

std::unique_ptr<WebView> ConsoleUi::makeWebView() {
  return std::make_unique<NoWebView>();
}

}  // namespace rivo
