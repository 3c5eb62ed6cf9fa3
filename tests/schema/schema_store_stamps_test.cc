// The schema store's cheap change check: a schema database left alone for a
// while is re-read when another connection commits to it, in rollback-journal
// and in write-ahead-log mode alike.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <string>

#include "schema/schema_store.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"
#include "support/temp_dir.h"

namespace {

using KorvoSchemaStore::SchemaStore;

void Execute(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << sqlite3_errmsg(db);
  sqlite3_close(db);
}

bool Known(const char* key) {
  return SchemaStore::GetStore(false)->GetSchemaObject("korvo", "test", key) != nullptr;
}

class SchemaStoreStampsTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    database_ = dir_.File("schema.db");
    KorvoSetvault::SetSchemaStorePath(database_);
    KorvoSetvault::SetStorePath(dir_.File("store.db"));
    for (const char* key : {"first", "second"}) {
      dir_.WriteFile(std::string(key) + ".json",
                     std::string(R"({"component":"korvo","group":"test","key":")") + key +
                         R"(","version":"1","schema":{"type":"object"}})");
    }
    ASSERT_EQ(KorvoSetvault::LoadSchemaDefinitions(dir_.path()), 2u);
    Execute(database_, std::string("PRAGMA journal_mode=") + GetParam());
  }
  void TearDown() override {
    KorvoSetvault::SetSchemaStorePath(KorvoSetvault::kDefaultSchemaStorePath);
    KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath);
  }

  setvault_test::TempDir dir_;
  std::string database_;
};

TEST_P(SchemaStoreStampsTest, CommitToAFileUnchangedForSecondsIsSeen) {
  ASSERT_TRUE(Known("first"));
  // Past the window in which a recently written file is always asked for
  // its data version: only the cheap check remains.
  sleep(3);
  ASSERT_TRUE(Known("first"));
  Execute(database_, "DELETE FROM SmartnicSchema WHERE Name = 'first'");
  EXPECT_FALSE(Known("first"));
  EXPECT_TRUE(Known("second"));
}

TEST_P(SchemaStoreStampsTest, CommitRightAfterALoadIsSeen) {
  ASSERT_TRUE(Known("first"));
  Execute(database_, "DELETE FROM SmartnicSchema WHERE Name = 'first'");
  EXPECT_FALSE(Known("first"));
  Execute(database_, "DELETE FROM SmartnicSchema WHERE Name = 'second'");
  EXPECT_FALSE(Known("second"));
}

INSTANTIATE_TEST_SUITE_P(JournalModes, SchemaStoreStampsTest, ::testing::Values("DELETE", "WAL"));

}  // namespace
