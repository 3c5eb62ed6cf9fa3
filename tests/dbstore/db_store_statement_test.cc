// Statements and transactions: preparing through the per-connection cache, binding with a
// running index, executing (a callback that stops the statement, a refused commit), nesting
// transactions per connection, cancelled inner levels, two writing processes.
#include <vector>

#include "db/row_callbacks.h"
#include "dbstore/db_store_connection.h"
#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"
#include "support/reliability_processes.h"

namespace setvault_test {
namespace {

using DBStore::BeginTransaction;
using DBStore::CancelTransaction;
using DBStore::CommitTransaction;
using DBStore::internal::Bind;
using KorvoSetvault::StoreRow;

class StatementTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    other_ = OtherConn();
  }
  int Put(const std::string& key) { return DBStore::WriteKeyValue(key, "v", conn_); }
  // What a second connection sees committed.
  std::string Committed(const std::string& key) {
    return QueryText(Db(other_), "SELECT Value FROM KeyValue WHERE Key = '" + key + "'");
  }
  DBStore::StmtPtr Prepare(const std::string& sql) {
    return DBStore::internal::Prepare(conn_, sql, DBStore::kBusyTimeoutMs);
  }
  int Insert(const std::string& name) {
    const std::string sql = "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('" + name;
    return DBStore::ExecuteStmt(conn_, Prepare(sql + "', 'g', 'c')"), nullptr, nullptr, 3000);
  }
  // Runs `stmt` into one row map; fails the test when execution fails.
  StoreRow Row(const DBStore::StmtPtr& stmt) {
    StoreRow row;
    EXPECT_EQ(DBStore::ExecuteStmt(conn_, stmt, KorvoSetvault::RowIntoMapCallback, &row, 3000), 0);
    return row;
  }
  std::shared_ptr<DBStore::StoreConnection> other_;  // a second connection to the store
};

TEST_F(StatementTest, BadTextsGiveEmptyStatementAndLog) {
  LogCapture log(0);
  for (const char* sql :
       {"SELEC 1", "SELECT * FROM Missing", "SELECT 1; DELETE FROM Config", "  "}) {
    EXPECT_FALSE(Prepare(sql)) << sql;
  }
  EXPECT_FALSE(DBStore::internal::Prepare(nullptr, "SELECT 1", 3000));
  EXPECT_EQ(log.CountStartingWith(0, "Prepare"), 5);
  EXPECT_TRUE(Prepare("SELECT 1;"));  // a trailing semicolon is one statement
}

TEST_F(StatementTest, BindFormsAdvanceTheIndexAndBindTheRightValues) {
  auto stmt = Prepare(
      "SELECT ?1 AS text, typeof(?2) AS empty_type, ?3 AS absent, "
      "typeof(?4) || ?4 AS number, ?5 AS present, ?6 AS copied");
  int index = 1;
  const std::string value = "value";  // bound without a copy: must outlive the step
  ASSERT_EQ(Bind(conn_, stmt, index, value, false), 0);
  // An empty view without storage binds the empty text, not NULL.
  ASSERT_EQ(Bind(conn_, stmt, index, std::string_view(), false), 0);
  ASSERT_EQ(Bind(conn_, stmt, index, DBStore::NullableSV()), 0);
  ASSERT_EQ(Bind(conn_, stmt, index, -42), 0);
  ASSERT_EQ(Bind(conn_, stmt, index, DBStore::NullableSV("here")), 0);
  std::string temporary(100, 'q');  // bound as a copy: survives the caller's buffer
  ASSERT_EQ(Bind(conn_, stmt, index, temporary, true), 0);
  temporary.assign(100, 'z');
  EXPECT_EQ(Bind(conn_, stmt, index, 1), 1);  // past the last parameter: index unchanged
  EXPECT_EQ(index, 7);
  const StoreRow expected = {{"text", "value"},
                             {"empty_type", "text"},
                             {"number", "integer-42"},
                             {"present", "here"},
                             {"copied", std::string(100, 'q')}};
  EXPECT_EQ(Row(stmt), expected);
}

TEST_F(StatementTest, CacheKeepsABoundedNumberOfIdleStatements) {
  const auto& cache = conn_->cache();
  cache->Clear();
  std::vector<DBStore::StmtPtr> held;
  for (int i = 0; i < 10; ++i) held.push_back(Prepare("SELECT 2"));
  held.clear();
  EXPECT_EQ(cache->IdleCount(), 4u);
  for (int i = 0; i < 300; ++i) Prepare("SELECT " + std::to_string(i + 10));
  // At most 256 distinct texts are kept; the rest are finalized when released.
  EXPECT_LE(cache->IdleCount(), 256u + 3u);
  EXPECT_GE(cache->IdleCount(), 200u);
}

int AbortOnSecondRow(void* context, int, char**, char**) {
  return ++*static_cast<int*>(context) == 2 ? 1 : 0;
}

