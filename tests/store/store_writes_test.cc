// The store's write operations through the public API, checked against the rows they leave
// in the database file: revisions, creation times, the value column of each origin, the
// update merge, deletes by filter, instance writes, refusals and member origins. The caches
// that keep writes cheap never hide a change: host flags cached across the connection's own
// writes, and compiled validators across a schema reload by another process.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <utility>
#include <vector>

#include "setvault/host_functions.h"
#include "setvault/schema_setup.h"
#include "store/store_fixture.h"
#include "support/log_capture.h"
#include "support/reliability_processes.h"

namespace setvault_test {
namespace {

using KorvoSetvault::FilterSpecObject;

using StoreWritesTest = WriteStoreTest;

TEST_F(StoreWritesTest, EveryOriginNamesItsMembersAndAnEmptyValueIsStoredAsNull) {
  const std::pair<const char*, std::function<void()>> writes[] = {
      {"VitalValue", [&] { store_->SetVitalData(Object(kHost, "{}")); }},
      {"CachedValue", [&] { store_->SetCachedData(Object(kHost, "{}")); }},
      {"UserValue", [&] { store_->SetUserData(Object(kHost, "{}"), kExternal); }},
      {"AutoConfValue", [&] { store_->SetUserData(Object(kHost, "{}"), kAutoConfig); }},
      // A whole object without user members has an empty user part.
      {"UserValue", [&] { store_->Set(Object(kHost, R"({"systemUuid":"u"})"), kExternal); }},
      {"AutoConfValue", [&] { store_->Set(Object(kHost, R"({"cpuModel":"c"})"), kAutoConfig); }},
  };
  // Each member names the last origin holding it in the read's merge order (a user value over an
  // auto-configuration value stays "user"); defaults fill in the rest.
  const std::map<std::string, std::string> origins = {
      {"cpuModel", "cached"},  {"hostname", "user"},       {"ntp", "auto"},
      {"systemUuid", "vital"}, {"powerPolicy", "default"}, {"timezone", "default"}};
  EXPECT_TRUE(KorvoSetvault::GetMemberOrigins(kHost).empty());
  for (const auto& [column, write] : writes) {
    store_->Set(Object(kHost, R"({"hostname":"h","systemUuid":"u","cpuModel":"c"})"), kExternal);
    store_->SetUserData(Object(kHost, R"({"hostname":"a","ntp":{"enabled":true}})"), kAutoConfig);
    EXPECT_EQ(KorvoSetvault::GetMemberOrigins(kHost), origins);
    write();
    EXPECT_EQ(Column(kHost, column), "<null>") << column;
  }
}

// Refused writes leave no row and no open transaction; empty pointers are ignored.
TEST_F(StoreWritesTest, RefusedWritesWriteNothing) {
  const Objects mixed = {Switch("a", 1500), Object(Datastore("d1"), R"({"label":"d1"})")};
  const Objects nulls = {nullptr, nullptr};
  const Objects one_invalid = {Switch("a", 1500), Switch("b", 5)};
  const std::pair<int, std::function<void()>> refusals[] = {
      {1086, [&] { store_->SetVitalData(Object(kHost, R"({"hostname":"h"})")); }},
      {1084, [&] { store_->SetCachedData(Object(kHost, R"({"systemUuid":"u"})")); }},
      {1087, [&] { store_->SetUserData(Object(kHost, R"({"cpuModel":"c"})"), kExternal); }},
      {1089, [&] { store_->SetInstances(one_invalid, kExternal); }},
      {1062, [&] { store_->SetInstances(mixed, kExternal); }},
      {1062, [&] { store_->SetUserDataInstances(mixed, kExternal); }},
      {1062, [&] { store_->SetVitalDataInstances(mixed); }},
      {1062, [&] { store_->SetCachedDataInstances(mixed); }},
      {1061, [&] { store_->SetInstances({}, kExternal); }},
      {1061, [&] { store_->SetUserDataInstances(nulls, kExternal); }},
      {1061, [&] { store_->SetVitalDataInstances(nulls); }},
      {1061, [&] { store_->SetCachedDataInstances({}); }},
  };
  for (const auto& [code, call] : refusals)
    ExpectThrow<KorvoSetvault::SetvaultException>(call, code);
  store_->Set(nullptr, kExternal);
  store_->SetUserData(nullptr, kExternal);
  store_->SetVitalData(nullptr);
  store_->SetCachedData(nullptr);
  store_->Update(nullptr, kExternal);
  EXPECT_EQ(QueryText(Db(), "SELECT COUNT(*) FROM Config"), "0");
  EXPECT_NE(sqlite3_get_autocommit(Db()), 0);  // no transaction left open
  // Empty pointers among real objects are skipped.
  store_->SetInstances({nullptr, Switch("a", 1500), nullptr}, kExternal);
  EXPECT_EQ(RowCount(Vswitch("")), 1);
}

TEST_F(StoreWritesTest, UpdateInsertsAMissingObjectAndRefusesNoDataOrAnInvalidResult) {
  LogCapture log(1);
  store_->Update(std::make_shared<SetvaultObject>(kHost), kExternal);
  EXPECT_TRUE(log.Contains(1, "Update called with empty object for " + kHost.toString() +
                                  ", deletes are not supported"));
  EXPECT_EQ(RowCount(kHost), 0);
  store_->Update(Switch("fresh", 2000), kExternal);
  ExpectThrow<KorvoSetvault::ValidationException>(
      [&] { store_->Update(Switch("fresh", 1), kExternal); }, 1090);
  EXPECT_EQ(Column(Vswitch("fresh"), "UserValue"), R"({"name":"fresh","mtu":2000})");
}

TEST_F(StoreWritesTest, InstanceWritesAndDeletesKeepRevisionsAndTheRowsAndColumnsOfOthers) {
  store_->SetInstances({Switch("a", 1500), Switch("b", 1600)}, kExternal);
  // Created long ago, so that a write which resets the creation time cannot go unnoticed.
  const std::string old_time = "2001-02-03 04:05:06";
  ASSERT_EQ(RunSql(Db(), "UPDATE Config SET CreationTime = '" + old_time + "'"), SQLITE_OK);
  store_->SetInstances({Switch("a", 1700), Switch("c", 1500)}, kExternal);
  EXPECT_EQ(store_->GetInstancesRevision(Vswitch("")),
            (std::vector<std::pair<std::string, int>>{{"a", 2}, {"b", 1}, {"c", 1}}));
  EXPECT_EQ(Column(Vswitch("a"), "CreationTime"), old_time);
  EXPECT_EQ(Data(store_->Get(Vswitch("a"))), R"({"name":"a","mtu":1700})");
  // Deletes remove exactly the named or matching instances: a filter without criteria but with an
  // instance id removes that instance only.
  store_->DeleteInstances(std::make_shared<FilterSpecObject>(Vswitch("b")));
  store_->Delete(Vswitch("never"));  // not an error
  auto filter = std::make_shared<FilterSpecObject>(Vswitch(""));
  filter->SetValue("mtu", 1700);
  store_->DeleteInstances(filter);
  EXPECT_EQ(store_->GetInstanceIds(Vswitch("")), std::vector<std::string>{"c"});
  store_->Delete(Vswitch("c"));
  store_->Set(Switch("a", 1500), kExternal);  // written again: revision 1 and a new creation time
  EXPECT_EQ(store_->GetRevision(Vswitch("a")), 1);
  EXPECT_NE(Column(Vswitch("a"), "CreationTime"), old_time);

  // Datastores d1 and d2 whose last member is `member` followed by the datastore's number.
  auto datastores = [&](const std::string& member, const std::string& end = "\"") {
    Objects objects;
    for (const std::string n : {"1", "2"}) {
      objects.push_back(
          Object(Datastore("d" + n), R"({"label":"d)" + n + "\"," + member + n + end + "}"));
    }
    return objects;
  };
  store_->SetInstances(datastores(R"("device":"sd)"), kExternal);
  store_->SetInstances(datastores(R"("device":"auto)"), kAutoConfig);
  store_->SetCachedDataInstances(datastores(R"("capacityBytes":10)", ""));
  store_->SetUserDataInstances(datastores(R"("device":"set)"), kAutoConfig);
  EXPECT_EQ(Column(Datastore("d2"), "UserValue"), R"({"label":"d2","device":"sd2"})");
  EXPECT_EQ(Column(Datastore("d2"), "AutoConfValue"), R"({"label":"d2","device":"set2"})");
  EXPECT_EQ(Column(Datastore("d2"), "CachedValue"), R"({"label":"d2","capacityBytes":102})");
  EXPECT_EQ(store_->GetRevision(Datastore("d2")), 4);
  // One instance through the single-object writer, built the usual way (the constructor
  // fills in the instance-id member).
  auto cached = std::make_shared<SetvaultObject>(Datastore("d2"));
  cached->SetValue("capacityBytes", 250);
  store_->SetCachedData(cached);
  EXPECT_EQ(Column(Datastore("d2"), "CachedValue"), R"({"label":"d2","capacityBytes":250})");
  EXPECT_EQ(Column(Datastore("d2"), "UserValue"), R"({"label":"d2","device":"sd2"})");
  // Without criteria and instance id: every instance of the type, and only of the type.
  store_->DeleteInstances(std::make_shared<FilterSpecObject>(Vswitch("")));
  EXPECT_EQ(RowCount(Vswitch("")), 0);
  EXPECT_EQ(RowCount(Datastore("")), 2);
}

using PerfCachesTest = WriteStoreTest;

TEST_F(PerfCachesTest, HostFlagReadAfterOwnWriteSeesEveryChange) {
  struct Case {
    const char* trigger;      // made by hand before the write, or null
    bool in_transaction;      // write and read in one transaction of the caller
    const char* child_value;  // set by another process after the write, or null
    const char* expected;
  } const cases[] = {
      {nullptr, false, "child", "child"},  // another process's change
      {"UPDATE KeyValue SET Value = 'trigger'", false, nullptr, "trigger"},  // by the written table
      {"UPDATE KeyValue SET Value = 'in'", true, nullptr, "in"},  // the same inside a transaction
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    KorvoSetvault::SetKeyValue("flag", "start");
    ASSERT_EQ(KorvoSetvault::GetKeyValue("flag"), "start");  // now cached
    if (c.trigger) {
      RunSql(Db(), std::string("CREATE TRIGGER Flag AFTER INSERT ON Config BEGIN ") + c.trigger +
                       " WHERE Key = 'flag'; END");
    }
    if (c.in_transaction) store_->BeginTransaction();
    store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
    if (c.child_value) {
      ASSERT_EQ(RunInChild([&] {
                  KorvoSetvault::SetKeyValue("flag", c.child_value);
                  return KorvoSetvault::GetKeyValue("flag");
                }),
                c.child_value);
    }
    EXPECT_EQ(KorvoSetvault::GetKeyValue("flag"), c.expected);
    if (c.in_transaction) store_->CommitTransaction();
    RunSql(Db(), "DROP TRIGGER IF EXISTS Flag");
  }
}

TEST_F(PerfCachesTest, ValidationFollowsASchemaReloadedByAnotherProcess) {
  auto low_power = [] { return Object(kHost, R"({"powerPolicy":"lowPower"})"); };
  store_->Set(low_power(), kExternal);  // the example schema allows it; now compiled
  ASSERT_EQ(Wait(Spawn([] {
              std::ifstream in(ExampleSchemaDir() + "/host.json");
              std::string definition{std::istreambuf_iterator<char>(in), {}};
              const size_t at = definition.find(", \"lowPower\"]");
              TempDir reloaded;  // the host type without "lowPower"
              reloaded.WriteFile("host.json", definition.replace(at, 12, ""));
              return static_cast<int>(KorvoSetvault::LoadSchemaDefinitions(reloaded.path()));
            })),
            1);
  ExpectThrow<KorvoSetvault::ValidationException>([&] { store_->Set(low_power(), kExternal); },
                                                  1089);
}

}  // namespace
}  // namespace setvault_test
