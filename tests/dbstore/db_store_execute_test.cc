// Executing statements: rows reach the callback, and every kind of failure answers 1.
#include <atomic>
#include <chrono>
#include <cstring>

#include "db/row_callbacks.h"
#include "dbstore/db_store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::RowAppendedCallback;
using KorvoSetvault::StoreRow;
using KorvoSetvault::StoreRows;

// A VFS that forwards to the default one and fails every file write while
// g_fail_writes is set. Registered as the default VFS for the tests that need it.
std::atomic<bool> g_fail_writes{false};
sqlite3_vfs* g_real_vfs = nullptr;
sqlite3_vfs g_failing_vfs;
sqlite3_io_methods g_failing_methods;

struct ShimFile {
  sqlite3_file base;
  sqlite3_file* real;
};

sqlite3_file* Real(sqlite3_file* file) { return reinterpret_cast<ShimFile*>(file)->real; }
const sqlite3_io_methods* M(sqlite3_file* file) { return Real(file)->pMethods; }

int ShimClose(sqlite3_file* f) { return M(f)->xClose(Real(f)); }
int ShimRead(sqlite3_file* f, void* b, int n, sqlite3_int64 o) {
  return M(f)->xRead(Real(f), b, n, o);
}
int ShimWrite(sqlite3_file* f, const void* b, int n, sqlite3_int64 o) {
  if (g_fail_writes) return SQLITE_IOERR_WRITE;
  return M(f)->xWrite(Real(f), b, n, o);
}
int ShimTruncate(sqlite3_file* f, sqlite3_int64 s) { return M(f)->xTruncate(Real(f), s); }
int ShimSync(sqlite3_file* f, int flags) { return M(f)->xSync(Real(f), flags); }
int ShimFileSize(sqlite3_file* f, sqlite3_int64* s) { return M(f)->xFileSize(Real(f), s); }
int ShimLock(sqlite3_file* f, int l) { return M(f)->xLock(Real(f), l); }
int ShimUnlock(sqlite3_file* f, int l) { return M(f)->xUnlock(Real(f), l); }
int ShimCheckReserved(sqlite3_file* f, int* r) { return M(f)->xCheckReservedLock(Real(f), r); }
int ShimFileControl(sqlite3_file* f, int op, void* a) { return M(f)->xFileControl(Real(f), op, a); }
int ShimSectorSize(sqlite3_file* f) { return M(f)->xSectorSize(Real(f)); }
int ShimDevice(sqlite3_file* f) { return M(f)->xDeviceCharacteristics(Real(f)); }
int ShimShmMap(sqlite3_file* f, int i, int s, int e, void volatile** p) {
  return M(f)->xShmMap(Real(f), i, s, e, p);
}
int ShimShmLock(sqlite3_file* f, int o, int n, int fl) { return M(f)->xShmLock(Real(f), o, n, fl); }
void ShimShmBarrier(sqlite3_file* f) { M(f)->xShmBarrier(Real(f)); }
int ShimShmUnmap(sqlite3_file* f, int d) { return M(f)->xShmUnmap(Real(f), d); }
int ShimFetch(sqlite3_file* f, sqlite3_int64 o, int n, void** p) {
  return M(f)->xFetch(Real(f), o, n, p);
}
int ShimUnfetch(sqlite3_file* f, sqlite3_int64 o, void* p) { return M(f)->xUnfetch(Real(f), o, p); }

int ShimOpen(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* file, int flags, int* out) {
  auto* shim = reinterpret_cast<ShimFile*>(file);
  shim->real = reinterpret_cast<sqlite3_file*>(shim + 1);
  int rc = g_real_vfs->xOpen(g_real_vfs, name, shim->real, flags, out);
  file->pMethods = (rc == SQLITE_OK && shim->real->pMethods) ? &g_failing_methods : nullptr;
  return rc;
}

