// The store's write operations through the public API, checked against the rows they leave
// in the database file: revisions, creation times, the value column of each origin, the
// update merge, deletes by filter and instance writes.
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

const SetvaultObjectId kHost("host", "system", "korvo");
const char kOldTime[] = "2001-02-03 04:05:06";

SetvaultObjectId Vswitch(const std::string& name) {
  return SetvaultObjectId("vswitch", "net", "korvo", name);
}
SetvaultObjectId Datastore(const std::string& label) {
  return SetvaultObjectId("datastore", "storage", "korvo", label);
}

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

TEST_F(StoreWritesTest, SetStoresTheObjectAndEachReplacementRaisesRevisionByOne) {
  EXPECT_EQ(store_->GetRevision(kHost), -1);
  store_->Set(Object(kHost, R"({"hostname":"alpha"})"), kExternal);
  auto stored = store_->Get(kHost);
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->GetData(), R"({"hostname":"alpha"})");
  EXPECT_EQ(stored->GetRevision(), 1);
  EXPECT_EQ(Column(kHost, "Revision"), "1");
  EXPECT_EQ(Column(kHost, "Version"), "");
  AgeRow(kHost);

  for (int revision = 2; revision <= 4; ++revision) {
    const std::string name = "host" + std::to_string(revision);
    store_->Set(Object(kHost, R"({"hostname":")" + name + R"("})"), kExternal);
    EXPECT_EQ(store_->GetRevision(kHost), revision);
    EXPECT_EQ(StoredData(kHost), R"({"hostname":")" + name + R"("})");
    EXPECT_EQ(Column(kHost, "CreationTime"), kOldTime);
    EXPECT_EQ(RowCount(kHost), 1);
  }
  EXPECT_EQ(store_->Get(kHost)->GetCreationTime(), kOldTime);
}

TEST_F(StoreWritesTest, SetSplitsVitalAndCachedMembersIntoTheirColumns) {
  store_->Set(Object(kHost, R"({"hostname":"h","systemUuid":"u-1","cpuModel":"x86",)"
                            R"("bmc":{"address":"10.0.0.9"},"ntp":{"enabled":true}})"),
              kExternal);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h","ntp":{"enabled":true}})");
  EXPECT_EQ(Column(kHost, "VitalValue"), R"({"systemUuid":"u-1"})");
  EXPECT_EQ(Column(kHost, "CachedValue"), R"({"cpuModel":"x86","bmc":{"address":"10.0.0.9"}})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), "<null>");
  // Reading merges the parts back into one object.
  auto stored = store_->Get(kHost);
  std::string text;
  EXPECT_EQ(stored->GetValue("systemUuid", &text), 1);
  EXPECT_EQ(text, "u-1");
  EXPECT_EQ(stored->GetValue("cpuModel", &text), 1);
  EXPECT_EQ(text, "x86");
  EXPECT_EQ(stored->GetValue("hostname", &text), 1);
  EXPECT_EQ(text, "h");
}

TEST_F(StoreWritesTest, SplitKeepsInstanceIdsInEveryPartOfASubObjectInstance) {
  const SetvaultObjectId id = Vswitch("vs0");
  store_->Set(Object(id, R"({"name":"vs0","portgroups":[{"name":"pg1","vlanId":5,)"
                         R"("activePorts":3},{"name":"pg2"}]})"),
              kExternal);
  EXPECT_EQ(Column(id, "UserValue"),
            R"({"name":"vs0","portgroups":[{"name":"pg1","vlanId":5},{"name":"pg2"}]})");
  EXPECT_EQ(Column(id, "CachedValue"), R"({"portgroups":[{"name":"pg1","activePorts":3}]})");
  EXPECT_EQ(Column(id, "VitalValue"), "<null>");
}

