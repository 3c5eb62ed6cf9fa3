// Store transactions: the scoped guard, the three transaction calls, and
// running one operation under its own transaction, checked against what a
// second connection to the same store file sees.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <exception>
#include <stdexcept>

#include "setvault/exceptions.h"
#include "setvault/setvault_store.h"
#include "store/setvault_impl.h"
#include "store/transaction_scope.h"
#include "support/config_store.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ConfigStoreTest;
using ::testing::IsEmpty;

// A store whose transaction calls can be made to fail, counting the calls.
class ScriptedStore : public SetvaultImpl {
 public:
  using SetvaultImpl::SetvaultImpl;
  int BeginTransaction() override {
    ++begins;
    return begin_result != 0 ? begin_result : SetvaultImpl::BeginTransaction();
  }
  int CommitTransaction() override {
    ++commits;
    if (commit_throws) throw SetvaultException(SV_ERR_GENERIC, "Commit transaction failed.");
    return SetvaultImpl::CommitTransaction();
  }
  int CancelTransaction() noexcept override {
    ++cancels;
    return SetvaultImpl::CancelTransaction();
  }
  int begin_result = 0;
  bool commit_throws = false;
  int begins = 0, commits = 0, cancels = 0;
};

class TransactionTest : public ConfigStoreTest {
 protected:
  void SetUp() override {
    ConfigStoreTest::SetUp();
    scripted_ = std::make_shared<ScriptedStore>(conn_);
    store_ = scripted_;
    other_ = DBStore::OpenStoreConnection(store_path_, false);
    ASSERT_NE(other_, nullptr);
  }
  void TearDown() override {
    other_.reset();
    store_.reset();
    scripted_.reset();
    ConfigStoreTest::TearDown();
  }

  // Writes one row on the store's connection (inside whatever transaction is open).
  void WriteRow(const std::string& name) {
    Sql("INSERT INTO Config (Component, ConfigGroup, Name, Identifier, UserValue) VALUES "
        "('korvo', 't', '" +
        name + "', '', '{}')");
  }
  // Rows named `name` as seen by this connection and by an independent one.
  std::string Seen(const std::string& name) { return Count(Db(), name); }
  std::string SeenByOther(const std::string& name) {
    return Count(DBStore::GetSqliteHandle(*other_), name);
  }
  bool InTransaction() { return sqlite3_get_autocommit(Db()) == 0; }

  std::shared_ptr<ScriptedStore> scripted_;
  std::shared_ptr<Setvault> store_;
  std::shared_ptr<DBStore::StoreConnection> other_;

 private:
  static std::string Count(sqlite3* db, const std::string& name) {
    sqlite3_stmt* stmt = nullptr;
    std::string result = "<error>";
    if (sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM Config WHERE Name = ?1", -1, &stmt, nullptr) ==
        SQLITE_OK) {
      sqlite3_bind_text(stmt, 1, name.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(stmt) == SQLITE_ROW) {
        result = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
      }
    }
    sqlite3_finalize(stmt);
    return result;
  }
};

// --- SetvaultTransaction --------------------------------------------------

TEST_F(TransactionTest, GuardLeftInScopeRollsBack) {
  {
    SetvaultTransaction transaction(store_);
    WriteRow("a");
    EXPECT_EQ(Seen("a"), "1");
    EXPECT_EQ(SeenByOther("a"), "0");
  }
  EXPECT_EQ(scripted_->cancels, 1);
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(Seen("a"), "0");
  EXPECT_EQ(SeenByOther("a"), "0");
}

TEST_F(TransactionTest, GuardRollsBackWhenAnExceptionLeavesTheScope) {
  try {
    SetvaultTransaction transaction(store_);
    WriteRow("a");
    throw std::runtime_error("caller failed");
  } catch (const std::runtime_error&) {
  }
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(SeenByOther("a"), "0");
}

