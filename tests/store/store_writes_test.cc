// The store's write operations through the public API, checked against the rows they leave
// in the database file: revisions, creation times, the value column of each origin, the
// update merge, deletes by filter, instance writes, refusals and member origins.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "db/key_value.h"
#include "store/store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::FilterSpecObject;

const char kOldTime[] = "2001-02-03 04:05:06";

class StoreWritesTest : public WriteStoreTest {
 protected:
  // Marks the row of `id` as created long ago, so that a write which resets the creation
  // time cannot go unnoticed within the same second.
  void AgeRow(const SetvaultObjectId& id) {
    ASSERT_EQ(RunSql(Db(), "UPDATE Config SET CreationTime = '" + std::string(kOldTime) +
                               "' WHERE Name = '" + id.key + "' AND Identifier = '" +
                               id.instanceId + "'"),
              SQLITE_OK);
  }
  void SetDesired(const SetvaultObjectId& id, const std::string& value) {
    ASSERT_EQ(RunSql(Db(), "UPDATE Config SET DesiredValue = '" + value + "' WHERE Name = '" +
                               id.key + "' AND Identifier = '" + id.instanceId + "'"),
              SQLITE_OK);
  }
  std::string StoredData(const SetvaultObjectId& id) {
    auto stored = store_->Get(id);
    return stored ? stored->GetData() : "<none>";
  }
};

// Reads follow each replacement (the cached copy of the object is replaced with it).
TEST_F(StoreWritesTest, SetStoresTheObjectAndEachReplacementRaisesRevisionByOne) {
  EXPECT_EQ(store_->GetRevision(kHost), -1);
  for (int revision = 1; revision <= 3; ++revision) {
    const std::string data = R"({"hostname":"host)" + std::to_string(revision) + R"("})";
    store_->Set(Object(kHost, data), kExternal);
    EXPECT_EQ(StoredData(kHost), data);
    EXPECT_EQ(StoredData(kHost), data);
    EXPECT_EQ(store_->GetRevision(kHost), revision);
    if (revision == 1) AgeRow(kHost);
  }
  EXPECT_EQ(Column(kHost, "Version"), "");
  EXPECT_EQ(RowCount(kHost), 1);
  EXPECT_EQ(store_->Get(kHost)->GetCreationTime(), kOldTime);
}

// Members go to the column of their origin (sub-object instances keep their id in each
// part); a whole-object write keeps stored vital and cached members it has no part for.
TEST_F(StoreWritesTest, SetSplitsMembersIntoTheColumnOfTheirOrigin) {
  store_->Set(Object(kHost, R"({"hostname":"h","systemUuid":"u-1","cpuModel":"x86",)"
                            R"("bmc":{"address":"10.0.0.9"},"ntp":{"enabled":true}})"),
              kExternal);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h","ntp":{"enabled":true}})");
  EXPECT_EQ(Column(kHost, "VitalValue"), R"({"systemUuid":"u-1"})");
  EXPECT_EQ(Column(kHost, "CachedValue"), R"({"cpuModel":"x86","bmc":{"address":"10.0.0.9"}})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), "<null>");
  store_->Set(Object(kHost, R"({"hostname":"b"})"), kExternal);
  EXPECT_EQ(StoredData(kHost),
            R"({"systemUuid":"u-1","cpuModel":"x86","bmc":{"address":"10.0.0.9"},)"
            R"("hostname":"b"})");

  store_->Set(Object(Vswitch("vs0"), R"({"name":"vs0","portgroups":[{"name":"pg1","vlanId":5,)"
                                     R"("activePorts":3},{"name":"pg2"}]})"),
              kExternal);
  EXPECT_EQ(Column(Vswitch("vs0"), "UserValue"),
            R"({"name":"vs0","portgroups":[{"name":"pg1","vlanId":5},{"name":"pg2"}]})");
  EXPECT_EQ(Column(Vswitch("vs0"), "CachedValue"),
            R"({"portgroups":[{"name":"pg1","activePorts":3}]})");
}

