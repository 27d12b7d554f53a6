#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tests/support/TempDir.h"

extern char** environ;

namespace rivo::test {

namespace {

std::vector<std::string> mergedEnv(const std::vector<std::string>& extra) {
  std::map<std::string, std::string> vars;
  for (char** e = environ; *e; ++e) {
    std::string kv = *e;
    vars[kv.substr(0, kv.find('='))] = kv;
  }
  for (const std::string& kv : extra) vars[kv.substr(0, kv.find('='))] = kv;
  std::vector<std::string> out;
  for (auto& [k, kv] : vars) out.push_back(kv);
  return out;
}

std::vector<char*> cStrings(std::vector<std::string>& items) {
  std::vector<char*> out;
  for (std::string& s : items) out.push_back(s.data());
  out.push_back(nullptr);
  return out;
}

pid_t spawn(std::vector<std::string> argv, const std::vector<std::string>& env,
            const std::string& in, const std::string& out, const std::string& err) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<std::string> envs = mergedEnv(env);
  auto args = cStrings(argv);
  auto envp = cStrings(envs);
  pid_t pid = -1;
  int rc = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) throw std::runtime_error("can't start " + argv[0] + ": " + std::strerror(rc));
  return pid;
}

// Waits for the process, sampling its peak memory until it ends.
ProcessResult reap(pid_t pid, const std::string& out, const std::string& err) {
  ProcessResult r;
  int status = 0;
  for (;;) {
    r.maxRssKb = std::max(r.maxRssKb, peakRssKb(pid));
    pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid || (done < 0 && errno != EINTR)) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  r.out = readFile(out);
  r.err = readFile(err);
  return r;
}

}  // namespace

long peakRssKb(pid_t pid) {
  std::istringstream status(readFile("/proc/" + std::to_string(pid) + "/status"));
  for (std::string line; std::getline(status, line);)
    if (line.rfind("VmHWM:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  return 0;
}

ProcessResult runProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         const std::string& input) {
  TempDir dir;
  writeFile(dir.file("in"), input);
  pid_t pid = spawn(argv, env, dir.file("in"), dir.file("out"), dir.file("err"));
  return reap(pid, dir.file("out"), dir.file("err"));
}

ChildProcess::ChildProcess(const std::vector<std::string>& argv,
                           const std::vector<std::string>& env) {
  std::string pattern = (std::filesystem::temp_directory_path() / "rivo-child-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  _dir = pattern;
  _outPath = _dir + "/out";
  _errPath = _dir + "/err";
  _pid = spawn(argv, env, "/dev/null", _outPath, _errPath);
}

ChildProcess::~ChildProcess() {
  if (!_stopped) stop(SIGKILL);
  std::error_code ec;
  std::filesystem::remove_all(_dir, ec);
}

std::string ChildProcess::output() const {
  return readFile(_outPath);
}

std::string ChildProcess::waitForLine(const std::string& prefix, double seconds) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    std::istringstream lines(output());
    for (std::string line; std::getline(lines, line);)
      if (line.rfind(prefix, 0) == 0) return line;
    int status = 0;
    if (waitpid(_pid, &status, WNOHANG) == _pid) {
      _stopped = true;
      throw std::runtime_error("the program ended early: " + readFile(_errPath));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  throw std::runtime_error("no line starting with '" + prefix + "' in: " + output());
}

ProcessResult ChildProcess::stop(int signal) {
  if (_stopped) return {};
  _stopped = true;
  const long peak = peakRssKb();
  ::kill(_pid, signal);
  ProcessResult r = reap(_pid, _outPath, _errPath);
  r.maxRssKb = std::max(r.maxRssKb, peak);
  return r;
}

SyncdProcess::SyncdProcess(const std::string& binary, const std::string& dataDir,
                           const std::vector<std::string>& extraArgs)
    : _binary(binary), _dataDir(dataDir), _child([&] {
        std::vector<std::string> argv = {binary, "--data", dataDir, "--port", "0"};
        argv.insert(argv.end(), extraArgs.begin(), extraArgs.end());
        return argv;
      }()) {
  std::string line = _child.waitForLine("listening ");
  _base = line.substr(std::string("listening ").size());
}

void SyncdProcess::addUser(const std::string& name, const std::string& password) {
  ProcessResult r = runProcess({_binary, "--data", _dataDir, "adduser", name}, {}, password + "\n");
  if (r.status != 0) throw std::runtime_error("adduser failed: " + r.err);
}

}  // namespace rivo::test
