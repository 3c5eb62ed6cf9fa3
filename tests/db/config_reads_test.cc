// Reads of stored configuration over rows written by hand with SQL: how the
// value columns of a row become one object, which user value each view shows
// (success flag, upgrade context, boot flag), instance reads, raw row reads
// and the failure texts.
#include "db/config_reads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "db/host_flags.h"
#include "model/setvault_object_impl.h"
#include "setvault/exceptions.h"
#include "store/setvault_impl.h"
#include "support/config_store.h"
#include "support/expect_error.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ConfigRow;
using setvault_test::ConfigStoreTest;
using setvault_test::LogCapture;
using setvault_test::ValueRow;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kVswitchType("vswitch", "net", "korvo");
const SetvaultObjectId kOptions("options", "hvcore", "korvo");
const SetvaultObjectId kCpu("cpuScheduler", "hvcore", "korvo");

std::string Text(const ObjectPtr& object, const char* key) {
  std::string value;
  EXPECT_NE(object, nullptr);
  if (object) object->GetValue(key, &value);
  return value;
}

std::vector<std::string> Names(const ObjectList& objects) {
  std::vector<std::string> names;
  for (const auto& object : objects) names.push_back(object->GetSetvaultObjectId().instanceId);
  return names;
}

class ConfigReadsTest : public ConfigStoreTest {
 protected:
  SchemaPtr Schema(const SetvaultObjectId& id) { return LookUpSchema(id); }

  // A host row whose "hostname" is set by every origin and other members by
  // some, so that the merge order shows in the result.
  ConfigRow HostRow() {
    ConfigRow row;
    row.group = "system";
    row.name = "host";
    row.version = "1.2";
    row.vital = R"({"systemUuid":"u-1","hostname":"vital","cpuModel":"vital","timezone":"vital"})";
    row.cached = R"({"cpuModel":"cached","hostname":"cached","timezone":"cached"})";
    row.autoconf = R"({"timezone":"auto","hostname":"auto","ntp":{"enabled":true}})";
    row.user = R"({"hostname":"user","ntp":{"servers":["10.0.0.1"]}})";
    row.revision = 7;
    row.creation = "2026-01-02 03:04:05";
    row.modified = "2026-02-03 04:05:06";
    return row;
  }

  ConfigRow Vswitch(const std::string& name, const std::string& user) {
    ConfigRow row;
    row.group = "net";
    row.name = "vswitch";
    row.identifier = name;
    row.user = user;
    return row;
  }
};

// --- One object -----------------------------------------------------------

TEST_F(ConfigReadsTest, GetInternalMergesVitalCachedAutoConfThenUser) {
  InsertConfig(HostRow());
  ObjectPtr host = GetInternal(kHost, conn_, Schema(kHost));
  ASSERT_NE(host, nullptr);
  EXPECT_EQ(Text(host, "systemUuid"), "u-1");   // vital only
  EXPECT_EQ(Text(host, "cpuModel"), "cached");  // cached over vital
  EXPECT_EQ(Text(host, "timezone"), "auto");    // auto-configuration over cached
  EXPECT_EQ(Text(host, "hostname"), "user");    // user over everything
  auto ntp = host->GetSubObject(SubObjectId("ntp"));
  ASSERT_NE(ntp, nullptr);  // sub-objects merge member by member
  bool enabled = false;
  EXPECT_EQ(ntp->GetValue("enabled", &enabled), 1);
  EXPECT_TRUE(enabled);
  std::vector<std::string> servers;
  EXPECT_EQ(ntp->GetValue("servers", &servers), 1);
  EXPECT_THAT(servers, ElementsAre("10.0.0.1"));
  EXPECT_EQ(host->GetSetvaultObjectId(), kHost);
  EXPECT_EQ(host->GetVersion(), "1.2");
  EXPECT_EQ(host->GetRevision(), 7);
  EXPECT_EQ(host->GetCreationTime(), "2026-01-02 03:04:05");
  EXPECT_EQ(host->GetModifiedTime(), "2026-02-03 04:05:06");
}

