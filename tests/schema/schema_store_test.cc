// The schema store sees a reloaded or changed schema database without a
// restart, skips unusable rows, and a forked child reads through its own
// connection.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "schema/schema_files.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using KorvoSchemaStore::SchemaStore;
using KorvoSetvault::LoadSchemaDefinitions;

using SchemaStoreTest = SchemaFilesTest;

TEST_F(SchemaStoreTest, UnusableRowsAreSkippedAndLogged) {
  std::filesystem::create_directories(db_dir_.File("state"));
  Execute(database_, "CREATE TABLE Other (x)");  // a database without the table reads as empty
  EXPECT_EQ(SchemaStore::GetStore(true)->GetSchemaCache()->Size(), 0u);
  defs_.WriteFile("a.json", Minimal("first"));
  LoadSchemaDefinitions(defs_.path());
  Execute(database_,
          "INSERT INTO SmartnicSchema VALUES ('korvo','test','broken',NULL,'1','{not json'),"
          "('korvo','test','alias',NULL,'1','" +
              Minimal("first") + "')");
  LogCapture log;
  EXPECT_NE(Lookup("first"), nullptr);
  EXPECT_EQ(Lookup("broken"), nullptr);
  EXPECT_EQ(Lookup("alias"), nullptr);
  EXPECT_EQ(log.CountStartingWith(0,
                                  "Skipping unusable schema definition: schema database row "
                                  "korvo/test/broken: not valid JSON"),
            1);
}

TEST_F(SchemaStoreTest, ReloadedOrReplacedDatabaseIsSeenAndAForkedChildReadsAgain) {
  defs_.WriteFile("a.json", Minimal("first"));
  LoadSchemaDefinitions(defs_.path());
  auto before = SchemaStore::GetStore(false);
  auto first = before->GetSchemaObject("korvo", "test", "first");
  EXPECT_EQ(SchemaStore::GetStore(false), before);  // unchanged: the same reading
  auto forced = SchemaStore::GetStore(true);
  EXPECT_NE(forced, before);
  EXPECT_NE(forced->GetSchemaObject("korvo", "test", "first"), nullptr);
  // What was handed out before a reload stays usable and unchanged.
  defs_.WriteFile("a.json", Minimal("first", "2"));
  LoadSchemaDefinitions(defs_.path());
  EXPECT_EQ(Lookup("first")->GetVersion(), "2");
  EXPECT_EQ(first->GetVersion(), "1");
  forced = SchemaStore::GetStore(false);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // The child reads through a connection of its own, not the parent's.
    auto own = SchemaStore::GetStore(false);
    _exit(own != forced && own->GetSchemaObject("korvo", "test", "first") != nullptr ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(SchemaStore::GetStore(false), forced);
  // A new file renamed over the old one has another identity.
  TempDir other;
  other.WriteFile("b.json", Minimal("second"));
  KorvoSetvault::SetSchemaStorePath(other.File("new.db"));
  LoadSchemaDefinitions(other.path());
  KorvoSetvault::SetSchemaStorePath(database_);
  std::filesystem::rename(other.File("new.db"), database_);
  EXPECT_EQ(Lookup("first"), nullptr);
  EXPECT_NE(Lookup("second"), nullptr);
}

// The cheap change check sees commits by another connection, right after a
// load and to a file left alone for seconds, in both journal modes.
class SchemaStoreStampsTest : public SchemaFilesTest,
                              public ::testing::WithParamInterface<const char*> {};

TEST_P(SchemaStoreStampsTest, CommitsOfAnotherConnectionAreSeen) {
  defs_.WriteFile("first.json", Minimal("first"));
  defs_.WriteFile("second.json", Minimal("second"));
  ASSERT_EQ(LoadSchemaDefinitions(defs_.path()), 2u);
  Execute(database_, std::string("PRAGMA journal_mode=") + GetParam());
  ASSERT_NE(Lookup("first"), nullptr);
  Execute(database_, "DELETE FROM SmartnicSchema WHERE Name = 'first'");
  EXPECT_EQ(Lookup("first"), nullptr);
  // Past the window in which a recently written file is always asked for its
  // data version: only the cheap check remains.
  sleep(3);
  ASSERT_NE(Lookup("second"), nullptr);
  Execute(database_, "DELETE FROM SmartnicSchema WHERE Name = 'second'");
  EXPECT_EQ(Lookup("second"), nullptr);
}

INSTANTIATE_TEST_SUITE_P(JournalModes, SchemaStoreStampsTest, ::testing::Values("DELETE", "WAL"));

}  // namespace
}  // namespace setvault_test
