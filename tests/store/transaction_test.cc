// Store transactions: the scoped guard, the three transaction calls, and
// running one operation under its own transaction, checked against what a
// second connection to the same store file sees.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <exception>
#include <functional>
#include <stdexcept>

#include "setvault/exceptions.h"
#include "setvault/setvault_store.h"
#include "store/setvault_impl.h"
#include "store/transaction_scope.h"
#include "support/config_store.h"
#include "support/expect_error.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ConfigStoreTest;
using setvault_test::ExpectError;

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

TEST_F(TransactionTest, GuardRollsBackUnlessCommitted) {
  const struct {
    const char* name;
    std::function<void(SetvaultTransaction&)> end;
    int cancels;
    const char* seen;
  } cases[] = {
      {"left in scope", [](SetvaultTransaction&) {}, 1, "0"},
      // Unwinding takes the database layer's rollback, not the store's cancel.
      {"exception", [](SetvaultTransaction&) { throw std::runtime_error("caller failed"); }, 0,
       "0"},
      {"committed", [](SetvaultTransaction& t) { EXPECT_EQ(t.Commit(), 0); }, 0, "1"},
      {"cancelled once", [](SetvaultTransaction& t) { EXPECT_EQ(t.Cancel(), 0); }, 1, "0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    scripted_->cancels = 0;
    try {
      SetvaultTransaction transaction(store_);
      WriteRow(c.name);
      EXPECT_EQ(Seen(c.name), "1");
      EXPECT_EQ(SeenByOther(c.name), "0");
      c.end(transaction);
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(scripted_->cancels, c.cancels);
    EXPECT_FALSE(InTransaction());
    EXPECT_EQ(SeenByOther(c.name), c.seen);
  }
}

TEST_F(TransactionTest, GuardThatCannotStartThrowsAndCancelsNothing) {
  std::shared_ptr<Setvault> empty;
  ExpectError([&] { SetvaultTransaction transaction(empty); }, 2000,
              "Failed to use NULL as the store");
  scripted_->begin_result = 1;
  ExpectError([&] { SetvaultTransaction transaction(store_); }, 2000,
              "Failed to start a transaction.");
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
    auto invalid =
        std::make_shared<SetvaultObject>(SetvaultObjectId("vswitch", "net", "korvo", "v"));
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

enum Act { kSucceed, kFail, kDoom, kRethrow, kThrowInt };

// Writes one row named `name` through `conn`, then acts as `act` says.
void WriteAndAct(const std::string& name, const int& act,
                 const std::shared_ptr<DBStore::StoreConnection>& conn) {
  InsertOn(conn, name);
  if (act == kFail) throw std::runtime_error("disk on fire");
  if (act == kRethrow) std::rethrow_exception(g_to_throw);
  if (act == kThrowInt) throw 42;
  if (act == kDoom) {  // cancels a nested level, so that the enclosing commit must fail
    ASSERT_EQ(DBStore::BeginTransaction(conn), 0);
    ASSERT_EQ(DBStore::CancelTransaction(conn), 1);
  }
}

// Runs WriteAndAct under its own transaction.
void Execute(const std::shared_ptr<DBStore::StoreConnection>& conn, const char* name, Act act) {
  ExecuteUnderTransaction(conn, std::string(name), static_cast<int>(act), Operation(WriteAndAct));
}

// An operation that returns is committed; a standard exception and a refused commit are
// reported and rolled back.
TEST_F(TransactionTest, OperationsUnderTheirOwnTransaction) {
  const struct {
    Act act;
    const char* error;
    const char* seen;
  } cases[] = {
      {kSucceed, "", "1"},
      {kFail, "Operation failed: disk on fire", "0"},
      {kDoom, "Commit transaction failed.", "0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    Sql("DELETE FROM Config");
    if (*c.error == '\0') {
      Execute(conn_, "a", c.act);
    } else {
      ExpectError([&] { Execute(conn_, "a", c.act); }, 2000, c.error);
    }
    EXPECT_FALSE(InTransaction());
    EXPECT_EQ(SeenByOther("a"), c.seen);
  }
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
    Execute(conn_, "a", kRethrow);
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

TEST_F(TransactionTest, NonStandardExceptionsPassWithoutCancel) {
  EXPECT_THROW(Execute(conn_, "a", kThrowInt), int);
  EXPECT_TRUE(InTransaction());  // left open: nothing cancelled it
  EXPECT_EQ(Seen("a"), "1");
  EXPECT_EQ(DBStore::CancelTransaction(conn_), 0);
  EXPECT_EQ(Seen("a"), "0");
}

TEST_F(TransactionTest, RefusedBeginRunsNothing) {
  // A cancelled inner level dooms the open transaction: no further begin.
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  ASSERT_EQ(DBStore::BeginTransaction(conn_), 0);
  ASSERT_EQ(DBStore::CancelTransaction(conn_), 1);
  ExpectError([&] { Execute(conn_, "a", kSucceed); }, 2000,
              "Begin Transaction failed for: ExecuteUnderTransaction");
  EXPECT_EQ(Seen("a"), "0");
  EXPECT_EQ(DBStore::CancelTransaction(conn_), 0);
}

TEST_F(TransactionTest, NestedFailureUndoesOnlyItsOwnRows) {
  ASSERT_EQ(store_->BeginTransaction(), 0);
  WriteRow("caller");
  Execute(conn_, "kept", kSucceed);
  EXPECT_THROW(Execute(conn_, "undone", kFail), SetvaultException);
  EXPECT_EQ(Seen("undone"), "0");
  EXPECT_EQ(store_->CommitTransaction(), 0);
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(SeenByOther("caller"), "1");
  EXPECT_EQ(SeenByOther("kept"), "1");
  EXPECT_EQ(SeenByOther("undone"), "0");
}

}  // namespace
}  // namespace KorvoSetvault
