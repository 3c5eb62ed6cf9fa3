// Opening stores: owner-only files, the tables a new store gets, per-thread connections.
#include <sys/stat.h>

#include <thread>

#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

int Mode(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return -1;
  return info.st_mode & 07777;
}

using ConnectionTest = StoreTest;

TEST_F(ConnectionTest, NewStoreFilesAndDirectoryAreOwnerOnly) {
  auto conn = Conn();
  ASSERT_TRUE(conn);
  // A write makes sure the write-ahead log exists.
  ASSERT_EQ(DBStore::WriteKeyValue("k", "v", conn), 0);
  EXPECT_EQ(Mode(dir_.File("store")), 0700);
  EXPECT_EQ(Mode(store_path_), 0600);
  EXPECT_EQ(Mode(store_path_ + "-wal"), 0600);
  EXPECT_EQ(Mode(store_path_ + "-shm"), 0600);
}

TEST_F(ConnectionTest, NewStoreUsesWalFullSyncAndRecordsSchemaVersion) {
  auto conn = Conn();
  ASSERT_TRUE(conn);
  EXPECT_EQ(QueryText(Db(conn), "PRAGMA journal_mode"), "wal");
  EXPECT_EQ(QueryText(Db(conn), "PRAGMA synchronous"), "2");  // FULL
  EXPECT_EQ(QueryText(Db(conn), "PRAGMA user_version"),
            std::to_string(DBStore::kStoreSchemaVersion));
}

TEST_F(ConnectionTest, ConfigRowGetsDefaultsAndUniqueKey) {
  sqlite3* db = Db(Conn());
  ASSERT_EQ(RunSql(db,
                   "INSERT INTO Config (Name, ConfigGroup, Component, Identifier) "
                   "VALUES ('k', 'g', 'c', '')"),
            SQLITE_OK);
  EXPECT_EQ(QueryText(db, "SELECT Success FROM Config"), "1");
  EXPECT_EQ(QueryText(db, "SELECT Revision FROM Config"), "1");
  EXPECT_EQ(QueryText(db, "SELECT DesiredValue FROM Config"), "<null>");
  // Both times in the DATETIME(CURRENT_TIMESTAMP) form, taken now.
  EXPECT_EQ(QueryText(db,
                      "SELECT CreationTime = DATETIME(CreationTime) AND "
                      "ABS(STRFTIME('%s', CreationTime) - STRFTIME('%s', 'now')) < 5 "
                      "FROM Config"),
            "1");
  EXPECT_EQ(QueryText(db, "SELECT ModifiedTime = CreationTime FROM Config"), "1");
  // The same four key columns again violate the uniqueness constraint.
  EXPECT_EQ(RunSql(db,
                   "INSERT INTO Config (Name, ConfigGroup, Component, Identifier) "
                   "VALUES ('k', 'g', 'c', '')"),
            SQLITE_CONSTRAINT);
  EXPECT_EQ(RunSql(db,
                   "INSERT INTO Config (Name, ConfigGroup, Component, Identifier) "
                   "VALUES ('k', 'g', 'c', 'i1')"),
            SQLITE_OK);
}

TEST_F(ConnectionTest, UpdateRefreshesModifiedTimeButNotCreationTime) {
  sqlite3* db = Db(Conn());
  ASSERT_EQ(RunSql(db,
                   "INSERT INTO Config (Name, ConfigGroup, Component, CreationTime, "
                   "ModifiedTime) VALUES ('k', 'g', 'c', '2001-01-01 00:00:00', "
                   "'2001-01-01 00:00:00')"),
            SQLITE_OK);
  ASSERT_EQ(RunSql(db, "UPDATE Config SET UserValue = '{}'"), SQLITE_OK);
  EXPECT_EQ(QueryText(db, "SELECT ModifiedTime > '2020' FROM Config"), "1");
  EXPECT_EQ(QueryText(db, "SELECT CreationTime FROM Config"), "2001-01-01 00:00:00");
  // An UPDATE that sets ModifiedTime itself keeps that value.
  ASSERT_EQ(RunSql(db, "UPDATE Config SET ModifiedTime = '2002-02-02 00:00:00'"), SQLITE_OK);
  EXPECT_EQ(QueryText(db, "SELECT ModifiedTime FROM Config"), "2002-02-02 00:00:00");
}