TEST_F(StoreWritesTest, AutoConfigurationAndUserWritesNeverEraseEachOther) {
  store_->Set(Object(kHost, R"({"hostname":"by-user"})"), kExternal);
  store_->Set(Object(kHost, R"({"hostname":"by-host","timezone":"CET"})"), kAutoConfig);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"by-user"})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"by-host","timezone":"CET"})");
  EXPECT_EQ(store_->GetRevision(kHost), 2);

  store_->Set(Object(kHost, R"({"hostname":"by-user-2"})"), kExternal);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"by-user-2"})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"by-host","timezone":"CET"})");
  EXPECT_EQ(store_->GetRevision(kHost), 3);

  // Through the one-column writer as well: any non-external kind writes auto-configuration.
  store_->SetUserData(Object(kHost, R"({"hostname":"auto-3"})"), USERDATA_CONTEXT{7});
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"auto-3"})");
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"by-user-2"})");
  store_->SetUserData(Object(kHost, R"({"hostname":"user-4"})"), kExternal);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"user-4"})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"auto-3"})");
  EXPECT_EQ(store_->GetRevision(kHost), 5);
}

TEST_F(StoreWritesTest, WholeObjectWriteKeepsStoredVitalAndCachedItHasNoPartFor) {
  store_->Set(Object(kHost, R"({"hostname":"a","systemUuid":"u-1","cpuModel":"c"})"), kExternal);
  store_->Set(Object(kHost, R"({"hostname":"b"})"), kExternal);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"b"})");
  EXPECT_EQ(Column(kHost, "VitalValue"), R"({"systemUuid":"u-1"})");
  EXPECT_EQ(Column(kHost, "CachedValue"), R"({"cpuModel":"c"})");
}

TEST_F(StoreWritesTest, VitalAndCachedWritersKeepTheOtherColumnsAndPendingDesiredValue) {
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  store_->Set(Object(kHost, R"({"hostname":"auto"})"), kAutoConfig);
  AgeRow(kHost);
  SetDesired(kHost, R"({"hostname":"next"})");

  store_->SetVitalData(Object(kHost, R"({"systemUuid":"u-9"})"));
  EXPECT_EQ(Column(kHost, "VitalValue"), R"({"systemUuid":"u-9"})");
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
  EXPECT_EQ(Column(kHost, "CachedValue"), R"({"memoryBytes":1024})");
}

TEST_F(StoreWritesTest, AnEmptyPartIsStoredAsNull) {
  const struct {
    const char* column;
    std::function<void()> write;
  } writes[] = {
      {"VitalValue", [&] { store_->SetVitalData(Object(kHost, "{}")); }},
      {"CachedValue", [&] { store_->SetCachedData(Object(kHost, "{}")); }},
      {"UserValue", [&] { store_->SetUserData(Object(kHost, "{}"), kExternal); }},
      {"AutoConfValue", [&] { store_->SetUserData(Object(kHost, "{}"), kAutoConfig); }},
      // A whole object without user members has an empty user part.
      {"UserValue", [&] { store_->Set(Object(kHost, R"({"systemUuid":"u"})"), kExternal); }},
      {"AutoConfValue", [&] { store_->Set(Object(kHost, R"({"cpuModel":"c"})"), kAutoConfig); }},
  };
  for (const auto& w : writes) {
    store_->Set(Object(kHost, R"({"hostname":"h","systemUuid":"u","cpuModel":"c"})"), kExternal);
    store_->SetUserData(Object(kHost, R"({"hostname":"a"})"), kAutoConfig);
    w.write();
    EXPECT_EQ(Column(kHost, w.column), "<null>") << w.column;
  }
}

TEST_F(StoreWritesTest, OneColumnWritersRefuseMembersOfAnotherOrigin) {
  ExpectThrow<KorvoSetvault::ValidationException>(
      [&] { store_->SetVitalData(Object(kHost, R"({"hostname":"h"})")); }, 1086);
  ExpectThrow<KorvoSetvault::ValidationException>(
      [&] { store_->SetCachedData(Object(kHost, R"({"systemUuid":"u"})")); }, 1084);
  ExpectThrow<KorvoSetvault::ValidationException>(
      [&] { store_->SetUserData(Object(kHost, R"({"cpuModel":"c"})"), kExternal); }, 1087);
  EXPECT_EQ(RowCount(kHost), 0);
}

