#include "app/HTMLAudioPlayer.h"

#include <unicode/regex.h>

#include "librivo/IcuText.h"

namespace rivo {

namespace {

using icu::UnicodeString;

// Each match replaced by what `fn` makes of its first group.
std::string replaceEach(const icu::RegexPattern& pattern, const std::string& text,
                        const std::function<std::string(const std::string&)>& fn) {
  UnicodeString source = icutext::utf16(text);
  auto m = icutext::matcher(pattern, source);
  UErrorCode status = U_ZERO_ERROR;
  UnicodeString out;
  int32_t last = 0;
  while (m->find()) {
    int32_t start = m->start(status), end = m->end(status);
    out.append(source, last, start - last);
    out.append(icutext::utf16(fn(icutext::utf8(m->group(1, status)))));
    last = end;
  }
  out.append(source, last, source.length() - last);
  return icutext::utf8(out);
}

const icu::RegexPattern& soundPattern() {
  static const auto pattern = icutext::compile(icutext::utf16(HTMLAudioPlayer::soundRegex));
  return *pattern;
}

// Within one tag: ".+?" alone would run from an earlier sound tag on to the ".mp4]".
const icu::RegexPattern& videoPattern() {
  static const auto pattern = icutext::compile(icutext::utf16(R"(\[sound:([^\]]+?\.mp4)\])"));
  return *pattern;
}

}  // namespace

HTMLAudioPlayer::HTMLAudioPlayer(std::string baseURL, std::string iconURL,
                                 std::unique_ptr<AudioPlayer> player, Host host)
    : _baseURL(std::move(baseURL)),
      _iconURL(std::move(iconURL)),
      _player(std::move(player)),
      _host(std::move(host)) {
  if (_player) _player->setDelegate(this);
}

HTMLAudioPlayer::~HTMLAudioPlayer() {
  _stop();
}

std::string HTMLAudioPlayer::percentEncode(const std::string& name) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : name) {
    if (std::isalnum(c) && c < 0x80) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

std::string HTMLAudioPlayer::mungeHTML(const std::string& html, bool play,
                                       bool explicitlyTriggered) {
  _explicitlyTriggered = explicitlyTriggered;
  clear();
  std::string out = replaceEach(videoPattern(), html, [](const std::string& name) {
    return "<video style=\"width: 90%\" controls><source src=\"" + name + "\"></source></video>";
  });
  if (play) {
    replaceEach(soundPattern(), out, [this](const std::string& name) {
      if (_host.exists(name)) _queue.push_back(name);
      return std::string();
    });
    if (!_queue.empty()) playNextFile();
  }
  const std::string playImage = _iconURL + "play.svg";
  const std::string brokenImage = _iconURL + "brokenplay.svg";
  const bool buttons = _host.audioButtons();
  return replaceEach(soundPattern(), out, [&](const std::string& name) -> std::string {
    if (!_host.exists(name)) return "<img class=playImage src='" + brokenImage + "'>";
    if (!buttons) return "";
    return "<a class=soundLink href='playsound:///" + percentEncode(name) +
           "'><img class=playImage src='" + playImage + "'></a>";
  });
}

void HTMLAudioPlayer::playAudio(const std::string& name) {
  clear();
  _queue.push_back(name);
  _explicitlyTriggered = true;
  playNextFile();
}

void HTMLAudioPlayer::clear() {
  _queue.clear();
  _stop();
}

void HTMLAudioPlayer::_stop() {
  if (_player && _playing) _player->stop();
  _playing = false;
}

void HTMLAudioPlayer::playNextFile() {
  _stop();
  if (_queue.empty() || !_player) return;
  std::string name = std::move(_queue.front());
  _queue.pop_front();
  _playing = true;
  _player->play(_baseURL + percentEncode(name), _explicitlyTriggered);
}

void HTMLAudioPlayer::audioPlayerDidFinishPlaying(AudioPlayer&, bool) {
  _playing = false;
  playNextFile();
}

void HTMLAudioPlayer::audioPlayerDidFail(AudioPlayer&, const std::string& error) {
  // The rest of the queue waits: the user has been told, and the next side starts anew.
  _playing = false;
  if (_host.showInfo) _host.showInfo(kPlayError + error);
}

void HTMLAudioPlayer::audioPlayerDecodeErrorDidOccur(AudioPlayer&, const std::string& error) {
  _playing = false;
  if (_host.log) _host.log("audio decode error " + error);
}

}  // namespace rivo
