#include "setvault/setvault_object.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/setvault_object_impl.h"
#include "model/update_merge.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"
#include "support/thrown.h"

namespace KorvoSetvault {
namespace {
using setvault_test::MessageOf;

class SetvaultObjectTest : public ::testing::Test {
 protected:
  static std::shared_ptr<SetvaultObject> VSwitch(const std::string& name) {
    return std::make_shared<SetvaultObject>(SetvaultObjectId("vswitch", "net", "korvo", name));
  }
  static std::shared_ptr<FilterSpecObject> PortgroupFilter(const std::string& id = "") {
    return std::make_shared<FilterSpecObject>(SetvaultObjectId("portgroups", "net", "korvo", id));
  }

  setvault_test::ExampleSchemas schemas_;
  setvault_test::LogCapture log_{4};
};

TEST_F(SetvaultObjectTest, NewObjectCarriesItsInstanceIdAndNoMetadata) {
  auto vswitch = VSwitch("vs0");
  EXPECT_EQ(vswitch->GetData(), R"({"name":"vs0"})");
  EXPECT_EQ(vswitch->GetRevision(), kDefaultRevision);
  EXPECT_EQ(vswitch->GetVersion() + vswitch->GetCreationTime() + vswitch->GetModifiedTime(), "");
  EXPECT_NE(vswitch->GetIdMapStr().find(R"("portgroups":"name")"), std::string::npos);
  SetvaultObject singleton(SetvaultObjectId("host", "system", "korvo"));
  EXPECT_EQ(singleton.GetData() + singleton.GetIdMapStr(), "{}{}");
  EXPECT_EQ(MessageOf([] { SetvaultObject(SetvaultObjectId("nothing", "net", "korvo")); }),
            "Schema not found for comp korvo grp net key nothing");
  // Generated instance ids are kept but hidden from GetData.
  SetvaultObject firewall(SetvaultObjectId("firewall", "net", "korvo"));
  firewall.SetData(R"({"sv_generated_id": "top", "rules": [{"sv_generated_id": "g1", "port": 22},
                      {"port": 443, "sv_generated_id": "g2"}], "enabled": true})");
  EXPECT_EQ(firewall.GetData(), R"({"enabled":true,"rules":[{"port":22},{"port":443}]})");
  EXPECT_NE(firewall.GetSerializedData().find("g2"), std::string::npos);
}

TEST_F(SetvaultObjectTest, DefaultsAnswerWithTwo) {
  SetvaultObject host(SetvaultObjectId("host", "system", "korvo"));
  std::string timezone;
  EXPECT_EQ(host.GetValue("timezone", &timezone), 2);
  EXPECT_EQ(timezone, "UTC");
  host.SetValue("timezone", "Europe/Berlin");
  EXPECT_EQ(host.GetValue("timezone", &timezone), 1);
  EXPECT_EQ(timezone, "Europe/Berlin");
  EXPECT_EQ(host.GetValue("hostname", &timezone), 0);
  // A value held as null falls back to the default.
  host.SetData(R"({"powerPolicy": null})");
  EXPECT_EQ(host.GetValue("powerPolicy", &timezone), 2);
  EXPECT_EQ(timezone, "balanced");
  // Sub-object handles carry no defaults, even for a member that shares a
  // top-level default's name.
  auto vswitch = VSwitch("vs0");
  for (const auto& handle : {vswitch->CreateSubObject(SubObjectId("portgroups", "mgmt")),
                             vswitch->CreateSubObject(SubObjectId("teaming"))}) {
    int mtu = 0;
    EXPECT_EQ(handle->GetValue("mtu", &mtu), 0);
  }
}

TEST_F(SetvaultObjectTest, SingletonSubObjects) {
  SetvaultObject host(SetvaultObjectId("host", "system", "korvo"));
  auto ntp = host.CreateSubObject(SubObjectId("ntp"));
  EXPECT_EQ(ntp->GetSetvaultObjectId(), SetvaultObjectId("ntp", "system", "korvo"));
  ntp->SetValue("enabled", true);
  ntp->SetValue("servers", std::vector<std::string>{"pool.ntp.org"});
  EXPECT_EQ(host.GetSerializedData(), R"({"ntp":{"enabled":true,"servers":["pool.ntp.org"]}})");
  host.SetValue("hostname", "node1");
  EXPECT_EQ(MessageOf([&] { host.CreateSubObject(SubObjectId("ntp")); }), "Object already exists.");
  EXPECT_EQ(MessageOf([&] { host.GetSubObject(SubObjectId("ntp", "x")); }),
            "Singleton object should not contain instanceId: key ntp id x");
  EXPECT_EQ(MessageOf([&] { host.GetSubObject(SubObjectId("hostname")); }),
            "Not a singleton SubObject: key hostname");
  EXPECT_EQ(host.GetSubObject(SubObjectId("syslog")), nullptr);

  EXPECT_EQ(host.GetSubObject(SubObjectId("ntp"))->GetData(),
            R"({"enabled":true,"servers":["pool.ntp.org"]})");
  host.DeleteSubObject(SubObjectId("ntp"));
  EXPECT_EQ(host.GetSerializedData(), R"({"hostname":"node1"})");
  host.DeleteSubObject(SubObjectId("ntp"));
  EXPECT_TRUE(log_.Contains(1, "DeleteSubObject: Could not find key: ntp"));
}

