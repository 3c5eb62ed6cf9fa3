// Reads of stored configuration over rows written by hand with SQL: how the value columns
// of a row become one object, which user value each view shows (success flag, upgrade
// context, boot flag), instance reads, raw row reads and the failure texts; the key-value
// accessors, the boot flags and the upgrade context with their exact failure messages.
#include "db/config_reads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "db/host_flags.h"
#include "db/key_value.h"
#include "db/upgrade_ctx.h"
#include "setvault/exceptions.h"
#include "store/setvault_impl.h"
#include "support/config_store.h"
#include "support/thrown.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExpectError;
using ::testing::ElementsAre;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kVswitchType("vswitch", "net", "korvo");
const SetvaultObjectId kOptions("options", "hvcore", "korvo");

SetvaultObjectId Vs(const char* name) { return SetvaultObjectId("vswitch", "net", "korvo", name); }

// The object's data, or "-" for no object.
std::string Data(const ObjectPtr& object) { return object ? object->GetData() : "-"; }

// Instance ids, or the data of each instance with `data`.
std::vector<std::string> Listed(const ObjectList& objects, bool data = false) {
  std::vector<std::string> out;
  for (const auto& o : objects) out.push_back(data ? Data(o) : o->GetSetvaultObjectId().instanceId);
  return out;
}

class ConfigReadsTest : public setvault_test::ConfigStoreTest {
 protected:
  SchemaPtr Schema(const SetvaultObjectId& id) { return LookUpSchema(id); }
  std::string Get(const SetvaultObjectId& id) { return Data(GetInternal(id, conn_, Schema(id))); }

  // Inserts Config rows of component korvo, each "(group, name, id, success, revision, user,
  // vital, cached, autoconf, desired)".
  void Rows(const std::string& values) {
    Sql("INSERT INTO Config (Component, ConfigGroup, Name, Identifier, Success, Revision, "
        "UserValue, VitalValue, CachedValue, AutoConfValue, DesiredValue) SELECT 'korvo', * "
        "FROM (VALUES " +
        values + ")");
  }
};

// Values merge vital, cached, auto-configuration, then user, member by member also inside
// sub-objects, a replaced member moving last; the current view has no vital or cached part.
TEST_F(ConfigReadsTest, UnconfirmedUserValueShowsOnlyDuringAnUpgrade) {
  Rows(R"(('system', 'host', '', 0, 7, '{"hostname":"user","ntp":{"servers":["s"]}}',)"
       R"( '{"systemUuid":"u-1","hostname":"vital","cpuModel":"vital","timezone":"vital"}',)"
       R"( '{"cpuModel":"cached","hostname":"cached","timezone":"cached"}',)"
       R"( '{"timezone":"auto","hostname":"auto","ntp":{"enabled":true}}', NULL))");
  EXPECT_EQ(Get(kHost), R"({"systemUuid":"u-1","cpuModel":"cached",)"
                        R"("timezone":"auto","hostname":"auto","ntp":{"enabled":true}})");
  EXPECT_EQ(Data(GetCurrentConfigInternal(kHost, conn_, Schema(kHost))),
            R"({"timezone":"auto","hostname":"auto","ntp":{"enabled":true}})");
  SetFlag("UPGRADE_CTX", "2");
  EXPECT_EQ(Get(kHost), R"({"systemUuid":"u-1","cpuModel":"cached","timezone":"auto",)"
                        R"("ntp":{"enabled":true,"servers":["s"]},"hostname":"user"})");
  // A desired value is what an upgrade shows.
  Sql("UPDATE Config SET DesiredValue = '{\"hostname\":\"desired\"}'");
  EXPECT_NE(Get(kHost).find(R"("hostname":"desired")"), std::string::npos);
  // The revision reads the leading digits of its text; a merged part that is not JSON fails.
  Sql("UPDATE Config SET Revision = '12abc'");
  EXPECT_EQ(GetInternal(kHost, conn_, Schema(kHost))->GetRevision(), 12);
  Sql("UPDATE Config SET Revision = 'none'");
  EXPECT_EQ(GetInternal(kHost, conn_, Schema(kHost))->GetRevision(), 0);
  Sql("UPDATE Config SET DesiredValue = '{not json'");
  EXPECT_THROW(GetInternal(kHost, conn_, Schema(kHost)), InvalidArgumentException);
}

