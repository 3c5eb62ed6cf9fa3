// The key-value table with its per-connection cache, the upgrade context, and attaching
// the schema database.
#include "db/upgrade_ctx.h"
#include "dbstore/db_store_fixture.h"
#include "setvault/exceptions.h"
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
  std::string Read(const std::shared_ptr<DBStore::StoreConnection>& conn, const std::string& key) {
    std::string value = "<unset>";
    EXPECT_EQ(DBStore::ReadKeyValue(key, &value, conn), 0);
    return value;
  }
  std::shared_ptr<DBStore::StoreConnection> conn_;
};

TEST_F(KeyValueStoreTest, AbsentKeyReadsEmptyAndWritesReplace) {
  EXPECT_EQ(Read(conn_, "IS_BOOT"), "");
  ASSERT_EQ(DBStore::WriteKeyValue("IS_BOOT", "true", conn_), 0);
  EXPECT_EQ(Read(conn_, "IS_BOOT"), "true");
  ASSERT_EQ(DBStore::WriteKeyValue("IS_BOOT", "false", conn_), 0);
  EXPECT_EQ(Read(conn_, "IS_BOOT"), "false");
  EXPECT_EQ(Read(conn_, "is_boot"), "");  // keys are case-sensitive
  EXPECT_EQ(QueryText(Db(conn_), "SELECT COUNT(*) FROM KeyValue"), "1");
}

TEST_F(KeyValueStoreTest, CachedValuesFollowEveryKindOfChange) {
  auto other = OtherConn();
  ASSERT_EQ(DBStore::WriteKeyValue("flag", "1", conn_), 0);
  EXPECT_EQ(Read(conn_, "flag"), "1");
  // Another connection's commit.
  ASSERT_EQ(DBStore::WriteKeyValue("flag", "2", other), 0);
  EXPECT_EQ(Read(conn_, "flag"), "2");
  // A write on this connection by hand, not through the layer.
  ASSERT_EQ(RunSql(Db(conn_), "UPDATE KeyValue SET Value = '3' WHERE Key = 'flag'"), SQLITE_OK);
  EXPECT_EQ(Read(conn_, "flag"), "3");
  // A write inside a transaction is seen inside it and forgotten after its rollback.
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  ASSERT_EQ(DBStore::WriteKeyValue("flag", "4", conn_), 0);
  EXPECT_EQ(Read(conn_, "flag"), "4");
  ASSERT_EQ(DBStore::CancelTransaction(conn_), 0);
  EXPECT_EQ(Read(conn_, "flag"), "3");
  // Cached before a transaction, changed elsewhere, then read inside the transaction.
  EXPECT_EQ(Read(conn_, "flag"), "3");
  ASSERT_EQ(DBStore::WriteKeyValue("flag", "5", other), 0);
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  EXPECT_EQ(Read(conn_, "flag"), "5");
  EXPECT_EQ(Read(conn_, "flag"), "5");
  ASSERT_EQ(DBStore::WriteKeyValue("flag", "6", conn_), 0);
  EXPECT_EQ(Read(conn_, "flag"), "6");
  ASSERT_EQ(DBStore::CommitTransaction(conn_), 0);
  ASSERT_EQ(DBStore::WriteKeyValue("flag", "7", other), 0);
  EXPECT_EQ(Read(conn_, "flag"), "7");
  // A key that was absent and then appears elsewhere.
  EXPECT_EQ(Read(conn_, "late"), "");
  ASSERT_EQ(DBStore::WriteKeyValue("late", "here", other), 0);
  EXPECT_EQ(Read(conn_, "late"), "here");
}

TEST_F(KeyValueStoreTest, FailedReadsAndWritesAnswerOne) {
  LogCapture log(0);
  // Writes refused by the database.
  ASSERT_EQ(RunSql(Db(conn_),
                   "CREATE TRIGGER NoWrites BEFORE INSERT ON KeyValue "
                   "BEGIN SELECT RAISE(ABORT, 'writes refused'); END"),
            SQLITE_OK);
  EXPECT_EQ(DBStore::WriteKeyValue("k", "v", conn_), 1);
  // The table is gone.
  ASSERT_EQ(RunSql(Db(conn_), "DROP TABLE KeyValue"), SQLITE_OK);
  std::string value = "old";
  EXPECT_EQ(DBStore::ReadKeyValue("k", &value, conn_), 1);
  EXPECT_EQ(value, "");
  EXPECT_EQ(DBStore::ReadKeyValue("k", &value, nullptr), 1);
  EXPECT_EQ(DBStore::WriteKeyValue("k", "v", nullptr), 1);
  EXPECT_GE(log.Lines().size(), 2u);
}