TEST_F(SetvaultObjectTest, InstanceSubObjects) {
  auto vswitch = VSwitch("vs0");
  auto mgmt = vswitch->CreateSubObject(SubObjectId("portgroups", "mgmt"));
  auto vm = vswitch->CreateSubObject(SubObjectId("portgroups", "vm"));
  EXPECT_EQ(mgmt->GetSetvaultObjectId(), SetvaultObjectId("portgroups", "net", "korvo", "mgmt"));
  vm->SetValue("vlanId", 20);
  mgmt->SetValue("vlanId", 10);
  EXPECT_EQ(vswitch->GetData(), R"({"name":"vs0","portgroups":[{"name":"mgmt","vlanId":10},)"
                                R"({"name":"vm","vlanId":20}]})");
  EXPECT_EQ(MessageOf([&] { vswitch->CreateSubObject(SubObjectId("portgroups", "vm")); }),
            "Object already exists.");
  EXPECT_EQ(MessageOf([&] { vswitch->CreateSubObject(SubObjectId("portgroups")); }),
            "Non-Singleton object should contain instanceId");
  EXPECT_EQ(MessageOf([&] { vswitch->GetSubObject(SubObjectId("portgroups")); }),
            "Non-Singleton object should contain instanceId: key portgroups");
  EXPECT_EQ(vswitch->GetSubObject(SubObjectId("portgroups", "absent")), nullptr);
  EXPECT_EQ(vswitch->GetSubObject(SubObjectId("portgroups", "vm"))->GetPath("x"),
            "/portgroups/1/x");

  // A handle follows its instance when earlier ones are deleted.
  vswitch->DeleteSubObject(SubObjectId("portgroups", "absent"));  // ignored
  vswitch->DeleteSubObject(SubObjectId("portgroups", "mgmt"));
  EXPECT_EQ(vm->GetPath("vlanId"), "/portgroups/0/vlanId");
  vm->SetValue("vlanId", 7);
  EXPECT_EQ(vswitch->GetData(), R"({"name":"vs0","portgroups":[{"name":"vm","vlanId":7}]})");
  vswitch->DeleteSubObject(SubObjectId("portgroups", "vm"));
  EXPECT_EQ(vswitch->GetData(), R"({"name":"vs0","portgroups":[]})");
  // Paths are escaped JSON pointers.
  EXPECT_EQ(vswitch->GetPath("a/b~c"), "/a~1b~0c");
  vswitch->CreateSubObject(SubObjectId("portgroups", "x"));
  auto pg = vswitch->CreateSubObject(SubObjectId("portgroups", "weird/name~1"));
  auto security = pg->CreateSubObject(SubObjectId("security"));
  EXPECT_EQ(security->GetPath("forged/transmits"), "/portgroups/1/security/forged~1transmits");
}

