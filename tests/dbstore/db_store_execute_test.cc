// Executing statements: rows reach the callback, and every kind of failure
// answers 1.
#include <atomic>
#include <chrono>
#include <map>

#include "db/row_callbacks.h"
#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::StoreRow;
using KorvoSetvault::StoreRows;

// Makes every write to a connection's database and log file fail while
// g_fail_writes is set: the two open files get a copy of their I/O methods with
// another xWrite.
std::atomic<bool> g_fail_writes{false};
const sqlite3_io_methods* g_real_methods = nullptr;
sqlite3_io_methods g_failing_methods;

int FailingWrite(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset) {
  if (g_fail_writes) return SQLITE_IOERR_WRITE;
  return g_real_methods->xWrite(file, data, size, offset);
}

void FailWritesOf(sqlite3* db) {
  for (int op : {SQLITE_FCNTL_FILE_POINTER, SQLITE_FCNTL_JOURNAL_POINTER}) {
    sqlite3_file* file = nullptr;
    ASSERT_EQ(sqlite3_file_control(db, "main", op, &file), SQLITE_OK);
    ASSERT_TRUE(file != nullptr && file->pMethods != nullptr);
    g_real_methods = file->pMethods;
    g_failing_methods = *g_real_methods;
    g_failing_methods.xWrite = FailingWrite;
    file->pMethods = &g_failing_methods;
  }
}

class ExecuteTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    conn_ = Conn();
    ASSERT_TRUE(conn_);
  }
  int Run(const std::shared_ptr<DBStore::StoreConnection>& conn, const std::string& sql,
          int busy_ms = DBStore::kBusyTimeoutMs) {
    auto stmt = DBStore::internal::Prepare(conn, sql, busy_ms);
    return stmt ? DBStore::ExecuteStmt(conn, stmt, nullptr, nullptr, busy_ms) : -1;
  }
  int Insert(const std::shared_ptr<DBStore::StoreConnection>& conn, const std::string& name) {
    return Run(conn, "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('" + name +
                         "', 'g', 'c')");
  }
  std::string Count() { return QueryText(Db(conn_), "SELECT COUNT(*) FROM Config"); }
  std::shared_ptr<DBStore::StoreConnection> conn_;
};

int AbortOnSecondRow(void* context, int, char**, char**) {
  return ++*static_cast<int*>(context) == 2 ? 1 : 0;
}

TEST_F(ExecuteTest, CallbackGetsEveryRowUntilItAborts) {
  ASSERT_EQ(Run(conn_,
                "INSERT INTO Config (Name, ConfigGroup, Component, "
                "Identifier, UserValue)"
                " VALUES ('k', 'g', 'c', 'a', '{\"x\":1}'), ('k', 'g', "
                "'c', 'b', NULL)"),
            0);
  const std::string select = "SELECT Identifier, UserValue AS Value FROM Config WHERE Name = ";
  StoreRows rows = std::make_shared<std::vector<std::shared_ptr<StoreRow>>>();
  auto stmt = DBStore::internal::Prepare(conn_, select + "'k'", 3000);
  ASSERT_EQ(DBStore::ExecuteStmt(conn_, stmt, KorvoSetvault::RowAppendedCallback, &rows, 3000), 0);
  std::map<std::string, StoreRow> by_id;
  for (const auto& row : *rows) by_id[row->at("Identifier")] = *row;
  EXPECT_EQ(by_id,
            (std::map<std::string, StoreRow>{{"a", {{"Identifier", "a"}, {"Value", "{\"x\":1}"}}},
                                             {"b", {{"Identifier", "b"}}}}));
  // No row is not a failure.
  stmt = DBStore::internal::Prepare(conn_, select + "'z'", 3000);
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, stmt, KorvoSetvault::RowAppendedCallback, &rows, 3000), 0);
  EXPECT_EQ(rows->size(), 2u);
  // A callback that answers non-zero stops the statement; so does a missing
  // statement.
  LogCapture log(0);
  stmt = DBStore::internal::Prepare(conn_, "SELECT Name FROM Config", 3000);
  int calls = 0;
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, stmt, AbortOnSecondRow, &calls, 3000), 1);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(log.CountStartingWith(0, "Row callback aborted"), 1);
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, DBStore::StmtPtr(), nullptr, nullptr, 3000), 1);
}

TEST_F(ExecuteTest, WriteLockedByAnotherConnectionAnswersOneAfterTheTimeOut) {
  auto other = OtherConn();
  ASSERT_EQ(DBStore::BeginTransaction(other), 0);
  ASSERT_EQ(Insert(other, "held"), 0);
  LogCapture log(0);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Run(conn_, "INSERT INTO KeyValue VALUES ('mine', 'y')", 50), 1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
  EXPECT_EQ(log.CountStartingWith(0, "Statement failed: SQLite error 5 "),
            1);  // SQLITE_BUSY
  ASSERT_EQ(DBStore::CommitTransaction(other), 0);
  // Once the lock is gone the same write goes through.
  EXPECT_EQ(Run(conn_, "INSERT INTO KeyValue VALUES ('mine', 'y')", 50), 0);
  EXPECT_EQ(Count(), "1");
}

TEST_F(ExecuteTest, IoErrorAnswersOneAndFailedCommitLeavesStoreUnchanged) {
  auto conn = OtherConn();
  ASSERT_EQ(Insert(conn, "k"), 0);
  FailWritesOf(Db(conn));
  LogCapture log(0);
  g_fail_writes = true;
  EXPECT_EQ(Insert(conn, "a"), 1);
  EXPECT_EQ(log.CountStartingWith(0, "Statement failed: SQLite error 778"),
            1);  // IOERR_WRITE
  g_fail_writes = false;
  // A transaction whose commit cannot be written reports failure and keeps
  // nothing.
  ASSERT_EQ(DBStore::BeginTransaction(conn), 0);
  ASSERT_EQ(Insert(conn, "b"), 0);
  ASSERT_EQ(Run(conn, "UPDATE Config SET UserValue = 'changed'"), 0);
  g_fail_writes = true;
  EXPECT_NE(DBStore::CommitTransaction(conn), 0);
  g_fail_writes = false;
  DBStore::CancelTransaction(conn);  // whatever the engine left open is rolled back
  EXPECT_EQ(QueryText(Db(conn), "SELECT COUNT(*) || typeof(UserValue) FROM Config"), "1null");
  EXPECT_EQ(Count(), "1");
  // The connection is usable again.
  EXPECT_EQ(Insert(conn, "c"), 0);
  EXPECT_EQ(Count(), "2");
}

}  // namespace
}  // namespace setvault_test
