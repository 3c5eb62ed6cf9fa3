// The persistence writers below the store: the success flag under an upgrade, what each
// writer carries over or resets, imported history, updates and sets by context, column
// clears, the revision map and the failure message of each statement.
#include "db/config_writes.h"

#include <gtest/gtest.h>

#include "db/key_value.h"
#include "store/setvault_impl.h"
#include "store/store_fixture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::ObjectList;
using KorvoSetvault::RevisionMap;

constexpr auto kUser = KorvoSetvault::kUpdateUser;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kDns("dns", "net", "korvo");

SetvaultObjectId Vswitch(const std::string& name) {
  return SetvaultObjectId("vswitch", "net", "korvo", name);
}

class ConfigWritesTest : public WriteStoreTest {
 protected:
  std::shared_ptr<DBStore::StoreConnection> Conn() {
    return DBStore::GetConnection(DBStore::kConfigStore, true);
  }
  void Sql(const std::string& sql) { ASSERT_EQ(RunSql(Db(), sql), SQLITE_OK) << sql; }
  void Upgrading(int context) {
    KorvoSetvault::SetKeyValue("UPGRADE_CTX", std::to_string(context));
  }
  std::string Failure(const std::function<void()>& call) {
    return ExpectThrow<KorvoSetvault::SetvaultException>(call, 2000);
  }
};

TEST_F(ConfigWritesTest, UserWritesAreUnconfirmedOnlyDuringAnUpgrade) {
  auto object = Object(kHost, R"({"hostname":"h"})");
  for (const auto& [context, flag, success] : std::vector<std::tuple<int, bool, std::string>>{
           {0, false, "1"}, {1, false, "1"}, {2, false, "0"}, {2, true, "1"}, {3, false, "1"}}) {
    Upgrading(context);
    KorvoSetvault::WriteUserConfigInstances({object}, Conn(), flag);
    EXPECT_EQ(Column(kHost, "Success"), success) << context << " " << flag;
  }
  // Whole-object writes too, unless the type is always confirmed.
  Upgrading(2);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  store_->Set(Object(kDns, R"({"servers":["10.0.0.1"]})"), kExternal);
  EXPECT_EQ(Column(kHost, "Success") + Column(kDns, "Success"), "01");
  // The other column writers keep the flag; a new row written by them starts confirmed.
  KorvoSetvault::WriteVitalConfigInstances({Object(kHost, R"({"systemUuid":"u"})")}, Conn());
  KorvoSetvault::WriteCachedConfigInstances({Object(kHost, R"({"cpuModel":"c"})")}, Conn());
  KorvoSetvault::WriteAutoConfConfigInstances({Object(kHost, R"({"hostname":"a"})")}, Conn());
  EXPECT_EQ(Column(kHost, "Success") + " " + Column(kHost, "Revision"), "0 9");
  KorvoSetvault::WriteVitalConfigInstances({std::make_shared<SetvaultObject>(Vswitch("fresh"))},
                                           Conn());
  EXPECT_EQ(Column(Vswitch("fresh"), "Success"), "1");
  Upgrading(0);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  EXPECT_EQ(Column(kHost, "Success"), "1");
}

TEST_F(ConfigWritesTest, WritersResetOrKeepThePendingDesiredValueAsTheirColumnsSay) {
  auto conn = Conn();
  KorvoSetvault::WriteUserConfigInstances({Object(kHost, R"({"hostname":"h"})")}, conn, true);
  const std::string desired = "UPDATE Config SET DesiredValue = '{\"d\":1}'";
  for (auto write : std::vector<std::function<void()>>{
           [&] { KorvoSetvault::WriteVitalConfigInstances({Object(kHost, "{}")}, conn); },
           [&] { KorvoSetvault::WriteCachedConfigInstances({Object(kHost, "{}")}, conn); },
           [&] { KorvoSetvault::WriteAutoConfConfigInstances({Object(kHost, "{}")}, conn); }}) {
    Sql(desired);
    write();
    EXPECT_EQ(Column(kHost, "DesiredValue"), R"({"d":1})");
  }
  Sql(desired);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  EXPECT_EQ(Column(kHost, "DesiredValue"), "<null>");
  Sql(desired);
  KorvoSetvault::WriteUserConfigInstances({Object(kHost, R"({"hostname":"h"})")}, conn, true);
  EXPECT_EQ(Column(kHost, "DesiredValue"), "<null>");
}

