#pragma once
// An audio player of the browser front end: the page's audio element, told what to play
// through the bridge; each command has a sequence number, so that the end of a sound that
// was replaced is not taken for the end of its successor. Main loop only; the bridge must
// outlive it.

#include <cstdint>
#include <string>

#include "app/AudioPlayer.h"

namespace rivo {

class BrowserBridge;

class BrowserAudioPlayer : public AudioPlayer {
 public:
  BrowserAudioPlayer(BrowserBridge& bridge, std::string id) : _bridge(bridge), _id(std::move(id)) {}
  ~BrowserAudioPlayer() override;

  void play(const std::string& url, bool explicitlyTriggered) override;
  void stop() override;

  const std::string& id() const { return _id; }
  uint64_t seq() const { return _seq; }

 private:
  BrowserBridge& _bridge;
  std::string _id;
  uint64_t _seq = 0;
};

}  // namespace rivo
