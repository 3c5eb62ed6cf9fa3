// Writes that open their own transaction leave nothing behind when one statement fails, and
// lists that cannot be written are refused before anything is written.
#include <gtest/gtest.h>

#include <functional>

#include "store/store_fixture.h"

namespace setvault_test {
namespace {

SetvaultObjectId Vswitch(const std::string& name) {
  return SetvaultObjectId("vswitch", "net", "korvo", name);
}
SetvaultObjectId Datastore(const std::string& label) {
  return SetvaultObjectId("datastore", "storage", "korvo", label);
}

class StoreWriteAtomicityTest : public WriteStoreTest {
 protected:
  // Makes every insert of a row with `identifier` fail inside the database.
  void FailInsertsOf(const std::string& identifier) {
    ASSERT_EQ(
        RunSql(Db(), "CREATE TRIGGER FailOne BEFORE INSERT ON Config WHEN NEW.Identifier = '" +
                         identifier + "' BEGIN SELECT RAISE(ABORT, 'injected'); END"),
        SQLITE_OK);
  }
  void RemoveFault() { ASSERT_EQ(RunSql(Db(), "DROP TRIGGER FailOne"), SQLITE_OK); }

  std::vector<std::shared_ptr<SetvaultObject>> ThreeSwitches(int mtu) {
    std::vector<std::shared_ptr<SetvaultObject>> objects;
    for (const char* name : {"a", "b", "c"}) {
      objects.push_back(Object(Vswitch(name), std::string(R"({"name":")") + name + R"(","mtu":)" +
                                                  std::to_string(mtu) + "}"));
    }
    return objects;
  }
};

TEST_F(StoreWriteAtomicityTest, FailingRowOfSetInstancesLeavesNoNewRow) {
  FailInsertsOf("b");
  const std::string message = ExpectThrow<KorvoSetvault::SetvaultException>(
      [&] { store_->SetInstances(ThreeSwitches(1500), kExternal); }, 2000);
  EXPECT_EQ(message, "WriteComplete failed");
  EXPECT_EQ(RowCount(Vswitch("")), 0);
  // The transaction is closed: the connection takes further writes normally.
  RemoveFault();
  store_->SetInstances(ThreeSwitches(1500), kExternal);
  EXPECT_EQ(RowCount(Vswitch("")), 3);
}

TEST_F(StoreWriteAtomicityTest, FailingRowOfSetInstancesLeavesStoredRowsUnchanged) {
  store_->SetInstances(ThreeSwitches(1500), kExternal);
  FailInsertsOf("b");
  ExpectThrow<KorvoSetvault::SetvaultException>(
      [&] { store_->SetInstances(ThreeSwitches(9000), kExternal); }, 2000);
  for (const char* name : {"a", "b", "c"}) {
    EXPECT_EQ(Column(Vswitch(name), "UserValue"),
              std::string(R"({"name":")") + name + R"(","mtu":1500})");
    EXPECT_EQ(store_->GetRevision(Vswitch(name)), 1);
  }
}

TEST_F(StoreWriteAtomicityTest, FailingRowOfOneColumnInstanceWriteLeavesNothing) {
  store_->SetInstances(
      {Object(Datastore("d1"), R"({"label":"d1"})"), Object(Datastore("d2"), R"({"label":"d2"})"),
       Object(Datastore("d3"), R"({"label":"d3"})")},
      kExternal);
  FailInsertsOf("d2");
  const std::string message = ExpectThrow<KorvoSetvault::SetvaultException>(
      [&] {
        store_->SetCachedDataInstances({Object(Datastore("d1"), R"({"capacityBytes":1})"),
                                        Object(Datastore("d2"), R"({"capacityBytes":2})"),
                                        Object(Datastore("d3"), R"({"capacityBytes":3})")});
      },
      2000);
  EXPECT_EQ(message, "Write config instances failed");
  EXPECT_EQ(Column(Datastore("d1"), "CachedValue"), "<null>");
  EXPECT_EQ(store_->GetRevision(Datastore("d1")), 1);
}

TEST_F(StoreWriteAtomicityTest, FailingUpdateLeavesTheStoredObject) {
  store_->Set(Object(Vswitch("b"), R"({"name":"b","mtu":1500})"), kExternal);
  ASSERT_EQ(RunSql(Db(),
                   "CREATE TRIGGER FailOne BEFORE UPDATE ON Config "
                   "BEGIN SELECT RAISE(ABORT, 'injected'); END"),
            SQLITE_OK);
  const std::string message = ExpectThrow<KorvoSetvault::SetvaultException>(
      [&] { store_->Update(Object(Vswitch("b"), R"({"name":"b","mtu":9000})"), kExternal); }, 2000);
  EXPECT_EQ(message, "Database call to update configuration by context failed for: " +
                         Vswitch("b").toString());
  EXPECT_EQ(Column(Vswitch("b"), "UserValue"), R"({"name":"b","mtu":1500})");
}

TEST_F(StoreWriteAtomicityTest, FailingDeleteByFilterRemovesNothing) {
  store_->SetInstances(ThreeSwitches(9000), kExternal);
  ASSERT_EQ(RunSql(Db(),
                   "CREATE TRIGGER FailOne BEFORE DELETE ON Config WHEN OLD.Identifier = 'b' "
                   "BEGIN SELECT RAISE(ABORT, 'injected'); END"),
            SQLITE_OK);
  auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(Vswitch(""));
  filter->SetValue("mtu", 9000);
  ExpectThrow<KorvoSetvault::SetvaultException>([&] { store_->DeleteInstances(filter); }, 2000);
  EXPECT_EQ(RowCount(Vswitch("")), 3);
}

TEST_F(StoreWriteAtomicityTest, FailingWholeObjectWriteThrowsAndWritesNothing) {
  FailInsertsOf("");
  const SetvaultObjectId host("host", "system", "korvo");
  const std::string message = ExpectThrow<KorvoSetvault::SetvaultException>(
      [&] { store_->Set(Object(host, R"({"hostname":"h"})"), kExternal); }, 2000);
  EXPECT_EQ(message, "WriteComplete failed");
  EXPECT_EQ(RowCount(host), 0);
}

TEST_F(StoreWriteAtomicityTest, SetOnItsOwnCommitsAndLeavesNoTransactionOpen) {
  store_->Set(Object(Vswitch("a"), R"({"name":"a"})"), kExternal);
  EXPECT_NE(sqlite3_get_autocommit(Db()), 0);
  auto other = DBStore::OpenStoreConnection(KorvoSetvault::GetStorePath(), false);
  ASSERT_TRUE(other);
  EXPECT_EQ(QueryText(DBStore::GetSqliteHandle(*other),
                      "SELECT UserValue FROM Config WHERE Identifier = 'a'"),
            R"({"name":"a"})");
  FailInsertsOf("b");
  EXPECT_THROW(store_->Set(Object(Vswitch("b"), R"({"name":"b"})"), kExternal),
               KorvoSetvault::SetvaultException);
  EXPECT_NE(sqlite3_get_autocommit(Db()), 0);
}

// One rule for every write inside a caller's transaction: a failure undoes the
// operation's own writes (also the rows it wrote before the failing one) and
// leaves the caller's transaction usable, with its earlier writes.
TEST_F(StoreWriteAtomicityTest, FailedWriteInsideCallersTransactionUndoesOnlyItself) {
  const SetvaultObjectId host("host", "system", "korvo");
  auto vswitch = [&](const char* name, int mtu) {
    return Object(Vswitch(name),
                  std::string(R"({"name":")") + name + R"(","mtu":)" + std::to_string(mtu) + "}");
  };
  auto datastore = [&](const char* label, const std::string& more) {
    return Object(Datastore(label), std::string(R"({"label":")") + label + "\"" + more + "}");
  };
  auto mtu1500 = [] {
    auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(Vswitch(""));
    filter->SetValue("mtu", 1500);
    return filter;
  };
  // Each operation touches a row the fault refuses ("b", or the host); the
  // instance operations write "a" first.
  const struct {
    const char* operation;
    std::function<void()> call;
  } operations[] = {
      {"Set", [&] { store_->Set(vswitch("b", 9000), kExternal); }},
      {"SetUserData", [&] { store_->SetUserData(vswitch("b", 9000), kExternal); }},
      {"SetVitalData", [&] { store_->SetVitalData(Object(host, R"({"systemUuid":"u2"})")); }},
      {"SetCachedData", [&] { store_->SetCachedData(datastore("b", R"(,"capacityBytes":2)")); }},
      {"Update", [&] { store_->Update(vswitch("b", 9000), kExternal); }},
      {"Delete", [&] { store_->Delete(Vswitch("b")); }},
      {"DeleteInstances by filter", [&] { store_->DeleteInstances(mtu1500()); }},
      {"DeleteInstances of all",
       [&] {
         store_->DeleteInstances(std::make_shared<KorvoSetvault::FilterSpecObject>(Vswitch("")));
       }},
      {"SetInstances",
       [&] {
         store_->SetInstances({vswitch("a", 9000), vswitch("b", 9000)}, kExternal);
       }},
      {"SetUserDataInstances",
       [&] {
         store_->SetUserDataInstances({vswitch("a", 9000), vswitch("b", 9000)}, kExternal);
       }},
      {"SetCachedDataInstances",
       [&] {
         store_->SetCachedDataInstances(
             {datastore("a", R"(,"capacityBytes":1)"), datastore("b", R"(,"capacityBytes":2)")});
       }},
      {"SetVitalDataInstances",
       [&] {
         store_->SetVitalDataInstances({datastore("a", ""), datastore("b", "")});
       }},
  };
  store_->SetInstances({vswitch("a", 1500), vswitch("b", 1500)}, kExternal);
  store_->SetInstances({datastore("a", ""), datastore("b", "")}, kExternal);
  store_->Set(Object(host, R"({"hostname":"h","systemUuid":"u"})"), kExternal);
  const std::string kDump =
      "SELECT group_concat(Name || Identifier || Revision || IFNULL(UserValue, '') || "
      "IFNULL(VitalValue, '') || IFNULL(CachedValue, ''), ';') FROM (SELECT * FROM Config WHERE "
      "Identifier NOT IN ('early', 'late') ORDER BY Name, Identifier)";
  const std::string before = QueryText(Db(), kDump);
  for (const char* statement : {"INSERT", "UPDATE", "DELETE"}) {
    const char* row = std::string(statement) == "DELETE" ? "OLD" : "NEW";
    ASSERT_EQ(RunSql(Db(), std::string("CREATE TRIGGER Fail") + statement + " BEFORE " + statement +
                               " ON Config WHEN " + row + ".Identifier = 'b' OR " + row +
                               ".Name = 'host' BEGIN SELECT RAISE(ABORT, 'injected'); END"),
              SQLITE_OK);
  }
  for (const auto& op : operations) {
    SCOPED_TRACE(op.operation);
    ASSERT_EQ(store_->BeginTransaction(), 0);
    store_->Set(Object(Vswitch("early"), R"({"name":"early"})"), kExternal);
    EXPECT_THROW(op.call(), KorvoSetvault::SetvaultException);
    // Still usable: a further write joins it, and the commit keeps both.
    store_->Set(Object(Vswitch("late"), R"({"name":"late"})"), kExternal);
    EXPECT_NO_THROW(store_->CommitTransaction());
    EXPECT_EQ(QueryText(Db(), kDump), before);
    EXPECT_EQ(Column(Vswitch("early"), "UserValue"), R"({"name":"early"})");
    ASSERT_EQ(RunSql(Db(), "DELETE FROM Config WHERE Identifier IN ('early', 'late')"), SQLITE_OK);
  }
}

TEST_F(StoreWriteAtomicityTest, MixedTypesAreRefusedWith1062BeforeAnythingIsWritten) {
  auto mixed = [&] {
    return std::vector<std::shared_ptr<SetvaultObject>>{
        Object(Vswitch("a"), R"({"name":"a"})"), Object(Datastore("d1"), R"({"label":"d1"})")};
  };
  ExpectThrow<KorvoSetvault::InvalidArgumentException>(
      [&] { store_->SetInstances(mixed(), kExternal); }, 1062);
  ExpectThrow<KorvoSetvault::InvalidArgumentException>(
      [&] { store_->SetUserDataInstances(mixed(), kExternal); }, 1062);
  ExpectThrow<KorvoSetvault::InvalidArgumentException>(
      [&] { store_->SetVitalDataInstances(mixed()); }, 1062);
  ExpectThrow<KorvoSetvault::InvalidArgumentException>(
      [&] { store_->SetCachedDataInstances(mixed()); }, 1062);
  EXPECT_EQ(QueryText(Db(), "SELECT COUNT(*) FROM Config"), "0");
  // No transaction was left open: a failing nested cancel would end the process, and the
  // next own-transaction write would nest in a stale one.
  EXPECT_EQ(store_->BeginTransaction(), 0);
  EXPECT_EQ(store_->CancelTransaction(), 0);
}

TEST_F(StoreWriteAtomicityTest, EmptyListsAreRefusedWith1061) {
  const std::vector<std::shared_ptr<SetvaultObject>> nothing;
  const std::vector<std::shared_ptr<SetvaultObject>> only_nulls{nullptr, nullptr};
  for (const auto& list : {nothing, only_nulls}) {
    ExpectThrow<KorvoSetvault::InvalidArgumentException>(
        [&] { store_->SetInstances(list, kExternal); }, 1061);
    ExpectThrow<KorvoSetvault::InvalidArgumentException>(
        [&] { store_->SetUserDataInstances(list, kExternal); }, 1061);
    ExpectThrow<KorvoSetvault::InvalidArgumentException>(
        [&] { store_->SetVitalDataInstances(list); }, 1061);
    ExpectThrow<KorvoSetvault::InvalidArgumentException>(
        [&] { store_->SetCachedDataInstances(list); }, 1061);
  }
  // Empty pointers among real objects are skipped.
  store_->SetInstances({nullptr, Object(Vswitch("a"), R"({"name":"a"})"), nullptr}, kExternal);
  EXPECT_EQ(RowCount(Vswitch("")), 1);
}

TEST_F(StoreWriteAtomicityTest, InvalidObjectInAListIsRefusedBeforeAnythingIsWritten) {
  auto objects = ThreeSwitches(1500);
  objects[2]->SetValue("mtu", 5);
  ExpectThrow<KorvoSetvault::ValidationException>([&] { store_->SetInstances(objects, kExternal); },
                                                  1089);
  EXPECT_EQ(RowCount(Vswitch("")), 0);
}

}  // namespace
}  // namespace setvault_test