TEST_F(TransactionTest, CommittedGuardKeepsTheRowsAndCancelsNothing) {
  {
    SetvaultTransaction transaction(store_);
    WriteRow("a");
    EXPECT_EQ(transaction.Commit(), 0);
  }
  EXPECT_EQ(scripted_->cancels, 0);
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(SeenByOther("a"), "1");
}

TEST_F(TransactionTest, CancelledGuardRollsBackOnce) {
  {
    SetvaultTransaction transaction(store_);
    WriteRow("a");
    EXPECT_EQ(transaction.Cancel(), 0);
    EXPECT_FALSE(InTransaction());
  }
  EXPECT_EQ(scripted_->cancels, 1);
  EXPECT_EQ(Seen("a"), "0");
}

TEST_F(TransactionTest, GuardOnAnEmptyStoreThrowsBeforeAnyCall) {
  std::shared_ptr<Setvault> empty;
  try {
    SetvaultTransaction transaction(empty);
    ADD_FAILURE() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 2000);
    EXPECT_STREQ(e.what(), "Failed to use NULL as the store");
  }
}

TEST_F(TransactionTest, GuardThatCannotBeginThrowsAndCancelsNothing) {
  scripted_->begin_result = 1;
  try {
    SetvaultTransaction transaction(store_);
    ADD_FAILURE() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 2000);
    EXPECT_STREQ(e.what(), "Failed to start a transaction.");
  }
  EXPECT_EQ(scripted_->begins, 1);
  EXPECT_EQ(scripted_->cancels, 0);
}

TEST_F(TransactionTest, FailedCommitLeavesTheGuardToRollBack) {
  scripted_->commit_throws = true;
  {
    SetvaultTransaction transaction(store_);
    WriteRow("a");
    EXPECT_THROW(transaction.Commit(), SetvaultException);
    EXPECT_TRUE(InTransaction());
  }
  EXPECT_EQ(scripted_->cancels, 1);
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(Seen("a"), "0");
}

TEST_F(TransactionTest, ExceptionLeavingANestedGuardDoomsTheOuterOneAndReachesTheCaller) {
  SetvaultTransaction outer(store_);
  WriteRow("a");
  try {
    SetvaultTransaction inner(store_);
    auto invalid = std::make_shared<SetvaultObject>(SetvaultObjectId("vswitch", "net", "korvo", "v"));
    invalid->SetData("{\"name\":\"v\",\"mtu\":1}");
    store_->Set(invalid, USERDATA_CONTEXT{});
    ADD_FAILURE() << "no exception";
  } catch (const ValidationException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1089);
  }
  EXPECT_EQ(scripted_->cancels, 0);  // not the fatal nested cancel
  EXPECT_THROW(outer.Commit(), SetvaultException);
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(SeenByOther("a"), "0");
}

// --- The transaction calls ------------------------------------------------

TEST_F(TransactionTest, TransactionCallsNestThroughTheDatabaseLayer) {
  auto store = Setvault::GetStore("");
  ASSERT_EQ(store->BeginTransaction(), 0);
  ASSERT_EQ(store->BeginTransaction(), 0);
  WriteRow("a");
  EXPECT_EQ(store->CommitTransaction(), 0);  // inner level: only counts
  EXPECT_EQ(SeenByOther("a"), "0");
  EXPECT_EQ(store->CommitTransaction(), 0);
  EXPECT_EQ(SeenByOther("a"), "1");
  // Another store of the same thread shares the connection and its transaction.
  auto second = Setvault::GetStore("");
  ASSERT_EQ(store->BeginTransaction(), 0);
  WriteRow("b");
  EXPECT_EQ(second->CancelTransaction(), 0);
  EXPECT_EQ(Seen("b"), "0");
}

TEST_F(TransactionTest, CommitWithoutTransactionThrows) {
  try {
    store_->CommitTransaction();
    ADD_FAILURE() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 2000);
    EXPECT_STREQ(e.what(), "Commit transaction failed.");
  }
  // Cancel without transaction reports the layer's code and does not throw.
  EXPECT_EQ(store_->CancelTransaction(), 2);
}

