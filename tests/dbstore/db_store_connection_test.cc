// Connections: owner-only store files, the modified time of rows, stores that cannot be opened,
// the key-value table with its per-connection cache, and attaching the schema database.
#include <sys/stat.h>
#include <unistd.h>

#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

class ConnectionTest : public StoreTest {
 protected:
  std::string Read(const std::string& key) {
    std::string value = "<unset>";
    EXPECT_EQ(DBStore::ReadKeyValue(key, &value, conn_), 0);
    return value;
  }
  void Write(const std::shared_ptr<DBStore::StoreConnection>& conn, const std::string& value) {
    ASSERT_EQ(DBStore::WriteKeyValue("flag", value, conn), 0);
  }
  std::string SchemaName() { return QueryText(Db(conn_), "SELECT Name FROM ss.SmartnicSchema"); }
};

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

// The cached text follows another connection's commit also when first read inside a
// transaction, and forgets a write rolled back.
TEST_F(ConnectionTest, CachedValuesFollowOtherCommitsAndRollbacks) {
  auto other = OtherConn();
  Write(conn_, "1");
  EXPECT_EQ(Read("flag"), "1");
  Write(other, "2");
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  EXPECT_EQ(Read("flag"), "2");
  Write(conn_, "3");
  EXPECT_EQ(Read("flag"), "3");
  ASSERT_EQ(DBStore::CancelTransaction(conn_), 0);
  EXPECT_EQ(Read("flag"), "2");
}

// A read without a connection or whose statement fails answers 1 and the empty text.
TEST_F(ConnectionTest, FailedReadsAndWritesAnswerOne) {
  std::string value = "old";
  EXPECT_EQ(DBStore::ReadKeyValue("k", &value, nullptr), 1);
  EXPECT_EQ(value, "");
  EXPECT_EQ(DBStore::WriteKeyValue("k", "v", nullptr), 1);
  ASSERT_EQ(RunSql(Db(conn_), "DROP TABLE KeyValue"), SQLITE_OK);
  value = "old";
  EXPECT_EQ(DBStore::ReadKeyValue("k", &value, conn_), 1);
  EXPECT_EQ(value, "");
}

TEST_F(ConnectionTest, SchemaStoreAttachesAsSsAndNests) {
  LogCapture log(0);
  const std::string path = dir_.File("schema.db");
  KorvoSetvault::SetSchemaStorePath(path);
  EXPECT_EQ(DBStore::AttachSchemaStore(conn_), 1);  // missing file
  EXPECT_NE(access(path.c_str(), F_OK), 0);         // and not created
  sqlite3* schema = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &schema), SQLITE_OK);
  ASSERT_EQ(RunSql(schema, "CREATE TABLE SmartnicSchema AS SELECT 'k' AS Name"), SQLITE_OK);
  sqlite3_close(schema);
  // Attaches nest: the last detach removes the database.
  ASSERT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  ASSERT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  ASSERT_EQ(DBStore::DetachSchemaStore(conn_), 0);
  EXPECT_EQ(SchemaName(), "k");
  ASSERT_EQ(DBStore::DetachSchemaStore(conn_), 0);
  EXPECT_EQ(SchemaName().rfind("<error", 0), 0u);
  EXPECT_EQ(DBStore::DetachSchemaStore(conn_), 1);
  // Inside a transaction that read it, the detach waits for the transaction's end.
  ASSERT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  EXPECT_EQ(SchemaName(), "k");
  EXPECT_EQ(DBStore::DetachSchemaStore(conn_), 0);
  EXPECT_EQ(DBStore::CommitTransaction(conn_), 0);
  EXPECT_EQ(SchemaName().rfind("<error", 0), 0u);
  EXPECT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  EXPECT_EQ(DBStore::DetachSchemaStore(conn_), 0);
}

}  // namespace
}  // namespace setvault_test
