// The pieces rivo-syncd reads requests with, and its account store.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "librivo/Compression.h"
#include "server/AccountStore.h"
#include "server/GzipInflater.h"
#include "server/LoginThrottle.h"
#include "server/MultipartReader.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

struct Parsed {
  std::map<std::string, std::string> parts;
  bool ok = false;
};

// Feeds the body in pieces of `step` bytes.
Parsed parse(const std::string& body, size_t step) {
  Parsed p;
  std::string name;
  MultipartReader::Handler h;
  h.begin = [&](const std::string& n, const std::string&) {
    name = n;
    return true;
  };
  h.data = [&](const char* d, size_t size) {
    p.parts[name].append(d, size);
    return true;
  };
  h.end = [] { return true; };
  MultipartReader reader("B", h);
  bool fed = true;
  for (size_t i = 0; i < body.size() && fed; i += step)
    fed = reader.feed(body.data() + i, std::min(step, body.size() - i));
  p.ok = fed && reader.finish();
  return p;
}

TEST(MultipartReader, ReadsPartsInAnyPiecesAndTakesABodyEndingAfterAField) {
  const std::string fields =
      "--B\r\nContent-Disposition: form-data; name=\"k\"\r\n\r\nkey\r\n"
      "--B\r\nContent-Disposition: form-data; name=\"s\"\r\n\r\nab\r\n--Bx\r\n";
  const std::string file =
      "--B\r\nContent-Disposition: form-data; name=\"data\"; "
      "filename=\"data\"\r\nContent-Type: application/octet-stream\r\n\r\n";
  const std::string payload("\r\n--\r\n--B-almost\r\n--B\x00\xff", 23);
  for (size_t step : {size_t{1}, size_t{3}, size_t{1000}}) {
    SCOPED_TRACE(step);
    Parsed p = parse(fields + file + payload + "\r\n--B--\r\n", step);
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(p.parts["k"], "key");
    EXPECT_EQ(p.parts["s"], "ab\r\n--Bx");
    EXPECT_EQ(p.parts["data"], payload);
    // The protocol's bodies without payload end after the last field.
    p = parse(fields, step);
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(p.parts["s"], "ab\r\n--Bx");
  }
  EXPECT_FALSE(parse(fields + file + payload, 7).ok);  // a file cut short
  EXPECT_FALSE(parse("garbage", 7).ok);
  EXPECT_FALSE(parse("--B\r\nno headers end", 7).ok);
  EXPECT_EQ(MultipartReader::boundaryOf("multipart/form-data; boundary=Rivo-sync-boundary"),
            "Rivo-sync-boundary");
  EXPECT_EQ(MultipartReader::boundaryOf("application/json"), "");
}

std::string inflateAll(const std::string& gz, size_t step, bool* ok) {
  std::string out;
  GzipInflater inflater([&](const char* d, size_t n) {
    out.append(d, n);
    return true;
  });
  bool fed = true;
  for (size_t i = 0; i < gz.size() && fed; i += step)
    fed = inflater.feed(gz.data() + i, std::min(step, gz.size() - i));
  *ok = fed && inflater.finish();
  return out;
}

TEST(GzipInflater, ReadsMembersAsOneStreamAndRefusesDamage) {
  std::string a(300000, 'a'), b = "the second member";
  std::string gz = gzipDeflate(a, 6) + gzipDeflate(b, 6);
  bool ok = false;
  EXPECT_EQ(inflateAll(gz, 4096, &ok), a + b);
  EXPECT_TRUE(ok);
  inflateAll(gz.substr(0, gz.size() - 5), 4096, &ok);
  EXPECT_FALSE(ok);
  inflateAll("not gzip at all", 4, &ok);
  EXPECT_FALSE(ok);
  EXPECT_EQ(inflateAll("", 1, &ok), "");
  EXPECT_TRUE(ok);
}

TEST(AccountStore, LogsInWithKeysThatLastUntilThePasswordChanges) {
  test::TempDir dir;
  AccountStore store(dir.path());
  store.addUser("ann@example.org", "pw");
  EXPECT_THROW(store.addUser("ann@example.org", "other"), std::runtime_error);
  for (const char* bad : {"", "../x", "a/b", ".hidden", "with space"})
    EXPECT_THROW(store.addUser(bad, "pw"), std::runtime_error) << bad;
  EXPECT_FALSE(store.login("ann@example.org", "wrong"));
  EXPECT_FALSE(store.login("nobody", "pw"));
  auto k1 = store.login("ann@example.org", "pw");
  auto k2 = store.login("ann@example.org", "pw");
  ASSERT_TRUE(k1 && k2);
  EXPECT_NE(*k1, *k2);
  EXPECT_EQ(AccountStore(dir.path()).userForKey(*k1), "ann@example.org");
  EXPECT_FALSE(store.userForKey("0123"));
  store.setPassword("ann@example.org", "new");
  EXPECT_FALSE(store.userForKey(*k2));
  EXPECT_TRUE(store.login("ann@example.org", "new"));
  test::writeFile(store.collectionPath("ann@example.org"), "x");
  store.deleteUser("ann@example.org");
  EXPECT_FALSE(std::filesystem::exists(store.userFolder("ann@example.org")));
  EXPECT_FALSE(store.hasUser("ann@example.org"));
}

}  // namespace
}  // namespace rivo

namespace rivo {
namespace {

TEST(LoginThrottle, RefusesAKeyWithinItsWindowOnlyAndStaysBounded) {
  using namespace std::chrono_literals;
  LoginThrottle throttle(2, 60s);
  const auto t0 = LoginThrottle::Clock::time_point{};
  throttle.failed("a bob", t0);
  EXPECT_TRUE(throttle.allowed("a bob", t0 + 1s));
  throttle.failed("a bob", t0 + 30s);
  EXPECT_FALSE(throttle.allowed("a bob", t0 + 31s));
  EXPECT_TRUE(throttle.allowed("a ann", t0 + 31s));
  EXPECT_TRUE(throttle.allowed("b bob", t0 + 31s));
  // The first failure leaves the window: one try again.
  EXPECT_TRUE(throttle.allowed("a bob", t0 + 60s));
  throttle.succeeded("a bob");
  throttle.failed("a bob", t0 + 61s);
  EXPECT_TRUE(throttle.allowed("a bob", t0 + 61s));
  // A flood of names keeps the newest failures, not the table's first.
  for (size_t i = 0; i <= LoginThrottle::kMaxKeys; ++i)
    for (int k = 0; k < 2; ++k) throttle.failed("x " + std::to_string(i), t0 + 62s);
  throttle.failed("late", t0 + 63s);
  throttle.failed("late", t0 + 63s);
  EXPECT_FALSE(throttle.allowed("late", t0 + 63s));
}

}  // namespace
}  // namespace rivo
