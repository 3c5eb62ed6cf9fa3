// The persistence writers below the store: the success flag under an upgrade, what each
// writer carries over or resets, updates and sets by context, the failure message of each
// statement, how object data splits into the user, vital and cached parts by the tags of a
// schema, and the cache of objects read by Get against the changes that must reach it.
#include "db/config_writes.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "db/key_value.h"
#include "db/object_split.h"
#include "setvault/json_doc.h"
#include "store/setvault_impl.h"
#include "store/store_fixture.h"
#include "support/reliability_processes.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExpectThrow;
using setvault_test::kAutoConfig;
using setvault_test::kExternal;
using setvault_test::kHost;
using setvault_test::RunSql;
using setvault_test::Spawn;
using setvault_test::Vswitch;
using setvault_test::Wait;

constexpr char kDesired[] = "UPDATE Config SET DesiredValue = '{\"d\":1}'";

const SetvaultObjectId kDns("dns", "net", "korvo");

const SetvaultObjectId kId("vswitch", "net", "korvo", "vs0");

// The mtu `object` holds; -1 for none.
int Mtu(const std::shared_ptr<SetvaultObject>& object) {
  int mtu = -1;
  if (object) object->GetValue("mtu", &mtu);
  return mtu;
}

class ConfigWritesTest : public setvault_test::WriteStoreTest {
 protected:
  std::shared_ptr<DBStore::StoreConnection> Conn() {
    return DBStore::GetConnection(DBStore::kConfigStore, true);
  }
  void Sql(const std::string& sql) { ASSERT_EQ(RunSql(Db(), sql), SQLITE_OK) << sql; }
  void Upgrading(int context) { SetKeyValue("UPGRADE_CTX", std::to_string(context)); }
  void Set(int mtu) { store_->Set(Switch("vs0", mtu), kExternal); }
  int GetMtu() { return Mtu(store_->Get(kId)); }
  // Sets the switch's mtu through a store of the calling thread's own.
  static void SetFresh(int mtu) { Setvault::GetStore("")->Set(Switch("vs0", mtu), kExternal); }
};

TEST_F(ConfigWritesTest, UserWritesAreUnconfirmedOnlyDuringAnUpgrade) {
  for (const auto& [context, success] :
       std::vector<std::pair<int, std::string>>{{0, "11"}, {1, "11"}, {2, "01"}, {3, "11"}}) {
    Upgrading(context);
    store_->SetUserData(Object(kHost, R"({"hostname":"h"})"), kExternal);
    store_->SetUserData(Object(kDns, R"({"servers":["10.0.0.1"]})"), kExternal);
    EXPECT_EQ(Column(kHost, "Success") + Column(kDns, "Success"), success) << context;
  }
  // Whole-object writes too, unless the type is always confirmed.
  Upgrading(2);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  store_->Set(Object(kDns, R"({"servers":["10.0.0.1"]})"), kExternal);
  EXPECT_EQ(Column(kHost, "Success") + Column(kDns, "Success"), "01");
  // The other column writers keep the flag and the pending desired value; a new row written
  // by them starts confirmed.
  Sql(kDesired);
  store_->SetVitalData(Object(kHost, R"({"systemUuid":"u"})"));
  store_->SetCachedData(Object(kHost, R"({"cpuModel":"c"})"));
  store_->SetUserData(Object(kHost, R"({"hostname":"a"})"), kAutoConfig);
  EXPECT_EQ(Column(kHost, "Success || ' ' || DesiredValue"), "0 {\"d\":1}");
  store_->SetVitalData(Object(Vswitch("fresh"), R"({"name":"fresh"})"));
  EXPECT_EQ(Column(Vswitch("fresh"), "Success"), "1");
  // User writes confirm outside an upgrade and drop the desired value.
  Upgrading(0);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  EXPECT_EQ(Column(kHost, "Success || ifnull(DesiredValue, '-')"), "1-");
  Sql(kDesired);
  store_->SetUserData(Object(kHost, R"({"hostname":"h"})"), kExternal);
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

// Each case stores mtu 1500, reads it twice (the second read comes from the cache), makes one
// change and checks what the next Get returns; the same with the cache turned off.
using ObjectCacheTest = ConfigWritesTest;

TEST_F(ObjectCacheTest, NextGetSeesEveryChange) {
  const std::tuple<const char*, std::function<void()>, int> cases[] = {
      {"write by another thread", [] { std::thread([] { SetFresh(1700); }).join(); }, 1700},
      {"rollback of a write the cache saw",
       [this] {
         store_->BeginTransaction();
         Set(1900);
         EXPECT_EQ(GetMtu(), 1900);
         store_->CancelTransaction();
       },
       1500},
      {"caller changed the object it got", [this] { store_->Get(kId)->SetValue("mtu", 2000); },
       1500},
      {"fork: a child reads the current row and its write reaches the parent",
       [] {
         EXPECT_EQ(Wait(Spawn([] {
                     auto child = Setvault::GetStore("");
                     const int seen = Mtu(child->Get(kId));
                     SetFresh(2100);
                     return seen == 1500 && Mtu(child->Get(kId)) == 2100 ? 0 : 1;
                   })),
                   0);
       },
       2100},
  };
  for (bool enabled : {true, false}) {  // every Get hands out an object of its own either way
    SetObjectCacheEnabled(enabled);
    for (const auto& [name, change, expected] : cases) {
      SCOPED_TRACE(std::string(name) + (enabled ? "" : ", cache off"));
      Set(1500);
      ASSERT_EQ(GetMtu(), 1500);
      ASSERT_EQ(GetMtu(), 1500);
      change();
      EXPECT_EQ(GetMtu(), expected);
    }
  }
  SetObjectCacheEnabled(true);
}

// Only what the split reads: properties, items, the tags and the instance-id members.
const char kSchema[] = R"({"properties": {
  "name": {}, "tags": {"items": {}}, "serial": {"vital": true}, "load": {"cached": true},
  "limits": {"properties": {"max": {}, "seen": {"cached": true},
                            "inner": {"properties": {"key": {"vital": true}}}}},
  "ports": {"instanceIdProperty": "id", "items": {"properties": {
    "id": {}, "speed": {}, "link": {"cached": true}, "mac": {"vital": true}}}},
  "rules": {"generatedInstanceId": true, "items": {"properties": {
    "sv_generated_id": {}, "port": {}, "hits": {"cached": true}}}}}})";

