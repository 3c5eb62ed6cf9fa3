// The path watch that lets the read path skip its stat() of the store and schema files: every
// change that may make a path name another file, or another content, must show, and a change it
// cannot follow must fall back to looking. Changes by other processes are seen through the store's
// and the schema store's own multi-process tests.
#include "dbstore/path_watch.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>

#include "support/temp_dir.h"

namespace setvault_test {
namespace {

using DBStore::internal::PathWatch;

void Append(const std::string& path, const char* text) {
  ASSERT_TRUE(std::ofstream(path, std::ios::app) << text) << path;
}

// The watch falls back to looking every time where a process gets no inotify queue: the
// cases below need one.
class PathWatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const int fd = inotify_init1(IN_CLOEXEC);
    if (fd < 0) GTEST_SKIP() << "no inotify queue for this process";
    close(fd);
  }
};

struct WatchCase {
  const char* what;
  PathWatch::What watching;
  std::function<void(const TempDir& dir)> act;
  bool changes;
};

TEST_F(PathWatchTest, ChangesThatMayMakeThePathNameAnotherFileShow) {
  const auto file = [](const TempDir& dir) { return dir.File("sub/db"); };
  const WatchCase cases[] = {
      {"another file renamed over it", PathWatch::kEntry,
       [&](const TempDir& dir) {
         dir.WriteFile("sub/new", "x");
         ASSERT_EQ(rename(dir.File("sub/new").c_str(), file(dir).c_str()), 0);
       },
       true},
      {"removed", PathWatch::kEntry,
       [&](const TempDir& dir) { ASSERT_EQ(unlink(file(dir).c_str()), 0); }, true},
      {"its directory moved away and made again", PathWatch::kEntry,
       [&](const TempDir& dir) {
         ASSERT_EQ(rename(dir.File("sub").c_str(), dir.File("old").c_str()), 0);
         ASSERT_EQ(mkdir(dir.File("sub").c_str(), 0700), 0);
       },
       true},
      {"its mode changed", PathWatch::kEntry,
       [&](const TempDir& dir) { ASSERT_EQ(chmod(file(dir).c_str(), 0400), 0); }, true},
      {"written, contents not watched", PathWatch::kEntry,
       [&](const TempDir& dir) { Append(file(dir), "y"); }, false},
      {"written", PathWatch::kEntryAndContents, [&](const TempDir& dir) { Append(file(dir), "y"); },
       true},
      {"its write-ahead log written", PathWatch::kEntryAndContents,
       [&](const TempDir& dir) { Append(file(dir) + "-wal", "y"); }, true},
      {"another file of the directory written and replaced", PathWatch::kEntryAndContents,
       [&](const TempDir& dir) {
         Append(dir.File("sub/dbx"), "y");
         ASSERT_EQ(rename(dir.File("sub/dbx").c_str(), dir.File("sub/db2").c_str()), 0);
       },
       false},
  };
  for (const WatchCase& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir dir;
    ASSERT_EQ(mkdir(dir.File("sub").c_str(), 0700), 0);
    dir.WriteFile("sub/db", "x");
    PathWatch watch(file(dir), c.watching);
    const uint64_t before = watch.Version();
    EXPECT_NE(before, 0u);
    EXPECT_EQ(watch.Version(), before);  // nothing happened
    c.act(dir);
    EXPECT_EQ(watch.Version() != before, c.changes);
  }
}

TEST_F(PathWatchTest, ACallLooksOnceAndTheNextLookSeesWhatCameAfter) {
  TempDir dir;
  const std::string path = dir.WriteFile("db", "x");
  PathWatch watch(path, PathWatch::kEntry);
  uint64_t seen = watch.Version();
  {
    DBStore::internal::OneLookPerCall call;
    ASSERT_EQ(unlink(path.c_str()), 0);
    EXPECT_NE(watch.Version(), seen);  // the call's look sees what came before it
    seen = watch.Version();
    dir.WriteFile("db", "y");
    EXPECT_EQ(watch.Version(), seen);  // and only that
  }
  EXPECT_NE(watch.Version(), seen);
}

TEST(PathWatchFallbackTest, APathItCannotFollowLooksEveryTime) {
  PathWatch relative("relative/db", PathWatch::kEntry);
  EXPECT_NE(relative.Version(), relative.Version());
}

}  // namespace
}  // namespace setvault_test
