// Preparing through the per-connection cache and binding with a running index.
#include <vector>

#include "db/row_callbacks.h"
#include "dbstore/db_store_connection.h"
#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using DBStore::internal::Bind;
using KorvoSetvault::StoreRow;

class StatementTest : public StoreTest {
 protected:
  DBStore::StmtPtr Prepare(const std::string& sql) {
    return DBStore::internal::Prepare(conn_, sql, DBStore::kBusyTimeoutMs);
  }
  // Runs `stmt` into one row map; fails the test when execution fails.
  StoreRow Row(const DBStore::StmtPtr& stmt) {
    StoreRow row;
    EXPECT_EQ(DBStore::ExecuteStmt(conn_, stmt, KorvoSetvault::RowIntoMapCallback, &row, 3000), 0);
    return row;
  }
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

}  // namespace
}  // namespace setvault_test
