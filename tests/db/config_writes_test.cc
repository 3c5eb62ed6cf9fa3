// The persistence writers below the store: the success flag under an upgrade, what each
// writer carries over or resets, updates and sets by context and the failure message of
// each statement.
#include "db/config_writes.h"

#include <gtest/gtest.h>

#include "db/key_value.h"
#include "store/setvault_impl.h"
#include "store/store_fixture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExpectThrow;
using setvault_test::kExternal;
using setvault_test::kHost;
using setvault_test::RunSql;
using setvault_test::Vswitch;

constexpr char kDesired[] = "UPDATE Config SET DesiredValue = '{\"d\":1}'";

const SetvaultObjectId kDns("dns", "net", "korvo");

class ConfigWritesTest : public setvault_test::WriteStoreTest {
 protected:
  std::shared_ptr<DBStore::StoreConnection> Conn() {
    return DBStore::GetConnection(DBStore::kConfigStore, true);
  }
  void Sql(const std::string& sql) { ASSERT_EQ(RunSql(Db(), sql), SQLITE_OK) << sql; }
  void Upgrading(int context) { SetKeyValue("UPGRADE_CTX", std::to_string(context)); }
};

TEST_F(ConfigWritesTest, UserWritesAreUnconfirmedOnlyDuringAnUpgrade) {
  auto object = Object(kHost, R"({"hostname":"h"})");
  for (const auto& [context, flag, success] : std::vector<std::tuple<int, bool, std::string>>{
           {0, false, "1"}, {1, false, "1"}, {2, false, "0"}, {2, true, "1"}, {3, false, "1"}}) {
    Upgrading(context);
    WriteUserConfigInstances({object}, Conn(), flag);
    EXPECT_EQ(Column(kHost, "Success"), success) << context << " " << flag;
  }
  // Whole-object writes too, unless the type is always confirmed.
  Upgrading(2);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  store_->Set(Object(kDns, R"({"servers":["10.0.0.1"]})"), kExternal);
  EXPECT_EQ(Column(kHost, "Success") + Column(kDns, "Success"), "01");
  // The other column writers keep the flag and the pending desired value; a new row written
  // by them starts confirmed.
  Sql(kDesired);
  WriteVitalConfigInstances({Object(kHost, R"({"systemUuid":"u"})")}, Conn());
  WriteCachedConfigInstances({Object(kHost, R"({"cpuModel":"c"})")}, Conn());
  WriteAutoConfConfigInstances({Object(kHost, R"({"hostname":"a"})")}, Conn());
  EXPECT_EQ(Column(kHost, "Success || ' ' || Revision || ' ' || DesiredValue"), "0 9 {\"d\":1}");
  WriteVitalConfigInstances({std::make_shared<SetvaultObject>(Vswitch("fresh"))}, Conn());
  EXPECT_EQ(Column(Vswitch("fresh"), "Success"), "1");
  // User writes confirm outside an upgrade and drop the desired value.
  Upgrading(0);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  EXPECT_EQ(Column(kHost, "Success || ifnull(DesiredValue, '-')"), "1-");
  Sql(kDesired);
  WriteUserConfigInstances({object}, Conn(), true);
  EXPECT_EQ(Column(kHost, "ifnull(DesiredValue, '-')"), "-");
}

// Each kind writes its own value column, with the vital and cached parts: a set as a new
// revision keeping the creation time, an update in place. Only the user kind drops the
// desired value, and only its set confirms.
TEST_F(ConfigWritesTest, ByContextWritersChooseTheirColumnsByKind) {
  auto schema = LookUpSchema(kHost);
  auto given = Object(kHost, R"({"hostname":"new","systemUuid":"v"})");
  const auto set = SetByContextInternal;
  const auto update = UpdateByContextInternal;
  const struct {
    decltype(set) write;
    UPDATE_CONTEXT kind;
    const char* expected;  // user, auto-configuration, success and revision
    const char* desired;   // the pending next-boot value afterwards
  } cases[] = {{set, kUpdateAutoConfig, R"({"u":1} {"hostname":"new"} 06)", R"({"d":1})"},
               {set, kUpdateNonUser, R"({"hostname":"new"} {"a":1} 06)", R"({"d":1})"},
               {set, kUpdateUser, R"({"hostname":"new"} {"a":1} 16)", "-"},
               {update, kUpdateAutoConfig, R"({"u":1} {"hostname":"new"} 05)", R"({"d":1})"},
               {update, kUpdateNonUser, R"({"hostname":"new"} {"a":1} 05)", R"({"d":1})"},
               {update, kUpdateUser, R"({"hostname":"new"} {"a":1} 05)", "-"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    Sql("DELETE FROM Config");
    Sql("INSERT INTO Config (Identifier, Name, ConfigGroup, Component, Version, Success, "
        "UserValue, AutoConfValue, DesiredValue, CachedValue, Revision, CreationTime) VALUES "
        "('', 'host', 'system', 'korvo', '1', 0, '{\"u\":1}', '{\"a\":1}', '{\"d\":1}', "
        "'{\"c\":1}', 5, 'then')");
    c.write(given, schema, c.kind, Conn());
    EXPECT_EQ(Column(kHost,
                     "UserValue || ' ' || AutoConfValue || ' ' || Success || Revision || "
                     "' ' || VitalValue || ifnull(CachedValue, '-') || CreationTime"),
              std::string(c.expected) + R"( {"systemUuid":"v"}-then)");
    EXPECT_EQ(Column(kHost, "ifnull(DesiredValue, '-')"), c.desired);
  }
}

// The writers the store tests do not make fail (they check the others' messages).
TEST_F(ConfigWritesTest, FailedStatementsThrowTheirMessage) {
  auto conn = Conn();
  auto schema = LookUpSchema(kHost);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  for (const std::string event : {"INSERT", "UPDATE", "DELETE"}) {
    Sql("CREATE TRIGGER No" + event + " BEFORE " + event +
        " ON Config BEGIN SELECT RAISE(ABORT, 'x'); END");
  }
  const ObjectList objects = {Object(kHost, R"({"hostname":"h"})")};
  const std::string by_context =
      "Database call to update configuration by context failed for: " + kHost.toString();
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { WriteUserConfigInstances(objects, conn, true); }, "Write user data failed"},
      {[&] { SetByContextInternal(objects[0], schema, kUpdateUser, conn); }, by_context},
      {[&] { DeleteInstancesInternal(kHost, conn); },
       "Delete instances failed: " + kHost.toString()},
      {[&] { DeleteUserConfigInstances(kHost, conn); },
       "Failed to Delete in SetConfigInstancesInternal"}};
  for (const auto& [call, message] : cases)
    EXPECT_EQ(ExpectThrow<SetvaultException>(call, 2000), message);
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h"})");
  Sql("DROP TABLE Config");
  EXPECT_EQ(ExpectThrow<SetvaultException>([&] { ReadRevisionMap(kHost, conn); }, 2000),
            "Failed to read revision from setvault.");
}

}  // namespace
}  // namespace KorvoSetvault