// Rows reaching a callback are checked by the reads of tests/db; here a callback that
// answers non-zero stops the statement, and so does a missing statement.
TEST_F(StatementTest, CallbackThatAnswersNonZeroStopsTheStatement) {
  ASSERT_EQ(Insert("a") + Insert("b"), 0);
  LogCapture log(0);
  auto stmt = Prepare("SELECT Name FROM Config");
  int calls = 0;
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, stmt, AbortOnSecondRow, &calls, 3000), 1);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(log.CountStartingWith(0, "Row callback aborted"), 1);
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, DBStore::StmtPtr(), nullptr, nullptr, 3000), 1);
}

// A commit the engine refuses (here through a commit hook) answers 1, keeps nothing and
// leaves the connection usable.
TEST_F(StatementTest, RefusedCommitAnswersOneAndKeepsNothing) {
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  ASSERT_EQ(Insert("a"), 0);
  sqlite3_commit_hook(
      Db(conn_), [](void*) { return 1; }, nullptr);
  EXPECT_EQ(DBStore::CommitTransaction(conn_), 1);
  sqlite3_commit_hook(Db(conn_), nullptr, nullptr);
  EXPECT_FALSE(DBStore::InTransaction(conn_));
  EXPECT_EQ(QueryText(Db(conn_), "SELECT COUNT(*) FROM Config"), "0");
  EXPECT_EQ(Insert("b"), 0);
  EXPECT_EQ(QueryText(Db(conn_), "SELECT COUNT(*) FROM Config"), "1");
}

using TransactionTest = StatementTest;

TEST_F(TransactionTest, CancelledInnerLevelDoomsTheWholeTransaction) {
  for (bool commit_last : {true, false}) {
    SCOPED_TRACE(commit_last ? "outermost commit" : "outermost cancel");
    for (int level = 0; level < 3; ++level) ASSERT_EQ(BeginTransaction(conn_), 0);
    ASSERT_EQ(Put("doomed"), 0);
    EXPECT_EQ(CancelTransaction(conn_), 1);
    EXPECT_EQ(BeginTransaction(conn_), 1);  // no new level in a doomed transaction
    EXPECT_EQ(CommitTransaction(conn_), 1);
    // The outermost commit fails; the outermost cancel is an ordinary rollback.
    EXPECT_EQ(commit_last ? CommitTransaction(conn_) : CancelTransaction(conn_),
              commit_last ? 1 : 0);
    EXPECT_EQ(Committed("doomed"), "<none>");
    EXPECT_TRUE(sqlite3_get_autocommit(Db(conn_)));
  }
  // The next transaction starts clean; only its outermost commit commits.
  ASSERT_EQ(BeginTransaction(conn_), 0);
  ASSERT_EQ(BeginTransaction(conn_), 0);
  ASSERT_EQ(Put("later"), 0);
  EXPECT_EQ(CommitTransaction(conn_), 0);
  EXPECT_EQ(Committed("later"), "<none>");
  EXPECT_EQ(CommitTransaction(conn_), 0);
  EXPECT_EQ(Committed("later"), "v");
}

TEST_F(TransactionTest, BeginWaitsForTheWriteLockThenFailsWithOne) {
  ASSERT_EQ(BeginTransaction(other_), 0);
  EXPECT_EQ(BeginTransaction(conn_), 1);  // after the 3000 ms busy time-out
  EXPECT_EQ(CommitTransaction(conn_), 2);
  EXPECT_EQ(CommitTransaction(other_), 0);
  EXPECT_EQ(BeginTransaction(conn_), 0);
  EXPECT_EQ(CommitTransaction(conn_), 0);
}

// Each process raises one shared counter by read-modify-write, each time in a transaction.
// With immediate write locks neither fails and no increment is lost.
int WriteManyTransactions(int count) {
  auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
  if (!conn) return 10;
  for (int i = 0; i < count; ++i) {
    if (BeginTransaction(conn) != 0) return 11;
    std::string counter;
    if (DBStore::ReadKeyValue("counter", &counter, conn) != 0) return 12;
    int next = (counter.empty() ? 0 : std::stoi(counter)) + 1;
    if (DBStore::WriteKeyValue("counter", std::to_string(next), conn) != 0) return 13;
    if (CommitTransaction(conn) != 0) return 15;
  }
  return 0;
}

TEST_F(TransactionTest, TwoProcessesWritingAtOnceBothSucceedAndLoseNothing) {
  constexpr int kCount = 300;
  const pid_t child = Spawn([] { return WriteManyTransactions(kCount); });
  EXPECT_EQ(WriteManyTransactions(kCount), 0);
  EXPECT_EQ(Wait(child), 0);
  EXPECT_EQ(Committed("counter"), std::to_string(2 * kCount));
}

}  // namespace
}  // namespace setvault_test
