// Opening stores: owner-only files, the tables a new store gets, per-thread
// connections.
#include <sys/stat.h>

#include <thread>
#include <utility>
#include <vector>

#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using ConnectionTest = StoreTest;

TEST_F(ConnectionTest, NewStoreIsOwnerOnlyWalFullSyncAndVersioned) {
  auto conn = Conn();
  ASSERT_EQ(DBStore::WriteKeyValue("k", "v", conn),
            0);  // makes the write-ahead log exist
  const std::pair<std::string, unsigned> modes[] = {{dir_.File("store"), 0700},
                                                    {store_path_, 0600},
                                                    {store_path_ + "-wal", 0600},
                                                    {store_path_ + "-shm", 0600}};
  for (const auto& [path, mode] : modes) {
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0) << path;
    EXPECT_EQ(info.st_mode & 07777, mode) << path;
  }
  EXPECT_EQ(QueryText(Db(conn), "PRAGMA journal_mode"), "wal");
  EXPECT_EQ(QueryText(Db(conn), "PRAGMA synchronous"), "2");  // FULL
  EXPECT_EQ(QueryText(Db(conn), "PRAGMA user_version"),
            std::to_string(DBStore::kStoreSchemaVersion));
}

TEST_F(ConnectionTest, TablesKeepTheirDefaultsConstraintsAndTimes) {
  sqlite3* db = Db(Conn());
  const std::string config = "INSERT INTO Config (Name, ConfigGroup, Component, Identifier";
  const std::string desired =
      "INSERT INTO DesiredUserConfig (Name, ConfigGroup, Component, "
      "Identifier, BootAction) ";
  const std::pair<std::string, int> statements[] = {
      {config + ") VALUES ('k', 'g', 'c', '')", SQLITE_OK},
      {config + ") VALUES ('k', 'g', 'c', '')", SQLITE_CONSTRAINT},  // the same four keys
      {config + ") VALUES ('k', 'g', 'c', 'i1')", SQLITE_OK},
      {config + ", Success) VALUES ('k', 'g', 'c', 'i2', 7)", SQLITE_CONSTRAINT},
      {desired + "VALUES ('k', 'g', 'c', '', 'SET')", SQLITE_OK},
      {desired + "VALUES ('k', 'g', 'c', 'x', 'REBOOT')", SQLITE_CONSTRAINT},
      {"INSERT INTO DefaultConfig (Name, ConfigGroup, Component, Identifier, "
       "Version, Value) "
       "VALUES ('k', 'g', 'c', '', '1.0', '{}')",
       SQLITE_OK}};
  for (const auto& [sql, rc] : statements) EXPECT_EQ(RunSql(db, sql), rc) << sql;
  const char kWhere[] = " FROM Config WHERE Identifier = ''";
  // Success 1, revision 1, no desired value, both times
  // DATETIME(CURRENT_TIMESTAMP) of now.
  EXPECT_EQ(
      QueryText(db, std::string("SELECT Success || Revision || typeof(DesiredValue)") +
                        " || (CreationTime = DATETIME(CreationTime))" +
                        " || (ModifiedTime = CreationTime)" +
                        " || (ABS(STRFTIME('%s', CreationTime) - STRFTIME('%s')) < 5)" + kWhere),
      "11null111");
  // An update that sets ModifiedTime keeps it; any other update refreshes it.
  ASSERT_EQ(RunSql(db, "UPDATE Config SET CreationTime = '2001', ModifiedTime = '2001'"),
            SQLITE_OK);
  EXPECT_EQ(QueryText(db, std::string("SELECT ModifiedTime") + kWhere), "2001");
  ASSERT_EQ(RunSql(db, "UPDATE Config SET UserValue = '{}'"), SQLITE_OK);
  EXPECT_EQ(QueryText(db, std::string("SELECT CreationTime || (ModifiedTime > '2020')") + kWhere),
            "20011");
}

TEST_F(ConnectionTest, ThreadSharesOneConnectionAndOtherThreadsGetTheirOwn) {
  auto first = Conn();
  EXPECT_EQ(Conn().get(), first.get());
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
  KorvoSetvault::SetStorePath(dir_.File("other.db"));
  auto second = Conn();
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
  dir_.WriteFile("blocker",
                 "x");  // a regular file where the directory should be
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
  DBStore::StmtPtr stmt = DBStore::internal::Prepare(OtherConn(), "SELECT 1", 3000);
  ASSERT_TRUE(stmt);
  // The connection is gone; the statement still steps and is finalized on
  // reset.
  EXPECT_EQ(sqlite3_step(stmt.get()), SQLITE_ROW);
  stmt.reset();
}

}  // namespace
}  // namespace setvault_test
