#pragma once
// rivo-syncd's HTTP service: the server half of every sync/ method for the accounts of one
// data folder. Requests are served by a pool of threads; each body is size-limited, read as
// it arrives (a full upload goes to a temporary file, never into memory) and checked whole
// before anything is written. One sync at a time per account: its state lives in a
// SyncSession from `start` to `finish`, and is rolled back when a call fails, when it rests
// longer than the idle time-out, or when the server stops.
//
// Threads: bind(), listen() and stop() may be called from any thread; listen() blocks.
// `_accountsMutex` guards `_accounts`; each AccountState's own mutex guards its fields;
// `_logins` guards itself;
// `_mediaSessionsMutex` guards `_mediaSessions`.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "librivo/Json.h"
#include "server/LoginThrottle.h"

namespace httplib {
class Server;
struct Request;
struct Response;
class ContentReader;
}  // namespace httplib

namespace rivo {

class AccountStore;
class SyncSession;

class SyncServer {
 public:
  // A text in the data folder that every sync shows its user (a notice of maintenance, say);
  // read at each sync, so it can change while the server runs. Trailing blanks are dropped.
  static constexpr const char* kMessageFile = "message.txt";
  static constexpr size_t kMaxMessageBytes = 4096;

  struct Options {
    std::string dataDir;
    std::string host = "127.0.0.1";
    int port = 0;  // 0: any free port
    int threads = 8;
    // Seconds a sync may rest between two calls before it is rolled back.
    double idleTimeout = 300;
    // Largest body of a JSON call, as sent and as inflated.
    int64_t maxJsonBytes = int64_t{32} << 20;
    // Largest full upload, as sent and as inflated.
    int64_t maxUploadBytes = int64_t{4} << 30;
    // Failed logins of one account from one address within the window before the server
    // stops trying that pair's passwords until the window has passed.
    int loginFailures = 10;
    double loginWindow = 900;
    // Where the request log goes; null for none.
    std::FILE* log = stdout;
  };

  // Opens the account store; raises std::runtime_error when the data folder can't be used.
  explicit SyncServer(Options options);
  ~SyncServer();
  SyncServer(const SyncServer&) = delete;
  SyncServer& operator=(const SyncServer&) = delete;

  // The port bound (the free one given when asked for 0), or -1.
  int bind();
  // Serves until stop(); open syncs are then rolled back.
  bool listen();
  void stop();

 private:
  // What the server keeps of one account while it runs.
  struct AccountState {
    std::mutex mutex;  // guards the fields below
    std::shared_ptr<SyncSession> session;
    std::chrono::steady_clock::time_point lastUsed;
    bool transferring = false;  // a full upload or download holds the account
    std::mutex mediaMutex;      // held while the account's media store is open
  };
  // A media sync from begin to mediaSanity; any number may run side by side.
  struct MediaSession {
    std::string user;
    std::chrono::steady_clock::time_point lastUsed;
  };
  struct Incoming;
  struct Reply;

  void _handle(const httplib::Request& req, httplib::Response& res,
               const httplib::ContentReader& reader, const std::string& method);
  bool _readBody(const httplib::Request& req, const httplib::ContentReader& reader, bool upload,
                 Incoming& in, Reply& refusal);
  void _handleMedia(const httplib::Request& req, httplib::Response& res,
                    const httplib::ContentReader& reader, const std::string& method);
  Reply _mediaCall(const std::string& method, Incoming& in);
  Reply _mediaBegin(const Incoming& in);
  Reply _dispatch(const std::string& method, Incoming& in, httplib::Response& res);
  Reply _hostKey(const Incoming& in);
  Reply _meta(const std::string& user, AccountState& account);
  Reply _sessionCall(const std::string& user, AccountState& account, const std::string& method,
                     const Incoming& in);
  Reply _upload(const std::string& user, AccountState& account, Incoming& in);
  Reply _download(const std::string& user, const std::shared_ptr<AccountState>& account,
                  httplib::Response& res);
  std::shared_ptr<AccountState> _account(const std::string& user);
  // Creates the account's collection when it has none yet; false when it can't.
  bool _ensureCollection(const std::string& user);
  bool _expired(const AccountState& account) const;
  std::string _message() const;
  void _reapIdle();
  void _abortAll();
  void _log(const httplib::Request& req, const httplib::Response& res);

  Options _options;
  std::unique_ptr<AccountStore> _store;
  LoginThrottle _logins;
  std::unique_ptr<httplib::Server> _http;
  std::mutex _accountsMutex;
  std::map<std::string, std::shared_ptr<AccountState>> _accounts;  // guarded by _accountsMutex
  std::mutex _mediaSessionsMutex;
  std::map<std::string, MediaSession> _mediaSessions;  // by session key; guarded by the above
  std::mutex _logMutex;
  std::thread _reaper;
  std::mutex _reaperMutex;
  std::condition_variable _reaperWake;
  bool _stopping = false;  // guarded by _reaperMutex
};

}  // namespace rivo
