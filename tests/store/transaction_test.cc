// Store transactions: the scoped guard, nested guards, and an operation undone inside the
// caller's transaction, checked against what a second connection to the same store file sees.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <stdexcept>

#include "dbstore/db_store_fixture.h"
#include "setvault/exceptions.h"
#include "setvault/setvault.h"
#include "setvault/setvault_store.h"
#include "store/setvault_impl.h"
#include "store/transaction_scope.h"
#include "support/config_store.h"
#include "support/reliability_processes.h"
#include "support/thrown.h"

namespace KorvoSetvault {
namespace {

// A store whose begin can be made to fail, counting cancels.
class ScriptedStore : public SetvaultImpl {
 public:
  using SetvaultImpl::SetvaultImpl;
  int BeginTransaction() override {
    return begin_result != 0 ? begin_result : SetvaultImpl::BeginTransaction();
  }
  int CancelTransaction() noexcept override {
    ++cancels;
    return SetvaultImpl::CancelTransaction();
  }
  int begin_result = 0;
  int cancels = 0;
};

class TransactionTest : public setvault_test::ConfigStoreTest {
 protected:
  void SetUp() override {
    ConfigStoreTest::SetUp();
    store_ = scripted_ = std::make_shared<ScriptedStore>(conn_);
  }

  // Writes one row named `name` on the store's connection (inside whatever transaction is open).
  void WriteRow(const std::string& name) { InsertConfig({"korvo", "t", name}); }
  // Rows named `name` as seen by an independent connection.
  std::string SeenByOther(const std::string& name) {
    auto other = DBStore::OpenStoreConnection(store_path_, false);
    return setvault_test::QueryText(DBStore::GetSqliteHandle(*other),
                                    "SELECT COUNT(*) FROM Config WHERE Name = '" + name + "'");
  }

  std::shared_ptr<ScriptedStore> scripted_;
  std::shared_ptr<Setvault> store_;
};

TEST_F(TransactionTest, GuardRollsBackUnlessCommittedAndOneThatCannotStartCancelsNothing) {
  const struct {
    const char* name;
    std::function<void(SetvaultTransaction&)> end;
    int cancels;
    const char* seen;
  } cases[] = {
      {"left in scope", [](SetvaultTransaction&) {}, 1, "0"},
      // Unwinding takes the database layer's rollback, not the store's cancel.
      {"exception", [](SetvaultTransaction&) { throw std::runtime_error("failed"); }, 0, "0"},
      {"committed", [](SetvaultTransaction& t) { EXPECT_EQ(t.Commit(), 0); }, 0, "1"},
      {"cancelled once", [](SetvaultTransaction& t) { EXPECT_EQ(t.Cancel(), 0); }, 1, "0"},
      // An exception leaving a nested guard dooms the outer one (no fatal nested cancel); the
      // failed commit leaves the rollback to the guard.
      {"nested guard unwound",
       [&](SetvaultTransaction& t) {
         try {
           SetvaultTransaction inner(store_);
           throw std::runtime_error("inner failed");
         } catch (const std::runtime_error&) {
         }
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
    EXPECT_EQ(scripted_->cancels, c.cancels);
    EXPECT_NE(sqlite3_get_autocommit(Db()), 0);  // no transaction left open
    EXPECT_EQ(SeenByOther(c.name), c.seen);
  }
  // A guard that cannot start throws and cancels nothing (the caller's transaction stays).
  scripted_->cancels = 0;
  std::shared_ptr<Setvault> empty;
  EXPECT_EQ(setvault_test::Thrown([&] { SetvaultTransaction transaction(empty); }),
            "2000 Failed to use NULL as the store");
  scripted_->begin_result = 1;
  EXPECT_EQ(setvault_test::Thrown([&] { SetvaultTransaction transaction(store_); }),
            "2000 Failed to start a transaction.");
  EXPECT_EQ(scripted_->cancels, 0);
}

using TransactionDeathTest = TransactionTest;

TEST_F(TransactionDeathTest, CancellingANestedLevelEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  store_->BeginTransaction();
  store_->BeginTransaction();
  EXPECT_DEATH(store_->CancelTransaction(), "Failed to cancel nested transaction");
}

// An operation undone inside the caller's transaction (back to its savepoint) leaves no
// value it wrote and then read in the host flag or object caches.
TEST_F(TransactionTest, AnUndoneOperationLeavesNothingItReadInTheCaches) {
  const SetvaultObjectId host("host", "system", "korvo");
  const auto data = [&] { return store_->Get(host)->GetData(); };
  const auto flag = [&] {
    std::string value;
    EXPECT_EQ(DBStore::ReadKeyValue("TEST_FLAG", &value, conn_), 0);
    return value;
  };
  ASSERT_EQ(store_->BeginTransaction(), 0);
  ASSERT_EQ(DBStore::WriteKeyValue("TEST_FLAG", "false", conn_), 0);
  store_->Set(CreateObject(host, R"({"hostname": "kept"})"), USERDATA_CONTEXT{});
  {
    OperationScope undone(conn_, "Test");
    ASSERT_EQ(DBStore::WriteKeyValue("TEST_FLAG", "true", conn_), 0);
    store_->Set(CreateObject(host, R"({"hostname": "undone"})"), USERDATA_CONTEXT{});
    EXPECT_EQ(flag(), "true");
    EXPECT_NE(data().find("undone"), std::string::npos) << data();
  }
  EXPECT_EQ(flag(), "false");
  EXPECT_NE(data().find("kept"), std::string::npos) << data();
  ASSERT_EQ(store_->CommitTransaction(), 0);
  // Another process sees the same committed values.
  EXPECT_EQ(setvault_test::RunInChild([&] {
              std::string value;
              DBStore::ReadKeyValue("TEST_FLAG", &value,
                                    DBStore::OpenStoreConnection(store_path_, false));
              return value + " " + std::to_string(data().find("kept") != std::string::npos);
            }),
            "false 1");
}

}  // namespace
}  // namespace KorvoSetvault