TEST_F(KeyValueStoreTest, UpgradeContextIsTheStoredInteger) {
  EXPECT_EQ(KorvoSetvault::GetUpgradeCtx(), 0);
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "2", conn_), 0);
  EXPECT_EQ(KorvoSetvault::GetUpgradeCtx(), 2);
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "0", OtherConn()), 0);
  EXPECT_EQ(KorvoSetvault::GetUpgradeCtx(), 0);
  LogCapture log(1);
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "2x", conn_), 0);
  EXPECT_EQ(KorvoSetvault::GetUpgradeCtx(), 0);
  EXPECT_EQ(log.CountStartingWith(1, "UPGRADE_CTX holds"), 1);
}

TEST_F(KeyValueStoreTest, UpgradeContextWithoutStoreThrows1002) {
  dir_.WriteFile("file", "x");
  std::string unreachable = dir_.File("file/store.db");
  KorvoSetvault::SetStorePath(unreachable);
  try {
    KorvoSetvault::GetUpgradeCtx();
    FAIL() << "no exception";
  } catch (const KorvoSetvault::SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1002);
    EXPECT_NE(std::string(e.what()).find(unreachable), std::string::npos);
  }
}

TEST_F(KeyValueStoreTest, SchemaStoreAttachesAsSsAndNests) {
  LogCapture log(0);
  KorvoSetvault::SetSchemaStorePath(dir_.File("schema.db"));
  EXPECT_EQ(DBStore::AttachSchemaStore(conn_), 1);             // missing file
  EXPECT_NE(access(dir_.File("schema.db").c_str(), F_OK), 0);  // and not created
  {
    sqlite3* schema = nullptr;
    ASSERT_EQ(sqlite3_open(dir_.File("schema.db").c_str(), &schema), SQLITE_OK);
    ASSERT_EQ(RunSql(schema,
                     "CREATE TABLE SmartnicSchema (Component, ConfigGroup, Name, "
                     "ValueType, Version, Definition);"
                     "INSERT INTO SmartnicSchema VALUES ('c', 'g', 'k', 'korvo-shared', "
                     "'1.0', '{}')"),
              SQLITE_OK);
    sqlite3_close(schema);
  }
  ASSERT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  EXPECT_EQ(QueryText(Db(conn_), "SELECT Name FROM ss.SmartnicSchema"), "k");
  ASSERT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  ASSERT_EQ(DBStore::DetachSchemaStore(conn_), 0);
  EXPECT_EQ(QueryText(Db(conn_), "SELECT Name FROM ss.SmartnicSchema"), "k");
  ASSERT_EQ(DBStore::DetachSchemaStore(conn_), 0);
  EXPECT_EQ(QueryText(Db(conn_), "SELECT Name FROM ss.SmartnicSchema").rfind("<error", 0), 0u);
  EXPECT_EQ(DBStore::DetachSchemaStore(conn_), 1);

  // Inside a transaction that read it, the detach waits for the transaction's end.
  ASSERT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  EXPECT_EQ(QueryText(Db(conn_), "SELECT Name FROM ss.SmartnicSchema"), "k");
  EXPECT_EQ(DBStore::DetachSchemaStore(conn_), 0);
  EXPECT_EQ(DBStore::CommitTransaction(conn_), 0);
  EXPECT_EQ(QueryText(Db(conn_), "SELECT Name FROM ss.SmartnicSchema").rfind("<error", 0), 0u);
  EXPECT_EQ(DBStore::AttachSchemaStore(conn_), 0);
  EXPECT_EQ(DBStore::DetachSchemaStore(conn_), 0);
}

}  // namespace
}  // namespace setvault_test
