#include "setvault/setvault_object.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "model/setvault_object_impl.h"
#include "setvault/exceptions.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExampleSchemas;
using setvault_test::LogCapture;

class SetvaultObjectTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { schemas_ = new ExampleSchemas(); }
  static void TearDownTestSuite() {
    delete schemas_;
    schemas_ = nullptr;
  }

  static std::shared_ptr<SetvaultObject> VSwitch(const std::string& name) {
    return std::make_shared<SetvaultObject>(SetvaultObjectId("vswitch", "net", "korvo", name));
  }

  template <typename F>
  static std::string MessageOf(F call) {
    try {
      call();
    } catch (const SetvaultException& e) {
      return e.what();
    }
    return "";
  }

  LogCapture log_{4};
  static ExampleSchemas* schemas_;
};

ExampleSchemas* SetvaultObjectTest::schemas_ = nullptr;

TEST_F(SetvaultObjectTest, NewObjectCarriesItsInstanceIdAndNoMetadata) {
  auto vswitch = VSwitch("vs0");
  EXPECT_EQ(vswitch->GetData(), R"({"name":"vs0"})");
  EXPECT_EQ(vswitch->GetRevision(), kDefaultRevision);
  EXPECT_EQ(vswitch->GetVersion(), "");
  EXPECT_EQ(vswitch->GetCreationTime(), "");
  EXPECT_EQ(vswitch->GetModifiedTime(), "");
  SetvaultObject singleton(SetvaultObjectId("host", "system", "korvo"));
  EXPECT_EQ(singleton.GetData(), "{}");
  EXPECT_EQ(singleton.GetIdMapStr(), "{}");
  EXPECT_NE(vswitch->GetIdMapStr().find(R"("portgroups":"name")"), std::string::npos);
}

TEST_F(SetvaultObjectTest, UnknownTypeIsRefusedWith1037) {
  try {
    SetvaultObject object(SetvaultObjectId("nothing", "net", "korvo"));
    FAIL();
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1037);
    EXPECT_NE(std::string(e.what()).find("comp korvo grp net key nothing"), std::string::npos);
  }
}

TEST_F(SetvaultObjectTest, DefaultsAnswerWithTwo) {
  SetvaultObject host(SetvaultObjectId("host", "system", "korvo"));
  std::string timezone;
  EXPECT_EQ(host.GetValue("timezone", &timezone), 2);
  EXPECT_EQ(timezone, "UTC");
  host.SetValue("timezone", "Europe/Berlin");
  EXPECT_EQ(host.GetValue("timezone", &timezone), 1);
  EXPECT_EQ(timezone, "Europe/Berlin");
  std::string hostname = "unchanged";
  EXPECT_EQ(host.GetValue("hostname", &hostname), 0);
  EXPECT_EQ(hostname, "unchanged");
  // A value held as null falls back to the default.
  host.SetData(R"({"powerPolicy": null})");
  std::string policy;
  EXPECT_EQ(host.GetValue("powerPolicy", &policy), 2);
  EXPECT_EQ(policy, "balanced");
  // Sub-object handles carry no defaults, even for a member that shares a
  // top-level default's name.
  auto vswitch = VSwitch("vs0");
  auto instance = vswitch->CreateSubObject(SubObjectId("portgroups", "mgmt"));
  auto singleton = vswitch->CreateSubObject(SubObjectId("teaming"));
  for (const auto& handle : {instance, singleton}) {
    int mtu = 0;
    EXPECT_EQ(handle->GetValue("mtu", &mtu), 0);
    EXPECT_EQ(mtu, 0);
  }
}

TEST_F(SetvaultObjectTest, SingletonSubObjects) {
  SetvaultObject host(SetvaultObjectId("host", "system", "korvo"));
  auto ntp = host.CreateSubObject(SubObjectId("ntp"));
  ASSERT_NE(ntp, nullptr);
  EXPECT_EQ(ntp->GetSetvaultObjectId(), SetvaultObjectId("ntp", "system", "korvo"));
  ntp->SetValue("enabled", true);
  ntp->SetValue("servers", std::vector<std::string>{"pool.ntp.org"});
  EXPECT_EQ(host.GetSerializedData(), R"({"ntp":{"enabled":true,"servers":["pool.ntp.org"]}})");
  EXPECT_TRUE(log_.Contains(4, "CreateSubObject : key ntp"));

  EXPECT_EQ(MessageOf([&] { host.CreateSubObject(SubObjectId("ntp")); }), "Object already exists.");
  EXPECT_EQ(MessageOf([&] { host.GetSubObject(SubObjectId("ntp", "x")); }),
            "Singleton object should not contain instanceId: key ntp id x");
  host.SetValue("hostname", "node1");
  EXPECT_EQ(MessageOf([&] { host.GetSubObject(SubObjectId("hostname")); }),
            "Not a singleton SubObject: key hostname");
  EXPECT_EQ(host.GetSubObject(SubObjectId("syslog")), nullptr);
  EXPECT_TRUE(log_.Contains(4, "GetSubObject: Could not find key: syslog"));

  auto again = host.GetSubObject(SubObjectId("ntp"));
  bool enabled = false;
  EXPECT_EQ(again->GetValue("enabled", &enabled), 1);
  EXPECT_TRUE(enabled);
  host.DeleteSubObject(SubObjectId("ntp"));
  EXPECT_EQ(host.GetSerializedData(), R"({"hostname":"node1"})");
  host.DeleteSubObject(SubObjectId("ntp"));
  EXPECT_TRUE(log_.Contains(1, "DeleteSubObject: Could not find key: ntp"));
}