TEST_F(ConfigReadsTest, ByBootAndContextPicksThePartTheWriterWorksOn) {
  Rows(R"(('hvcore', 'options', '', 1, 1, '{"logLevel":"info"}', '{"hugePages":1,"logLevel":)"
       R"("error"}', '{"hugePages":2}', '{"logLevel":"warning"}', '{"logLevel":"debug"}'))");
  ASSERT_TRUE(Schema(kOptions)->UsesCurrentValueDuringBoot() &&
              !Schema(kHost)->UsesCurrentValueDuringBoot());
  auto read = [&](int32_t kind, const SetvaultObjectId& id = kOptions) {
    return Data(GetConfigByBootAndContext(id, conn_, USERDATA_CONTEXT{kind}, Schema(id)));
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
  Rows(R"(('system', 'host', '', 0, 1, '{"hostname":"pending"}', NULL, NULL, NULL, NULL))");
  EXPECT_EQ(read(kExternalContext, kHost), "-");
}

// Instances merge their vital part; an unconfirmed user value shows, also to the filter, only
// during an upgrade; the current view has no vital part.
TEST_F(ConfigReadsTest, InstancesShowAnUnconfirmedUserValueOnlyDuringAnUpgrade) {
  Rows(R"(('net', 'vswitch', 'vs0', 1, 3, '{"name":"vs0","mtu":9000}', '{"uplinks":["nic0"]}',)"
       R"( NULL, NULL, NULL), ('net', 'vswitch', 'vs1', 0, 1, '{"name":"vs1","mtu":9000}', NULL,)"
       R"( NULL, '{"name":"vs1","mtu":1500}', NULL))");
  auto schema = Schema(kVswitchType);
  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  filter->SetValue("mtu", 9000);
  EXPECT_THAT(Listed(GetConfigInstancesInternal(filter, conn_, schema), true),
              ElementsAre(R"({"uplinks":["nic0"],"name":"vs0","mtu":9000})"));
  SetFlag("UPGRADE_CTX", "1");
  EXPECT_THAT(Listed(GetConfigInstancesInternal(filter, conn_, schema)), ElementsAre("vs0", "vs1"));
  auto current = GetCurrentConfigInstancesInternal(kVswitchType, conn_, schema);
  EXPECT_THAT(Listed(current), ElementsAre("vs0", "vs1"));
  EXPECT_EQ(Data(current[0]) + std::to_string(current[0]->GetRevision()),
            R"({"name":"vs0","mtu":9000}3)");
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

TEST_F(ConfigReadsTest, FailedStatementsNameTheRead) {
  Sql("DROP TABLE Config");
  Sql("DROP TABLE DefaultConfig");
  const std::string get_failed = "Get failed: comp korvo grp net key vswitch id vs0";
  auto schema = Schema(kVswitchType);
  ExpectError([&] { GetInternal(Vs("vs0"), conn_, schema); }, 2000, get_failed);
  ExpectError([&] { GetDefaultConfigInternal(Vs("vs0"), conn_, schema); }, 2000, get_failed);
  auto all = std::make_shared<FilterSpecObject>(kVswitchType);
  ExpectError([&] { GetConfigInstancesInternal(all, conn_, schema); }, 2000,
              "Read Instances failed for: comp korvo grp net key vswitch");
  ExpectError([&] { GetUserConfigContents(conn_); }, 2000, "Get store rows failed.");
  ExpectError([&] { GetSmartnicConfiguration(conn_); }, 2000, "Get store rows failed.");
  // The failed shared read still detached the schema database.
  EXPECT_EQ(Query("SELECT COUNT(*) FROM pragma_database_list WHERE name = 'ss'"), "0");
}

using KeyValueTest = ConfigReadsTest;

TEST_F(KeyValueTest, NeverWrittenOrUnopenableStoreAndFailuresNameTheKey) {
  // A store never written holds no key, and reading does not create it.
  SetStorePath(dir_.File("new/store.db"));
  EXPECT_EQ(GetKeyValue("BOOT_INFO"), "");
  EXPECT_NE(access(dir_.File("new").c_str(), F_OK), 0);
  // A store that cannot be opened fails with 1002 and the path.
  dir_.WriteFile("plain", "x");
  const std::string path = dir_.File("plain/store.db");
  SetStorePath(path);
  const std::string message = "Cannot open the configuration store database " + path;
  ExpectError([] { GetKeyValue("IS_BOOT"); }, 1002, message);
  ExpectError([] { SetKeyValue("IS_BOOT", "true"); }, 1002, message);
  ExpectError([] { GetUpgradeCtx(); }, 1002, message);
  ExpectError([] { IsBoot(); }, 1002, message);
  SetStorePath(store_path_);
  Sql("CREATE TRIGGER NoWrites BEFORE INSERT ON KeyValue BEGIN SELECT RAISE(ABORT, 'x'); END");
  ExpectError([] { SetKeyValue("NOTIFY_NEXD", "true"); }, 2000,
              "Failed to write KV table for key: NOTIFY_NEXD");
  Sql("DROP TABLE KeyValue");
  ExpectError([] { GetKeyValue("NOTIFY_NEXD"); }, 2000,
              "Failed to read KV table for key: NOTIFY_NEXD");
  ExpectError([] { IsBoot(); }, 2000, "Failed to read value from database.");
}

// Remediated exactly when BOOT_MODE is "1", booting exactly when IS_BOOT is "true".
TEST_F(KeyValueTest, HostFlagsHoldOnlyForTheirExactText) {
  EXPECT_FALSE(IsHostRemediated(conn_) || IsBoot() || GetUpgradeCtx() != 0);  // absent
  for (const char* other : {"0", "4", "01", "1 ", "TRUE", "true ", ""}) {
    ASSERT_EQ(DBStore::WriteKeyValue("BOOT_MODE", other, conn_), 0);
    ASSERT_EQ(DBStore::WriteKeyValue("IS_BOOT", other, conn_), 0);
    EXPECT_FALSE(IsHostRemediated(conn_) || IsBoot()) << other;
  }
  ASSERT_EQ(DBStore::WriteKeyValue("BOOT_MODE", "1", conn_), 0);
  ASSERT_EQ(DBStore::WriteKeyValue("IS_BOOT", "true", conn_), 0);
  EXPECT_TRUE(IsHostRemediated(conn_) && IsBoot());
  // The upgrade context is the stored integer; other text reads as 0 and is logged.
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "2", conn_), 0);
  EXPECT_EQ(GetUpgradeCtx(), 2);
  setvault_test::LogCapture log(1);
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "2x", conn_), 0);
  EXPECT_EQ(GetUpgradeCtx(), 0);
  EXPECT_EQ(log.CountStartingWith(1, "UPGRADE_CTX holds"), 1);
  Sql("CREATE TRIGGER NoWrites BEFORE INSERT ON KeyValue BEGIN SELECT RAISE(ABORT, 'x'); END");
  ExpectError([&] { MarkBootModeChanged(conn_); }, 2000, "Failed to write BootMode to database.");
  Sql("DROP TABLE KeyValue");
  ExpectError([&] { IsHostRemediated(conn_); }, 2000, "Failed to read value from database.");
}

}  // namespace
}  // namespace KorvoSetvault
