#pragma once
// Turns a recording the browser made (WebM or Ogg with Opus, MP4, WAV: whatever it records)
// into the one format every device plays: AAC in an ".m4a" file, 44100 Hz, one channel,
// 128 kbit/s. It runs the system's ffmpeg as a child process and waits for it. No state; any
// thread, though a long recording takes seconds, so callers run it as background work.

#include <string>

namespace rivo {

class RecordingConverter {
 public:
  // Longest recording kept; anything after it is cut off.
  static constexpr int kMaxSeconds = 600;

  // Writes `target` from `source`. Returns the empty string on success; otherwise a reason the
  // user can read, and no file is left at `target`. Gives up after `timeoutSeconds`.
  static std::string toM4a(const std::string& source, const std::string& target,
                           int timeoutSeconds = 120);
};

}  // namespace rivo
