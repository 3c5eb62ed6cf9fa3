// Transactions: nesting per connection, cancelled inner levels, two writing processes.
#include <sys/wait.h>
#include <unistd.h>

#include "dbstore/db_store_fixture.h"

namespace setvault_test {
namespace {

using DBStore::BeginTransaction;
using DBStore::CancelTransaction;
using DBStore::CommitTransaction;

class TransactionTest : public StoreTest {
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
  std::shared_ptr<DBStore::StoreConnection> other_;
};

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
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(WriteManyTransactions(kCount));
  EXPECT_EQ(WriteManyTransactions(kCount), 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(Committed("counter"), std::to_string(2 * kCount));
}

}  // namespace
}  // namespace setvault_test
