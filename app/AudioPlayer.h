#pragma once
// Plays one sound file at a time for a screen; the files are reached by URL, as a web view's
// media are. What happens is told to the delegate, on the main loop. Main loop only.

#include <string>

namespace rivo {

class AudioPlayer {
 public:
  class Delegate {
   public:
    virtual ~Delegate() = default;
    virtual void audioPlayerDidFinishPlaying(AudioPlayer& player, bool successfully) = 0;
    // The file couldn't be played at all (missing, unreadable, of a kind not supported).
    virtual void audioPlayerDidFail(AudioPlayer& player, const std::string& error) = 0;
    virtual void audioPlayerDecodeErrorDidOccur(AudioPlayer& player, const std::string& error) = 0;
  };

  virtual ~AudioPlayer() = default;

  // Stops what plays and starts `url`. `explicitlyTriggered` marks a playback the user asked
  // for, which may be louder than others around it.
  virtual void play(const std::string& url, bool explicitlyTriggered) = 0;
  virtual void stop() = 0;

  void setDelegate(Delegate* delegate) { _delegate = delegate; }
  Delegate* delegate() const { return _delegate; }

 private:
  Delegate* _delegate = nullptr;
};

}  // namespace rivo
