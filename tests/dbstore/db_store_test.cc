// The database layer. Connections: owner-only store files, the modified time of rows, stores
// that cannot be opened, the key-value table with its per-connection cache, attaching the schema
// database. Statements: preparing through the per-connection cache, binding with a running index,
// executing (a callback that stops the statement, a refused commit). Transactions: nesting per
// connection, cancelled inner levels, a begin that waits for the write lock.
#include <unistd.h>

#include <vector>

#include "db/row_callbacks.h"
#include "dbstore/db_store_connection.h"
#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using DBStore::BeginTransaction;
using DBStore::CancelTransaction;
using DBStore::CommitTransaction;
using DBStore::internal::Bind;
using KorvoSetvault::StoreRow;

// A fresh store file per test, made through the thread's connection, and a second connection.
class StatementTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KorvoSetvault::SetStorePath(store_path_);
    conn_ = DBStore::GetConnection(DBStore::kConfigStore, true);
    ASSERT_TRUE(conn_ != nullptr);
    ASSERT_EQ(DBStore::CheckStore(conn_, true), 0);  // creates the store file
    other_ = OtherConn();
  }
  void TearDown() override { KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath); }

  sqlite3* Db(const std::shared_ptr<DBStore::StoreConnection>& conn) {
    return DBStore::GetSqliteHandle(*conn);
  }
  std::shared_ptr<DBStore::StoreConnection> OtherConn() {
    auto conn = DBStore::OpenStoreConnection(store_path_, true);
    EXPECT_TRUE(conn != nullptr);
    EXPECT_EQ(DBStore::CheckStore(conn, true), 0);
    return conn;
  }
  // The flag a second connection sees committed.
  std::string Committed() {
    return QueryText(Db(other_), "SELECT Value FROM KeyValue WHERE Key = 'flag'");
  }
  DBStore::StmtPtr Prepare(const std::string& sql) {
    return DBStore::internal::Prepare(conn_, sql, DBStore::kBusyTimeoutMs);
  }
  int Insert(const std::string& name) {
    const std::string sql = "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('" + name;
    return DBStore::ExecuteStmt(conn_, Prepare(sql + "', 'g', 'c')"), nullptr, nullptr, 3000);
  }
  std::string Read() {
    std::string value = "<unset>";
    EXPECT_EQ(DBStore::ReadKeyValue("flag", &value, conn_), 0);
    return value;
  }
  void Write(const std::shared_ptr<DBStore::StoreConnection>& conn, const std::string& value) {
    ASSERT_EQ(DBStore::WriteKeyValue("flag", value, conn), 0);
  }
  std::string SchemaName() { return QueryText(Db(conn_), "SELECT Name FROM ss.SmartnicSchema"); }
  TempDir dir_;
  const std::string store_path_ = dir_.File("store/current.db");
  std::shared_ptr<DBStore::StoreConnection> conn_, other_;
};

using ConnectionTest = StatementTest;

TEST_F(ConnectionTest, NewStoreIsOwnerOnlyWalFullSyncVersionedAndStampsUpdates) {
  ASSERT_EQ(DBStore::WriteKeyValue("k", "v", conn_), 0);  // makes the write-ahead log exist
  // The files are the owner's only, and so is the directory made for them (the last path).
  const std::string paths[] = {store_path_, store_path_ + "-wal", store_path_ + "-shm",
                               dir_.File("store")};
  for (const auto& path : paths) EXPECT_EQ(Mode(path), path == paths[3] ? 0700 : 0600) << path;
  EXPECT_EQ(QueryText(Db(conn_),
                      "SELECT journal_mode || synchronous || user_version FROM "
                      "pragma_journal_mode, pragma_synchronous, pragma_user_version"),
            "wal2" + std::to_string(DBStore::kStoreSchemaVersion));  // 2: FULL
  // An update that does not set the modified time refreshes it; the creation time stays.
  sqlite3* db = Db(conn_);
  ASSERT_EQ(RunSql(db, R"(INSERT INTO Config (Name, ConfigGroup, Component, CreationTime,
      ModifiedTime) VALUES ('k', 'g', 'c', '2001', '2001'); UPDATE Config SET UserValue = '{}')"),
            SQLITE_OK);
  const char* kept_and_refreshed =
      "SELECT CreationTime || (ABS(STRFTIME('%s', ModifiedTime) - STRFTIME('%s')) < 5) FROM Config";
  EXPECT_EQ(QueryText(db, kept_and_refreshed), "20011");
}