TEST_F(ConfigReadsTest, EachPartAloneIsTheWholeObject) {
  // Whatever column holds the only value, the object is built from it.
  const char* columns[] = {"VitalValue", "CachedValue", "AutoConfValue", "UserValue"};
  for (const char* column : columns) {
    Sql("DELETE FROM Config");
    Sql(std::string("INSERT INTO Config (Component, ConfigGroup, Name, Identifier, Revision, ") +
        column + ") VALUES ('korvo', 'system', 'host', '', 3, '{\"hostname\":\"only\"}')");
    ObjectPtr host = GetInternal(kHost, conn_, Schema(kHost));
    ASSERT_NE(host, nullptr) << column;
    EXPECT_EQ(host->GetData(), R"({"hostname":"only"})") << column;
    EXPECT_EQ(host->GetRevision(), 3) << column;
  }
}

TEST_F(ConfigReadsTest, NoRowOrNoValueGivesAnEmptyPointer) {
  EXPECT_EQ(GetInternal(kHost, conn_, Schema(kHost)), nullptr);
  ConfigRow row;
  row.group = "system";
  row.name = "host";
  InsertConfig(row);  // every value column NULL
  EXPECT_EQ(GetInternal(kHost, conn_, Schema(kHost)), nullptr);
  EXPECT_EQ(GetCurrentConfigInternal(kHost, conn_, Schema(kHost)), nullptr);
  // Another instance id of the same type is another row.
  InsertConfig(Vswitch("vs0", R"({"name":"vs0"})"));
  EXPECT_EQ(
      GetInternal(SetvaultObjectId("vswitch", "net", "korvo", "vs1"), conn_, Schema(kVswitchType)),
      nullptr);
}

TEST_F(ConfigReadsTest, UnconfirmedUserValueIsHiddenOutsideAnUpgrade) {
  ConfigRow row = HostRow();
  row.success = 0;
  InsertConfig(row);
  ObjectPtr host = GetInternal(kHost, conn_, Schema(kHost));
  EXPECT_EQ(Text(host, "hostname"), "auto");
  EXPECT_EQ(GetCurrentConfigInternal(kHost, conn_, Schema(kHost))->GetData(),
            R"({"timezone":"auto","hostname":"auto","ntp":{"enabled":true}})");
}

TEST_F(ConfigReadsTest, DuringAnUpgradeTheDesiredValueIsShownWhereStored) {
  ConfigRow row = HostRow();
  row.desired = R"({"hostname":"desired"})";
  InsertConfig(row);
  SetFlag("UPGRADE_CTX", "2");
  EXPECT_EQ(Text(GetInternal(kHost, conn_, Schema(kHost)), "hostname"), "desired");
  // No desired value: the user value, confirmed or not.
  Sql("UPDATE Config SET DesiredValue = NULL, Success = 0");
  EXPECT_EQ(Text(GetInternal(kHost, conn_, Schema(kHost)), "hostname"), "user");
  // The upgrade ends: the unconfirmed value disappears again.
  SetFlag("UPGRADE_CTX", "0");
  EXPECT_EQ(Text(GetInternal(kHost, conn_, Schema(kHost)), "hostname"), "auto");
}

TEST_F(ConfigReadsTest, CurrentConfigIsAutoConfAndConfirmedUserOnly) {
  InsertConfig(HostRow());
  SetFlag("UPGRADE_CTX", "1");  // the confirmed view ignores upgrades
  Sql("UPDATE Config SET DesiredValue = '{\"hostname\":\"desired\"}'");
  ObjectPtr host = GetCurrentConfigInternal(kHost, conn_, Schema(kHost));
  EXPECT_EQ(
      host->GetData(),
      R"({"timezone":"auto","ntp":{"enabled":true,"servers":["10.0.0.1"]},"hostname":"user"})");
  EXPECT_EQ(host->GetRevision(), 7);
}

