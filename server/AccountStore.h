#pragma once
// The accounts of a rivo-syncd data folder: names with salted, slow password hashes, and the
// host keys handed out at login, stored only as hashes, in DIR/accounts.db. Each account's
// collection lives in DIR/users/NAME/.
//
// Any thread may call; `_mutex` serialises the statements and their commits. Other processes
// (adduser while the server runs) share the file through SQLite's own locking, so nothing is
// cached: every question reads the file.

#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace rivo {

class DB;

class AccountStore {
 public:
  // Opens DIR/accounts.db, creating it and its tables if needed; raises std::runtime_error
  // when it can't.
  explicit AccountStore(std::string dataDir);
  ~AccountStore();

  // Letters, digits and ". _ - @ +", 1 to 64 of them, not starting with a dot.
  static bool isValidName(const std::string& name);

  // These raise std::runtime_error with a message for the operator.
  void addUser(const std::string& name, const std::string& password);
  // Also ends every host key of the account, so that a leaked one stops working.
  void setPassword(const std::string& name, const std::string& password);
  // Removes the account, its host keys and its folder.
  void deleteUser(const std::string& name);
  bool hasUser(const std::string& name);

  // A new host key when the password is right; earlier keys stay valid.
  std::optional<std::string> login(const std::string& name, const std::string& password);
  // The account a host key belongs to.
  std::optional<std::string> userForKey(const std::string& hkey);

  std::string userFolder(const std::string& name) const;
  std::string collectionPath(const std::string& name) const;
  const std::string& dataDir() const { return _dataDir; }

 private:
  std::string _dataDir;
  std::mutex _mutex;
  std::unique_ptr<DB> _db;
};

}  // namespace rivo
