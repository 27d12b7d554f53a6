#include "shell/BrowserAudioPlayer.h"

#include "shell/BrowserBridge.h"

namespace rivo {

BrowserAudioPlayer::~BrowserAudioPlayer() {
  _bridge._audio(*this, {{"action", "stop"}, {"seq", ++_seq}});
  _bridge._forgetAudio(*this);
}

void BrowserAudioPlayer::play(const std::string& url, bool explicitlyTriggered) {
  _bridge._audio(
      *this,
      {{"action", "play"}, {"src", url}, {"explicit", explicitlyTriggered}, {"seq", ++_seq}});
}

void BrowserAudioPlayer::stop() {
  _bridge._audio(*this, {{"action", "stop"}, {"seq", ++_seq}});
}

}  // namespace rivo