TEST_F(TransactionTest, BeginReturnsTheLayersCodeWithoutThrowing) {
  // A second connection holds the write lock: begin waits out the busy
  // time-out and reports failure.
  ASSERT_EQ(
      sqlite3_exec(DBStore::GetSqliteHandle(*other_), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr),
      SQLITE_OK);
  EXPECT_NE(store_->BeginTransaction(), 0);
  EXPECT_FALSE(InTransaction());
  sqlite3_exec(DBStore::GetSqliteHandle(*other_), "ROLLBACK", nullptr, nullptr, nullptr);
  EXPECT_EQ(store_->BeginTransaction(), 0);
  EXPECT_EQ(store_->CancelTransaction(), 0);
}

using TransactionDeathTest = TransactionTest;

TEST_F(TransactionDeathTest, CancellingANestedLevelEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        auto store = Setvault::GetStore("");
        store->BeginTransaction();
        store->BeginTransaction();
        store->CancelTransaction();
      },
      "Failed to cancel nested transaction");
}

// --- ExecuteUnderTransaction ----------------------------------------------

using Operation = void (*)(const std::string&, const int&,
                           const std::shared_ptr<DBStore::StoreConnection>&);

// The operations below write one row through `conn` and then act.
std::exception_ptr g_to_throw;

void InsertOn(const std::shared_ptr<DBStore::StoreConnection>& conn, const std::string& name) {
  const std::string sql =
      "INSERT INTO Config (Component, ConfigGroup, Name, Identifier, UserValue) VALUES "
      "('korvo', 't', '" +
      name + "', '', '{}')";
  ASSERT_EQ(sqlite3_exec(DBStore::GetSqliteHandle(*conn), sql.c_str(), nullptr, nullptr, nullptr),
            SQLITE_OK);
}

void WriteAndSucceed(const std::string& name, const int&,
                     const std::shared_ptr<DBStore::StoreConnection>& conn) {
  InsertOn(conn, name);
}

void WriteAndRethrow(const std::string& name, const int&,
                     const std::shared_ptr<DBStore::StoreConnection>& conn) {
  InsertOn(conn, name);
  std::rethrow_exception(g_to_throw);
}

void WriteAndFailPlainly(const std::string& name, const int&,
                         const std::shared_ptr<DBStore::StoreConnection>& conn) {
  InsertOn(conn, name);
  throw std::runtime_error("disk on fire");
}

void WriteAndThrowInt(const std::string& name, const int&,
                      const std::shared_ptr<DBStore::StoreConnection>& conn) {
  InsertOn(conn, name);
  throw 42;
}

// Cancels a nested level of its own, so that the enclosing commit must fail.
void WriteAndDoom(const std::string& name, const int&,
                  const std::shared_ptr<DBStore::StoreConnection>& conn) {
  InsertOn(conn, name);
  ASSERT_EQ(DBStore::BeginTransaction(conn), 0);
  ASSERT_EQ(DBStore::CancelTransaction(conn), 1);
}

TEST_F(TransactionTest, OperationThatReturnsIsCommitted) {
  ExecuteUnderTransaction(conn_, std::string("a"), 0, Operation(WriteAndSucceed));
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(SeenByOther("a"), "1");
}