TEST_F(ConfigReadsTest, ByBootAndContextPicksThePartTheWriterWorksOn) {
  ConfigRow row;
  row.group = "hvcore";
  row.name = "options";
  row.vital = R"({"hugePages":1,"logLevel":"error"})";
  row.cached = R"({"hugePages":2})";
  row.autoconf = R"({"logLevel":"warning"})";
  row.user = R"({"logLevel":"info"})";
  row.desired = R"({"logLevel":"debug"})";
  row.success = 1;
  InsertConfig(row);
  auto schema = Schema(kOptions);
  ASSERT_TRUE(schema->UsesCurrentValueDuringBoot());
  auto read = [&](int32_t kind) {
    return GetConfigByBootAndContext(kOptions, conn_, USERDATA_CONTEXT{kind}, schema);
  };
  // A non-external writer works on the auto-configuration part.
  EXPECT_EQ(read(kAutoConfigContext)->GetData(), R"({"hugePages":2,"logLevel":"warning"})");
  // The external writer: the confirmed user part outside boot and upgrade.
  EXPECT_EQ(read(kExternalContext)->GetData(), R"({"hugePages":2,"logLevel":"info"})");
  // During an upgrade: the current (desired) part.
  SetFlag("UPGRADE_CTX", "1");
  EXPECT_EQ(Text(read(kExternalContext), "logLevel"), "debug");
  // During boot without upgrade a type that asks for it shows the pending
  // (desired) part as well.
  SetFlag("UPGRADE_CTX", "0");
  SetFlag("IS_BOOT", "true");
  EXPECT_EQ(Text(read(kExternalContext), "logLevel"), "debug");
  // Without a desired value the pending part is the user value, confirmed
  // or not.
  Sql("UPDATE Config SET Success = 0, DesiredValue = NULL");
  EXPECT_EQ(Text(read(kExternalContext), "logLevel"), "info");
  // A type that does not ask for it shows the confirmed part during boot:
  // none while the user value is unconfirmed.
  auto host_schema = Schema(kHost);
  ASSERT_FALSE(host_schema->UsesCurrentValueDuringBoot());
  ConfigRow host;
  host.group = "system";
  host.name = "host";
  host.user = R"({"hostname":"pending"})";
  host.success = 0;
  InsertConfig(host);
  EXPECT_EQ(
      GetConfigByBootAndContext(kHost, conn_, USERDATA_CONTEXT{kExternalContext}, host_schema),
      nullptr);
}

TEST_F(ConfigReadsTest, DefaultsMergeValueOverVitalAndCached) {
  ValueRow row;
  row.group = "system";
  row.name = "host";
  row.version = "1.0";
  row.vital = R"({"systemUuid":"d","hostname":"vital"})";
  row.cached = R"({"hostname":"cached","cpuModel":"c"})";
  row.value = R"({"hostname":"default"})";
  InsertDefault(row);
  ObjectPtr host = GetDefaultConfigInternal(kHost, conn_, Schema(kHost));
  // A replaced member moves to the end.
  EXPECT_EQ(host->GetData(), R"({"systemUuid":"d","cpuModel":"c","hostname":"default"})");
  EXPECT_EQ(host->GetVersion(), "1.0");
  EXPECT_EQ(host->GetRevision(), 0);  // DefaultConfig has no revision: no digits read as 0
  EXPECT_EQ(GetDefaultUserConfigInternal(kHost, conn_, Schema(kHost))->GetData(),
            R"({"hostname":"default"})");
}

TEST_F(ConfigReadsTest, MissingDefaultLogsObjectNotFound) {
  LogCapture log;
  EXPECT_EQ(GetDefaultConfigInternal(kHost, conn_, Schema(kHost)), nullptr);
  EXPECT_TRUE(log.Contains(2, "Object not found: comp korvo grp system key host"));
  log.Clear();
  ValueRow row;  // a default with vital data only has no user part
  row.group = "system";
  row.name = "host";
  row.vital = R"({"systemUuid":"d"})";
  InsertDefault(row);
  EXPECT_EQ(GetDefaultUserConfigInternal(kHost, conn_, Schema(kHost)), nullptr);
  EXPECT_TRUE(log.Contains(2, "Object not found: comp korvo grp system key host"));
  log.Clear();
  EXPECT_NE(GetDefaultConfigInternal(kHost, conn_, Schema(kHost)), nullptr);
  EXPECT_EQ(log.CountStartingWith(2, "Object not found"), 0);
}

