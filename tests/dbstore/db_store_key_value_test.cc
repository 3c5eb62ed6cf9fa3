// The key-value table with its per-connection cache, and attaching the schema database.
#include <unistd.h>

#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

class KeyValueStoreTest : public StoreTest {
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

// The cached text follows another connection's commit also when first read inside a
// transaction, and forgets a write rolled back.
TEST_F(KeyValueStoreTest, CachedValuesFollowOtherCommitsAndRollbacks) {
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
TEST_F(KeyValueStoreTest, FailedReadsAndWritesAnswerOne) {
  std::string value = "old";
  EXPECT_EQ(DBStore::ReadKeyValue("k", &value, nullptr), 1);
  EXPECT_EQ(value, "");
  EXPECT_EQ(DBStore::WriteKeyValue("k", "v", nullptr), 1);
  ASSERT_EQ(RunSql(Db(conn_), "DROP TABLE KeyValue"), SQLITE_OK);
  value = "old";
  EXPECT_EQ(DBStore::ReadKeyValue("k", &value, conn_), 1);
  EXPECT_EQ(value, "");
}

TEST_F(KeyValueStoreTest, SchemaStoreAttachesAsSsAndNests) {
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