TEST_F(StoreWritesTest, InvalidObjectIsRefusedAndNothingIsWritten) {
  ExpectThrow<KorvoSetvault::ValidationException>(
      [&] { store_->Set(Object(Vswitch("vs0"), R"({"name":"vs0","mtu":100})"), kExternal); }, 1089);
  ExpectThrow<KorvoSetvault::ValidationException>(
      [&] { store_->Set(Object(kHost, R"({"unknownMember":1})"), kExternal); }, 1089);
  EXPECT_EQ(RowCount(Vswitch("")), 0);
  EXPECT_EQ(RowCount(kHost), 0);
}

TEST_F(StoreWritesTest, EmptyPointersAreIgnored) {
  store_->Set(nullptr, kExternal);
  store_->SetUserData(nullptr, kExternal);
  store_->SetVitalData(nullptr);
  store_->SetCachedData(nullptr);
  store_->Update(nullptr, kExternal);
  EXPECT_EQ(QueryText(Db(), "SELECT COUNT(*) FROM Config"), "0");
}

TEST_F(StoreWritesTest, DuringBootExternalWritesOfUserConfigurationAreRefused) {
  KorvoSetvault::SetKeyValue("IS_BOOT", "true");
  const std::string refusal = "API cannot be invoked with EXTERNAL context during boot";
  auto host = [] { return Object(kHost, R"({"hostname":"h"})"); };
  const std::vector<std::function<void()>> external_writes = {
      [&] { store_->Set(host(), kExternal); },
      [&] { store_->SetUserData(host(), kExternal); },
      [&] { store_->Update(host(), kExternal); },
      [&] { store_->SetInstances({Object(Vswitch("a"), R"({"name":"a"})")}, kExternal); },
  };
  for (const auto& write : external_writes) {
    EXPECT_EQ(ExpectThrow<KorvoSetvault::ValidationException>(write, 2000), refusal);
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

// --- Update ---------------------------------------------------------------------------

TEST_F(StoreWritesTest, UpdateMergesMembersAndSubObjectInstancesById) {
  const SetvaultObjectId id = Vswitch("vs0");
  store_->Set(Object(id, R"({"name":"vs0","mtu":1500,"uplinks":["a","b"],)"
                         R"("teaming":{"policy":"failover"},)"
                         R"("portgroups":[{"name":"pg1","vlanId":10},{"name":"pg2","vlanId":20,)"
                         R"("activePorts":4}]})"),
              kExternal);
  AgeRow(id);
  store_->Update(Object(id, R"({"name":"vs0","mtu":9000,"teaming":{"notifySwitches":true},)"
                            R"("portgroups":[{"name":"pg2","vlanId":30},{"name":"pg3"}]})"),
                 kExternal);

  auto stored = store_->Get(id);
  ASSERT_TRUE(stored);
  int mtu = 0;
  EXPECT_EQ(stored->GetValue("mtu", &mtu), 1);
  EXPECT_EQ(mtu, 9000);
  std::vector<std::string> uplinks;
  EXPECT_EQ(stored->GetValue("uplinks", &uplinks), 1);
  EXPECT_EQ(uplinks, (std::vector<std::string>{"a", "b"}));
  auto teaming = stored->GetSubObject(KorvoSetvault::SubObjectId("teaming"));
  ASSERT_TRUE(teaming);
  std::string policy;
  bool notify = false;
  EXPECT_EQ(teaming->GetValue("policy", &policy), 1);
  EXPECT_EQ(policy, "failover");
  EXPECT_EQ(teaming->GetValue("notifySwitches", &notify), 1);
  EXPECT_TRUE(notify);

  int vlan = 0;
  auto pg1 = stored->GetSubObject(KorvoSetvault::SubObjectId("portgroups", "pg1"));
  ASSERT_TRUE(pg1);
  EXPECT_EQ(pg1->GetValue("vlanId", &vlan), 1);
  EXPECT_EQ(vlan, 10);
  auto pg2 = stored->GetSubObject(KorvoSetvault::SubObjectId("portgroups", "pg2"));
  ASSERT_TRUE(pg2);
  EXPECT_EQ(pg2->GetValue("vlanId", &vlan), 1);
  EXPECT_EQ(vlan, 30);
  int active = 0;
  EXPECT_EQ(pg2->GetValue("activePorts", &active), 1);  // cached member survives
  EXPECT_EQ(active, 4);
  EXPECT_TRUE(stored->GetSubObject(KorvoSetvault::SubObjectId("portgroups", "pg3")));

  // An update changes the row in place: no new revision, same creation time.
  EXPECT_EQ(store_->GetRevision(id), 1);
  EXPECT_EQ(Column(id, "CreationTime"), kOldTime);
}

TEST_F(StoreWritesTest, UpdateOfAMissingObjectInsertsItAtRevisionOne) {
  const SetvaultObjectId id = Vswitch("fresh");
  store_->Update(Object(id, R"({"name":"fresh","mtu":2000})"), kExternal);
  EXPECT_EQ(StoredData(id), R"({"name":"fresh","mtu":2000})");
  EXPECT_EQ(store_->GetRevision(id), 1);
  EXPECT_EQ(Column(id, "AutoConfValue"), "<null>");
}

TEST_F(StoreWritesTest, UpdateInAutoConfigurationContextLeavesTheUserValue) {
  store_->Set(Object(kHost, R"({"hostname":"user","timezone":"UTC"})"), kExternal);
  store_->Update(Object(kHost, R"({"hostname":"auto"})"), kAutoConfig);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"user","timezone":"UTC"})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"auto"})");
  store_->Update(Object(kHost, R"({"powerPolicy":"performance"})"), kAutoConfig);
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"auto","powerPolicy":"performance"})");
  store_->Update(Object(kHost, R"({"timezone":"CET"})"), kExternal);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"user","timezone":"CET"})");
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"auto","powerPolicy":"performance"})");
}