TEST_F(ConfigWritesTest, ImportedHistorySeedsNewRowsButNeverOverridesStoredOnes) {
  auto conn = Conn();
  auto schema = KorvoSetvault::LookUpSchema(Vswitch("a"));
  KorvoSetvault::SetInstancesInternal({Object(Vswitch("a"), R"({"name":"a"})")}, kExternal, schema,
                                      conn, nullptr);
  Sql("UPDATE Config SET CreationTime = '2010-01-01 00:00:00', Revision = 3");
  const RevisionMap history = {{"a", {40, "1999-09-09 09:09:09"}},
                               {"b", {7, "2000-01-01 00:00:00"}}};
  KorvoSetvault::SetInstancesInternal(
      {Object(Vswitch("a"), R"({"name":"a"})"), Object(Vswitch("b"), R"({"name":"b"})"),
       Object(Vswitch("c"), R"({"name":"c"})")},
      kExternal, schema, conn, &history);
  EXPECT_EQ(Column(Vswitch("a"), "Revision"), "4");
  EXPECT_EQ(Column(Vswitch("a"), "CreationTime"), "2010-01-01 00:00:00");
  EXPECT_EQ(Column(Vswitch("b"), "Revision"), "8");
  EXPECT_EQ(Column(Vswitch("b"), "CreationTime"), "2000-01-01 00:00:00");
  EXPECT_EQ(Column(Vswitch("c"), "Revision"), "1");
  EXPECT_NE(Column(Vswitch("c"), "CreationTime"), "<null>");
}

TEST_F(ConfigWritesTest, SetByContextChoosesItsColumnsByKind) {
  auto conn = Conn();
  auto schema = KorvoSetvault::LookUpSchema(kHost);
  auto seed = [&] {
    Sql("DELETE FROM Config");
    Sql("INSERT INTO Config (Identifier, Name, ConfigGroup, Component, Version, Success, "
        "UserValue, AutoConfValue, DesiredValue, Revision, CreationTime) VALUES ('', 'host', "
        "'system', 'korvo', '1', 0, '{\"u\":1}', '{\"a\":1}', '{\"d\":1}', 5, 'then')");
  };
  auto given = Object(kHost, R"({"hostname":"new","systemUuid":"v"})");

  // Each kind writes its own column; only the user kind confirms and clears the desired value.
  const std::pair<KorvoSetvault::UPDATE_CONTEXT, const char*> cases[] = {
      {KorvoSetvault::kUpdateAutoConfig, R"({"u":1} {"hostname":"new"} 0 6)"},
      {KorvoSetvault::kUpdateNonUser, R"({"hostname":"new"} {"a":1} 0 6)"},
      {kUser, R"({"hostname":"new"} {"a":1} 1 6)"}};
  for (const auto& [kind, expected] : cases) {
    seed();
    KorvoSetvault::SetByContextInternal(given, schema, kind, conn);
    EXPECT_EQ(
        Column(kHost, "UserValue || ' ' || AutoConfValue || ' ' || Success || ' ' || Revision"),
        expected);
  }
  EXPECT_EQ(Column(kHost, "VitalValue || ' ' || ifnull(DesiredValue, '-') || ' ' || CreationTime"),
            R"({"systemUuid":"v"} - then)");
}

TEST_F(ConfigWritesTest, UpdateByContextChangesColumnsInPlace) {
  auto conn = Conn();
  auto schema = KorvoSetvault::LookUpSchema(kHost);
  Sql("INSERT INTO Config (Identifier, Name, ConfigGroup, Component, Version, UserValue, "
      "AutoConfValue, DesiredValue, CachedValue, Revision) VALUES ('', 'host', 'system', "
      "'korvo', '1', '{\"u\":1}', '{\"a\":1}', '{\"d\":1}', '{\"c\":1}', 5)");
  auto given = Object(kHost, R"({"hostname":"n"})");
  KorvoSetvault::UpdateByContextInternal(given, schema, KorvoSetvault::kUpdateNonUser, conn);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"n"})");
  EXPECT_EQ(Column(kHost, "DesiredValue"), R"({"d":1})");
  EXPECT_EQ(Column(kHost, "CachedValue"), "<null>");  // the merged object carries all parts
  KorvoSetvault::UpdateByContextInternal(given, schema, KorvoSetvault::kUpdateAutoConfig, conn);
  EXPECT_EQ(Column(kHost, "AutoConfValue"), R"({"hostname":"n"})");
  EXPECT_EQ(Column(kHost, "DesiredValue"), R"({"d":1})");
  KorvoSetvault::UpdateByContextInternal(given, schema, kUser, conn);
  EXPECT_EQ(Column(kHost, "DesiredValue"), "<null>");
  EXPECT_EQ(Column(kHost, "Revision"), "5");
  // Nothing stored: nothing changes, and that is not a failure.
  KorvoSetvault::UpdateByContextInternal(Object(Vswitch("none"), R"({"name":"none"})"),
                                         KorvoSetvault::LookUpSchema(Vswitch("none")), kUser, conn);
  EXPECT_EQ(RowCount(Vswitch("")), 0);
}

