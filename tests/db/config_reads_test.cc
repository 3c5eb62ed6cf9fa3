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
using setvault_test::ExpectError;
using setvault_test::ValueRow;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kVswitchType("vswitch", "net", "korvo");
const SetvaultObjectId kOptions("options", "hvcore", "korvo");
const SetvaultObjectId kCpu("cpuScheduler", "hvcore", "korvo");

SetvaultObjectId Vs(const char* name) { return SetvaultObjectId("vswitch", "net", "korvo", name); }

// The object's data, or "-" for no object.
std::string Data(const ObjectPtr& object) { return object ? object->GetData() : "-"; }

// Instance ids, or the data of each instance with `data`.
std::vector<std::string> Listed(const ObjectList& objects, bool data = false) {
  std::vector<std::string> out;
  for (const auto& o : objects) out.push_back(data ? Data(o) : o->GetSetvaultObjectId().instanceId);
  return out;
}

// One column of every row, "<null>" where the row has none.
std::vector<std::string> Column(const StoreRows& rows, const std::string& column) {
  std::vector<std::string> values;
  for (const auto& row : *rows) values.push_back(row->count(column) ? row->at(column) : "<null>");
  return values;
}

class ConfigReadsTest : public setvault_test::ConfigStoreTest {
 protected:
  SchemaPtr Schema(const SetvaultObjectId& id) { return LookUpSchema(id); }
  std::string Get(const SetvaultObjectId& id) { return Data(GetInternal(id, conn_, Schema(id))); }

  // A host row whose "hostname" is set by every origin and other members by
  // some, so that the merge order shows in the result.
  ConfigRow HostRow() {
    ConfigRow row;
    row.group = "system";
    row.name = "host";
    row.user = R"({"hostname":"user","ntp":{"servers":["s"]}})";
    row.version = "1.2";
    row.vital = R"({"systemUuid":"u-1","hostname":"vital","cpuModel":"vital","timezone":"vital"})";
    row.cached = R"({"cpuModel":"cached","hostname":"cached","timezone":"cached"})";
    row.autoconf = R"({"timezone":"auto","hostname":"auto","ntp":{"enabled":true}})";
    row.revision = 7;
    row.creation = "2026-01-02 03:04:05";
    row.modified = "2026-02-03 04:05:06";
    return row;
  }

  // Inserts Config rows of component korvo, each "(group, name, id, success, revision, user,
  // vital, cached, autoconf, desired)".
  void Rows(const std::string& values) {
    Sql("INSERT INTO Config (Component, ConfigGroup, Name, Identifier, Success, Revision, "
        "UserValue, VitalValue, CachedValue, AutoConfValue, DesiredValue) SELECT 'korvo', * "
        "FROM (VALUES " +
        values + ")");
  }

  void InsertDefaults(const char* group, const char* name, const std::vector<std::string>& values,
                      const char* action = nullptr) {
    for (size_t i = 0; i < values.size(); ++i) {
      ValueRow row;
      row.group = group;
      row.name = name;
      row.identifier = values.size() > 1 ? "vs" + std::to_string(i) : "";
      row.version = "2.0";
      row.value = values[i];
      row.cached = R"({"uplinks":["nic9"]})";
      action ? InsertDesired(row) : InsertDefault(row);
    }
  }
};

// --- One object -----------------------------------------------------------

TEST_F(ConfigReadsTest, GetMergesVitalCachedAutoConfThenUserAndCurrentOnlyAutoConfAndUser) {
  InsertConfig(HostRow());
  ObjectPtr host = GetInternal(kHost, conn_, Schema(kHost));
  // Later parts win member by member, also inside sub-objects; a replaced member moves last.
  EXPECT_EQ(Data(host), R"({"systemUuid":"u-1","cpuModel":"cached","timezone":"auto",)"
                        R"("ntp":{"enabled":true,"servers":["s"]},"hostname":"user"})");
  // The merged object's accessors see the merged members.
  std::string hostname;
  EXPECT_EQ(host->GetValue("hostname", &hostname), 1);
  EXPECT_EQ(hostname, "user");
  auto ntp = host->GetSubObject(SubObjectId("ntp"));
  ASSERT_NE(ntp, nullptr);
  bool enabled = false;
  std::vector<std::string> servers;
  EXPECT_EQ(ntp->GetValue("enabled", &enabled) + ntp->GetValue("servers", &servers), 2);
  EXPECT_TRUE(enabled);
  EXPECT_THAT(servers, ElementsAre("s"));
  EXPECT_EQ(host->GetSetvaultObjectId(), kHost);
  EXPECT_EQ(host->GetVersion() + " " + std::to_string(host->GetRevision()), "1.2 7");
  EXPECT_EQ(host->GetCreationTime() + host->GetModifiedTime(),
            "2026-01-02 03:04:052026-02-03 04:05:06");
  SetFlag("UPGRADE_CTX", "1");  // the confirmed view ignores upgrades and desired values
  Sql("UPDATE Config SET DesiredValue = '{\"hostname\":\"desired\"}'");
  host = GetCurrentConfigInternal(kHost, conn_, Schema(kHost));
  EXPECT_EQ(Data(host),
            R"({"timezone":"auto","ntp":{"enabled":true,"servers":["s"]},"hostname":"user"})");
  EXPECT_EQ(host->GetRevision(), 7);
}