TEST_F(StoreWritesTest, UpdateOfUserDataClearsThePendingDesiredValue) {
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  SetDesired(kHost, R"({"hostname":"next"})");
  store_->Update(Object(kHost, R"({"timezone":"UTC"})"), kExternal);
  EXPECT_EQ(Column(kHost, "DesiredValue"), "<null>");
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h","timezone":"UTC"})");
}

TEST_F(StoreWritesTest, UpdateWithNoDataWritesNothingAndWarns) {
  LogCapture log(1);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  auto empty = std::make_shared<SetvaultObject>(kHost);
  store_->Update(empty, kExternal);
  EXPECT_TRUE(log.Contains(1, "Update called with empty object for " + kHost.toString() +
                                  ", deletes are not supported"));
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h"})");
  EXPECT_EQ(store_->GetRevision(kHost), 1);
}

TEST_F(StoreWritesTest, UpdateThatBreaksTheSchemaLeavesTheStoredObject) {
  const SetvaultObjectId id = Vswitch("vs0");
  store_->Set(Object(id, R"({"name":"vs0","mtu":1500})"), kExternal);
  ExpectThrow<KorvoSetvault::ValidationException>(
      [&] { store_->Update(Object(id, R"({"name":"vs0","mtu":1})"), kExternal); }, 1090);
  EXPECT_EQ(Column(id, "UserValue"), R"({"name":"vs0","mtu":1500})");
}

// --- Deletes ----------------------------------------------------------------------------

TEST_F(StoreWritesTest, DeleteRemovesOnlyTheNamedObject) {
  store_->Set(Object(Vswitch("a"), R"({"name":"a"})"), kExternal);
  store_->Set(Object(Vswitch("b"), R"({"name":"b"})"), kExternal);
  store_->Delete(Vswitch("a"));
  EXPECT_FALSE(store_->Get(Vswitch("a")));
  EXPECT_TRUE(store_->Get(Vswitch("b")));
  EXPECT_EQ(store_->GetRevision(Vswitch("a")), -1);
  // Written again after a delete, the object starts over at revision 1.
  store_->Set(Object(Vswitch("a"), R"({"name":"a"})"), kExternal);
  EXPECT_EQ(store_->GetRevision(Vswitch("a")), 1);
  // Deleting what does not exist is not an error.
  store_->Delete(Vswitch("never"));
  EXPECT_EQ(RowCount(Vswitch("")), 2);
}

