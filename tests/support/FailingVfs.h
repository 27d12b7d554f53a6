#pragma once
// A file layer for SQLite that fails on demand, for testing how the program meets a disk
// that errs or fills up: it wraps the default layer and passes every call through, except
// that the Nth write, sync or lock from the moment it is armed fails with the code given,
// and syncs that don't fail return at once.
//
// While the object lives it is SQLite's default, so every connection opened meanwhile goes
// through it; such connections must be closed before it goes. Arming and the counters are
// atomic, so any thread may arm it, but one test at a time uses it.

#include <sqlite3.h>

#include <atomic>

namespace rivo::test {

class FailingVfs {
 public:
  enum class Op { Write, Sync, Lock };

  FailingVfs();
  ~FailingVfs();
  FailingVfs(const FailingVfs&) = delete;
  FailingVfs& operator=(const FailingVfs&) = delete;

  // The `n`th `op` from now (1 is the next) fails with `code` (SQLITE_IOERR, given the
  // extended code of the op, or SQLITE_FULL); with `persist`, so does every one after it.
  void failAt(Op op, int n, int code, bool persist = false);
  // Every call passes through again.
  void disarm();
  // Whether an armed failure has been returned since failAt.
  bool fired() const { return _fired; }

  // Called by the wrapped files: the code the call must fail with, or SQLITE_OK.
  int failure(Op op);
  sqlite3_vfs* real() const { return _real; }

 private:
  sqlite3_vfs _vfs{};
  sqlite3_vfs* _real = nullptr;
  std::atomic<bool> _armed{false}, _fired{false};
  std::atomic<int> _left{0};
  Op _op = Op::Write;
  int _code = SQLITE_OK;
  bool _persist = false;
};

}  // namespace rivo::test