TEST_F(StoreWritesTest, AutoConfigurationAndUserWritesNeverEraseEachOther) {
  store_->Set(Object(kHost, R"({"hostname":"by-user"})"), kExternal);
  store_->Set(Object(kHost, R"({"hostname":"by-host","timezone":"CET"})"), kAutoConfig);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"by-user"})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"by-host","timezone":"CET"})");
  // Through the one-column writer as well: any non-external kind writes auto-configuration.
  store_->SetUserData(Object(kHost, R"({"hostname":"auto-3"})"), USERDATA_CONTEXT{7});
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"auto-3"})");
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"by-user"})");
  store_->SetUserData(Object(kHost, R"({"hostname":"user-4"})"), kExternal);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"user-4"})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"auto-3"})");
  EXPECT_EQ(store_->GetRevision(kHost), 4);
}

TEST_F(StoreWritesTest, VitalAndCachedWritersKeepTheOtherColumnsAndPendingDesiredValue) {
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  store_->Set(Object(kHost, R"({"hostname":"auto"})"), kAutoConfig);
  AgeRow(kHost);
  SetDesired(kHost, R"({"hostname":"next"})");
  store_->SetVitalData(Object(kHost, R"({"systemUuid":"u-9"})"));
  store_->SetCachedData(Object(kHost, R"({"memoryBytes":1024})"));
  EXPECT_EQ(Column(kHost, "CachedValue"), R"({"memoryBytes":1024})");
  EXPECT_EQ(Column(kHost, "VitalValue"), R"({"systemUuid":"u-9"})");
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h"})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"auto"})");
  EXPECT_EQ(Column(kHost, "DesiredValue"), R"({"hostname":"next"})");
  EXPECT_EQ(Column(kHost, "CreationTime"), kOldTime);
  EXPECT_EQ(store_->GetRevision(kHost), 4);
  // A user write drops the pending next-boot value.
  store_->SetUserData(Object(kHost, R"({"hostname":"h2"})"), kExternal);
  EXPECT_EQ(Column(kHost, "DesiredValue"), "<null>");
  EXPECT_EQ(Column(kHost, "VitalValue"), R"({"systemUuid":"u-9"})");
}

TEST_F(StoreWritesTest, AnEmptyPartIsStoredAsNull) {
  const std::pair<const char*, std::function<void()>> writes[] = {
      {"VitalValue", [&] { store_->SetVitalData(Object(kHost, "{}")); }},
      {"CachedValue", [&] { store_->SetCachedData(Object(kHost, "{}")); }},
      {"UserValue", [&] { store_->SetUserData(Object(kHost, "{}"), kExternal); }},
      {"AutoConfValue", [&] { store_->SetUserData(Object(kHost, "{}"), kAutoConfig); }},
      // A whole object without user members has an empty user part.
      {"UserValue", [&] { store_->Set(Object(kHost, R"({"systemUuid":"u"})"), kExternal); }},
      {"AutoConfValue", [&] { store_->Set(Object(kHost, R"({"cpuModel":"c"})"), kAutoConfig); }},
  };
  for (const auto& [column, write] : writes) {
    store_->Set(Object(kHost, R"({"hostname":"h","systemUuid":"u","cpuModel":"c"})"), kExternal);
    store_->SetUserData(Object(kHost, R"({"hostname":"a"})"), kAutoConfig);
    write();
    EXPECT_EQ(Column(kHost, column), "<null>") << column;
  }
}