TEST_F(StoreWritesTest, DeleteInstancesByFilterRemovesExactlyTheMatches) {
  for (const auto& [name, mtu] : std::vector<std::pair<std::string, int>>{
           {"vs0", 9000}, {"vs1", 1500}, {"vs2", 9000}, {"vs3", 2000}}) {
    store_->Set(
        Object(Vswitch(name), R"({"name":")" + name + R"(","mtu":)" + std::to_string(mtu) + "}"),
        kExternal);
  }
  auto filter = std::make_shared<FilterSpecObject>(Vswitch(""));
  filter->SetValue("mtu", 9000);
  store_->DeleteInstances(filter);
  EXPECT_EQ(store_->GetInstanceIds(Vswitch("")), (std::vector<std::string>{"vs1", "vs3"}));

  // A filter without criteria but with an instance id removes that instance only.
  store_->DeleteInstances(std::make_shared<FilterSpecObject>(Vswitch("vs3")));
  EXPECT_EQ(store_->GetInstanceIds(Vswitch("")), (std::vector<std::string>{"vs1"}));

  // A filter that matches nothing removes nothing.
  filter->SetValue("mtu", 4321);
  store_->DeleteInstances(filter);
  EXPECT_EQ(RowCount(Vswitch("")), 1);

  // Without criteria and instance id: every instance of the type, and only of the type.
  store_->Set(Object(Datastore("d1"), R"({"label":"d1"})"), kExternal);
  store_->DeleteInstances(std::make_shared<FilterSpecObject>(Vswitch("")));
  EXPECT_EQ(RowCount(Vswitch("")), 0);
  EXPECT_EQ(RowCount(Datastore("")), 1);
}

// --- Instances --------------------------------------------------------------------------

TEST_F(StoreWritesTest, SetInstancesWritesEveryObjectWithItsOwnRevision) {
  store_->SetInstances({Object(Vswitch("a"), R"({"name":"a","mtu":1500})"),
                        Object(Vswitch("b"), R"({"name":"b","mtu":1600})")},
                       kExternal);
  EXPECT_EQ(store_->GetRevision(Vswitch("a")), 1);
  EXPECT_EQ(store_->GetRevision(Vswitch("b")), 1);
  AgeRow(Vswitch("a"));

  store_->SetInstances(
      {Object(Vswitch("a"), R"({"name":"a","mtu":1700})"), Object(Vswitch("c"), R"({"name":"c"})")},
      kExternal);
  EXPECT_EQ(store_->GetRevision(Vswitch("a")), 2);
  EXPECT_EQ(store_->GetRevision(Vswitch("b")), 1);
  EXPECT_EQ(store_->GetRevision(Vswitch("c")), 1);
  EXPECT_EQ(Column(Vswitch("a"), "CreationTime"), kOldTime);
  EXPECT_EQ(StoredData(Vswitch("a")), R"({"name":"a","mtu":1700})");
  EXPECT_EQ(StoredData(Vswitch("b")), R"({"name":"b","mtu":1600})");
}

TEST_F(StoreWritesTest, SetInstancesKeepsTheOtherOriginPerInstance) {
  store_->SetInstances({Object(Datastore("d1"), R"({"label":"d1","device":"sda"})"),
                        Object(Datastore("d2"), R"({"label":"d2","device":"sdb"})")},
                       kExternal);
  store_->SetInstances({Object(Datastore("d1"), R"({"label":"d1","device":"auto-a"})"),
                        Object(Datastore("d2"), R"({"label":"d2","device":"auto-b"})")},
                       kAutoConfig);
  EXPECT_EQ(Column(Datastore("d1"), "UserValue"), R"({"label":"d1","device":"sda"})");
  EXPECT_EQ(Column(Datastore("d2"), "UserValue"), R"({"label":"d2","device":"sdb"})");
  EXPECT_EQ(Column(Datastore("d2"), "AutoConfValue"), R"({"label":"d2","device":"auto-b"})");
}