class FailingVfs {
 public:
  FailingVfs() {
    g_real_vfs = sqlite3_vfs_find(nullptr);
    g_failing_vfs = *g_real_vfs;
    g_failing_vfs.zName = "failing-writes";
    g_failing_vfs.szOsFile = static_cast<int>(sizeof(ShimFile)) + g_real_vfs->szOsFile;
    g_failing_vfs.xOpen = ShimOpen;
    g_failing_methods = sqlite3_io_methods{3,
                                           ShimClose,
                                           ShimRead,
                                           ShimWrite,
                                           ShimTruncate,
                                           ShimSync,
                                           ShimFileSize,
                                           ShimLock,
                                           ShimUnlock,
                                           ShimCheckReserved,
                                           ShimFileControl,
                                           ShimSectorSize,
                                           ShimDevice,
                                           ShimShmMap,
                                           ShimShmLock,
                                           ShimShmBarrier,
                                           ShimShmUnmap,
                                           ShimFetch,
                                           ShimUnfetch};
    sqlite3_vfs_register(&g_failing_vfs, 1);
  }
  ~FailingVfs() {
    g_fail_writes = false;
    sqlite3_vfs_register(g_real_vfs, 1);
    sqlite3_vfs_unregister(&g_failing_vfs);
  }
};

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
    if (!stmt) return -1;
    return DBStore::ExecuteStmt(conn, stmt, nullptr, nullptr, busy_ms);
  }
  std::string Count(const std::shared_ptr<DBStore::StoreConnection>& conn) {
    return QueryText(Db(conn), "SELECT COUNT(*) FROM Config");
  }
  std::shared_ptr<DBStore::StoreConnection> conn_;
};

int AbortOnSecondRow(void* context, int, char**, char**) {
  return ++*static_cast<int*>(context) == 2 ? 1 : 0;
}

TEST_F(ExecuteTest, CallbackReceivesEveryRowWithNamesAndNulls) {
  ASSERT_EQ(Run(conn_,
                "INSERT INTO Config (Name, ConfigGroup, Component, Identifier, UserValue)"
                " VALUES ('k', 'g', 'c', 'a', '{\"x\":1}'), ('k', 'g', 'c', 'b', NULL)"),
            0);
  auto stmt = DBStore::internal::Prepare(
      conn_, "SELECT Identifier, UserValue AS Value FROM Config WHERE Name = 'k'", 3000);
  StoreRows rows = std::make_shared<std::vector<std::shared_ptr<StoreRow>>>();
  ASSERT_EQ(DBStore::ExecuteStmt(conn_, stmt, RowAppendedCallback, &rows, 3000), 0);
  ASSERT_EQ(rows->size(), 2u);
  std::map<std::string, StoreRow> by_id;
  for (const auto& row : *rows) by_id[row->at("Identifier")] = *row;
  EXPECT_EQ(by_id["a"].at("Value"), "{\"x\":1}");
  EXPECT_EQ(by_id["b"].count("Value"), 0u);
  // No row is not a failure; a null callback just runs the statement.
  auto none = DBStore::internal::Prepare(conn_, "SELECT 1 FROM Config WHERE Name = 'z'", 3000);
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, none, RowAppendedCallback, &rows, 3000), 0);
  EXPECT_EQ(rows->size(), 2u);
}

TEST_F(ExecuteTest, CallbackAbortStopsTheStatementAndAnswersOne) {
  ASSERT_EQ(Run(conn_, "INSERT INTO KeyValue VALUES ('a', '1'), ('b', '2'), ('c', '3')"), 0);
  LogCapture log(0);
  auto stmt = DBStore::internal::Prepare(conn_, "SELECT Key FROM KeyValue", 3000);
  int calls = 0;
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, stmt, AbortOnSecondRow, &calls, 3000), 1);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(log.CountStartingWith(0, "Row callback aborted"), 1);
  // An empty statement is a failure too.
  EXPECT_EQ(DBStore::ExecuteStmt(conn_, DBStore::StmtPtr(), nullptr, nullptr, 3000), 1);
}

