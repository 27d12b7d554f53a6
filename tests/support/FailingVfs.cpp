#include "tests/support/FailingVfs.h"

#include <cstddef>
#include <new>
#include <stdexcept>

namespace rivo::test {

namespace {

// Our file, followed in the same allocation by the real layer's own.
struct File {
  sqlite3_file base;
  FailingVfs* vfs;
  sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

File* fileOf(sqlite3_file* f) {
  return reinterpret_cast<File*>(f);
}
sqlite3_file* realOf(sqlite3_file* f) {
  return fileOf(f)->real();
}
const sqlite3_io_methods& realMethods(sqlite3_file* f) {
  return *realOf(f)->pMethods;
}

int extended(int code, FailingVfs::Op op) {
  if (code != SQLITE_IOERR) return code;
  switch (op) {
    case FailingVfs::Op::Write:
      return SQLITE_IOERR_WRITE;
    case FailingVfs::Op::Sync:
      return SQLITE_IOERR_FSYNC;
    case FailingVfs::Op::Lock:
      return SQLITE_IOERR_LOCK;
  }
  return code;
}

int xClose(sqlite3_file* f) {
  const int rc = realMethods(f).xClose(realOf(f));
  f->pMethods = nullptr;
  return rc;
}
int xRead(sqlite3_file* f, void* buf, int n, sqlite3_int64 off) {
  return realMethods(f).xRead(realOf(f), buf, n, off);
}
int xWrite(sqlite3_file* f, const void* buf, int n, sqlite3_int64 off) {
  if (int rc = fileOf(f)->vfs->failure(FailingVfs::Op::Write)) return rc;
  return realMethods(f).xWrite(realOf(f), buf, n, off);
}
int xTruncate(sqlite3_file* f, sqlite3_int64 size) {
  return realMethods(f).xTruncate(realOf(f), size);
}
// A sync that doesn't fail returns at once: these tests check what the program makes of a
// failure, not what the disk keeps through a power cut, and real syncs would make a sweep slow.
int xSync(sqlite3_file* f, int) {
  return fileOf(f)->vfs->failure(FailingVfs::Op::Sync);
}
int xFileSize(sqlite3_file* f, sqlite3_int64* size) {
  return realMethods(f).xFileSize(realOf(f), size);
}
int xLock(sqlite3_file* f, int level) {
  if (int rc = fileOf(f)->vfs->failure(FailingVfs::Op::Lock)) return rc;
  return realMethods(f).xLock(realOf(f), level);
}
int xUnlock(sqlite3_file* f, int level) {
  return realMethods(f).xUnlock(realOf(f), level);
}
int xCheckReservedLock(sqlite3_file* f, int* out) {
  return realMethods(f).xCheckReservedLock(realOf(f), out);
}
int xFileControl(sqlite3_file* f, int op, void* arg) {
  return realMethods(f).xFileControl(realOf(f), op, arg);
}
int xSectorSize(sqlite3_file* f) {
  return realMethods(f).xSectorSize(realOf(f));
}
int xDeviceCharacteristics(sqlite3_file* f) {
  return realMethods(f).xDeviceCharacteristics(realOf(f));
}

// Version 1 of the methods: no shared memory and no mapping, which the rollback journal the
// collection uses needs neither of.
const sqlite3_io_methods kMethods = {1,
                                     xClose,
                                     xRead,
                                     xWrite,
                                     xTruncate,
                                     xSync,
                                     xFileSize,
                                     xLock,
                                     xUnlock,
                                     xCheckReservedLock,
                                     xFileControl,
                                     xSectorSize,
                                     xDeviceCharacteristics,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr};

FailingVfs* self(sqlite3_vfs* vfs) {
  return static_cast<FailingVfs*>(vfs->pAppData);
}

int xOpen(sqlite3_vfs* vfs, sqlite3_filename name, sqlite3_file* f, int flags, int* outFlags) {
  File* file = fileOf(f);
  file->vfs = self(vfs);
  sqlite3_vfs* real = file->vfs->real();
  const int rc = real->xOpen(real, name, file->real(), flags, outFlags);
  f->pMethods = file->real()->pMethods ? &kMethods : nullptr;
  return rc;
}
int xDelete(sqlite3_vfs* vfs, const char* name, int syncDir) {
  sqlite3_vfs* real = self(vfs)->real();
  return real->xDelete(real, name, syncDir);
}
int xAccess(sqlite3_vfs* vfs, const char* name, int flags, int* out) {
  sqlite3_vfs* real = self(vfs)->real();
  return real->xAccess(real, name, flags, out);
}
int xFullPathname(sqlite3_vfs* vfs, const char* name, int n, char* out) {
  sqlite3_vfs* real = self(vfs)->real();
  return real->xFullPathname(real, name, n, out);
}
int xRandomness(sqlite3_vfs* vfs, int n, char* out) {
  sqlite3_vfs* real = self(vfs)->real();
  return real->xRandomness(real, n, out);
}
int xSleep(sqlite3_vfs* vfs, int us) {
  sqlite3_vfs* real = self(vfs)->real();
  return real->xSleep(real, us);
}
int xCurrentTime(sqlite3_vfs* vfs, double* out) {
  sqlite3_vfs* real = self(vfs)->real();
  return real->xCurrentTime(real, out);
}
int xGetLastError(sqlite3_vfs* vfs, int n, char* out) {
  sqlite3_vfs* real = self(vfs)->real();
  return real->xGetLastError(real, n, out);
}

}  // namespace

FailingVfs::FailingVfs() : _real(sqlite3_vfs_find(nullptr)) {
  if (!_real) throw std::runtime_error("no default SQLite file layer");
  _vfs.iVersion = 1;
  _vfs.szOsFile = static_cast<int>(sizeof(File)) + _real->szOsFile;
  _vfs.mxPathname = _real->mxPathname;
  _vfs.zName = "rivo-failing";
  _vfs.pAppData = this;
  _vfs.xOpen = xOpen;
  _vfs.xDelete = xDelete;
  _vfs.xAccess = xAccess;
  _vfs.xFullPathname = xFullPathname;
  _vfs.xRandomness = xRandomness;
  _vfs.xSleep = xSleep;
  _vfs.xCurrentTime = xCurrentTime;
  _vfs.xGetLastError = xGetLastError;
  sqlite3_vfs_register(&_vfs, 1);
}

FailingVfs::~FailingVfs() {
  sqlite3_vfs_unregister(&_vfs);
  sqlite3_vfs_register(_real, 1);
}

void FailingVfs::failAt(Op op, int n, int code, bool persist) {
  _armed = false;
  _op = op;
  _code = code;
  _persist = persist;
  _left = n;
  _fired = false;
  _armed = true;
}

void FailingVfs::disarm() {
  _armed = false;
}

int FailingVfs::failure(Op op) {
  if (!_armed || op != _op) return SQLITE_OK;
  const int left = --_left;
  if (left > 0 || (left < 0 && !_persist)) return SQLITE_OK;
  _fired = true;
  return extended(_code, op);
}

}  // namespace rivo::test