TEST_F(StoreWritesTest, OneColumnInstanceWritersTouchOnlyTheirColumn) {
  store_->SetInstances({Object(Datastore("d1"), R"({"label":"d1","device":"sda"})"),
                        Object(Datastore("d2"), R"({"label":"d2","device":"sdb"})")},
                       kExternal);
  store_->SetCachedDataInstances(
      {Object(Datastore("d1"), R"({"label":"d1","capacityBytes":100})"),
       Object(Datastore("d2"), R"({"label":"d2","capacityBytes":200})")});
  EXPECT_EQ(Column(Datastore("d2"), "CachedValue"), R"({"label":"d2","capacityBytes":200})");
  EXPECT_EQ(Column(Datastore("d2"), "UserValue"), R"({"label":"d2","device":"sdb"})");
  EXPECT_EQ(store_->GetRevision(Datastore("d2")), 2);
  long long capacity = 0;
  EXPECT_EQ(store_->Get(Datastore("d1"))->GetValue("capacityBytes", &capacity), 1);
  EXPECT_EQ(capacity, 100);

  // One instance through the single-object writer, built the usual way (the constructor
  // fills in the instance-id member).
  auto cached = std::make_shared<SetvaultObject>(Datastore("d2"));
  cached->SetValue("capacityBytes", 250);
  store_->SetCachedData(cached);
  EXPECT_EQ(Column(Datastore("d2"), "CachedValue"), R"({"label":"d2","capacityBytes":250})");
  EXPECT_EQ(Column(Datastore("d2"), "UserValue"), R"({"label":"d2","device":"sdb"})");

  store_->SetUserDataInstances({Object(Datastore("d1"), R"({"label":"d1","device":"auto"})")},
                               kAutoConfig);
  EXPECT_EQ(Column(Datastore("d1"), "AutoConfValue"), R"({"label":"d1","device":"auto"})");
  EXPECT_EQ(Column(Datastore("d1"), "UserValue"), R"({"label":"d1","device":"sda"})");
  EXPECT_EQ(Column(Datastore("d1"), "CachedValue"), R"({"label":"d1","capacityBytes":100})");
}

TEST_F(StoreWritesTest, WritesInsideACallersTransactionRollBackWithIt) {
  store_->Set(Object(kHost, R"({"hostname":"before"})"), kExternal);
  {
    KorvoSetvault::SetvaultTransaction transaction(store_);
    store_->Set(Object(kHost, R"({"hostname":"inside"})"), kExternal);
    store_->SetInstances({Object(Vswitch("a"), R"({"name":"a"})")}, kExternal);
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
  // Each write and the origins it adds or changes.
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
  const std::vector<std::pair<SetvaultObjectId, int>> cases = {
      {SetvaultObjectId("nothing", "net", "korvo"), 1037},
      {Vswitch(""), 2000},  // the type has instances
  };
  for (const auto& [id, code] : cases) {
    ExpectThrow<KorvoSetvault::SetvaultException>([&] { store_->Get(id); }, code);
    ExpectThrow<KorvoSetvault::SetvaultException>(
        [&] { KorvoSetvault::GetMemberOrigins(id); }, code);
  }
  KorvoSetvault::SetStorePath(dir_.File("missing.db"));
  const std::string message = ExpectThrow<KorvoSetvault::SetvaultException>(
      [&] { KorvoSetvault::GetMemberOrigins(kHost); }, 2000);
  EXPECT_NE(message.find("Failed to connect to database"), std::string::npos) << message;
  EXPECT_FALSE(std::ifstream(dir_.File("missing.db")).good());
}

}  // namespace
}  // namespace setvault_test