TEST_F(ConfigReadsTest, EachPartAloneIsTheWholeObject) {
  for (const char* column : {"VitalValue", "CachedValue", "AutoConfValue", "UserValue"}) {
    Sql("DELETE FROM Config");
    Sql(std::string("INSERT INTO Config (Component, ConfigGroup, Name, Identifier, Revision, ") +
        column + ") VALUES ('korvo', 'system', 'host', '', 3, '{\"hostname\":\"only\"}')");
    ObjectPtr host = GetInternal(kHost, conn_, Schema(kHost));
    EXPECT_EQ(Data(host) + std::to_string(host ? host->GetRevision() : -1),
              R"({"hostname":"only"}3)")
        << column;
  }
}

TEST_F(ConfigReadsTest, NoRowNoValueOrAnotherInstanceGivesNoObject) {
  EXPECT_EQ(Get(kHost), "-");
  Rows("('system', 'host', '', 1, 1, NULL, NULL, NULL, NULL, NULL)");  // no value
  EXPECT_EQ(Get(kHost), "-");
  EXPECT_EQ(Data(GetCurrentConfigInternal(kHost, conn_, Schema(kHost))), "-");
  Rows(R"(('net', 'vswitch', 'vs0', 1, 1, '{"name":"vs0"}', NULL, NULL, NULL, NULL))");
  EXPECT_EQ(Get(Vs("vs1")), "-");
}

TEST_F(ConfigReadsTest, UnconfirmedUserValueShowsOnlyDuringAnUpgrade) {
  ConfigRow row = HostRow();
  row.success = 0;
  InsertConfig(row);
  EXPECT_EQ(Get(kHost), R"({"systemUuid":"u-1","cpuModel":"cached",)"
                        R"("timezone":"auto","hostname":"auto","ntp":{"enabled":true}})");
  EXPECT_EQ(Data(GetCurrentConfigInternal(kHost, conn_, Schema(kHost))),
            R"({"timezone":"auto","hostname":"auto","ntp":{"enabled":true}})");
  SetFlag("UPGRADE_CTX", "2");
  EXPECT_NE(Get(kHost).find(R"("hostname":"user")"), std::string::npos);
  // A desired value is what an upgrade shows.
  Sql("UPDATE Config SET DesiredValue = '{\"hostname\":\"desired\"}'");
  EXPECT_NE(Get(kHost).find(R"("hostname":"desired")"), std::string::npos);
}

TEST_F(ConfigReadsTest, ByBootAndContextPicksThePartTheWriterWorksOn) {
  Rows(R"(('hvcore', 'options', '', 1, 1, '{"logLevel":"info"}', '{"hugePages":1,"logLevel":)"
       R"("error"}', '{"hugePages":2}', '{"logLevel":"warning"}', '{"logLevel":"debug"}'))");
  auto schema = Schema(kOptions);
  ASSERT_TRUE(schema->UsesCurrentValueDuringBoot());
  auto read = [&](int32_t kind) {
    return Data(GetConfigByBootAndContext(kOptions, conn_, USERDATA_CONTEXT{kind}, schema));
  };
  // A non-external writer works on the auto-configuration part.
  EXPECT_EQ(read(kAutoConfigContext), R"({"hugePages":2,"logLevel":"warning"})");
  // The external writer: the confirmed user part outside boot and upgrade.
  EXPECT_EQ(read(kExternalContext), R"({"hugePages":2,"logLevel":"info"})");
  // During an upgrade: the current (desired) part.
  SetFlag("UPGRADE_CTX", "1");
  EXPECT_EQ(read(kExternalContext), R"({"hugePages":2,"logLevel":"debug"})");
  // During boot a type that asks for it shows the pending (desired) part as well.
  SetFlag("UPGRADE_CTX", "0");
  SetFlag("IS_BOOT", "true");
  EXPECT_EQ(read(kExternalContext), R"({"hugePages":2,"logLevel":"debug"})");
  // Without a desired value the pending part is the user value, confirmed or not.
  Sql("UPDATE Config SET Success = 0, DesiredValue = NULL");
  EXPECT_EQ(read(kExternalContext), R"({"hugePages":2,"logLevel":"info"})");
  // A type that does not ask for it shows the confirmed part during boot: none here.
  auto host_schema = Schema(kHost);
  ASSERT_FALSE(host_schema->UsesCurrentValueDuringBoot());
  Rows(R"(('system', 'host', '', 0, 1, '{"hostname":"pending"}', NULL, NULL, NULL, NULL))");
  EXPECT_EQ(Data(GetConfigByBootAndContext(kHost, conn_, USERDATA_CONTEXT{kExternalContext},
                                           host_schema)),
            "-");
}

