// Runs the real `rivo` binary the way a user does and checks what it prints and returns.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "librivo/DB.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

struct Result {
  int status = -1;
  std::string out, err;
};

std::string quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

Result rivo(const std::string& args, const test::TempDir& scratch) {
  std::string errPath = scratch.file("stderr.txt");
  std::string cmd = std::string(RIVO_BINARY) + " " + args + " 2>" + quote(errPath) + " </dev/null";
  Result r;
  FILE* p = popen(cmd.c_str(), "r");
  std::array<char, 4096> buf{};
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) r.out.append(buf.data(), n);
  int status = pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.err = test::readFile(errPath);
  return r;
}

class CommandLine : public ::testing::Test {
 protected:
  std::string data() const { return quote(dir.file("data")); }
  std::string collection(const std::string& profile = "User 1") const {
    return dir.file("data/profiles/" + profile + "/collection.rivo2");
  }
  test::TempDir dir;
  test::TempDir scratch;
};

TEST_F(CommandLine, InitCreatesAndPrintsTheCollectionThenTheSummaryReadsIt) {
  Result r = rivo("--data " + data() + " init", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, collection() + "\n");
  EXPECT_TRUE(std::filesystem::exists(collection()));
  EXPECT_TRUE(std::filesystem::is_directory(dir.file("data/Documents")));
  EXPECT_TRUE(std::filesystem::is_directory(dir.file("data/tmp")));
  EXPECT_TRUE(std::filesystem::exists(dir.file("data/Preferences.json")));

  r = rivo("--data " + data(), scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Profile:    User 1\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Collection: " + collection() + "\n"), std::string::npos);
  EXPECT_NE(r.out.find("Notes:      0\nCards:      0\n"), std::string::npos);

  r = rivo("--data " + data() + " --profile Work init", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, collection("Work") + "\n");
}

TEST_F(CommandLine, CheckRepairsAndReportsOrSaysAllIsWell) {
  ASSERT_EQ(rivo("--data " + data() + " init", scratch).status, 0);
  Result r = rivo("--data " + data() + " check", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Database rebuilt and optimized.\n");
  {
    DB db(collection());
    db.run("insert into cards values (1, 999, 1, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '')");
    db.commit();
  }
  r = rivo("--data " + data() + " check", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Deleted 1 cards with missing note.\n");
}

TEST_F(CommandLine, BadUsageExitsTwoAndHelpZero) {
  EXPECT_EQ(rivo("--nonsense", scratch).status, 2);
  EXPECT_EQ(rivo("frobnicate", scratch).status, 2);
  Result r = rivo("init --help", scratch);
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Usage:"), std::string::npos);
  EXPECT_EQ(rivo("--help", scratch).status, 0);
}

TEST_F(CommandLine, ProblemsGiveOneLineAndExitOne) {
  // A data folder that isn't there (for anything but init).
  Result r = rivo("--data " + data(), scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  EXPECT_EQ(r.err.rfind("rivo: ", 0), 0u);
  EXPECT_FALSE(std::filesystem::exists(dir.file("data")));

  // A data folder that is a file.
  test::writeFile(dir.file("file"), "x");
  r = rivo("--data " + quote(dir.file("file")) + " init", scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(test::readFile(dir.file("file")), "x");

  // Profile names that can't be used.
  for (const char* name : {"a_b", "../up", "a/b", "", "  "}) {
    r = rivo("--data " + data() + " --profile " + quote(name) + " init", scratch);
    EXPECT_EQ(r.status, 1) << name << ": " << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("up")));

  // A profile that doesn't exist isn't made by a plain start.
  ASSERT_EQ(rivo("--data " + data() + " init", scratch).status, 0);
  r = rivo("--data " + data() + " --profile Nobody", scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(std::filesystem::exists(dir.file("data/profiles/Nobody")));
}

TEST_F(CommandLine, ADamagedCollectionIsMovedAsideAndAFreshOneOpens) {
  ASSERT_EQ(rivo("--data " + data() + " init", scratch).status, 0);
  std::string junk = "not a collection at all\n";
  test::writeFile(collection(), junk);
  Result r = rivo("--data " + data(), scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("Your collection couldn't be loaded."), std::string::npos) << r.err;
  EXPECT_EQ(test::readFile(dir.file("data/Documents/corrupt.rivo2")), junk);
  DB db(collection());
  EXPECT_EQ(toText(*db.scalar("pragma integrity_check")), "ok");
}

}  // namespace
}  // namespace rivo