TEST_F(SetvaultObjectTest, InstanceSubObjects) {
  auto vswitch = VSwitch("vs0");
  auto mgmt = vswitch->CreateSubObject(SubObjectId("portgroups", "mgmt"));
  auto vm = vswitch->CreateSubObject(SubObjectId("portgroups", "vm"));
  EXPECT_EQ(vswitch->GetData(),
            R"({"name":"vs0","portgroups":[{"name":"mgmt"},{"name":"vm"}]})");
  EXPECT_EQ(mgmt->GetSetvaultObjectId(), SetvaultObjectId("portgroups", "net", "korvo", "mgmt"));
  vm->SetValue("vlanId", 20);
  mgmt->SetValue("vlanId", 10);
  EXPECT_EQ(vswitch->GetData(),
            R"({"name":"vs0","portgroups":[{"name":"mgmt","vlanId":10},{"name":"vm","vlanId":20}]})");

  EXPECT_EQ(MessageOf([&] { vswitch->CreateSubObject(SubObjectId("portgroups", "vm")); }),
            "Object already exists.");
  EXPECT_EQ(MessageOf([&] { vswitch->CreateSubObject(SubObjectId("portgroups")); }),
            "Non-Singleton object should contain instanceId");
  EXPECT_EQ(MessageOf([&] { vswitch->GetSubObject(SubObjectId("portgroups")); }),
            "Non-Singleton object should contain instanceId: key portgroups");
  EXPECT_EQ(vswitch->GetSubObject(SubObjectId("portgroups", "absent")), nullptr);

  auto found = vswitch->GetSubObject(SubObjectId("portgroups", "vm"));
  int vlan = 0;
  EXPECT_EQ(found->GetValue("vlanId", &vlan), 1);
  EXPECT_EQ(vlan, 20);

  vswitch->DeleteSubObject(SubObjectId("portgroups", "absent"));  // ignored
  vswitch->DeleteSubObject(SubObjectId("portgroups", "mgmt"));
  vswitch->DeleteSubObject(SubObjectId("portgroups", "vm"));
  EXPECT_EQ(vswitch->GetData(), R"({"name":"vs0","portgroups":[]})");
}

TEST_F(SetvaultObjectTest, HandleOfADeletedElementFailsCleanly) {
  auto vswitch = VSwitch("vs0");
  auto mgmt = vswitch->CreateSubObject(SubObjectId("portgroups", "mgmt"));
  auto security = mgmt->CreateSubObject(SubObjectId("security"));
  vswitch->DeleteSubObject(SubObjectId("portgroups", "mgmt"));
  EXPECT_EQ(MessageOf([&] { mgmt->SetValue("vlanId", 5); }), "Subobject instance does not exists.");
  EXPECT_EQ(MessageOf([&] { security->SetValue("promiscuous", true); }),
            "Subobject instance does not exists.");
  int vlan = 0;
  EXPECT_EQ(MessageOf([&] { mgmt->GetValue("vlanId", &vlan); }),
            "Subobject instance does not exists.");
  // The handles outlive the parent's handle without dangling.
  vswitch.reset();
  EXPECT_EQ(MessageOf([&] { mgmt->GetData(); }), "Subobject instance does not exists.");
}

TEST_F(SetvaultObjectTest, HandleFollowsItsInstanceWhenEarlierOnesAreDeleted) {
  auto vswitch = VSwitch("vs0");
  vswitch->CreateSubObject(SubObjectId("portgroups", "a"));
  auto b = vswitch->CreateSubObject(SubObjectId("portgroups", "b"));
  EXPECT_EQ(b->GetPath("vlanId"), "/portgroups/1/vlanId");
  vswitch->DeleteSubObject(SubObjectId("portgroups", "a"));
  b->SetValue("vlanId", 7);
  EXPECT_EQ(vswitch->GetData(), R"({"name":"vs0","portgroups":[{"name":"b","vlanId":7}]})");
  EXPECT_EQ(b->GetPath("vlanId"), "/portgroups/0/vlanId");
}

