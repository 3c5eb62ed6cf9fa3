// Preparing through the per-connection cache and binding with a running index.
#include "db/row_callbacks.h"
#include "dbstore/db_store_connection.h"
#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::RowIntoMapCallback;
using KorvoSetvault::StoreRow;

class StatementTest : public StoreTest {
 protected:
  // Runs `stmt` into one row map; fails the test when execution fails.
  StoreRow Row(const DBStore::StmtPtr& stmt) {
    StoreRow row;
    EXPECT_EQ(DBStore::ExecuteStmt(conn_, stmt, RowIntoMapCallback, &row, DBStore::kBusyTimeoutMs),
              0);
    return row;
  }
  std::shared_ptr<DBStore::StoreConnection> conn_ = nullptr;
  void SetUp() override {
    StoreTest::SetUp();
    conn_ = Conn();
    ASSERT_TRUE(conn_);
  }
};

TEST_F(StatementTest, ReturnedStatementIsReusedResetAndUnbound) {
  const char* sql = "SELECT ?1 AS a, ?2 AS b";
  sqlite3_stmt* first_raw = nullptr;
  {
    auto stmt = DBStore::internal::Prepare(conn_, sql, DBStore::kBusyTimeoutMs);
    ASSERT_TRUE(stmt);
    first_raw = stmt.get();
    int index = 1;
    ASSERT_EQ(DBStore::internal::Bind(conn_, stmt, index, "x", false), 0);
    ASSERT_EQ(DBStore::internal::Bind(conn_, stmt, index, 5), 0);
    StoreRow row = Row(stmt);
    EXPECT_EQ(row["a"], "x");
    EXPECT_EQ(row["b"], "5");
    // Half-stepped statements go back to the cache too.
    EXPECT_EQ(sqlite3_step(stmt.get()), SQLITE_ROW);
  }
  // A copy of the text (not the same pointer) finds the cached statement.
  std::string copy = std::string(sql) + "  \n";
  auto again = DBStore::internal::Prepare(conn_, copy, DBStore::kBusyTimeoutMs);
  ASSERT_TRUE(again);
  EXPECT_EQ(again.get(), first_raw);
  // The earlier bindings are gone: both columns are NULL, so the map stays empty.
  EXPECT_TRUE(Row(again).empty());
  // While it is out, a second request of the same text gets another statement.
  auto parallel = DBStore::internal::Prepare(conn_, sql, DBStore::kBusyTimeoutMs);
  ASSERT_TRUE(parallel);
  EXPECT_NE(parallel.get(), again.get());
}

TEST_F(StatementTest, BadTextsGiveEmptyStatementAndLog) {
  LogCapture log(0);
  EXPECT_FALSE(DBStore::internal::Prepare(conn_, "SELEC 1", DBStore::kBusyTimeoutMs));
  EXPECT_FALSE(DBStore::internal::Prepare(conn_, "SELECT * FROM Missing", 3000));
  EXPECT_FALSE(DBStore::internal::Prepare(conn_, "SELECT 1; DELETE FROM Config", 3000));
  EXPECT_FALSE(DBStore::internal::Prepare(conn_, "  ", 3000));
  EXPECT_FALSE(DBStore::internal::Prepare(nullptr, "SELECT 1", 3000));
  EXPECT_EQ(log.CountStartingWith(0, "Prepare"), 5);
  // A trailing semicolon is one statement.
  EXPECT_TRUE(DBStore::internal::Prepare(conn_, "SELECT 1;", 3000));
}

