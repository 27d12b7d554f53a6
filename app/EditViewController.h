#pragma once
// The note editor: adds a new note, or edits the note of a card. The fields live in a web page
// (editor.html) so that rich text can be edited; this side holds the Note, the toolbar and the
// rules of saving. The page is told what to show by script calls and reports edits as URL
// fragments ("field:SEQ:{...}"). Main loop only; the collection is touched between jobs.
//
// The page numbers its reports (`seq`, rising for the page's whole life). A report older than
// one already applied is dropped: the page's answer to removeFocus() carries every field and
// may overtake reports still queued behind the call.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/AudioPlayer.h"
#include "app/ViewController.h"
#include "app/WebView.h"

namespace rivo {

class AppDelegate;
class Card;
class Col;
class Note;

class EditViewController : public ViewController,
                           private WebView::Delegate,
                           private AudioPlayer::Delegate {
 public:
  // What `addPickedImage` accepts; the page scales images down to kImageWidth before sending.
  static constexpr int kImageWidth = 1024;
  static constexpr int64_t kMaxImageBytes = 8 * 1024 * 1024;
  // The most a recording from the page may weigh before it is converted.
  static constexpr int64_t kMaxRecordingBytes = 64 * 1024 * 1024;

  explicit EditViewController(AppDelegate& app);
  ~EditViewController() override;

  // None: a new note of the current type, for adding. A card: its note, for editing.
  void setupWithCard(std::unique_ptr<Card> card);

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;
  void viewWillDisappear() override;

  // The page's reports and what they change.
  void handleFragment(const std::string& fragment);
  void saveField(size_t idx, const std::string& txt);
  void saveTags(const std::vector<std::string>& tags);
  void markModified();
  void clearModified();

  // Toolbar and bar buttons.
  void setFormat(const std::string& command);
  void cloze();
  static int highestClozeNumber(const std::vector<std::string>& fields);
  void toggleHTML();
  void save();
  void cancel();
  void preview();
  void editTools();
  // A picked or pasted image, stored by the page's upload at `path` (removed here).
  void addPickedImage(const std::string& path);
  // The record button: keeps the place in the text and stops what plays; the page records.
  void record();
  // The page's recording, stored by its upload at `path` (removed here): converted to .m4a
  // in a job, added to the media folder, referenced with a sound tag at the kept place, and
  // played once.
  void saveRecordingToMediaAndPlay(const std::string& path);
  // The page couldn't record; `reason` as the record button reports it.
  void recordingFailed(const std::string& reason);

  // Deck and note type, as the selector sets them when adding.
  void changeNoteType();
  void changeDeck();
  void setupNewNoteForAdding();

  // Sends the fields, tags and (when adding) the deck and type to the page.
  void sendFields();
  // Asks the page for what it holds; applies it. False when no page answered.
  bool removeFocus();

  // State, for tests.
  bool adding() const { return _adding; }
  bool modified() const { return _modified; }
  bool wysiwygMode() const { return _wysiwygMode; }
  bool focused() const { return _focused; }
  Note* note() const { return _note.get(); }
  Card* card() const { return _card.get(); }
  WebView* webView() const { return _web.get(); }
  const std::string& duplicateWarning() const { return _duplicate; }

 private:
  // WebView::Delegate
  void didFinishLoad(WebView& view) override;
  bool shouldStartLoad(WebView& view, const std::string& url,
                       WebView::NavigationType type) override;
  // AudioPlayer::Delegate
  void audioPlayerDidFinishPlaying(AudioPlayer& player, bool successfully) override;
  void audioPlayerDidFail(AudioPlayer& player, const std::string& error) override;
  void audioPlayerDecodeErrorDidOccur(AudioPlayer& player, const std::string& error) override;

  Col& _col() const;
  void _js(const std::string& script);
  void _applyState(const Json& state);
  // Runs `script`, whose answer is the page's fields and tags, and applies them.
  bool _pull(const std::string& script);
  // Applies a report numbered `seq`; false when an answer already covered it.
  bool _fresh(const Json& data);
  void _checkDuplicate();
  bool _isCloze() const;
  void _insertHTML(const std::string& html);
  // A free path of our own in `folder`, "PREFIX-MS.EXT": whatever the browser called an
  // upload never reaches the media folder.
  static std::string _ownName(const std::string& folder, const std::string& prefix,
                              const std::string& ext);
  // When adding: the deck and note type still exist (another tab may have deleted them).
  bool _targetsExist();
  void _suspend(bool note, bool on);
  void _deleteNote();
  void _resetStudy();
  // Pops this screen if it is on top.
  void _close();

  AppDelegate& _app;
  std::unique_ptr<Card> _card;
  std::shared_ptr<Note> _note;
  bool _adding = true;
  std::unique_ptr<WebView> _web;
  // Plays a recording once it is stored.
  std::unique_ptr<AudioPlayer> _audioPlayer;
  bool _wysiwygMode = true;
  bool _boldOn = false;
  bool _italicsOn = false;
  bool _underlineOn = false;
  bool _focused = false;
  bool _textSelected = false;
  bool _modified = false;
  bool _toolbarShown = true;
  bool _loaded = false;
  // The page's last answer said its fields are too long to send whole.
  bool _tooLong = false;
  int64_t _seq = 0;
  // The deck the page shows when adding; checked again at save.
  int64_t _did = 0;
  std::string _duplicate;
};

}  // namespace rivo