TEST_F(ConnectionTest, OtherTablesExistWithTheirConstraints) {
  sqlite3* db = Db(Conn());
  EXPECT_EQ(RunSql(db,
                   "INSERT INTO DefaultConfig (Name, ConfigGroup, Component, Identifier, "
                   "Version, Value, VitalValue, CachedValue) "
                   "VALUES ('k', 'g', 'c', '', '1.0', '{}', NULL, NULL)"),
            SQLITE_OK);
  EXPECT_EQ(RunSql(db,
                   "INSERT INTO DesiredUserConfig (Name, ConfigGroup, Component, "
                   "Identifier, Version, Value, VitalValue, CachedValue, BootAction) "
                   "VALUES ('k', 'g', 'c', '', '1.0', '{}', NULL, NULL, 'SET')"),
            SQLITE_OK);
  EXPECT_EQ(RunSql(db,
                   "INSERT INTO DesiredUserConfig (Name, ConfigGroup, Component, "
                   "Identifier, BootAction) VALUES ('k', 'g', 'c', 'x', 'REBOOT')"),
            SQLITE_CONSTRAINT);
  EXPECT_EQ(RunSql(db,
                   "INSERT INTO Config (Name, ConfigGroup, Component, Success) "
                   "VALUES ('k', 'g', 'c', 7)"),
            SQLITE_CONSTRAINT);
}

TEST_F(ConnectionTest, ThreadSharesOneConnectionAndOtherThreadsGetTheirOwn) {
  auto first = Conn();
  auto second = Conn();
  EXPECT_EQ(first.get(), second.get());
  std::shared_ptr<DBStore::StoreConnection> from_thread;
  std::thread([&] { from_thread = DBStore::GetConnection(DBStore::kConfigStore, true); }).join();
  ASSERT_TRUE(from_thread);
  EXPECT_NE(from_thread.get(), first.get());
  // The other thread's connection reaches the same file.
  ASSERT_EQ(DBStore::WriteKeyValue("shared", "yes", from_thread), 0);
  std::string value;
  ASSERT_EQ(DBStore::ReadKeyValue("shared", &value, first), 0);
  EXPECT_EQ(value, "yes");
}

TEST_F(ConnectionTest, ChangedStorePathOpensTheNewStore) {
  auto first = Conn();
  ASSERT_EQ(DBStore::WriteKeyValue("where", "first", first), 0);
  std::string other = dir_.File("other.db");
  KorvoSetvault::SetStorePath(other);
  auto second = Conn();
  ASSERT_TRUE(second);
  EXPECT_NE(first.get(), second.get());
  std::string value = "unchanged";
  ASSERT_EQ(DBStore::ReadKeyValue("where", &value, second), 0);
  EXPECT_EQ(value, "");
  // Setting an unrelated path keeps the thread's connection.
  KorvoSetvault::SetSchemaStorePath(dir_.File("schema.db"));
  EXPECT_EQ(Conn().get(), second.get());
}

TEST_F(ConnectionTest, UnopenableStoresGiveEmptyConnectionAndLog) {
  LogCapture log(0);
  dir_.WriteFile("blocker", "x");  // a regular file where the directory should be
  KorvoSetvault::SetStorePath(dir_.File("blocker/store.db"));
  EXPECT_FALSE(DBStore::GetConnection(DBStore::kConfigStore, true));
  EXPECT_NE(DBStore::LastOpenFailure().find("blocker/store.db"), std::string::npos);
  KorvoSetvault::SetStorePath(dir_.File("missing.db"));  // creation not allowed
  EXPECT_FALSE(DBStore::GetConnection(DBStore::kConfigStore, false));
  KorvoSetvault::SetStorePath(store_path_);
  EXPECT_FALSE(DBStore::GetConnection(7, true));  // unknown connection type
  EXPECT_GE(log.Lines().size(), 3u);
}

TEST_F(ConnectionTest, StatementOutlivingItsConnectionIsFinalizedSafely) {
  DBStore::StmtPtr stmt;
  {
    auto conn = OtherConn();
    ASSERT_TRUE(conn);
    stmt = DBStore::internal::Prepare(conn, "SELECT 1", DBStore::kBusyTimeoutMs);
    ASSERT_TRUE(stmt);
  }
  // The connection is gone; the statement still steps and is finalized on reset.
  EXPECT_EQ(sqlite3_step(stmt.get()), SQLITE_ROW);
  stmt.reset();
}

}  // namespace
}  // namespace setvault_test