TEST_F(ConfigReadsTest, DesiredReadFollowsTheSuccessFlag) {
  ConfigRow row;
  row.group = "hvcore";
  row.name = "options";
  row.vital = R"({"hugePages":4})";
  row.user = R"({"logLevel":"info"})";
  row.desired = R"({"logLevel":"debug"})";
  row.success = 1;
  row.revision = 5;
  InsertConfig(row);
  auto schema = Schema(kOptions);
  EXPECT_EQ(GetDesiredInternal(kOptions, conn_, schema, 0)->GetData(), R"({"logLevel":"debug"})");
  ObjectPtr with_parts = GetDesiredInternal(kOptions, conn_, schema, 1);
  EXPECT_EQ(with_parts->GetData(), R"({"hugePages":4,"logLevel":"debug"})");
  EXPECT_EQ(with_parts->GetRevision(), 5);
  // Unconfirmed: the user value is what the next boot applies.
  Sql("UPDATE Config SET Success = 0");
  EXPECT_EQ(GetDesiredInternal(kOptions, conn_, schema, 0)->GetData(), R"({"logLevel":"info"})");
  // Confirmed with nothing desired: only vital and cached remain, and a flag
  // other than 1 ignores them.
  Sql("UPDATE Config SET Success = 1, DesiredValue = NULL");
  EXPECT_EQ(GetDesiredInternal(kOptions, conn_, schema, 1)->GetData(), R"({"hugePages":4})");
  EXPECT_EQ(GetDesiredInternal(kOptions, conn_, schema, 0), nullptr);
  EXPECT_EQ(GetDesiredInternal(kOptions, conn_, schema, 2), nullptr);
}

TEST_F(ConfigReadsTest, RebootRequiredReadSeesOnlyStagedSets) {
  ValueRow row;
  row.group = "hvcore";
  row.name = "cpuScheduler";
  row.version = "1.1";
  row.value = R"({"reservedCores":2})";
  row.vital = R"({"reservedCores":1,"numaBalancing":true})";
  InsertDesired(row);
  ObjectPtr cpu = GetRebootRequiredConfigInternal(kCpu, conn_, Schema(kCpu));
  EXPECT_EQ(cpu->GetData(), R"({"numaBalancing":true,"reservedCores":2})");
  EXPECT_EQ(cpu->GetVersion(), "1.1");
  Sql("UPDATE DesiredUserConfig SET BootAction = 'DELETE'");
  EXPECT_EQ(GetRebootRequiredConfigInternal(kCpu, conn_, Schema(kCpu)), nullptr);
}

TEST_F(ConfigReadsTest, StoredTextThatIsNotJsonFailsTheRead) {
  ConfigRow row = HostRow();
  row.user = "{not json";
  InsertConfig(row);
  try {
    GetInternal(kHost, conn_, Schema(kHost));
    ADD_FAILURE() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), SV_ERR_JSON_PARSE);
  }
}

TEST_F(ConfigReadsTest, RevisionWithoutDigitsReadsAsZero) {
  Sql("INSERT INTO Config (Component, ConfigGroup, Name, Identifier, UserValue, Revision) "
      "VALUES ('korvo', 'system', 'host', '', '{}', '12abc')");
  EXPECT_EQ(GetInternal(kHost, conn_, Schema(kHost))->GetRevision(), 12);
  Sql("UPDATE Config SET Revision = 'none'");
  EXPECT_EQ(GetInternal(kHost, conn_, Schema(kHost))->GetRevision(), 0);
}

// --- Instances ------------------------------------------------------------