// Refused writes leave no row and no open transaction; empty pointers are ignored.
TEST_F(StoreWritesTest, RefusedWritesWriteNothing) {
  using Objects = std::vector<std::shared_ptr<SetvaultObject>>;
  const Objects mixed = {Switch("a", 1500), Object(Datastore("d1"), R"({"label":"d1"})")};
  const Objects nulls = {nullptr, nullptr};
  const std::pair<int, std::function<void()>> refusals[] = {
      {1086, [&] { store_->SetVitalData(Object(kHost, R"({"hostname":"h"})")); }},
      {1084, [&] { store_->SetCachedData(Object(kHost, R"({"systemUuid":"u"})")); }},
      {1087, [&] { store_->SetUserData(Object(kHost, R"({"cpuModel":"c"})"), kExternal); }},
      {1089, [&] { store_->Set(Switch("vs0", 100), kExternal); }},
      {1089, [&] { store_->Set(Object(kHost, R"({"unknownMember":1})"), kExternal); }},
      {1089,
       [&] {
         store_->SetInstances({Switch("a", 1500), Switch("b", 5)}, kExternal);
       }},
      {1062, [&] { store_->SetInstances(mixed, kExternal); }},
      {1062, [&] { store_->SetUserDataInstances(mixed, kExternal); }},
      {1062, [&] { store_->SetVitalDataInstances(mixed); }},
      {1062, [&] { store_->SetCachedDataInstances(mixed); }},
      {1061, [&] { store_->SetInstances({}, kExternal); }},
      {1061, [&] { store_->SetUserDataInstances(nulls, kExternal); }},
      {1061, [&] { store_->SetVitalDataInstances(nulls); }},
      {1061, [&] { store_->SetCachedDataInstances({}); }},
  };
  for (const auto& [code, call] : refusals) {
    ExpectThrow<KorvoSetvault::SetvaultException>(call, code);
  }
  store_->Set(nullptr, kExternal);
  store_->SetUserData(nullptr, kExternal);
  store_->SetVitalData(nullptr);
  store_->SetCachedData(nullptr);
  store_->Update(nullptr, kExternal);
  EXPECT_EQ(QueryText(Db(), "SELECT COUNT(*) FROM Config"), "0");
  // No transaction was left open: a failing nested cancel would end the process.
  EXPECT_EQ(store_->BeginTransaction(), 0);
  EXPECT_EQ(store_->CancelTransaction(), 0);
  // Empty pointers among real objects are skipped.
  store_->SetInstances({nullptr, Switch("a", 1500), nullptr}, kExternal);
  EXPECT_EQ(RowCount(Vswitch("")), 1);
}

TEST_F(StoreWritesTest, DuringBootExternalWritesOfUserConfigurationAreRefused) {
  KorvoSetvault::SetKeyValue("IS_BOOT", "true");
  auto host = [] { return Object(kHost, R"({"hostname":"h"})"); };
  const std::function<void()> external_writes[] = {
      [&] { store_->Set(host(), kExternal); },
      [&] { store_->SetUserData(host(), kExternal); },
      [&] { store_->Update(host(), kExternal); },
      [&] { store_->SetInstances({Switch("a", 1500)}, kExternal); },
  };
  for (const auto& write : external_writes) {
    EXPECT_EQ(ExpectThrow<KorvoSetvault::ValidationException>(write, 2000),
              "API cannot be invoked with EXTERNAL context during boot");
  }
  EXPECT_EQ(QueryText(Db(), "SELECT COUNT(*) FROM Config"), "0");
  EXPECT_NE(sqlite3_get_autocommit(Db()), 0);

  // The host's own configuration, system-managed instances, vital data and the
  // instance lists of one column (which have no boot guard) are not refused.
  store_->Set(host(), kAutoConfig);
  store_->Set(Object(Datastore("bootbank"), R"({"label":"bootbank"})"), kExternal);
  store_->SetVitalData(Object(kHost, R"({"systemUuid":"u"})"));
  store_->SetUserDataInstances({Object(Datastore("d"), R"({"label":"d"})")}, kExternal);
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"h"})");
  EXPECT_EQ(Column(Datastore("d"), "UserValue"), R"({"label":"d"})");
  // While an upgrade is in progress, external writes go through.
  KorvoSetvault::SetKeyValue("UPGRADE_CTX", "1");
  store_->Set(host(), kExternal);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h"})");
}

