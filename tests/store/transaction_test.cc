// Store transactions: the scoped guard, nested guards, and running one operation under its
// own transaction, checked against what a second connection to the same store file sees.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <stdexcept>

#include "dbstore/db_store_fixture.h"
#include "setvault/exceptions.h"
#include "setvault/setvault_store.h"
#include "store/setvault_impl.h"
#include "store/transaction_scope.h"
#include "support/config_store.h"
#include "support/expect_error.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExpectError;

// A store whose begin and commit can be made to fail, counting cancels.
class ScriptedStore : public SetvaultImpl {
 public:
  using SetvaultImpl::SetvaultImpl;
  int BeginTransaction() override {
    return begin_result != 0 ? begin_result : SetvaultImpl::BeginTransaction();
  }
  int CommitTransaction() override {
    if (commit_throws) throw SetvaultException(SV_ERR_GENERIC, "Commit transaction failed.");
    return SetvaultImpl::CommitTransaction();
  }
  int CancelTransaction() noexcept override {
    ++cancels;
    return SetvaultImpl::CancelTransaction();
  }
  int begin_result = 0;
  bool commit_throws = false;
  int cancels = 0;
};

class TransactionTest : public setvault_test::ConfigStoreTest {
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

  // Writes one row named `name` on the store's connection (inside whatever transaction is open).
  void WriteRow(const std::string& name) { InsertConfig({"korvo", "t", name}); }
  // Rows named `name` as seen by an independent connection.
  std::string SeenByOther(const std::string& name) {
    return setvault_test::QueryText(DBStore::GetSqliteHandle(*other_),
                                    "SELECT COUNT(*) FROM Config WHERE Name = '" + name + "'");
  }
  bool InTransaction() { return sqlite3_get_autocommit(Db()) == 0; }

  std::shared_ptr<ScriptedStore> scripted_;
  std::shared_ptr<Setvault> store_;
  std::shared_ptr<DBStore::StoreConnection> other_;
};

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
      // A failed commit leaves the rollback to the guard.
      {"commit fails",
       [&](SetvaultTransaction& t) {
         scripted_->commit_throws = true;
         EXPECT_THROW(t.Commit(), SetvaultException);
       },
       1, "0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    scripted_->cancels = 0;
    try {
      SetvaultTransaction transaction(store_);
      WriteRow(c.name);
      EXPECT_EQ(SeenByOther(c.name), "0");
      c.end(transaction);
    } catch (const std::runtime_error&) {
    }
    scripted_->commit_throws = false;
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
  EXPECT_EQ(scripted_->cancels, 0);
}

TEST_F(TransactionTest, ExceptionLeavingANestedGuardDoomsTheOuterOneAndReachesTheCaller) {
  SetvaultTransaction outer(store_);
  WriteRow("a");
  auto invalid = std::make_shared<SetvaultObject>(SetvaultObjectId("vswitch", "net", "korvo", "v"));
  invalid->SetData(R"({"name":"v","mtu":1})");
  const auto nested = [&] {
    SetvaultTransaction inner(store_);
    store_->Set(invalid, USERDATA_CONTEXT{});
  };
  EXPECT_THROW(nested(), ValidationException);
  EXPECT_EQ(scripted_->cancels, 0);  // not the fatal nested cancel
  EXPECT_THROW(outer.Commit(), SetvaultException);
  EXPECT_FALSE(InTransaction());
  EXPECT_EQ(SeenByOther("a"), "0");
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

enum Act { kSucceed, kFail, kDoom };

// Writes one row named "a" through `conn`, then acts as `act` says.
void WriteAndAct(const std::string&, const int& act,
                 const std::shared_ptr<DBStore::StoreConnection>& conn) {
  ASSERT_EQ(setvault_test::RunSql(DBStore::GetSqliteHandle(*conn),
                                  "INSERT INTO Config (Component, ConfigGroup, Name, Identifier) "
                                  "VALUES ('korvo', 't', 'a', '')"),
            SQLITE_OK);
  if (act == kFail) throw std::runtime_error("disk on fire");
  if (act == kDoom) {  // cancels a nested level, so that the enclosing commit must fail
    ASSERT_EQ(DBStore::BeginTransaction(conn), 0);
    ASSERT_EQ(DBStore::CancelTransaction(conn), 1);
  }
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
    const auto run = [&] {
      ExecuteUnderTransaction(conn_, std::string(), static_cast<int>(c.act), &WriteAndAct);
    };
    if (*c.error == '\0') {
      run();
    } else {
      ExpectError(run, 2000, c.error);
    }
    EXPECT_FALSE(InTransaction());
    EXPECT_EQ(SeenByOther("a"), c.seen);
  }
}

}  // namespace
}  // namespace KorvoSetvault
