#include "app/RecordingConverter.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

extern char** environ;

namespace rivo {

namespace fs = std::filesystem;

namespace {

// The last line ffmpeg printed: its reason, when it has one, without the upload's path.
std::string reason(const std::string& log, const std::string& source) {
  std::ifstream in(log);
  std::string line, last;
  while (std::getline(in, line))
    if (!line.empty()) last = line;
  if (last.starts_with(source + ": ")) last.erase(0, source.size() + 2);
  return last.empty() ? "it isn't a recording ffmpeg can read." : last;
}

}  // namespace

std::string RecordingConverter::toM4a(const std::string& source, const std::string& target,
                                      int timeoutSeconds) {
  const std::string log = target + ".log";
  // Only plain files, and only the containers browsers record into: a playlist or a
  // concatenation list would have ffmpeg read other files on this machine.
  std::vector<std::string> args = {"ffmpeg",
                                   "-nostdin",
                                   "-hide_banner",
                                   "-loglevel",
                                   "error",
                                   "-protocol_whitelist",
                                   "file",
                                   "-format_whitelist",
                                   "matroska,webm,ogg,mov,mp4,wav,mp3,aac,flac",
                                   "-i",
                                   source,
                                   "-vn",
                                   "-sn",
                                   "-dn",
                                   "-map_metadata",
                                   "-1",
                                   "-t",
                                   std::to_string(kMaxSeconds),
                                   "-ac",
                                   "1",
                                   "-ar",
                                   "44100",
                                   "-c:a",
                                   "aac",
                                   "-b:a",
                                   "128k",
                                   "-movflags",
                                   "+faststart",
                                   "-f",
                                   "ipod",
                                   "-y",
                                   target};
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid = 0;
  const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  std::error_code ec;
  if (rc != 0) {
    fs::remove(log, ec);
    return rc == ENOENT ? "ffmpeg, which Rivo needs to store recordings, is not installed."
                        : "ffmpeg couldn't be started: " + std::string(strerror(rc));
  }

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
  int status = 0;
  bool timedOut = false;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      timedOut = true;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::string error;
  if (timedOut)
    error = "converting it took longer than " + std::to_string(timeoutSeconds) + " seconds.";
  else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || fs::file_size(target, ec) == 0)
    error = reason(log, source);
  fs::remove(log, ec);
  if (!error.empty()) fs::remove(target, ec);
  return error;
}

}  // namespace rivo