TEST_F(ConfigReadsTest, InstancesComeBackMergedInRowOrderAndFiltered) {
  ConfigRow first = Vswitch("vs0", R"({"name":"vs0","mtu":9000})");
  first.vital = R"({"uplinks":["nic0"]})";
  first.revision = 3;
  InsertConfig(first);
  InsertConfig(Vswitch("vs1", R"({"name":"vs1","mtu":1500})"));
  ConfigRow unconfirmed = Vswitch("vs2", R"({"name":"vs2","mtu":9000})");
  unconfirmed.success = 0;
  unconfirmed.autoconf = R"({"name":"vs2","mtu":1500})";
  InsertConfig(unconfirmed);
  InsertConfig(Vswitch("vs3", R"({"name":"vs3","mtu":9000})"));
  auto schema = Schema(kVswitchType);

  auto all =
      GetConfigInstancesInternal(std::make_shared<FilterSpecObject>(kVswitchType), conn_, schema);
  EXPECT_THAT(Names(all), ElementsAre("vs0", "vs1", "vs2", "vs3"));
  EXPECT_EQ(all[0]->GetData(), R"({"uplinks":["nic0"],"name":"vs0","mtu":9000})");
  EXPECT_EQ(all[0]->GetRevision(), 3);
  EXPECT_EQ(all[2]->GetData(), R"({"name":"vs2","mtu":1500})");  // unconfirmed user hidden

  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  filter->SetValue("mtu", 9000);
  EXPECT_THAT(Names(GetConfigInstancesInternal(filter, conn_, schema)), ElementsAre("vs0", "vs3"));
  // During an upgrade the unconfirmed user value counts for the filter too.
  SetFlag("UPGRADE_CTX", "1");
  EXPECT_THAT(Names(GetConfigInstancesInternal(filter, conn_, schema)),
              ElementsAre("vs0", "vs2", "vs3"));

  auto current = GetCurrentConfigInstancesInternal(kVswitchType, conn_, schema);
  EXPECT_THAT(Names(current), ElementsAre("vs0", "vs1", "vs2", "vs3"));
  EXPECT_EQ(current[0]->GetData(), R"({"name":"vs0","mtu":9000})");  // no vital part
}

TEST_F(ConfigReadsTest, InstanceReadsOfAnEmptyTypeAreEmpty) {
  InsertConfig(Vswitch("vs0", R"({"name":"vs0"})"));
  const SetvaultObjectId datastore("datastore", "storage", "korvo");
  auto schema = Schema(datastore);
  auto filter = std::make_shared<FilterSpecObject>(datastore);
  EXPECT_THAT(GetConfigInstancesInternal(filter, conn_, schema), IsEmpty());
  EXPECT_THAT(GetCurrentConfigInstancesInternal(datastore, conn_, schema), IsEmpty());
  EXPECT_THAT(GetDefaultConfigInstancesInternal(filter, conn_, schema), IsEmpty());
  EXPECT_THAT(GetDefaultUserConfigInstancesInternal(datastore, conn_, schema), IsEmpty());
  EXPECT_THAT(GetDesiredUserConfigInstancesInternal(datastore, conn_, schema, 1), IsEmpty());
  EXPECT_THAT(GetRebootRequiredConfigInstancesInternal(filter, schema, conn_), IsEmpty());
}