TEST_F(ExecuteTest, ConstraintViolationsAnswerOneAndLogTheCode) {
  LogCapture log(0);
  // NOT NULL.
  EXPECT_EQ(Run(conn_,
                "INSERT INTO Config (Name, ConfigGroup, Component) "
                "VALUES (NULL, 'g', 'c')"),
            1);
  // CHECK.
  EXPECT_EQ(Run(conn_,
                "INSERT INTO Config (Name, ConfigGroup, Component, Success) "
                "VALUES ('k', 'g', 'c', 5)"),
            1);
  // UNIQUE, with a plain INSERT.
  ASSERT_EQ(Run(conn_, "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('k', 'g', 'c')"),
            0);
  EXPECT_EQ(Run(conn_, "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('k', 'g', 'c')"),
            1);
  EXPECT_EQ(Count(conn_), "1");
  EXPECT_EQ(log.CountStartingWith(0, "Statement failed: SQLite error 1299"), 1);  // NOT NULL
  EXPECT_EQ(log.CountStartingWith(0, "Statement failed: SQLite error 275"), 1);   // CHECK
  EXPECT_EQ(log.CountStartingWith(0, "Statement failed: SQLite error 2067"), 1);  // UNIQUE
}

TEST_F(ExecuteTest, WriteLockedByAnotherConnectionAnswersOneAfterTheTimeOut) {
  auto other = OtherConn();
  ASSERT_EQ(DBStore::BeginTransaction(other), 0);
  ASSERT_EQ(Run(other, "INSERT INTO KeyValue VALUES ('held', 'x')"), 0);
  LogCapture log(0);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Run(conn_, "INSERT INTO KeyValue VALUES ('mine', 'y')", 50), 1);
  auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(40));
  EXPECT_EQ(log.CountStartingWith(0, "Statement failed: SQLite error 5 "), 1);  // SQLITE_BUSY
  ASSERT_EQ(DBStore::CommitTransaction(other), 0);
  EXPECT_EQ(QueryText(Db(conn_), "SELECT COUNT(*) FROM KeyValue"), "1");
  // Once the lock is gone the same write goes through.
  EXPECT_EQ(Run(conn_, "INSERT INTO KeyValue VALUES ('mine', 'y')", 50), 0);
}

TEST_F(ExecuteTest, IoErrorAnswersOneAndFailedTransactionLeavesStoreUnchanged) {
  FailingVfs vfs;
  auto conn = OtherConn();  // opened through the failing VFS
  ASSERT_TRUE(conn);
  ASSERT_EQ(Run(conn, "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('k', 'g', 'c')"),
            0);
  LogCapture log(0);
  g_fail_writes = true;
  EXPECT_EQ(Run(conn, "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('a', 'g', 'c')"),
            1);
  EXPECT_EQ(log.CountStartingWith(0, "Statement failed: SQLite error 778"), 1);  // IOERR_WRITE
  g_fail_writes = false;

  // A transaction whose commit cannot be written reports failure and keeps nothing.
  ASSERT_EQ(DBStore::BeginTransaction(conn), 0);
  ASSERT_EQ(Run(conn, "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('b', 'g', 'c')"),
            0);
  ASSERT_EQ(Run(conn, "UPDATE Config SET UserValue = 'changed'"), 0);
  g_fail_writes = true;
  EXPECT_NE(DBStore::CommitTransaction(conn), 0);
  g_fail_writes = false;
  DBStore::CancelTransaction(conn);  // whatever the engine left open is rolled back
  EXPECT_EQ(Count(conn), "1");
  EXPECT_EQ(Count(conn_), "1");
  EXPECT_EQ(QueryText(Db(conn_), "SELECT UserValue FROM Config"), "<null>");
  // The connection is usable again.
  ASSERT_EQ(DBStore::BeginTransaction(conn), 0);
  ASSERT_EQ(Run(conn, "INSERT INTO Config (Name, ConfigGroup, Component) VALUES ('c', 'g', 'c')"),
            0);
  EXPECT_EQ(DBStore::CommitTransaction(conn), 0);
  EXPECT_EQ(Count(conn_), "2");
}

}  // namespace
}  // namespace setvault_test