TEST_F(ConfigWritesTest, ColumnClearsEmptyOneColumnOfEveryInstanceAndKeepTheRows) {
  auto conn = Conn();
  store_->SetInstances(
      {Object(Vswitch("a"), R"({"name":"a"})"), Object(Vswitch("b"), R"({"name":"b"})")},
      kExternal);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  Sql("UPDATE Config SET UserValue = '{}', AutoConfValue = '{}', VitalValue = '{}', "
      "CachedValue = '{}'");
  // Each clear empties its column of both switches, not of the host, and keeps the revision.
  const std::pair<decltype(&KorvoSetvault::DeleteUserConfigInstances), const char*> clears[] = {
      {KorvoSetvault::DeleteUserConfigInstances, "-{}{}{}1"},
      {KorvoSetvault::DeleteAutoConfConfigInstances, "--{}{}1"},
      {KorvoSetvault::DeleteVitalConfigInstances, "---{}1"},
      {KorvoSetvault::DeleteCachedConfigInstances, "----1"}};
  const char kColumns[] =
      "ifnull(UserValue, '-') || ifnull(AutoConfValue, '-') || ifnull(VitalValue, '-') || "
      "ifnull(CachedValue, '-') || Revision";
  for (const auto& [clear, expected] : clears) {
    clear(Vswitch(""), conn);
    EXPECT_EQ(Column(Vswitch("a"), kColumns) + " " + Column(Vswitch("b"), kColumns),
              std::string(expected) + " " + expected);
    EXPECT_EQ(Column(kHost, kColumns), "{}{}{}{}1");
  }
  // A type without rows: nothing to do, no failure.
  KorvoSetvault::DeleteUserConfigInstances(SetvaultObjectId("datastore", "storage", "korvo"), conn);
}

TEST_F(ConfigWritesTest, RevisionMapHoldsEveryStoredInstance) {
  store_->SetInstances(
      {Object(Vswitch("a"), R"({"name":"a"})"), Object(Vswitch("b"), R"({"name":"b"})")},
      kExternal);
  store_->Set(Object(Vswitch("b"), R"({"name":"b","mtu":2000})"), kExternal);
  Sql("UPDATE Config SET CreationTime = 'T-' || Identifier");
  const RevisionMap revisions = KorvoSetvault::ReadRevisionMap(Vswitch(""), Conn());
  const RevisionMap expected = {{"a", {1, "T-a"}}, {"b", {2, "T-b"}}};
  EXPECT_EQ(revisions, expected);
  EXPECT_TRUE(KorvoSetvault::ReadRevisionMap(SetvaultObjectId("x", "y", "z"), Conn()).empty());
}

TEST_F(ConfigWritesTest, EveryFailedStatementThrowsItsMessage) {
  auto conn = Conn();
  auto schema = KorvoSetvault::LookUpSchema(kHost);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  Sql("CREATE TRIGGER NoInsert BEFORE INSERT ON Config BEGIN SELECT RAISE(ABORT, 'x'); END");
  Sql("CREATE TRIGGER NoUpdate BEFORE UPDATE ON Config BEGIN SELECT RAISE(ABORT, 'x'); END");
  Sql("CREATE TRIGGER NoDelete BEFORE DELETE ON Config BEGIN SELECT RAISE(ABORT, 'x'); END");
  const ObjectList objects = {Object(kHost, R"({"hostname":"h"})")};
  const std::string by_context =
      "Database call to update configuration by context failed for: " + kHost.toString();
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { KorvoSetvault::WriteUserConfigInstances(objects, conn, true); },
       "Write user data failed"},
      {[&] { KorvoSetvault::WriteVitalConfigInstances(objects, conn); },
       "Write config instances failed"},
      {[&] { KorvoSetvault::WriteCachedConfigInstances(objects, conn); },
       "Write config instances failed"},
      {[&] { KorvoSetvault::WriteAutoConfConfigInstances(objects, conn); },
       "Write config instances failed"},
      {[&] { KorvoSetvault::SetInternal(objects[0], schema, kExternal, conn); },
       "WriteComplete failed"},
      {[&] { KorvoSetvault::SetByContextInternal(objects[0], schema, kUser, conn); }, by_context},
      {[&] { KorvoSetvault::UpdateByContextInternal(objects[0], schema, kUser, conn); },
       by_context},
      {[&] { KorvoSetvault::DeleteInternal(kHost, conn); }, "Delete failed: " + kHost.toString()},
      {[&] { KorvoSetvault::DeleteInstancesInternal(kHost, conn); },
       "Delete instances failed: " + kHost.toString()},
      {[&] { KorvoSetvault::DeleteUserConfigInstances(kHost, conn); },
       "Failed to Delete in SetConfigInstancesInternal"}};
  for (const auto& [call, message] : cases) EXPECT_EQ(Failure(call), message);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h"})");
  Sql("DROP TABLE Config");
  EXPECT_EQ(Failure([&] { KorvoSetvault::ReadRevisionMap(kHost, conn); }),
            "Failed to read revision from setvault.");
}

}  // namespace
}  // namespace setvault_test