TEST_F(ConfigReadsTest, DefaultInstancesMergeAndFilter) {
  for (const char* name : {"vs0", "vs1"}) {
    ValueRow row;
    row.group = "net";
    row.name = "vswitch";
    row.identifier = name;
    row.value = std::string(R"({"name":")") + name + R"(","mtu":)" +
                (name == std::string("vs0") ? "1500" : "9000") + "}";
    row.cached = R"({"uplinks":["nic9"],"mtu":1})";
    InsertDefault(row);
  }
  auto schema = Schema(kVswitchType);
  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  auto all = GetDefaultConfigInstancesInternal(filter, conn_, schema);
  ASSERT_THAT(Names(all), ElementsAre("vs0", "vs1"));
  EXPECT_EQ(all[0]->GetData(), R"({"uplinks":["nic9"],"name":"vs0","mtu":1500})");
  filter->SetValue("mtu", 9000);
  EXPECT_THAT(Names(GetDefaultConfigInstancesInternal(filter, conn_, schema)), ElementsAre("vs1"));
  auto user = GetDefaultUserConfigInstancesInternal(kVswitchType, conn_, schema);
  ASSERT_THAT(Names(user), ElementsAre("vs0", "vs1"));
  EXPECT_EQ(user[1]->GetData(), R"({"name":"vs1","mtu":9000})");
  // An id naming one instance reads that one only.
  auto one = GetDefaultUserConfigInstancesInternal(
      SetvaultObjectId("vswitch", "net", "korvo", "vs1"), conn_, schema);
  EXPECT_THAT(Names(one), ElementsAre("vs1"));
}

TEST_F(ConfigReadsTest, DesiredInstancesFollowTheSuccessFlag) {
  ConfigRow confirmed = Vswitch("vs0", R"({"name":"vs0","mtu":1500})");
  confirmed.desired = R"({"name":"vs0","mtu":9000})";
  confirmed.vital = R"({"uplinks":["a"]})";
  InsertConfig(confirmed);
  ConfigRow pending = Vswitch("vs1", R"({"name":"vs1","mtu":2000})");
  pending.success = 0;
  InsertConfig(pending);
  ConfigRow vital_only;
  vital_only.group = "net";
  vital_only.name = "vswitch";
  vital_only.identifier = "vs2";
  vital_only.vital = R"({"uplinks":["b"]})";
  InsertConfig(vital_only);
  ConfigRow nothing_desired = Vswitch("vs3", R"({"name":"vs3"})");  // confirmed, no desired
  InsertConfig(nothing_desired);
  auto schema = Schema(kVswitchType);

  auto users = GetDesiredUserConfigInstancesInternal(kVswitchType, conn_, schema, 0);
  ASSERT_THAT(Names(users), ElementsAre("vs0", "vs1"));
  EXPECT_EQ(users[0]->GetData(), R"({"name":"vs0","mtu":9000})");
  EXPECT_EQ(users[1]->GetData(), R"({"name":"vs1","mtu":2000})");
  auto with_parts = GetDesiredUserConfigInstancesInternal(kVswitchType, conn_, schema, 1);
  ASSERT_THAT(Names(with_parts), ElementsAre("vs0", "vs1", "vs2"));
  EXPECT_EQ(with_parts[0]->GetData(), R"({"uplinks":["a"],"name":"vs0","mtu":9000})");
  EXPECT_EQ(with_parts[2]->GetData(), R"({"uplinks":["b"]})");
}

TEST_F(ConfigReadsTest, RebootRequiredInstancesAreFiltered) {
  for (const char* name : {"vs0", "vs1"}) {
    ValueRow row;
    row.group = "net";
    row.name = "vswitch";
    row.identifier = name;
    row.value = std::string(R"({"name":")") + name + "\"}";
    InsertDesired(row);
  }
  Sql("UPDATE DesiredUserConfig SET BootAction = 'DELETE_INSTANCE' WHERE Identifier = 'vs0'");
  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  auto staged = GetRebootRequiredConfigInstancesInternal(filter, Schema(kVswitchType), conn_);
  ASSERT_THAT(Names(staged), ElementsAre("vs1"));
  EXPECT_EQ(staged[0]->GetData(), R"({"name":"vs1"})");
  filter->SetValue("name", "vs9");
  EXPECT_THAT(GetRebootRequiredConfigInstancesInternal(filter, Schema(kVswitchType), conn_),
              IsEmpty());
}

// --- Raw rows -------------------------------------------------------------

std::vector<std::string> Column(const StoreRows& rows, const std::string& column) {
  std::vector<std::string> values;
  for (const auto& row : *rows) {
    auto found = row->find(column);
    values.push_back(found == row->end() ? "<null>" : found->second);
  }
  return values;
}

TEST_F(ConfigReadsTest, StoreContentsSelectConfirmedOrDesiredValues) {
  ConfigRow confirmed = Vswitch("vs0", R"({"name":"vs0"})");
  confirmed.autoconf = R"({"mtu":1500})";
  confirmed.revision = 4;
  InsertConfig(confirmed);
  ConfigRow pending = Vswitch("vs1", R"({"name":"vs1"})");
  pending.success = 0;
  InsertConfig(pending);
  ConfigRow staged = Vswitch("vs2", R"({"name":"vs2"})");
  staged.desired = R"({"name":"vs2","mtu":9000})";
  InsertConfig(staged);
  ConfigRow auto_only;
  auto_only.group = "system";
  auto_only.name = "host";
  auto_only.autoconf = R"({"hostname":"a"})";
  InsertConfig(auto_only);

  StoreRows user = GetUserConfigContents(conn_);
  EXPECT_THAT(Column(user, "Identifier"), ElementsAre("vs0", "vs2"));
  EXPECT_THAT(Column(user, "Value"), ElementsAre(R"({"name":"vs0"})", R"({"name":"vs2"})"));
  EXPECT_THAT(Column(user, "AutoConfValue"), ElementsAre(R"({"mtu":1500})", "<null>"));
  EXPECT_THAT(Column(user, "Revision"), ElementsAre("4", "1"));
  EXPECT_THAT(Column(user, "Name"), ElementsAre("vswitch", "vswitch"));
  EXPECT_THAT(Column(user, "ConfigGroup"), ElementsAre("net", "net"));
  EXPECT_THAT(Column(user, "Component"), ElementsAre("korvo", "korvo"));
  EXPECT_EQ(user->at(0)->count("CreationTime"), 1u);

  StoreRows desired = GetDesiredUserConfigContents(conn_);
  EXPECT_THAT(Column(desired, "Identifier"), ElementsAre("vs1", "vs2"));
  EXPECT_THAT(Column(desired, "Value"),
              ElementsAre(R"({"name":"vs1"})", R"({"name":"vs2","mtu":9000})"));
  // With the flag the plain user column is not restricted to confirmed rows.
  EXPECT_THAT(Column(GetStoreContentsInternalST("UserValue", conn_, true), "Identifier"),
              ElementsAre("vs0", "vs1", "vs2"));
  EXPECT_THAT(Column(GetStoreContentsInternalST("AutoConfValue", conn_, false), "Value"),
              ElementsAre(R"({"mtu":1500})", R"({"hostname":"a"})"));
}

TEST_F(ConfigReadsTest, DefaultMapListReadsOneOrAllInstances) {
  for (const char* name : {"vs0", "vs1"}) {
    ValueRow row;
    row.group = "net";
    row.name = "vswitch";
    row.identifier = name;
    row.version = "2.0";
    row.value = std::string(R"({"name":")") + name + "\"}";
    InsertDefault(row);
  }
  StoreRows all = GetDefaultUserConfigMapList(kVswitchType, conn_);
  EXPECT_THAT(Column(all, "Identifier"), ElementsAre("vs0", "vs1"));
  EXPECT_THAT(Column(all, "Version"), ElementsAre("2.0", "2.0"));
  EXPECT_EQ(all->at(0)->size(), 3u);
  StoreRows one =
      GetDefaultUserConfigMapList(SetvaultObjectId("vswitch", "net", "korvo", "vs1"), conn_);
  EXPECT_THAT(Column(one, "Value"), ElementsAre(R"({"name":"vs1"})"));
}

TEST_F(ConfigReadsTest, SharedConfigurationReadsTypesMarkedShared) {
  ConfigRow dns;
  dns.group = "net";
  dns.name = "dns";
  dns.user = R"({"servers":["1.1.1.1"]})";
  InsertConfig(dns);
  ConfigRow vswitch = Vswitch("vs0", R"({"name":"vs0"})");
  vswitch.desired = R"({"name":"vs0","mtu":9000})";
  InsertConfig(vswitch);
  ConfigRow host;  // not shared
  host.group = "system";
  host.name = "host";
  host.user = R"({"hostname":"h"})";
  InsertConfig(host);

  StoreRows rows = GetSmartnicConfiguration(conn_);
  EXPECT_THAT(Column(rows, "Name"), ::testing::UnorderedElementsAre("dns", "vswitch"));
  for (const auto& row : *rows) {
    if (row->at("Name") == "vswitch") {
      EXPECT_EQ(row->at("Value"), R"({"name":"vs0","mtu":9000})");  // desired over user
      EXPECT_EQ(row->at("Identifier"), "vs0");
    } else {
      EXPECT_EQ(row->at("Value"), R"({"servers":["1.1.1.1"]})");
    }
  }
  // The schema database is detached again.
  EXPECT_EQ(Query("SELECT COUNT(*) FROM pragma_database_list WHERE name = 'ss'"), "0");
}

TEST_F(ConfigReadsTest, SharedConfigurationNeedsTheSchemaDatabase) {
  SetSchemaStorePath(dir_.File("missing/schema.db"));
  setvault_test::ExpectError([&] { GetSmartnicConfiguration(conn_); }, 2000,
                             "Failed to attach schema store");
}

TEST_F(ConfigReadsTest, FailedStatementsNameTheRead) {
  Sql("DROP TABLE Config");
  Sql("DROP TABLE DefaultConfig");
  const SetvaultObjectId vs0("vswitch", "net", "korvo", "vs0");
  auto schema = Schema(kVswitchType);
  setvault_test::ExpectError([&] { GetInternal(vs0, conn_, schema); }, 2000,
                             "Get failed: comp korvo grp net key vswitch id vs0");
  setvault_test::ExpectError([&] { GetDefaultConfigInternal(vs0, conn_, schema); }, 2000,
                             "Get failed: comp korvo grp net key vswitch id vs0");
  setvault_test::ExpectError(
      [&] {
        GetConfigInstancesInternal(std::make_shared<FilterSpecObject>(kVswitchType), conn_, schema);
      },
      2000, "Read Instances failed for: comp korvo grp net key vswitch");
  setvault_test::ExpectError([&] { GetUserConfigContents(conn_); }, 2000, "Get store rows failed.");
  setvault_test::ExpectError([&] { GetDefaultUserConfigMapList(vs0, conn_); }, 2000,
                             "Get store rows failed.");
  setvault_test::ExpectError([&] { GetSmartnicConfiguration(conn_); }, 2000,
                             "Get store rows failed.");
  // The failed shared read still detached the schema database.
  EXPECT_EQ(Query("SELECT COUNT(*) FROM pragma_database_list WHERE name = 'ss'"), "0");
}

// --- Host flags -----------------------------------------------------------

TEST_F(ConfigReadsTest, BootFlagIsTrueOnlyForTheTextTrue) {
  EXPECT_FALSE(IsBoot());
  for (const char* other : {"TRUE", "1", "true ", "yes", ""}) {
    SetFlag("IS_BOOT", other);
    EXPECT_FALSE(IsBoot()) << other;
  }
  SetFlag("IS_BOOT", "true");
  EXPECT_TRUE(IsBoot());
}

TEST_F(ConfigReadsTest, BootFlagReadFailureThrows) {
  Sql("DROP TABLE KeyValue");
  setvault_test::ExpectError([] { IsBoot(); }, 2000, "Failed to read value from database.");
}

TEST_F(ConfigReadsTest, BootFlagWithoutStoreThrows1002) {
  dir_.WriteFile("plain", "x");
  const std::string path = dir_.File("plain/store.db");
  SetStorePath(path);
  setvault_test::ExpectError([] { IsBoot(); }, 1002,
                             "Cannot open the configuration store database " + path);
}

}  // namespace
}  // namespace KorvoSetvault
