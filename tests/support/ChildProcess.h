#pragma once
// Programs a test runs: to the end (runProcess) or in the background (ChildProcess), with
// their output, exit status and peak resident memory as the kernel accounts it.

#include <sys/types.h>

#include <string>
#include <vector>

namespace rivo::test {

struct ProcessResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out, err;
  // The peak of its own memory (VmHWM), sampled while it ran. (The kernel's ru_maxrss would
  // also count the test's own memory, which a spawned child shares until it execs.)
  long maxRssKb = 0;
};

// VmHWM of a running process in kB; 0 when it can't be read.
long peakRssKb(pid_t pid);

// `env` adds or replaces variables ("NAME=value"); `input` is standard input.
ProcessResult runProcess(const std::vector<std::string>& argv,
                         const std::vector<std::string>& env = {}, const std::string& input = {});

class ChildProcess {
 public:
  ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env = {});
  // Stops it if still running.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The first line of standard output that starts with `prefix`, waiting up to `seconds`.
  std::string waitForLine(const std::string& prefix, double seconds = 10);
  std::string output() const;
  long peakRssKb() const { return test::peakRssKb(_pid); }
  // Sends the signal and waits; the result holds its output and peak memory.
  ProcessResult stop(int signal = 15);
  pid_t pid() const { return _pid; }

 private:
  pid_t _pid = -1;
  std::string _dir, _outPath, _errPath;
  bool _stopped = false;
};

// rivo-syncd on 127.0.0.1 on a free port, with its own data folder.
class SyncdProcess {
 public:
  SyncdProcess(const std::string& binary, const std::string& dataDir,
               const std::vector<std::string>& extraArgs = {});
  // "http://127.0.0.1:PORT/"
  const std::string& base() const { return _base; }
  void addUser(const std::string& name, const std::string& password);
  ProcessResult stop() { return _child.stop(); }
  std::string log() const { return _child.output(); }
  const std::string& dataDir() const { return _dataDir; }

 private:
  std::string _binary, _dataDir;
  ChildProcess _child;
  std::string _base;
};

}  // namespace rivo::test