TEST_F(ConnectionTest, UnopenableStoresGiveEmptyConnectionAndLog) {
  LogCapture log(0);
  dir_.WriteFile("blocker", "x");  // a regular file where the directory should be
  KorvoSetvault::SetStorePath(dir_.File("blocker/store.db"));
  EXPECT_FALSE(DBStore::GetConnection(DBStore::kConfigStore, true));
  EXPECT_NE(DBStore::LastOpenFailure().find("blocker/store.db"), std::string::npos);
  KorvoSetvault::SetStorePath(dir_.File("missing.db"));  // creation not allowed
  EXPECT_FALSE(DBStore::GetConnection(DBStore::kConfigStore, false));
  KorvoSetvault::SetStorePath(store_path_);
  EXPECT_FALSE(DBStore::GetConnection(7, true));  // unknown connection type
  EXPECT_GE(log.Lines().size(), 3u);
}

// The cached text follows another connection's commit also when first read inside a
// transaction, and forgets a write rolled back.
TEST_F(ConnectionTest, CachedValuesFollowOtherCommitsAndRollbacks) {
  Write(conn_, "1");
  EXPECT_EQ(Read(), "1");
  Write(other_, "2");
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  EXPECT_EQ(Read(), "2");
  Write(conn_, "3");
  EXPECT_EQ(Read(), "3");
  ASSERT_EQ(DBStore::CancelTransaction(conn_), 0);
  EXPECT_EQ(Read(), "2");
}

TEST_F(ConnectionTest, SchemaStoreAttachesAsSsAndNests) {
  LogCapture log(0);
  const std::string path = dir_.File("schema.db");
  KorvoSetvault::SetSchemaStorePath(path);
  EXPECT_EQ(DBStore::AttachSchemaStore(conn_), 1);  // missing file
  EXPECT_NE(access(path.c_str(), F_OK), 0);         // and not created
  ASSERT_EQ(QueryFile(path, "CREATE TABLE SmartnicSchema AS SELECT 'k' AS Name"), "<none>");
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
  StoreRow row;
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, stmt, KorvoSetvault::RowIntoMapCallback, &row, 3000), 0);
  EXPECT_EQ(row, expected);
}

TEST_F(StatementTest, CacheKeepsABoundedNumberOfIdleStatementsAndFinalizesOrphans) {
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
  // A statement whose connection (and cache) went first still steps, and is finalized on release.
  DBStore::StmtPtr orphan = DBStore::internal::Prepare(OtherConn(), "SELECT 1", 3000);
  EXPECT_EQ(sqlite3_step(orphan.get()), SQLITE_ROW);
  orphan.reset();
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
    Write(conn_, "doomed");
    EXPECT_EQ(CancelTransaction(conn_), 1);
    EXPECT_EQ(BeginTransaction(conn_), 1);  // no new level in a doomed transaction
    EXPECT_EQ(CommitTransaction(conn_), 1);
    // The outermost commit fails; the outermost cancel is an ordinary rollback.
    EXPECT_EQ(commit_last ? CommitTransaction(conn_) : CancelTransaction(conn_),
              commit_last ? 1 : 0);
    EXPECT_EQ(Committed(), "<none>");
    EXPECT_TRUE(sqlite3_get_autocommit(Db(conn_)));
  }
  // The next transaction starts clean; only its outermost commit commits.
  ASSERT_EQ(BeginTransaction(conn_), 0);
  ASSERT_EQ(BeginTransaction(conn_), 0);
  Write(conn_, "later");
  EXPECT_EQ(CommitTransaction(conn_), 0);
  EXPECT_EQ(Committed(), "<none>");
  EXPECT_EQ(CommitTransaction(conn_), 0);
  EXPECT_EQ(Committed(), "later");
}

TEST_F(TransactionTest, BeginWaitsForTheWriteLockThenFailsWithOne) {
  ASSERT_EQ(BeginTransaction(other_), 0);
  EXPECT_EQ(BeginTransaction(conn_), 1);  // after the 3000 ms busy time-out
  EXPECT_EQ(CommitTransaction(conn_), 2);
  EXPECT_EQ(CommitTransaction(other_), 0);
  EXPECT_EQ(BeginTransaction(conn_), 0);
  EXPECT_EQ(CommitTransaction(conn_), 0);
}

}  // namespace
}  // namespace setvault_test
