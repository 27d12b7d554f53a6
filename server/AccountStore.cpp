#include "server/AccountStore.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <filesystem>
#include <stdexcept>
#include <vector>

#include "librivo/Clock.h"
#include "librivo/Compression.h"
#include "librivo/DB.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

constexpr int kIterations = 210000;
constexpr int kSaltBytes = 16;
constexpr int kHashBytes = 32;

Blob randomBytes(size_t n) {
  Blob out(n);
  if (RAND_bytes(out.data(), static_cast<int>(n)) != 1)
    throw std::runtime_error("no random bytes available");
  return out;
}

Blob pbkdf2(const std::string& password, const Blob& salt, int iterations) {
  Blob out(kHashBytes);
  if (PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), salt.data(),
                        static_cast<int>(salt.size()), iterations, EVP_sha256(), kHashBytes,
                        out.data()) != 1)
    throw std::runtime_error("password hashing failed");
  return out;
}

std::string sha256Hex(const std::string& text) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
  return hexadecimalString(std::string_view(reinterpret_cast<char*>(digest), sizeof digest));
}

Blob blobOf(const Value& v) {
  if (auto b = std::get_if<Blob>(&v)) return *b;
  return {};
}

}  // namespace

AccountStore::AccountStore(std::string dataDir) : _dataDir(std::move(dataDir)) {
  std::error_code ec;
  fs::create_directories(fs::path(_dataDir) / "users", ec);
  if (ec) throw std::runtime_error("can't create " + _dataDir + "/users: " + ec.message());
  _db = std::make_unique<DB>(_dataDir + "/accounts.db");
  if (!_db->isOpen()) throw std::runtime_error("can't open " + _dataDir + "/accounts.db");
  _db->run(
      "create table if not exists users (name text primary key, salt blob not null, hash blob "
      "not null, iterations integer not null, created integer not null)");
  _db->run(
      "create table if not exists hostkeys (hash text primary key, name text not null, created "
      "integer not null)");
  _db->commit();
}

AccountStore::~AccountStore() = default;

bool AccountStore::isValidName(const std::string& name) {
  if (name.empty() || name.size() > 64 || name[0] == '.') return false;
  for (unsigned char c : name)
    if (!std::isalnum(c) && c != '.' && c != '_' && c != '-' && c != '@' && c != '+') return false;
  return true;
}

void AccountStore::addUser(const std::string& name, const std::string& password) {
  if (!isValidName(name))
    throw std::runtime_error("'" + name +
                             "' can't be an account name: use letters, digits and . _ - @ +");
  if (password.empty()) throw std::runtime_error("the password is empty");
  Blob salt = randomBytes(kSaltBytes);
  Blob hash = pbkdf2(password, salt, kIterations);
  std::lock_guard lock(_mutex);
  if (_db->scalar("select 1 from users where name = ?", {name}))
    throw std::runtime_error("there is already an account named '" + name + "'");
  _db->run("insert into users values (?, ?, ?, ?, ?)",
           {name, salt, hash, int64_t{kIterations}, static_cast<int64_t>(intTime(1))});
  _db->commit();
  std::error_code ec;
  fs::create_directories(userFolder(name), ec);
}

void AccountStore::setPassword(const std::string& name, const std::string& password) {
  if (password.empty()) throw std::runtime_error("the password is empty");
  Blob salt = randomBytes(kSaltBytes);
  Blob hash = pbkdf2(password, salt, kIterations);
  std::lock_guard lock(_mutex);
  if (!_db->scalar("select 1 from users where name = ?", {name}))
    throw std::runtime_error("there is no account named '" + name + "'");
  _db->run("update users set salt = ?, hash = ?, iterations = ? where name = ?",
           {salt, hash, int64_t{kIterations}, name});
  _db->run("delete from hostkeys where name = ?", {name});
  _db->commit();
}

void AccountStore::deleteUser(const std::string& name) {
  {
    std::lock_guard lock(_mutex);
    if (!_db->scalar("select 1 from users where name = ?", {name}))
      throw std::runtime_error("there is no account named '" + name + "'");
    _db->run("delete from hostkeys where name = ?", {name});
    _db->run("delete from users where name = ?", {name});
    _db->commit();
  }
  if (isValidName(name)) {
    std::error_code ec;
    fs::remove_all(userFolder(name), ec);
    if (ec) throw std::runtime_error("the account is gone, but its folder stays: " + ec.message());
  }
}

bool AccountStore::hasUser(const std::string& name) {
  std::lock_guard lock(_mutex);
  return _db->scalar("select 1 from users where name = ?", {name}).has_value();
}

std::optional<std::string> AccountStore::login(const std::string& name,
                                               const std::string& password) {
  std::optional<Row> row;
  {
    std::lock_guard lock(_mutex);
    row = _db->first("select salt, hash, iterations from users where name = ?", {name});
  }
  // An unknown name costs the same time as a wrong password.
  Blob salt = row ? blobOf((*row)[0]) : Blob(kSaltBytes, 0);
  Blob stored = row ? blobOf((*row)[1]) : Blob(kHashBytes, 0);
  int iterations = row ? static_cast<int>(toInt((*row)[2])) : kIterations;
  Blob hash = pbkdf2(password, salt, iterations);
  if (!row || stored.size() != hash.size() ||
      CRYPTO_memcmp(stored.data(), hash.data(), hash.size()) != 0)
    return std::nullopt;
  Blob keyBytes = randomBytes(32);
  std::string key = hexadecimalString(keyBytes);
  std::lock_guard lock(_mutex);
  _db->run("insert into hostkeys values (?, ?, ?)",
           {sha256Hex(key), name, static_cast<int64_t>(intTime(1))});
  _db->commit();
  return key;
}

std::optional<std::string> AccountStore::userForKey(const std::string& hkey) {
  if (hkey.empty() || hkey.size() > 256) return std::nullopt;
  std::lock_guard lock(_mutex);
  auto name =
      _db->scalar("select k.name from hostkeys k join users u on u.name = k.name where k.hash = ?",
                  {sha256Hex(hkey)});
  if (!name) return std::nullopt;
  return toText(*name);
}

std::string AccountStore::userFolder(const std::string& name) const {
  return _dataDir + "/users/" + name;
}

std::string AccountStore::collectionPath(const std::string& name) const {
  return userFolder(name) + "/collection.rivo2";
}

}  // namespace rivo
