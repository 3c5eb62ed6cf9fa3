// Executing statements: a callback that stops the statement, and a refused commit.
#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

class ExecuteTest : public StoreTest {
 protected:
  int Insert(const std::string& name) {
    const std::string sql = "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('" + name;
    return DBStore::ExecuteStmt(conn_,
                                DBStore::internal::Prepare(conn_, sql + "', 'g', 'c')", 3000),
                                nullptr, nullptr, 3000);
  }
};

int AbortOnSecondRow(void* context, int, char**, char**) {
  return ++*static_cast<int*>(context) == 2 ? 1 : 0;
}

// Rows reaching a callback are checked by the reads of tests/db; here a callback that
// answers non-zero stops the statement, and so does a missing statement.
TEST_F(ExecuteTest, CallbackThatAnswersNonZeroStopsTheStatement) {
  ASSERT_EQ(Insert("a") + Insert("b"), 0);
  LogCapture log(0);
  auto stmt = DBStore::internal::Prepare(conn_, "SELECT Name FROM Config", 3000);
  int calls = 0;
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, stmt, AbortOnSecondRow, &calls, 3000), 1);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(log.CountStartingWith(0, "Row callback aborted"), 1);
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, DBStore::StmtPtr(), nullptr, nullptr, 3000), 1);
}

// A commit the engine refuses (here through a commit hook) answers 1, keeps nothing and
// leaves the connection usable.
TEST_F(ExecuteTest, RefusedCommitAnswersOneAndKeepsNothing) {
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

}  // namespace
}  // namespace setvault_test
