// Opening stores: owner-only files, the modified time of rows, stores that cannot be opened.
#include <sys/stat.h>

#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using ConnectionTest = StoreTest;

TEST_F(ConnectionTest, NewStoreIsOwnerOnlyWalFullSyncAndVersioned) {
  ASSERT_EQ(DBStore::WriteKeyValue("k", "v", conn_), 0);  // makes the write-ahead log exist
  // The files are the owner's only, and so is the directory made for them (the last path).
  const std::string paths[] = {store_path_, store_path_ + "-wal", store_path_ + "-shm",
                               dir_.File("store")};
  for (const std::string& path : paths) {
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0) << path;
    EXPECT_EQ(info.st_mode & 07777, path == paths[3] ? 0700u : 0600u) << path;
  }
  EXPECT_EQ(QueryText(Db(conn_),
                      "SELECT journal_mode || synchronous || user_version FROM "
                      "pragma_journal_mode, pragma_synchronous, pragma_user_version"),
            "wal2" + std::to_string(DBStore::kStoreSchemaVersion));  // 2: FULL
}

TEST_F(ConnectionTest, AnUpdateThatDoesNotSetTheModifiedTimeRefreshesIt) {
  sqlite3* db = Db(conn_);
  ASSERT_EQ(RunSql(db,
                   "INSERT INTO Config (Name, ConfigGroup, Component, CreationTime, "
                   "ModifiedTime) VALUES ('k', 'g', 'c', '2001', '2001')"),
            SQLITE_OK);
  ASSERT_EQ(RunSql(db, "UPDATE Config SET UserValue = '{}'"), SQLITE_OK);
  EXPECT_EQ(QueryText(db,
                      "SELECT CreationTime || (ABS(STRFTIME('%s', ModifiedTime) - "
                      "STRFTIME('%s')) < 5) FROM Config"),
            "20011");
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
  DBStore::StmtPtr stmt = DBStore::internal::Prepare(OtherConn(), "SELECT 1", 3000);
  ASSERT_TRUE(stmt);
  // The connection is gone; the statement still steps and is finalized on reset.
  EXPECT_EQ(sqlite3_step(stmt.get()), SQLITE_ROW);
  stmt.reset();
}

}  // namespace
}  // namespace setvault_test