// An update merges members and sub-object instances by id into the column of its origin,
// in place: no new revision, same creation time, the pending desired value dropped.
TEST_F(StoreWritesTest, UpdateMergesIntoTheColumnOfItsOrigin) {
  const SetvaultObjectId id = Vswitch("vs0");
  store_->Set(Object(id, R"({"name":"vs0","mtu":1500,"uplinks":["a","b"],)"
                         R"("teaming":{"policy":"failover"},)"
                         R"("portgroups":[{"name":"pg1","vlanId":10},{"name":"pg2","vlanId":20,)"
                         R"("activePorts":4}]})"),
              kExternal);
  AgeRow(id);
  SetDesired(id, R"({"name":"vs0"})");
  store_->Update(Object(id, R"({"name":"vs0","mtu":9000,"teaming":{"notifySwitches":true},)"
                            R"("portgroups":[{"name":"pg2","vlanId":30},{"name":"pg3"}]})"),
                 kExternal);
  auto stored = store_->Get(id);
  ASSERT_TRUE(stored);
  int mtu = 0;
  std::vector<std::string> uplinks;
  EXPECT_EQ(stored->GetValue("mtu", &mtu) + stored->GetValue("uplinks", &uplinks), 2);
  EXPECT_EQ(mtu, 9000);
  EXPECT_EQ(uplinks, (std::vector<std::string>{"a", "b"}));
  auto teaming = stored->GetSubObject(KorvoSetvault::SubObjectId("teaming"));
  ASSERT_TRUE(teaming);
  std::string policy;
  bool notify = false;
  EXPECT_EQ(teaming->GetValue("policy", &policy) + teaming->GetValue("notifySwitches", &notify), 2);
  EXPECT_EQ(policy, "failover");
  EXPECT_TRUE(notify);
  // Sub-object instances by id: pg1 kept, pg2 changed (its cached member kept), pg3 added.
  for (const auto& [name, vlan] :
       std::vector<std::pair<std::string, int>>{{"pg1", 10}, {"pg2", 30}, {"pg3", -1}}) {
    auto portgroup = stored->GetSubObject(KorvoSetvault::SubObjectId("portgroups", name));
    ASSERT_TRUE(portgroup) << name;
    int value = -1;
    portgroup->GetValue("vlanId", &value);
    EXPECT_EQ(value, vlan) << name;
  }
  EXPECT_EQ(Column(id, "CachedValue"), R"({"portgroups":[{"name":"pg2","activePorts":4}]})");
  EXPECT_EQ(Column(id, "DesiredValue"), "<null>");
  EXPECT_EQ(store_->GetRevision(id), 1);
  EXPECT_EQ(Column(id, "CreationTime"), kOldTime);

  store_->Set(Object(kHost, R"({"hostname":"user","timezone":"UTC"})"), kExternal);
  store_->Update(Object(kHost, R"({"hostname":"auto"})"), kAutoConfig);
  store_->Update(Object(kHost, R"({"powerPolicy":"performance"})"), kAutoConfig);
  store_->Update(Object(kHost, R"({"timezone":"CET"})"), kExternal);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"user","timezone":"CET"})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"auto","powerPolicy":"performance"})");
}

TEST_F(StoreWritesTest, UpdateInsertsAMissingObjectAndRefusesNoDataOrAnInvalidResult) {
  store_->Update(Switch("fresh", 2000), kExternal);
  EXPECT_EQ(StoredData(Vswitch("fresh")), R"({"name":"fresh","mtu":2000})");
  EXPECT_EQ(store_->GetRevision(Vswitch("fresh")), 1);
  EXPECT_EQ(Column(Vswitch("fresh"), "AutoConfValue"), "<null>");

  LogCapture log(1);
  store_->Update(std::make_shared<SetvaultObject>(kHost), kExternal);
  EXPECT_TRUE(log.Contains(1, "Update called with empty object for " + kHost.toString() +
                                  ", deletes are not supported"));
  EXPECT_EQ(RowCount(kHost), 0);
  ExpectThrow<KorvoSetvault::ValidationException>(
      [&] { store_->Update(Switch("fresh", 1), kExternal); }, 1090);
  EXPECT_EQ(Column(Vswitch("fresh"), "UserValue"), R"({"name":"fresh","mtu":2000})");
}