TEST_F(SetvaultObjectTest, InstancesThroughFilters) {
  auto vswitch = VSwitch("vs0");
  for (const char* name : {"a", "b", "c", "d"}) {
    auto pg = vswitch->CreateSubObject(SubObjectId("portgroups", name));
    pg->SetValue("vlanId", std::string(name) == "b" || std::string(name) == "d" ? 100 : 200);
  }
  auto all = std::make_shared<FilterSpecObject>(SetvaultObjectId("portgroups", "net", "korvo"));
  auto instances = vswitch->GetSubObjectInstances(all);
  ASSERT_EQ(instances.size(), 4u);
  EXPECT_EQ(instances[2]->GetSetvaultObjectId().instanceId, "c");

  auto vlan100 = std::make_shared<FilterSpecObject>(SetvaultObjectId("portgroups", "net", "korvo"));
  vlan100->SetValue("vlanId", 100);
  auto matching = vswitch->GetSubObjectInstances(vlan100);
  ASSERT_EQ(matching.size(), 2u);
  EXPECT_EQ(matching[0]->GetSetvaultObjectId().instanceId, "b");
  EXPECT_EQ(matching[1]->GetSetvaultObjectId().instanceId, "d");
  // A change through a found instance is a change of the parent.
  matching[1]->SetValue("vlanId", 101);
  EXPECT_NE(vswitch->GetData().find(R"({"name":"d","vlanId":101})"), std::string::npos);

  auto only_c = std::make_shared<FilterSpecObject>(SetvaultObjectId("portgroups", "net", "korvo", "c"));
  EXPECT_EQ(vswitch->GetSubObjectInstances(only_c).size(), 1u);

  vswitch->DeleteSubObjectInstances(vlan100);  // now only b (d has 101)
  EXPECT_EQ(vswitch->GetData(),
            R"({"name":"vs0","portgroups":[{"name":"a","vlanId":200},{"name":"c","vlanId":200},)"
            R"({"name":"d","vlanId":101}]})");

  auto teaming = std::make_shared<FilterSpecObject>(SetvaultObjectId("teaming", "net", "korvo"));
  try {
    vswitch->GetSubObjectInstances(teaming);
    FAIL();
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1046);
    EXPECT_STREQ(e.what(), "Not a non-singleton object:  key teaming");
  }
  EXPECT_TRUE(vswitch->GetSubObjectInstances(nullptr).empty());
  EXPECT_TRUE(log_.Contains(0, "GetSubObjectInstances called with no filter spec object"));
  auto fresh = VSwitch("vs1");
  EXPECT_TRUE(fresh->GetSubObjectInstances(all).empty());
}

TEST_F(SetvaultObjectTest, PathsAreEscapedJsonPointers) {
  auto vswitch = VSwitch("vs0");
  EXPECT_EQ(vswitch->GetPath("mtu"), "/mtu");
  EXPECT_EQ(vswitch->GetPath("a/b~c"), "/a~1b~0c");
  vswitch->CreateSubObject(SubObjectId("portgroups", "x"));
  auto pg = vswitch->CreateSubObject(SubObjectId("portgroups", "weird/name~1"));
  EXPECT_EQ(pg->GetPath("name"), "/portgroups/1/name");
  auto security = pg->CreateSubObject(SubObjectId("security"));
  EXPECT_EQ(security->GetPath("forged/transmits"), "/portgroups/1/security/forged~1transmits");
}

TEST_F(SetvaultObjectTest, GeneratedIdsAreHiddenFromGetData) {
  SetvaultObject firewall(SetvaultObjectId("firewall", "net", "korvo"));
  firewall.SetData(R"({"sv_generated_id": "top", "rules": [{"sv_generated_id": "g1", "port": 22},
                      {"port": 443, "sv_generated_id": "g2"}], "enabled": true})");
  EXPECT_EQ(firewall.GetData(), R"({"enabled":true,"rules":[{"port":22},{"port":443}]})");
  EXPECT_NE(firewall.GetSerializedData().find("g2"), std::string::npos);
}

