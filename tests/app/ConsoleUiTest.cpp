#include "app/ConsoleUi.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace rivo {
namespace {

// A ConsoleUi over temporary files standing for standard input and error.
struct Console {
  explicit Console(const std::string& input, bool interactive, bool errIsTerminal)
      : in(std::tmpfile()), err(std::tmpfile()), ui(in, err, interactive, errIsTerminal) {
    std::fputs(input.c_str(), in);
    std::rewind(in);
  }
  ~Console() {
    std::fclose(in);
    std::fclose(err);
  }
  std::string written() {
    std::fflush(err);
    std::rewind(err);
    std::string out;
    for (int c; (c = std::fgetc(err)) != EOF;) out += static_cast<char>(c);
    return out;
  }
  int ask() {
    int answer = -1;
    ui.askQuestion("Confirm", "Delete?", "No", "Yes", [&](int index) { answer = index; });
    return answer;
  }

  std::FILE* in;
  std::FILE* err;
  ConsoleUi ui;
};

TEST(ConsoleUi, QuestionsAreAnsweredFromATerminalOnlyAndNoByDefault) {
  {
    // Piped input is never taken as an answer.
    Console c("y\n", false, false);
    EXPECT_EQ(c.ask(), 0);
    EXPECT_EQ(c.written(), "Confirm: Delete? (No)\n");
  }
  struct Case {
    std::string input;
    int answer;
  };
  for (const Case& test : std::vector<Case>{{"y\n", 1},
                                            {" YES \n", 1},
                                            {"yes", 1},
                                            {"n\n", 0},
                                            {"\n", 0},
                                            {"", 0},
                                            {"maybe\n", 0}}) {
    Console c(test.input, true, true);
    EXPECT_EQ(c.ask(), test.answer) << test.input;
  }
}

TEST(ConsoleUi, SpinnerTextIsWrittenOncePerChangeAndOnlyToATerminal) {
  {
    Console c("", false, true);
    c.ui.showPopupView("Importing...", true);
    c.ui.setPopupText("Importing...");
    c.ui.setPopupText("12 of 40");
    c.ui.setPopupText("12 of 40");
    c.ui.hidePopupView();
    c.ui.setPopupText("no popup, no text");
    c.ui.showPopupView("Importing...", true);
    c.ui.hidePopupView();
    EXPECT_EQ(c.written(), "Importing...\n12 of 40\nImporting...\n");
  }
  {
    // Into a log file: alerts and brief messages only.
    Console c("", false, false);
    c.ui.showPopupView("Checking...", true);
    c.ui.setPopupText("50%");
    c.ui.hidePopupView();
    c.ui.showPopupView("Card was a leech.", false);
    c.ui.hidePopupView();
    c.ui.showAlert("Welcome!", "Hello.");
    c.ui.showAlert("", "Backup failed: disk full");
    EXPECT_EQ(c.written(), "Card was a leech.\nWelcome! Hello.\nBackup failed: disk full\n");
  }
}

}  // namespace
}  // namespace rivo