TEST_F(ConfigReadsTest, DefaultsMergeValueOverVitalAndCachedAndLogWhenMissing) {
  setvault_test::LogCapture log;
  EXPECT_EQ(Data(GetDefaultConfigInternal(kHost, conn_, Schema(kHost))), "-");
  EXPECT_EQ(log.CountStartingWith(2, "Object not found: comp korvo grp system key host"), 1);
  ValueRow row;  // a default with vital and cached data only has no user part
  row.group = "system";
  row.name = "host";
  row.vital = R"({"systemUuid":"d","hostname":"vital"})";
  row.cached = R"({"hostname":"cached","cpuModel":"c"})";
  InsertDefault(row);
  EXPECT_EQ(Data(GetDefaultUserConfigInternal(kHost, conn_, Schema(kHost))), "-");
  EXPECT_EQ(log.CountStartingWith(2, "Object not found"), 2);
  Sql("UPDATE DefaultConfig SET Value = '{\"hostname\":\"default\"}', Version = '1.0'");
  ObjectPtr host = GetDefaultConfigInternal(kHost, conn_, Schema(kHost));
  EXPECT_EQ(Data(host), R"({"systemUuid":"d","cpuModel":"c","hostname":"default"})");
  EXPECT_EQ(host->GetVersion() + std::to_string(host->GetRevision()), "1.00");  // no revision
  EXPECT_EQ(Data(GetDefaultUserConfigInternal(kHost, conn_, Schema(kHost))),
            R"({"hostname":"default"})");
  EXPECT_EQ(log.CountStartingWith(2, "Object not found"), 2);
}

TEST_F(ConfigReadsTest, DesiredReadFollowsTheSuccessFlag) {
  Rows(R"(('hvcore', 'options', '', 1, 5, '{"logLevel":"info"}', '{"hugePages":4}', NULL, NULL,)"
       R"( '{"logLevel":"debug"}'))");
  auto desired = [&](int with_parts) {
    return Data(GetDesiredInternal(kOptions, conn_, Schema(kOptions), with_parts));
  };
  EXPECT_EQ(desired(0), R"({"logLevel":"debug"})");
  EXPECT_EQ(desired(1), R"({"hugePages":4,"logLevel":"debug"})");
  EXPECT_EQ(GetDesiredInternal(kOptions, conn_, Schema(kOptions), 1)->GetRevision(), 5);
  // Unconfirmed: the user value is what the next boot applies.
  Sql("UPDATE Config SET Success = 0");
  EXPECT_EQ(desired(0), R"({"logLevel":"info"})");
  // Confirmed with nothing desired: only vital and cached remain, and a flag other than 1
  // ignores them.
  Sql("UPDATE Config SET Success = 1, DesiredValue = NULL");
  EXPECT_EQ(desired(1) + desired(0) + desired(2), R"({"hugePages":4}--)");
}

TEST_F(ConfigReadsTest, RebootRequiredReadSeesOnlyStagedSets) {
  Sql("INSERT INTO DesiredUserConfig (Component, ConfigGroup, Name, Identifier, Version, Value, "
      "VitalValue, BootAction) VALUES ('korvo', 'hvcore', 'cpuScheduler', '', '1.1', "
      "'{\"reservedCores\":2}', '{\"reservedCores\":1,\"numaBalancing\":true}', 'SET')");
  ObjectPtr cpu = GetRebootRequiredConfigInternal(kCpu, conn_, Schema(kCpu));
  EXPECT_EQ(Data(cpu) + cpu->GetVersion(), R"({"numaBalancing":true,"reservedCores":2}1.1)");
  Sql("UPDATE DesiredUserConfig SET BootAction = 'DELETE'");
  EXPECT_EQ(Data(GetRebootRequiredConfigInternal(kCpu, conn_, Schema(kCpu))), "-");
}

