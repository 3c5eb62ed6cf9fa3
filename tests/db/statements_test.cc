// Every statement of the persistence layer finds its rows through an index, and the
// statement objects read what the tables hold.
#include <vector>

#include "db/row_callbacks.h"
#include "db/statements.h"
#include "dbstore/db_store_connection.h"
#include "dbstore/db_store_fixture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::StoreRow;
using KorvoSetvault::StoreRows;

// The detail lines of EXPLAIN QUERY PLAN for `sql`, or one "<error>" line.
std::vector<std::string> QueryPlan(sqlite3* db, const std::string& sql) {
  std::vector<std::string> lines;
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, ("EXPLAIN QUERY PLAN " + sql).c_str(), -1, &stmt, nullptr) !=
      SQLITE_OK) {
    return {std::string("<error> ") + sqlite3_errmsg(db)};
  }
  while (sqlite3_step(stmt) == SQLITE_ROW) {
    lines.push_back(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 3)));
  }
  sqlite3_finalize(stmt);
  return lines;
}

// Fails unless every table access of `sql` is an index search and one of them uses
// `expected_search` (a fragment such as "(Name=? AND ConfigGroup=? AND Component=?)").
::testing::AssertionResult UsesIndex(sqlite3* db, const std::string& sql,
                                     const std::string& expected_search) {
  std::vector<std::string> plan = QueryPlan(db, sql);
  bool found = false;
  std::string all;
  for (const std::string& line : plan) {
    all += "\n  " + line;
    if (line.rfind("SCAN ", 0) == 0 || line.rfind("<error>", 0) == 0) {
      return ::testing::AssertionFailure() << sql << all;
    }
    if (line.rfind("SEARCH ", 0) == 0 && line.find(expected_search) != std::string::npos) {
      found = true;
    }
  }
  if (!found) return ::testing::AssertionFailure() << "no " << expected_search << ": " << all;
  return ::testing::AssertionSuccess();
}

const char kFourKeys[] = "(Name=? AND ConfigGroup=? AND Component=? AND Identifier=?)";
const char kThreeKeys[] = "(Name=? AND ConfigGroup=? AND Component=?)";

class StatementsTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    conn_ = Conn();
    ASSERT_TRUE(conn_);
    db_ = Db(conn_);
  }
  std::shared_ptr<DBStore::StoreConnection> conn_;
  sqlite3* db_ = nullptr;
};

TEST_F(StatementsTest, PlanCheckRejectsATableScan) {
  EXPECT_FALSE(UsesIndex(db_, "SELECT * FROM Config WHERE Identifier = ?", kFourKeys));
  EXPECT_FALSE(UsesIndex(db_, "SELECT * FROM Config WHERE Name = ?", kThreeKeys));
}

TEST_F(StatementsTest, StatementObjectsSearchTheKeyIndex) {
  EXPECT_TRUE(UsesIndex(db_, std::string(KorvoSetvault::GET_INSTANCES.sql()), kThreeKeys));
  EXPECT_TRUE(
      UsesIndex(db_, std::string(KorvoSetvault::READ_TABLE_USER_AUTO_CONFIG.sql()), kFourKeys));
  EXPECT_TRUE(UsesIndex(db_, std::string(KorvoSetvault::GET_DEFAULT_INSTANCE.sql()), kFourKeys));
  EXPECT_TRUE(UsesIndex(db_, std::string(KorvoSetvault::READ_TABLE_CONFIG.sql()), kFourKeys));
}

TEST_F(StatementsTest, KeyValueStatementsSearchThePrimaryKey) {
  EXPECT_TRUE(UsesIndex(db_, DBStore::internal::kReadKeyValueSql, "(Key=?)"));
  // The replacement looks up the old row by its key as well.
  std::vector<std::string> plan = QueryPlan(db_, DBStore::internal::kWriteKeyValueSql);
  for (const std::string& line : plan) EXPECT_NE(line.rfind("SCAN ", 0), 0u) << line;
}

TEST_F(StatementsTest, StatementObjectsReadTheRowsOfTheirKey) {
  ASSERT_EQ(RunSql(db_,
                   "INSERT INTO Config (Name, ConfigGroup, Component, Identifier, Version, "
                   "UserValue, AutoConfValue) VALUES "
                   "('k', 'g', 'c', 'a', '1.0', '{\"u\":1}', NULL),"
                   "('k', 'g', 'c', 'b', '1.0', NULL, '{\"a\":2}'),"
                   "('k', 'g', 'other', 'a', '1.0', '{}', NULL);"
                   "INSERT INTO DefaultConfig (Name, ConfigGroup, Component, Identifier, "
                   "Version, Value) VALUES ('k', 'g', 'c', 'a', '0.9', '{\"d\":3}')"),
            SQLITE_OK);
  StoreRows rows = std::make_shared<std::vector<std::shared_ptr<StoreRow>>>();
  auto all = KorvoSetvault::GET_INSTANCES.PrepareAndBind(conn_, "k", "g", "c");
  ASSERT_EQ(DBStore::ExecuteStmt(conn_, all, KorvoSetvault::RowAppendedCallback, &rows, 3000), 0);
  ASSERT_EQ(rows->size(), 2u);
  for (const auto& row : *rows) {
    EXPECT_EQ(row->at("Revision"), "1");
    EXPECT_EQ(row->count("DesiredValue"), 0u);
  }

  StoreRow one;
  auto config = KorvoSetvault::READ_TABLE_CONFIG.PrepareAndBind(conn_, "k", "g", "c", "b");
  ASSERT_EQ(DBStore::ExecuteStmt(conn_, config, KorvoSetvault::RowIntoMapCallback, &one, 3000), 0);
  EXPECT_EQ(one.at("AutoConfValue"), "{\"a\":2}");
  EXPECT_EQ(one.count("UserValue"), 0u);
  EXPECT_EQ(one.at("Success"), "1");

  StoreRow user;
  auto user_auto =
      KorvoSetvault::READ_TABLE_USER_AUTO_CONFIG.PrepareAndBind(conn_, "k", "g", "c", "a");
  ASSERT_EQ(DBStore::ExecuteStmt(conn_, user_auto, KorvoSetvault::RowIntoMapCallback, &user, 3000),
            0);
  EXPECT_EQ(user.at("UserValue"), "{\"u\":1}");
  EXPECT_EQ(user.count("VitalValue"), 0u);  // not selected

  StoreRow defaults;
  auto shipped = KorvoSetvault::GET_DEFAULT_INSTANCE.PrepareAndBind(conn_, "k", "g", "c", "a");
  ASSERT_EQ(
      DBStore::ExecuteStmt(conn_, shipped, KorvoSetvault::RowIntoMapCallback, &defaults, 3000), 0);
  EXPECT_EQ(defaults.at("Value"), "{\"d\":3}");
  EXPECT_EQ(defaults.at("Version"), "0.9");
}

}  // namespace
}  // namespace setvault_test