TEST_F(TransactionTest, ValidationExceptionReachesTheCallerAsTheSameObject) {
  std::vector<ErrorInfo> findings = {{"/mtu", "too small"}, {"/name", "missing"}};
  g_to_throw =
      std::make_exception_ptr(ValidationException(1089, "Configuration data is invalid", findings));
  const void* original = nullptr;
  try {
    std::rethrow_exception(g_to_throw);
  } catch (const ValidationException& e) {
    original = &e;
  }
  try {
    ExecuteUnderTransaction(conn_, std::string("a"), 0, Operation(WriteAndRethrow));
    ADD_FAILURE() << "no exception";
  } catch (const ValidationException& e) {
    EXPECT_EQ(&e, original);
    EXPECT_EQ(e.GetErrorCode(), 1089);
    ASSERT_EQ(e.GetErrors().size(), 2u);
    EXPECT_EQ(e.GetErrors()[1].path, "/name");
    EXPECT_EQ(e.GetErrors()[1].message, "missing");
  }
  g_to_throw = nullptr;
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(Seen("a"), "0");
}

TEST_F(TransactionTest, OtherStandardExceptionsBecomeOperationFailed) {
  try {
    ExecuteUnderTransaction(conn_, std::string("a"), 0, Operation(WriteAndFailPlainly));
    ADD_FAILURE() << "no exception";
  } catch (const ValidationException&) {
    ADD_FAILURE() << "wrong type";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 2000);
    EXPECT_STREQ(e.what(), "Operation failed: disk on fire");
  }
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(Seen("a"), "0");
}

TEST_F(TransactionTest, NonStandardExceptionsPassWithoutCancel) {
  EXPECT_THROW(ExecuteUnderTransaction(conn_, std::string("a"), 0, Operation(WriteAndThrowInt)),
               int);
  EXPECT_TRUE(InTransaction());  // left open: nothing cancelled it
  EXPECT_EQ(Seen("a"), "1");
  EXPECT_EQ(DBStore::CancelTransaction(conn_), 0);
  EXPECT_EQ(Seen("a"), "0");
}

TEST_F(TransactionTest, RefusedCommitIsReportedAndRolledBack) {
  try {
    ExecuteUnderTransaction(conn_, std::string("a"), 0, Operation(WriteAndDoom));
    ADD_FAILURE() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 2000);
    EXPECT_STREQ(e.what(), "Commit transaction failed.");
  }
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(SeenByOther("a"), "0");
}

TEST_F(TransactionTest, RefusedBeginRunsNothing) {
  // A cancelled inner level dooms the open transaction: no further begin.
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  ASSERT_EQ(DBStore::CancelTransaction(conn_), 1);
  try {
    ExecuteUnderTransaction(conn_, std::string("a"), 0, Operation(WriteAndSucceed));
    ADD_FAILURE() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 2000);
    EXPECT_STREQ(e.what(), "Begin Transaction failed for: ExecuteUnderTransaction");
  }
  EXPECT_EQ(Seen("a"), "0");
  EXPECT_EQ(DBStore::CancelTransaction(conn_), 0);
}

TEST_F(TransactionTest, NestedInTheCallersTransactionCommitsWithIt) {
  ASSERT_EQ(store_->BeginTransaction(), 0);
  ExecuteUnderTransaction(conn_, std::string("a"), 0, Operation(WriteAndSucceed));
  EXPECT_TRUE(InTransaction());
  EXPECT_EQ(SeenByOther("a"), "0");
  EXPECT_EQ(store_->CancelTransaction(), 0);
  EXPECT_EQ(Seen("a"), "0");
}

TEST_F(TransactionTest, NestedFailureUndoesOnlyItsOwnRows) {
  ASSERT_EQ(store_->BeginTransaction(), 0);
  WriteRow("caller");
  ExecuteUnderTransaction(conn_, std::string("kept"), 0, Operation(WriteAndSucceed));
  EXPECT_THROW(
      ExecuteUnderTransaction(conn_, std::string("undone"), 0, Operation(WriteAndFailPlainly)),
      SetvaultException);
  EXPECT_EQ(Seen("undone"), "0");
  EXPECT_EQ(store_->CommitTransaction(), 0);
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(SeenByOther("caller"), "1");
  EXPECT_EQ(SeenByOther("kept"), "1");
  EXPECT_EQ(SeenByOther("undone"), "0");
}

}  // namespace
}  // namespace KorvoSetvault