TEST_F(StoreWritesTest, DeletesRemoveExactlyTheNamedOrMatchingInstances) {
  for (const auto& [name, mtu] : std::vector<std::pair<std::string, int>>{
           {"vs0", 9000}, {"vs1", 1500}, {"vs2", 9000}, {"vs3", 2000}, {"vs4", 1500}}) {
    store_->Set(Switch(name, mtu), kExternal);
  }
  store_->Delete(Vswitch("vs4"));
  store_->Delete(Vswitch("never"));  // not an error
  EXPECT_EQ(store_->GetRevision(Vswitch("vs4")), -1);
  auto filter = std::make_shared<FilterSpecObject>(Vswitch(""));
  filter->SetValue("mtu", 9000);
  store_->DeleteInstances(filter);
  EXPECT_EQ(store_->GetInstanceIds(Vswitch("")), (std::vector<std::string>{"vs1", "vs3"}));
  // A filter without criteria but with an instance id removes that instance only.
  store_->DeleteInstances(std::make_shared<FilterSpecObject>(Vswitch("vs3")));
  filter->SetValue("mtu", 4321);
  store_->DeleteInstances(filter);
  EXPECT_EQ(store_->GetInstanceIds(Vswitch("")), (std::vector<std::string>{"vs1"}));
  // Written again after a delete, an object starts over at revision 1.
  store_->Set(Switch("vs4", 1500), kExternal);
  EXPECT_EQ(store_->GetRevision(Vswitch("vs4")), 1);
  // Without criteria and instance id: every instance of the type, and only of the type.
  store_->Set(Object(Datastore("d1"), R"({"label":"d1"})"), kExternal);
  store_->DeleteInstances(std::make_shared<FilterSpecObject>(Vswitch("")));
  EXPECT_EQ(RowCount(Vswitch("")), 0);
  EXPECT_EQ(RowCount(Datastore("")), 1);
}

TEST_F(StoreWritesTest, InstanceWritersKeepRevisionsAndTheColumnsOfOtherOrigins) {
  store_->SetInstances({Switch("a", 1500), Switch("b", 1600)}, kExternal);
  AgeRow(Vswitch("a"));
  store_->SetInstances({Switch("a", 1700), Switch("c", 1500)}, kExternal);
  EXPECT_EQ(store_->GetInstancesRevision(Vswitch("")),
            (std::vector<std::pair<std::string, int>>{{"a", 2}, {"b", 1}, {"c", 1}}));
  EXPECT_EQ(Column(Vswitch("a"), "CreationTime"), kOldTime);
  EXPECT_EQ(StoredData(Vswitch("a")), R"({"name":"a","mtu":1700})");

  // Datastores d1 and d2 whose `member` is `prefix` followed by the datastore's number.
  auto datastores = [&](const std::string& member, const std::string& prefix) {
    std::vector<std::shared_ptr<SetvaultObject>> objects;
    for (const std::string n : {"1", "2"}) {
      const std::string end = prefix[0] == '"' ? "\"}" : "}";
      objects.push_back(Object(Datastore("d" + n), R"({"label":"d)" + n + R"(",")" + member +
                                                       R"(":)" + prefix + n + end));
    }
    return objects;
  };
  store_->SetInstances(datastores("device", "\"sd"), kExternal);
  store_->SetInstances(datastores("device", "\"auto"), kAutoConfig);
  store_->SetCachedDataInstances(datastores("capacityBytes", "10"));
  store_->SetUserDataInstances(datastores("device", "\"set"), kAutoConfig);
  EXPECT_EQ(Column(Datastore("d2"), "UserValue"), R"({"label":"d2","device":"sd2"})");
  EXPECT_EQ(Column(Datastore("d2"), "AutoConfValue"), R"({"label":"d2","device":"set2"})");
  EXPECT_EQ(Column(Datastore("d2"), "CachedValue"), R"({"label":"d2","capacityBytes":102})");
  EXPECT_EQ(store_->GetRevision(Datastore("d2")), 4);
  long long capacity = 0;
  EXPECT_EQ(store_->Get(Datastore("d1"))->GetValue("capacityBytes", &capacity), 1);
  EXPECT_EQ(capacity, 101);
  // One instance through the single-object writer, built the usual way (the constructor
  // fills in the instance-id member).
  auto cached = std::make_shared<SetvaultObject>(Datastore("d2"));
  cached->SetValue("capacityBytes", 250);
  store_->SetCachedData(cached);
  EXPECT_EQ(Column(Datastore("d2"), "CachedValue"), R"({"label":"d2","capacityBytes":250})");
  EXPECT_EQ(Column(Datastore("d2"), "UserValue"), R"({"label":"d2","device":"sd2"})");
}