TEST_F(StatementTest, BindFormsAdvanceTheIndexAndBindTheRightValues) {
  auto stmt = DBStore::internal::Prepare(
      conn_,
      "SELECT ?1 AS text, typeof(?2) AS empty_type, ?2 AS empty, ?3 AS absent, "
      "typeof(?4) AS number_type, ?4 AS number, ?5 AS present",
      3000);
  ASSERT_TRUE(stmt);
  int index = 1;
  std::string owned = "value";
  ASSERT_EQ(DBStore::internal::Bind(conn_, stmt, index, owned, false), 0);
  ASSERT_EQ(index, 2);
  // An empty view without storage binds the empty text, not NULL.
  ASSERT_EQ(DBStore::internal::Bind(conn_, stmt, index, std::string_view(), false), 0);
  ASSERT_EQ(DBStore::internal::Bind(conn_, stmt, index, DBStore::NullableSV()), 0);
  ASSERT_EQ(DBStore::internal::Bind(conn_, stmt, index, -42), 0);
  ASSERT_EQ(DBStore::internal::Bind(conn_, stmt, index, DBStore::NullableSV("here")), 0);
  EXPECT_EQ(index, 6);
  // Past the last parameter: failure, index unchanged.
  EXPECT_EQ(DBStore::internal::Bind(conn_, stmt, index, 1), 1);
  EXPECT_EQ(index, 6);
  StoreRow row = Row(stmt);
  EXPECT_EQ(row["text"], "value");
  EXPECT_EQ(row["empty_type"], "text");
  EXPECT_EQ(row.count("empty"), 1u);
  EXPECT_EQ(row.count("absent"), 0u);
  EXPECT_EQ(row["number_type"], "integer");
  EXPECT_EQ(row["number"], "-42");
  EXPECT_EQ(row["present"], "here");
}

TEST_F(StatementTest, CopiedTextSurvivesTheCallersBuffer) {
  auto stmt = DBStore::internal::Prepare(conn_, "SELECT ?1 AS v", 3000);
  ASSERT_TRUE(stmt);
  int index = 1;
  {
    std::string temporary(100, 'q');
    ASSERT_EQ(DBStore::internal::Bind(conn_, stmt, index, temporary, true), 0);
    temporary.assign(100, 'z');
  }
  EXPECT_EQ(Row(stmt)["v"], std::string(100, 'q'));
}

TEST_F(StatementTest, SqlStatementBindsArgumentsInOrder) {
  static constexpr DBStore::SqlStatement<std::string_view, std::string_view, std::string_view>
      kThree("SELECT ?1 || '/' || ?2 || '/' || ?3 AS joined");
  std::string a = "n", b = "g";
  auto stmt = kThree.PrepareAndBind(conn_, a, b, "c");
  ASSERT_TRUE(stmt);
  EXPECT_EQ(Row(stmt)["joined"], "n/g/c");
}

TEST_F(StatementTest, SqlStatementFailsOnBadTextOrTooManyArguments) {
  LogCapture log(0);
  static constexpr DBStore::SqlStatement<std::string_view, std::string_view> kOneParameter(
      "SELECT ?1");
  EXPECT_FALSE(kOneParameter.PrepareAndBind(conn_, "a", "b"));
  static constexpr DBStore::SqlStatement<std::string_view> kBroken("SELECT FROM");
  EXPECT_FALSE(kBroken.PrepareAndBind(conn_, "a"));
  // The half-bound statement went back unbound: the next user sees no stale value.
  auto stmt = DBStore::internal::Prepare(conn_, "SELECT ?1", 3000);
  ASSERT_TRUE(stmt);
  EXPECT_TRUE(Row(stmt).empty());
}

TEST_F(StatementTest, CacheKeepsABoundedNumberOfIdleStatements) {
  const auto& cache = conn_->cache();
  cache->Clear();
  std::vector<DBStore::StmtPtr> held;
  for (int i = 0; i < 10; ++i) held.push_back(DBStore::internal::Prepare(conn_, "SELECT 2", 3000));
  held.clear();
  EXPECT_EQ(cache->IdleCount(), 4u);
  for (int i = 0; i < 300; ++i) {
    DBStore::internal::Prepare(conn_, "SELECT " + std::to_string(i + 10), 3000);
  }
  // At most 256 distinct texts are kept; the rest are finalized when released.
  EXPECT_LE(cache->IdleCount(), 256u + 3u);
  EXPECT_GE(cache->IdleCount(), 200u);
}

}  // namespace
}  // namespace setvault_test
