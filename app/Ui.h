#pragma once
// What the application needs of a screen: the top screen's description, alerts (with text
// fields), action sheets, the popup box that serves both brief messages and the spinner, and
// web views. Rules about when these show (nesting of spinners, popups dropped during a job)
// live in AppDelegate; a Ui only draws and reports. Every call comes on the main loop, and
// callbacks are made there too.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/AudioPlayer.h"
#include "librivo/Json.h"

namespace rivo {

class WebView;

class Ui {
 public:
  struct TextField {
    std::string placeholder;
    std::string text;
    bool secure = false;        // a password
    std::string keyboard = "";  // "email" for an address
  };

  virtual ~Ui() = default;

  // An alert with one "OK" button and nothing to call back. `title` may be empty.
  virtual void showAlert(const std::string& title, const std::string& text) = 0;

  // A question with two buttons; `answered` gets the index of the one pressed (0 for the
  // cancel button). It may be called before this returns.
  virtual void askQuestion(const std::string& title, const std::string& text,
                           const std::string& cancelButton, const std::string& otherButton,
                           std::function<void(int buttonIndex)> answered) = 0;

  // The same with text fields; `answered` also gets the fields' texts, in order.
  virtual void askText(
      const std::string& title, const std::string& text, std::vector<TextField> fields,
      const std::string& cancelButton, const std::string& otherButton,
      std::function<void(int buttonIndex, std::vector<std::string> texts)> answered) = 0;

  // A choice among `buttons`; `chosen` gets the index into them, or -1 for the cancel button
  // (or the sheet being dismissed).
  virtual void showActionSheet(const std::string& title, const std::vector<std::string>& buttons,
                               const std::string& cancelButton,
                               std::function<void(int index)> chosen) = 0;

  // The popup box: created with or without an activity indicator; while it exists the user
  // interface ignores input. At most one exists at a time.
  virtual void showPopupView(const std::string& text, bool activity) = 0;
  virtual void setPopupText(const std::string& text) = 0;
  virtual void hidePopupView() = 0;

  // The screen on top of the navigation stack, as a Screen's JSON, sent again on each change.
  virtual void showScreen(const Json& screen) = 0;

  // A new web view, shown by a screen that names its id(). Owned by the caller.
  virtual std::unique_ptr<WebView> makeWebView() = 0;

  // The colours of bars and buttons, as "#RRGGBB".
  virtual void setTint(const std::string& tint) { (void)tint; }

  // The base URL under which web views reach the files of `folder` (a profile's media),
  // read-only, ending in "/".
  virtual std::string baseUrlForFolder(const std::string& folder) {
    return "file://" + folder + "/";
  }
  // The URL of the program's resources (pages, scripts, icons), ending in "/".
  virtual std::string resourceBaseUrl() { return ""; }
  // A player for a screen's sounds; null where nothing can play.
  virtual std::unique_ptr<AudioPlayer> makeAudioPlayer() { return nullptr; }
  // A link the user followed out of the program: shown by the user's browser.
  virtual void openURL(const std::string& url) { (void)url; }
  // Hands the finished file at `path` to the user, as `name`: a browser downloads it. The file
  // stays where it is.
  virtual void offerDownload(const std::string& path, const std::string& name) {
    (void)path;
    (void)name;
  }
};

}  // namespace rivo