TEST_F(StoreWritesTest, WritesInsideACallersTransactionRollBackWithIt) {
  store_->Set(Object(kHost, R"({"hostname":"before"})"), kExternal);
  {
    KorvoSetvault::SetvaultTransaction transaction(store_);
    store_->Set(Object(kHost, R"({"hostname":"inside"})"), kExternal);
    store_->SetInstances({Switch("a", 1500)}, kExternal);
    store_->Update(Object(kHost, R"({"timezone":"UTC"})"), kExternal);
    EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"inside","timezone":"UTC"})");
  }  // not committed
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"before"})");
  EXPECT_EQ(store_->GetRevision(kHost), 1);
  EXPECT_EQ(RowCount(Vswitch("")), 0);
}

// After each write every top-level member names the last origin holding it in the read's
// merge order (a user value over an auto-configuration value stays "user"); defaults fill
// in the rest.
TEST_F(StoreWritesTest, GetMemberOriginsNamesTheOriginOfEachMember) {
  using Origins = std::map<std::string, std::string>;
  const std::vector<std::pair<std::function<void()>, Origins>> steps = {
      {[] {}, {}},
      {[&] { store_->Set(Object(kHost, R"({"hostname":"h1","timezone":"CET"})"), kExternal); },
       {{"hostname", "user"}, {"timezone", "user"}, {"powerPolicy", "default"}}},
      {[&] { store_->SetVitalData(Object(kHost, R"({"systemUuid":"u1"})")); },
       {{"systemUuid", "vital"}}},
      {[&] { store_->SetCachedData(Object(kHost, R"({"cpuModel":"c1"})")); },
       {{"cpuModel", "cached"}}},
      {[&] {
         store_->Set(Object(kHost, R"({"hostname":"a1","ntp":{"enabled":true}})"), kAutoConfig);
       },
       {{"ntp", "auto"}, {"hostname", "user"}}},
  };
  Origins expected;
  for (size_t i = 0; i < steps.size(); ++i) {
    steps[i].first();
    for (const auto& [member, origin] : steps[i].second) expected[member] = origin;
    EXPECT_EQ(KorvoSetvault::GetMemberOrigins(kHost), expected) << "step " << i;
  }
  EXPECT_EQ(StoredData(kHost), R"({"systemUuid":"u1","cpuModel":"c1","ntp":{"enabled":true},)"
                               R"("hostname":"h1","timezone":"CET"})");
}

TEST_F(StoreWritesTest, GetMemberOriginsThrowsWhatGetThrows) {
  const std::pair<SetvaultObjectId, int> cases[] = {
      {SetvaultObjectId("nothing", "net", "korvo"), 1037},
      {Vswitch(""), 2000},  // the type has instances
  };
  for (const auto& [id, code] : cases) {
    ExpectThrow<KorvoSetvault::SetvaultException>([&] { store_->Get(id); }, code);
    ExpectThrow<KorvoSetvault::SetvaultException>([&] { KorvoSetvault::GetMemberOrigins(id); },
                                                  code);
  }
  // Reads never create a store file.
  KorvoSetvault::SetStorePath(dir_.File("missing.db"));
  const std::string message = ExpectThrow<KorvoSetvault::SetvaultException>(
      [&] { KorvoSetvault::GetMemberOrigins(kHost); }, 2000);
  EXPECT_NE(message.find("Failed to connect to database"), std::string::npos) << message;
  EXPECT_FALSE(std::ifstream(dir_.File("missing.db")).good());
}

}  // namespace
}  // namespace setvault_test