TEST_F(ConfigReadsTest, StoredTextThatIsNotJsonFailsAndRevisionReadsItsLeadingDigits) {
  Sql("INSERT INTO Config (Component, ConfigGroup, Name, Identifier, UserValue, Revision) "
      "VALUES ('korvo', 'system', 'host', '', '{}', '12abc')");
  EXPECT_EQ(GetInternal(kHost, conn_, Schema(kHost))->GetRevision(), 12);
  Sql("UPDATE Config SET Revision = 'none'");
  EXPECT_EQ(GetInternal(kHost, conn_, Schema(kHost))->GetRevision(), 0);
  Sql("UPDATE Config SET VitalValue = '{}', UserValue = '{not json'");  // a merged part
  try {
    GetInternal(kHost, conn_, Schema(kHost));
    ADD_FAILURE() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), SV_ERR_JSON_PARSE);
  }
}

// --- Instances ------------------------------------------------------------

TEST_F(ConfigReadsTest, InstancesComeBackMergedInRowOrderAndFiltered) {
  Rows(R"(('net', 'vswitch', 'vs0', 1, 3, '{"name":"vs0","mtu":9000}', '{"uplinks":["nic0"]}',)"
       R"( NULL, NULL, NULL), ('net', 'vswitch', 'vs1', 1, 1, '{"name":"vs1","mtu":1500}', NULL,)"
       R"( NULL, NULL, NULL), ('net', 'vswitch', 'vs2', 0, 1, '{"name":"vs2","mtu":9000}', NULL,)"
       R"( NULL, '{"name":"vs2","mtu":1500}', NULL), ('net', 'vswitch', 'vs3', 1, 1,)"
       R"( '{"name":"vs3","mtu":9000}', NULL, NULL, NULL, NULL))");
  auto schema = Schema(kVswitchType);
  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  auto all = GetConfigInstancesInternal(filter, conn_, schema);
  EXPECT_THAT(
      Listed(all, true),
      ElementsAre(R"({"uplinks":["nic0"],"name":"vs0","mtu":9000})", R"({"name":"vs1","mtu":1500})",
                  R"({"name":"vs2","mtu":1500})",  // unconfirmed user value hidden
                  R"({"name":"vs3","mtu":9000})"));
  EXPECT_EQ(all[0]->GetRevision(), 3);
  filter->SetValue("mtu", 9000);
  EXPECT_THAT(Listed(GetConfigInstancesInternal(filter, conn_, schema)), ElementsAre("vs0", "vs3"));
  // During an upgrade the unconfirmed user value counts for the filter too.
  SetFlag("UPGRADE_CTX", "1");
  EXPECT_THAT(Listed(GetConfigInstancesInternal(filter, conn_, schema)),
              ElementsAre("vs0", "vs2", "vs3"));
  auto current = GetCurrentConfigInstancesInternal(kVswitchType, conn_, schema);
  EXPECT_THAT(Listed(current), ElementsAre("vs0", "vs1", "vs2", "vs3"));
  EXPECT_EQ(Data(current[0]), R"({"name":"vs0","mtu":9000})");  // no vital part
}

