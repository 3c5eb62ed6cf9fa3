// The key-value table with its per-connection cache, and attaching the schema
// database.
#include <unistd.h>

#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

class KeyValueStoreTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    conn_ = Conn();
    ASSERT_TRUE(conn_);
  }
  std::string Read(const std::string& key) {
    std::string value = "<unset>";
    EXPECT_EQ(DBStore::ReadKeyValue(key, &value, conn_), 0);
    return value;
  }
  void Write(const std::shared_ptr<DBStore::StoreConnection>& conn, const std::string& value) {
    ASSERT_EQ(DBStore::WriteKeyValue("flag", value, conn), 0);
  }
  std::string SchemaName() { return QueryText(Db(conn_), "SELECT Name FROM ss.SmartnicSchema"); }
  std::shared_ptr<DBStore::StoreConnection> conn_;
};

TEST_F(KeyValueStoreTest, CachedValuesFollowEveryKindOfChange) {
  auto other = OtherConn();
  EXPECT_EQ(Read("flag"), "");
  Write(conn_, "1");
  EXPECT_EQ(Read("flag"), "1");
  EXPECT_EQ(Read("FLAG"), "");  // keys are case-sensitive
  Write(other, "2");            // another connection's commit
  EXPECT_EQ(Read("flag"), "2");
  // A write on this connection by hand, not through the layer.
  ASSERT_EQ(RunSql(Db(conn_), "UPDATE KeyValue SET Value = '3' WHERE Key = 'flag'"), SQLITE_OK);
  EXPECT_EQ(Read("flag"), "3");
  // A write inside a transaction is seen inside it and forgotten after its
  // rollback.
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  Write(conn_, "4");
  EXPECT_EQ(Read("flag"), "4");
  ASSERT_EQ(DBStore::CancelTransaction(conn_), 0);
  EXPECT_EQ(Read("flag"), "3");
  // Cached before a transaction, changed elsewhere, then read inside the
  // transaction.
  Write(other, "5");
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  EXPECT_EQ(Read("flag"), "5");
  Write(conn_, "6");
  EXPECT_EQ(Read("flag"), "6");
  ASSERT_EQ(DBStore::CommitTransaction(conn_), 0);
  Write(other, "7");
  EXPECT_EQ(Read("flag"), "7");
  // A key that was absent and then appears elsewhere.
  EXPECT_EQ(Read("late"), "");
  ASSERT_EQ(DBStore::WriteKeyValue("late", "here", other), 0);
  EXPECT_EQ(Read("late"), "here");
  EXPECT_EQ(QueryText(Db(conn_), "SELECT COUNT(*) FROM KeyValue"), "2");
}

TEST_F(KeyValueStoreTest, FailedReadsAndWritesAnswerOne) {
  LogCapture log(0);
  ASSERT_EQ(RunSql(Db(conn_),
                   "CREATE TRIGGER NoWrites BEFORE INSERT ON KeyValue "
                   "BEGIN SELECT RAISE(ABORT, 'writes refused'); END"),
            SQLITE_OK);
  EXPECT_EQ(DBStore::WriteKeyValue("k", "v", conn_), 1);
  ASSERT_EQ(RunSql(Db(conn_), "DROP TABLE KeyValue"), SQLITE_OK);
  std::string value = "old";
  EXPECT_EQ(DBStore::ReadKeyValue("k", &value, conn_), 1);
  EXPECT_EQ(value, "");
  EXPECT_EQ(DBStore::ReadKeyValue("k", &value, nullptr), 1);
  EXPECT_EQ(DBStore::WriteKeyValue("k", "v", nullptr), 1);
  EXPECT_GE(log.Lines().size(), 2u);
}

TEST_F(KeyValueStoreTest, SchemaStoreAttachesAsSsAndNests) {
  LogCapture log(0);
  const std::string path = dir_.File("schema.db");
  KorvoSetvault::SetSchemaStorePath(path);
  EXPECT_EQ(DBStore::AttachSchemaStore(conn_), 1);  // missing file
  EXPECT_NE(access(path.c_str(), F_OK), 0);         // and not created
  sqlite3* schema = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &schema), SQLITE_OK);
  ASSERT_EQ(RunSql(schema,
                   "CREATE TABLE SmartnicSchema (Component, "
                   "ConfigGroup, Name, ValueType, "
                   "Version, Definition); INSERT INTO SmartnicSchema "
                   "VALUES ('c', 'g', 'k', "
                   "'korvo-shared', '1.0', '{}')"),
            SQLITE_OK);
  sqlite3_close(schema);
  // Attaches nest: the last detach removes the database.
  ASSERT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  ASSERT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  ASSERT_EQ(DBStore::DetachSchemaStore(conn_), 0);
  EXPECT_EQ(SchemaName(), "k");
  ASSERT_EQ(DBStore::DetachSchemaStore(conn_), 0);
  EXPECT_EQ(SchemaName().rfind("<error", 0), 0u);
  EXPECT_EQ(DBStore::DetachSchemaStore(conn_), 1);
  // Inside a transaction that read it, the detach waits for the transaction's
  // end.
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