// Each part as text; "-" when the split leaves it absent (stored as NULL).
struct SplitCase {
  const char* data;
  const char* user;
  const char* vital;
  const char* cached;
  const char* schema = kSchema;
};

std::string Text(const std::optional<std::string>& part) { return part ? *part : "-"; }

TEST(ObjectSplitTest, MembersGoToThePartTheirTagsName) {
  const SplitCase cases[] = {
      {R"({"name":{"n":1},"serial":"s1","load":4,"tags":["x"],"other":1})",
       R"({"name":{"n":1},"tags":["x"],"other":1})", R"({"serial":"s1"})", R"({"load":4})"},
      // A part without members is absent.
      {R"({"load":1})", "-", "-", R"({"load":1})"},
      // Singleton sub-objects split member by member at every depth; an empty one is user data.
      {R"({"limits":{"max":9,"seen":3,"inner":{"key":"k"}}})", R"({"limits":{"max":9}})",
       R"({"limits":{"inner":{"key":"k"}}})", R"({"limits":{"seen":3}})"},
      {R"({"limits":{}})", R"({"limits":{}})", "-", "-"},
      // Instances keep their id (given or generated) in every part they appear in.
      {R"({"ports":[{"id":"p1","speed":10,"link":"up","mac":"m1"},{"id":"p2","speed":20},)"
       R"({"link":"down","id":"p3"}]})",
       R"({"ports":[{"id":"p1","speed":10},{"id":"p2","speed":20},{"id":"p3"}]})",
       R"({"ports":[{"id":"p1","mac":"m1"}]})",
       R"({"ports":[{"id":"p1","link":"up"},{"id":"p3","link":"down"}]})"},
      {R"({"rules":[{"sv_generated_id":"g1","port":22,"hits":5},{"sv_generated_id":"g2"}]})",
       R"({"rules":[{"sv_generated_id":"g1","port":22},{"sv_generated_id":"g2"}]})", "-",
       R"({"rules":[{"sv_generated_id":"g1","hits":5}]})"},
      // Elements of an instance array that are not objects stay user data.
      {R"({"ports":["loose",{"id":"p1","link":"up"}]})", R"({"ports":["loose",{"id":"p1"}]})", "-",
       R"({"ports":[{"id":"p1","link":"up"}]})"},
      // A type tagged at the top goes whole to that part.
      {R"({"a":1,"b":"x"})", "-", R"({"a":1,"b":"x"})", "-",
       R"({"vital":true,"properties":{"a":{"cached":true}}})"},
      {R"({"a":1})", "-", "-", R"({"a":1})", R"({"cached":true})"},
      // Tags that are not the boolean true do not split.
      {R"({"a":"x","b":"y"})", R"({"a":"x","b":"y"})", "-", "-",
       R"({"properties":{"a":{"vital":false},"b":{"cached":"true"}}})"},
  };
  for (const SplitCase& c : cases) {
    SCOPED_TRACE(c.data);
    auto data = CreateDocumentFromString(c.data);
    auto schema = CreateDocumentFromString(c.schema);
    const SplitParts parts = SplitObjectData(*data->GetJsonValuePtr(), *schema->GetJsonValuePtr());
    EXPECT_EQ(Text(parts.user), c.user);
    EXPECT_EQ(Text(parts.vital), c.vital);
    EXPECT_EQ(Text(parts.cached), c.cached);
  }
}

}  // namespace
}  // namespace KorvoSetvault