TEST_F(ConfigReadsTest, InstanceReadsOfAnEmptyTypeAreEmpty) {
  Rows(R"(('net', 'vswitch', 'vs0', 1, 1, '{"name":"vs0"}', NULL, NULL, NULL, NULL))");
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

TEST_F(ConfigReadsTest, DefaultAndStagedInstancesMergeAndFilter) {
  InsertDefaults("net", "vswitch",
                 {R"({"name":"vs0","mtu":1500})", R"({"name":"vs1","mtu":9000})"});
  auto schema = Schema(kVswitchType);
  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  EXPECT_THAT(Listed(GetDefaultConfigInstancesInternal(filter, conn_, schema), true),
              ElementsAre(R"({"uplinks":["nic9"],"name":"vs0","mtu":1500})",
                          R"({"uplinks":["nic9"],"name":"vs1","mtu":9000})"));
  EXPECT_THAT(Listed(GetDefaultUserConfigInstancesInternal(kVswitchType, conn_, schema), true),
              ElementsAre(R"({"name":"vs0","mtu":1500})", R"({"name":"vs1","mtu":9000})"));
  // An id naming one instance reads that one only.
  EXPECT_THAT(Listed(GetDefaultUserConfigInstancesInternal(Vs("vs1"), conn_, schema)),
              ElementsAre("vs1"));
  // Staged instances: only those set, not deleted, and filtered.
  InsertDefaults("net", "vswitch", {R"({"name":"vs0"})", R"({"name":"vs1"})"}, "SET");
  Sql("UPDATE DesiredUserConfig SET BootAction = 'DELETE_INSTANCE' WHERE Identifier = 'vs0'");
  filter->SetValue("mtu", 9000);
  EXPECT_THAT(Listed(GetDefaultConfigInstancesInternal(filter, conn_, schema)), ElementsAre("vs1"));
  EXPECT_THAT(Listed(GetRebootRequiredConfigInstancesInternal(filter, schema, conn_)), IsEmpty());
  filter = std::make_shared<FilterSpecObject>(kVswitchType);
  filter->SetValue("name", "vs1");
  EXPECT_THAT(Listed(GetRebootRequiredConfigInstancesInternal(filter, schema, conn_), true),
              ElementsAre(R"({"uplinks":["nic9"],"name":"vs1"})"));
}

TEST_F(ConfigReadsTest, DesiredInstancesFollowTheSuccessFlag) {
  // Confirmed with a desired value, unconfirmed, vital only, confirmed without desired value.
  Rows(R"(('net', 'vswitch', 'vs0', 1, 1, '{"name":"vs0","mtu":1500}', '{"uplinks":["a"]}', NULL,)"
       R"( NULL, '{"name":"vs0","mtu":9000}'), ('net', 'vswitch', 'vs1', 0, 1,)"
       R"( '{"name":"vs1","mtu":2000}', NULL, NULL, NULL, NULL), ('net', 'vswitch', 'vs2', 1, 1,)"
       R"( NULL, '{"uplinks":["b"]}', NULL, NULL, NULL), ('net', 'vswitch', 'vs3', 1, 1,)"
       R"( '{"name":"vs3"}', NULL, NULL, NULL, NULL))");
  auto schema = Schema(kVswitchType);
  EXPECT_THAT(Listed(GetDesiredUserConfigInstancesInternal(kVswitchType, conn_, schema, 0), true),
              ElementsAre(R"({"name":"vs0","mtu":9000})", R"({"name":"vs1","mtu":2000})"));
  EXPECT_THAT(Listed(GetDesiredUserConfigInstancesInternal(kVswitchType, conn_, schema, 1), true),
              ElementsAre(R"({"uplinks":["a"],"name":"vs0","mtu":9000})",
                          R"({"name":"vs1","mtu":2000})", R"({"uplinks":["b"]})"));
}

// --- Raw rows -------------------------------------------------------------

TEST_F(ConfigReadsTest, StoreContentsSelectConfirmedOrDesiredValues) {
  // Confirmed, unconfirmed, confirmed with a desired value, auto-configuration only.
  Rows(R"(('net', 'vswitch', 'vs0', 1, 4, '{"name":"vs0"}', NULL, NULL, '{"mtu":1500}', NULL),)"
       R"( ('net', 'vswitch', 'vs1', 0, 1, '{"name":"vs1"}', NULL, NULL, NULL, NULL),)"
       R"( ('net', 'vswitch', 'vs2', 1, 1, '{"name":"vs2"}', NULL, NULL, NULL,)"
       R"( '{"name":"vs2","mtu":9000}'), ('system', 'host', '', 1, 1, NULL, NULL, NULL,)"
       R"( '{"hostname":"a"}', NULL))");
  StoreRows user = GetUserConfigContents(conn_);
  EXPECT_THAT(Column(user, "Identifier"), ElementsAre("vs0", "vs2"));
  EXPECT_THAT(Column(user, "Value"), ElementsAre(R"({"name":"vs0"})", R"({"name":"vs2"})"));
  EXPECT_THAT(Column(user, "AutoConfValue"), ElementsAre(R"({"mtu":1500})", "<null>"));
  EXPECT_THAT(Column(user, "Revision"), ElementsAre("4", "1"));
  EXPECT_EQ(user->at(0)->at("Name") + user->at(0)->at("ConfigGroup") + user->at(0)->at("Component"),
            "vswitchnetkorvo");
  EXPECT_EQ(user->at(0)->count("CreationTime"), 1u);
  StoreRows desired = GetDesiredUserConfigContents(conn_);
  EXPECT_THAT(Column(desired, "Value"),
              ElementsAre(R"({"name":"vs1"})", R"({"name":"vs2","mtu":9000})"));
  // With the flag the plain user column is not restricted to confirmed rows.
  EXPECT_THAT(Column(GetStoreContentsInternalST("UserValue", conn_, true), "Identifier"),
              ElementsAre("vs0", "vs1", "vs2"));
  EXPECT_THAT(Column(GetStoreContentsInternalST("AutoConfValue", conn_, false), "Value"),
              ElementsAre(R"({"mtu":1500})", R"({"hostname":"a"})"));
}

TEST_F(ConfigReadsTest, DefaultMapListReadsOneOrAllInstances) {
  InsertDefaults("net", "vswitch", {R"({"name":"vs0"})", R"({"name":"vs1"})"});
  StoreRows all = GetDefaultUserConfigMapList(kVswitchType, conn_);
  EXPECT_THAT(Column(all, "Identifier"), ElementsAre("vs0", "vs1"));
  EXPECT_THAT(Column(all, "Version"), ElementsAre("2.0", "2.0"));
  EXPECT_EQ(all->at(0)->size(), 3u);
  EXPECT_THAT(Column(GetDefaultUserConfigMapList(Vs("vs1"), conn_), "Value"),
              ElementsAre(R"({"name":"vs1"})"));
}

TEST_F(ConfigReadsTest, SharedConfigurationReadsTypesMarkedShared) {
  // A vswitch with a desired value, and host, a type not shared.
  Rows(R"(('net', 'dns', '', 1, 1, '{"servers":["1.1.1.1"]}', NULL, NULL, NULL, NULL),)"
       R"( ('net', 'vswitch', 'vs0', 1, 1, '{"name":"vs0"}', NULL, NULL, NULL,)"
       R"( '{"name":"vs0","mtu":9000}'), ('system', 'host', '', 1, 1, '{"hostname":"h"}', NULL,)"
       R"( NULL, NULL, NULL))");
  StoreRows rows = GetSmartnicConfiguration(conn_);
  std::map<std::string, std::string> values;
  for (const auto& row : *rows)
    values[row->at("Name") + "/" + row->at("Identifier")] = row->at("Value");
  EXPECT_EQ(values, (std::map<std::string, std::string>{
                        {"dns/", R"({"servers":["1.1.1.1"]})"},
                        {"vswitch/vs0", R"({"name":"vs0","mtu":9000})"}}));  // desired over user
  // The schema database is detached again, and it is needed.
  EXPECT_EQ(Query("SELECT COUNT(*) FROM pragma_database_list WHERE name = 'ss'"), "0");
  SetSchemaStorePath(dir_.File("missing/schema.db"));
  ExpectError([&] { GetSmartnicConfiguration(conn_); }, 2000, "Failed to attach schema store");
}

TEST_F(ConfigReadsTest, FailedStatementsNameTheRead) {
  Sql("DROP TABLE Config");
  Sql("DROP TABLE DefaultConfig");
  const std::string get_failed = "Get failed: comp korvo grp net key vswitch id vs0";
  auto schema = Schema(kVswitchType);
  ExpectError([&] { GetInternal(Vs("vs0"), conn_, schema); }, 2000, get_failed);
  ExpectError([&] { GetDefaultConfigInternal(Vs("vs0"), conn_, schema); }, 2000, get_failed);
  ExpectError(
      [&] {
        GetConfigInstancesInternal(std::make_shared<FilterSpecObject>(kVswitchType), conn_, schema);
      },
      2000, "Read Instances failed for: comp korvo grp net key vswitch");
  ExpectError([&] { GetUserConfigContents(conn_); }, 2000, "Get store rows failed.");
  ExpectError([&] { GetDefaultUserConfigMapList(Vs("vs0"), conn_); }, 2000,
              "Get store rows failed.");
  ExpectError([&] { GetSmartnicConfiguration(conn_); }, 2000, "Get store rows failed.");
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

TEST_F(ConfigReadsTest, BootFlagFailuresThrow) {
  Sql("DROP TABLE KeyValue");
  ExpectError([] { IsBoot(); }, 2000, "Failed to read value from database.");
  dir_.WriteFile("plain", "x");
  const std::string path = dir_.File("plain/store.db");
  SetStorePath(path);
  ExpectError([] { IsBoot(); }, 1002, "Cannot open the configuration store database " + path);
}

}  // namespace
}  // namespace KorvoSetvault