TEST_F(SetvaultObjectTest, InstancesThroughFilters) {
  auto vswitch = VSwitch("vs0");
  EXPECT_TRUE(vswitch->GetSubObjectInstances(PortgroupFilter()).empty());
  vswitch->SetData(R"({"name":"vs0","portgroups":[{"name":"a","vlanId":200},{"name":"b",)"
                   R"("vlanId":100,"security":{"promiscuous":true,"forgedTransmits":false}},)"
                   R"({"name":"c","vlanId":200},{"name":"d","vlanId":100}]})");
  EXPECT_EQ(vswitch->GetSubObjectInstances(PortgroupFilter()).size(), 4u);
  EXPECT_EQ(vswitch->GetSubObjectInstances(PortgroupFilter("c")).size(), 1u);
  // A nested filter matches a subset of the nested object; instances without it do not match.
  auto open = PortgroupFilter();
  open->CreateSubObjectFilter(SubObjectId("security"))->SetValue("promiscuous", true);
  auto matching = vswitch->GetSubObjectInstances(open);
  ASSERT_EQ(matching.size(), 1u);
  EXPECT_EQ(matching[0]->GetSetvaultObjectId().instanceId, "b");
  open->GetSubObjectFilter(SubObjectId("security"))->SetValue("forgedTransmits", true);
  EXPECT_TRUE(vswitch->GetSubObjectInstances(open).empty());  // b's nested value differs
  auto vlan100 = PortgroupFilter();
  vlan100->SetValue("vlanId", 100);
  matching = vswitch->GetSubObjectInstances(vlan100);
  ASSERT_EQ(matching.size(), 2u);
  EXPECT_EQ(matching[0]->GetSetvaultObjectId().instanceId, "b");
  EXPECT_EQ(matching[1]->GetSetvaultObjectId().instanceId, "d");
  matching[1]->SetValue("vlanId", 101);        // a change of the parent
  vswitch->DeleteSubObjectInstances(vlan100);  // now only b
  EXPECT_EQ(vswitch->GetData(),
            R"({"name":"vs0","portgroups":[{"name":"a","vlanId":200},{"name":"c","vlanId":200},)"
            R"({"name":"d","vlanId":101}]})");

  auto teaming = std::make_shared<FilterSpecObject>(SetvaultObjectId("teaming", "net", "korvo"));
  EXPECT_EQ(MessageOf([&] { vswitch->GetSubObjectInstances(teaming); }),
            "Not a non-singleton object:  key teaming");
  EXPECT_TRUE(vswitch->GetSubObjectInstances(nullptr).empty());
  EXPECT_TRUE(log_.Contains(0, "GetSubObjectInstances called with no filter spec object"));
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
  vswitch->SetValueEx("teaming", values);
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
  EXPECT_EQ(MessageOf([&] { vswitch->SetValueEx("deep", deep); }),
            "Value nested deeper than 512 levels: deep");
  EXPECT_EQ(MessageOf([&] { vswitch->SetValueEx("n", nan); }), "Invalid type specified for: n");
  EXPECT_EQ(MessageOf([&] { vswitch->SetValueEx(nullptr, nan); }), "key cannot be null");
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

// The update merge: members absent from the source keep their values, equal values stay
// in place, scalar lists are replaced, singletons merge member by member, instances by id.
TEST_F(SetvaultObjectTest, UpdateMergesTheSourceIntoTheTarget) {
  const struct {
    const char* target;
    const char* source;
    const char* merged;
  } cases[] = {
      {R"({"name":"vs0","mtu":1500,"uplinks":["a"]})", R"({"mtu":9000})",
       R"({"name":"vs0","uplinks":["a"],"mtu":9000})"},
      {R"({"mtu":9000,"name":"vs0"})", R"({"mtu":9000,"uplinks":["b"]})",
       R"({"mtu":9000,"name":"vs0","uplinks":["b"]})"},
      {R"({"uplinks":["a","b"]})", R"({"uplinks":["c"]})", R"({"uplinks":["c"]})"},
      {R"({"teaming":{"policy":"failover","notifySwitches":true}})",
       R"({"teaming":{"policy":"loadBalanceIp"}})",
       R"({"teaming":{"notifySwitches":true,"policy":"loadBalanceIp"}})"},
      {R"({"portgroups":[{"name":"a","vlanId":1,"security":{"promiscuous":false}},)"
       R"({"name":"b","vlanId":2}]})",
       R"({"portgroups":[{"name":"b","vlanId":20},{"name":"c","vlanId":3},)"
       R"({"name":"a","security":{"forgedTransmits":true}}]})",
       R"({"portgroups":[{"name":"a","vlanId":1,"security":{"promiscuous":false,)"
       R"("forgedTransmits":true}},{"name":"b","vlanId":20},{"name":"c","vlanId":3}]})"},
      {R"({"teaming":{"policy":"failover"}})", R"({"teaming":null})", R"({"teaming":null})"},
  };
  for (const auto& c : cases) {
    auto target = VSwitch("vs0");
    auto source = VSwitch("vs0");
    target->SetData(c.target);
    source->SetData(c.source);
    UpdateConfigInternal(source, target);
    EXPECT_EQ(target->GetData(), c.merged) << c.target << " + " << c.source;
  }
  // Null and self merges change nothing.
  auto target = VSwitch("vs0");
  UpdateConfigInternal(nullptr, target);
  UpdateConfigInternal(target, target);
  UpdateConfigInternal(target, nullptr);
  EXPECT_EQ(target->GetData(), R"({"name":"vs0"})");
}

TEST(ObjectIdTest, EveryMemberCountsAndCollidingHashesStayDistinctKeys) {
  const SetvaultObjectId a("k", "g", "c", "i");
  EXPECT_EQ(a, SetvaultObjectId("k", "g", "c", "i"));
  for (const auto& other :
       {SetvaultObjectId("k", "g", "c"), SetvaultObjectId("k", "g", "d", "i"),
        SetvaultObjectId("k", "h", "c", "i"), SetvaultObjectId("j", "g", "c", "i")}) {
    EXPECT_NE(a, other) << other.toString();
  }
  const SetvaultObjectId ab_c("ab", "c", "korvo");
  const SetvaultObjectId a_bc("a", "bc", "korvo");
  EXPECT_EQ(hashSvoId(ab_c), std::hash<std::string>()("abckorvo"));
  EXPECT_EQ(hashSvoId(ab_c), hashSvoId(a_bc));
  std::unordered_map<SetvaultObjectId, int> map{{ab_c, 1}, {a_bc, 2}};
  EXPECT_EQ(map.at(SetvaultObjectId("a", "bc", "korvo")), 2);
}

}  // namespace
}  // namespace KorvoSetvault