TEST_F(SetvaultObjectTest, SetValueExReplacesOnlyChangedValues) {
  auto vswitch = VSwitch("vs0");
  vswitch->SetValue("mtu", 9000);
  vswitch->SetValue("uplinks", std::vector<std::string>{"eth0"});
  auto doc = CreateDocumentFromString(R"({"mtu": 9000, "uplinks": ["eth1"]})");
  const JsonValue& values = *doc->GetJsonValuePtr();
  vswitch->SetValueEx("mtu", values["mtu"]);  // equal: stays in place
  EXPECT_EQ(vswitch->GetData(), R"({"name":"vs0","mtu":9000,"uplinks":["eth0"]})");
  vswitch->SetValueEx("name", values["uplinks"]);
  EXPECT_EQ(vswitch->GetData(), R"({"uplinks":["eth0"],"mtu":9000,"name":["eth1"]})");
  vswitch->SetValueEx("teaming", values);
  EXPECT_NE(vswitch->GetData().find(R"("teaming":{"mtu":9000,"uplinks":["eth1"]})"),
            std::string::npos);
  // The value may be the object's own data: the last member (which the
  // removal of the replaced member moves), or a part of the member it replaces.
  const JsonValue& own = vswitch->GetImpl()->Root();
  vswitch->SetValueEx("mtu", own["teaming"]);
  vswitch->SetValueEx("teaming", own["teaming"]["uplinks"]);
  EXPECT_EQ(vswitch->GetData(),
            R"({"uplinks":["eth0"],"mtu":{"mtu":9000,"uplinks":["eth1"]},"name":["eth1"],)"
            R"("teaming":["eth1"]})");
}

// Values built through the API obey the nesting limit of parsed texts, and
// NaN, infinities and null pointers are refused, with the data left as it was.
TEST_F(SetvaultObjectTest, BuiltValuesAreCheckedBeforeTheyAreStored) {
  auto vswitch = VSwitch("vs0");
  auto doc = CreateDocument();
  JsonDocument& deep = doc->GetDocument();
  deep.SetArray();
  for (int i = 0; i < 100000; ++i) {  // a chain of one-element arrays, built without recursion
    JsonValue outer(rapidjson::kArrayType);
    outer.PushBack(deep, doc->GetAllocator());
    static_cast<JsonValue&>(deep) = outer;
  }
  JsonValue nan(std::nan(""));
  const struct {
    const char* what;
    std::function<void()> call;
    const char* message;
  } cases[] = {
      {"deep value", [&] { vswitch->SetValueEx("deep", deep); },
       "Value nested deeper than 512 levels: deep"},
      {"NaN", [&] { vswitch->SetValueEx("n", nan); }, "Invalid type specified for: n"},
      {"null key", [&] { vswitch->SetValueEx(nullptr, nan); }, "key cannot be null"},
  };
  for (const auto& c : cases) EXPECT_EQ(MessageOf(c.call), c.message) << c.what;
  EXPECT_EQ(vswitch->GetData(), R"({"name":"vs0"})");

  // Sub-objects stop at the limit: the level below the limit works, the next is refused.
  SetvaultObject host(SetvaultObjectId("host", "system", "korvo"));
  std::shared_ptr<SetvaultObject> level = host.CreateSubObject(SubObjectId("n"));
  for (int depth = 2; depth < 512; ++depth) level = level->CreateSubObject(SubObjectId("n"));
  EXPECT_EQ(MessageOf([&] { level->CreateSubObject(SubObjectId("n")); }),
            "Value nested deeper than 512 levels: n");
  const JsonValue empty_list(rapidjson::kArrayType);
  EXPECT_EQ(MessageOf([&] { level->SetValueEx("v", empty_list); }),
            "Value nested deeper than 512 levels: v");
  // What the API builds at the limit, a parse takes back: the two limits agree.
  level->SetValue("leaf", 1);
  EXPECT_NO_THROW(CreateDocumentFromString(host.GetData()));
}

TEST_F(SetvaultObjectTest, FilterSetvaultObjectsKeepsOrder) {
  std::vector<std::shared_ptr<SetvaultObject>> objects;
  for (int i = 0; i < 6; ++i) {
    auto vswitch = VSwitch("vs" + std::to_string(i));
    vswitch->SetValue("mtu", i % 2 == 0 ? 1500 : 9000);
    objects.push_back(vswitch);
  }
  auto empty = std::make_shared<FilterSpecObject>(SetvaultObjectId("vswitch", "net", "korvo"));
  EXPECT_EQ(FilterSetvaultObjects(objects, empty), objects);
  auto jumbo = std::make_shared<FilterSpecObject>(SetvaultObjectId("vswitch", "net", "korvo"));
  jumbo->SetValue("mtu", 9000);
  auto kept = FilterSetvaultObjects(objects, jumbo);
  ASSERT_EQ(kept.size(), 3u);
  EXPECT_EQ(kept[0], objects[1]);
  EXPECT_EQ(kept[2], objects[5]);
  std::vector<std::shared_ptr<SetvaultObject>> none;
  EXPECT_TRUE(FilterSetvaultObjects(none, jumbo).empty());
}

}  // namespace
}  // namespace KorvoSetvault
