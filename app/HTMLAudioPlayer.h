#pragma once
// The sounds of a card: turns "[sound:name]" tags into play buttons, videos or nothing just
// before the HTML goes to the web view, and plays the files of a side in order, or one file
// when its button is pressed. Made anew each time the review screen appears. Main loop only.

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "app/AudioPlayer.h"

namespace rivo {

class HTMLAudioPlayer : private AudioPlayer::Delegate {
 public:
  struct Host {
    // Whether the media folder holds a file of that name.
    std::function<bool(const std::string& name)> exists;
    // The "audioButtons" preference, read at each munge.
    std::function<bool()> audioButtons;
    // Tells the user why a file can't play; logs a line.
    std::function<void(const std::string& text)> showInfo;
    std::function<void(const std::string& text)> log;
  };

  static constexpr const char* soundRegex = R"(\[sound:(.*?)\])";
  static constexpr const char* kPlayError =
      "Error playing audio. This can be caused by a corrupt file, a file the browser does not "
      "support (eg .ogg), or an mp3 file incorrectly named .wav\n\n";

  // `baseURL` reaches the media folder and `iconURL` the play icons; `player` may be null
  // (nothing plays).
  HTMLAudioPlayer(std::string baseURL, std::string iconURL, std::unique_ptr<AudioPlayer> player,
                  Host host);
  ~HTMLAudioPlayer() override;

  std::string mungeHTML(const std::string& html, bool play, bool explicitlyTriggered);
  // Plays one file alone, as the user asked.
  void playAudio(const std::string& name);
  void clear();
  void playNextFile();

  const std::deque<std::string>& queue() const { return _queue; }
  bool playing() const { return _playing; }

  // Only letters and digits stay as they are.
  static std::string percentEncode(const std::string& name);

 private:
  void audioPlayerDidFinishPlaying(AudioPlayer& player, bool successfully) override;
  void audioPlayerDidFail(AudioPlayer& player, const std::string& error) override;
  void audioPlayerDecodeErrorDidOccur(AudioPlayer& player, const std::string& error) override;
  void _stop();

  std::string _baseURL;
  std::string _iconURL;
  std::unique_ptr<AudioPlayer> _player;
  Host _host;
  std::deque<std::string> _queue;
  bool _explicitlyTriggered = false;
  bool _playing = false;
};

}  // namespace rivo
