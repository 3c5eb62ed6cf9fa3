// Drift objects and the drift between documents; filters and the subset checks they use.
#include <gtest/gtest.h>

#include "model/filter_match.h"
#include "model/thrown.h"
#include "setvault/drift.h"
#include "setvault/drift_object.h"
#include "setvault/filter_spec_object.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;
using Pairs = std::vector<std::pair<std::string, std::string>>;

const SetvaultObjectId kHost("host", "system", "korvo");

TEST(DriftObjectTest, InstancesByInstanceId) {
  LogCapture log(0);
  EXPECT_EQ(CodeOf([] { CreateDriftObject(kHost, "{not json", "SET"); }), 1080);
  EXPECT_EQ(CodeOf([] { CreateDriftObject(kHost, "[1, 2]", "SET")->Get(); }), 1082);
  auto drift = CreateDriftObject(kHost, R"({"routes": "ADD", "vlans": "DELETE", "dns": {},
      "ports": [{"INSTANCEID": "p0", "mtu": 9000}, {"INSTANCEID": "p1", "speed": "DELETE"}],
      "noId": [{"mtu": 1}], "numericId": [{"INSTANCEID": 5}], "scalars": [1],
      "mixed": [{"INSTANCEID": "p0"}, "p1"]})",
                                 "SET");
  auto p1 = drift->GetSubObject(SubObjectId("ports", "p1"));
  EXPECT_EQ(p1->GetSetvaultObjectId(), SetvaultObjectId("ports", "system", "korvo", "p1"));
  EXPECT_EQ(p1->Get(), (Pairs{{"INSTANCEID", "p1"}, {"speed", "DELETE"}}));
  EXPECT_EQ(drift->GetSubObject(SubObjectId("ports", "p9")), nullptr);
  EXPECT_TRUE(log.Contains(0, "subobject key ports id p9 is not in drift"));
  EXPECT_EQ(drift->GetSubObject(SubObjectId("ntp")), nullptr);
  EXPECT_TRUE(log.Contains(0, "property ntp is not in drift"));
  EXPECT_TRUE(drift->GetSubObjectInstances(SubObjectId("ntp")).empty());
  // An instance of a type marked as a whole takes the type's operation.
  EXPECT_EQ(drift->GetSubObject(SubObjectId("routes", "r1"))->GetOperation(), "ADD");
  EXPECT_EQ(drift->GetSubObject(SubObjectId("vlans", "v1"))->GetOperation(), "DELETE");
  auto instances = drift->GetSubObjectInstances(SubObjectId("ports"));
  ASSERT_EQ(instances.size(), 2u);
  EXPECT_EQ(instances[1]->GetSetvaultObjectId().instanceId, "p1");
  // Wrong shapes for the question asked.
  EXPECT_EQ(CodeOf([&] { drift->GetSubObject(SubObjectId("ports")); }), 1048);
  EXPECT_EQ(CodeOf([&] { drift->GetSubObject(SubObjectId("dns", "x")); }), 1049);
  for (const char* key : {"dns", "noId", "numericId", "scalars", "mixed"}) {
    EXPECT_EQ(CodeOf([&] { drift->GetSubObjectInstances(SubObjectId(key)); }), 1046) << key;
  }
  drift.reset();  // the parts are copies
  EXPECT_EQ(instances[0]->GetData(), R"({"INSTANCEID":"p0","mtu":9000})");
}

// Drift between two documents of the example types: one line per drifted
// object, "<id> <operation> <description>".
TEST(DocumentDrift, DescribesEachDriftedObject) {
  setvault_test::ExampleSchemas schemas;
  LogCapture log(0);
  const std::string current =
      R"({"korvo": {"system": {"host": {"hostname": "a", "ntp": {"enabled": true}}},
         "net": {"vswitch": [{"name": "vs0", "mtu": 1500,
                              "portgroups": [{"name": "pg1", "vlanId": 1}, {"name": "pg2"}]},
                             {"name": "vs1", "mtu": 9000}]}}})";
  const struct {
    std::string desired;
    std::vector<std::string> drifts;
  } cases[] = {
      {current, {}},
      {"{}", {}},  // types the desired document does not name are not compared
      {R"({"korvo": {"system": {"host": {"ntp": {"enabled": false}, "timezone": "UTC"}}}})",
       {R"(korvo system host  SET {"ntp":{"enabled":"SET"},"timezone":"ADD",)"
        R"("hostname":"DELETE"})"}},
      {R"({"korvo": {"net": {"vswitch": [{"name": "vs0", "mtu": 1500, "portgroups":
           [{"name": "pg1", "vlanId": 2}, {"name": "pg3"}]}, {"name": "vs2"}]}}})",
       {R"(korvo net vswitch vs0 SET {"portgroups":[{"INSTANCEID":"pg1","vlanId":"SET"},)"
        R"({"INSTANCEID":"pg3","name":"ADD"},{"INSTANCEID":"pg2","name":"DELETE"}]})",
        R"(korvo net vswitch vs1 DELETE {"name":"DELETE","mtu":"DELETE"})",
        R"(korvo net vswitch vs2 ADD {"name":"ADD"})"}},
  };
  for (const auto& c : cases) {
    std::vector<std::string> drifts;
    for (const auto& drift : ComputeDocumentDrift(c.desired, current)) {
      const SetvaultObjectId id = drift->GetSetvaultObjectId();
      drifts.push_back(id.component + " " + id.group + " " + id.key + " " + id.instanceId + " " +
                       drift->GetOperation() + " " + drift->GetData());
    }
    EXPECT_EQ(drifts, c.drifts) << c.desired;
  }
  EXPECT_EQ(CodeOf([&] { ComputeDocumentDrift(R"({"korvo": {"x": {"y": {}}}})", current); }), 2000);
  EXPECT_EQ(CodeOf([&] { ComputeDocumentDrift("{", current); }), 2000);
  // Drift of two different objects is refused; equal objects have none.
  EXPECT_EQ(ComputeDrift(nullptr, nullptr), nullptr);
  auto host = std::make_shared<SetvaultObject>(kHost);
  auto vswitch = std::make_shared<SetvaultObject>(SetvaultObjectId("vswitch", "net", "korvo", "a"));
  EXPECT_EQ(CodeOf([&] { ComputeDrift(host, vswitch); }), 1062);
  EXPECT_EQ(ComputeDrift(host, host), nullptr);
}

// A filter matches an object when every filtered member is equal (numbers by value),
// nested objects as subsets; array members are never filtered on.
TEST(FilterMatching, MembersMustBeEqualAndObjectsSubsets) {
  LogCapture log(0);
  const struct {
    const char* object;
    const char* filter;
    bool matches;
  } cases[] = {
      {R"({"a": 1.0, "b": 2, "list": [1]})", R"({"a": 1})", true},
      {R"({"b": 2})", R"({"a": 1})", false},
      {R"({"a": "1"})", R"({"a": 1})", false},
      {R"({"s": 5})", R"({"s": {"x": true}})", false},
      {R"({"s": {"x": false}})", R"({"s": {"x": true}})", false},
      {R"({"s": {"t": {"u": 1, "v": 2}}})", R"({"s": {"t": {"v": 2}}})", true},
      {R"({"list": [1, 2]})", R"({"list": [1, 2]})", false},
  };
  for (const auto& c : cases) {
    auto object = CreateDocumentFromString(c.object);
    auto filter = CreateDocumentFromString(c.filter);
    EXPECT_EQ(svoMatchesFilter(*object->GetJsonValuePtr(), *filter->GetJsonValuePtr()), c.matches)
        << c.object << " " << c.filter;
  }
  EXPECT_TRUE(log.Contains(0, "svoMatchesFilter: Non-Singleton SubObject filtering not supported"));
  auto list = CreateDocumentFromString("[1]");
  EXPECT_EQ(CodeOf([&] { svoMatchesFilter(*list->GetJsonValuePtr(), *list->GetJsonValuePtr()); }),
            1082);
}

TEST(FilterSpecObjectTest, NestedFiltersLandInsideTheParent) {
  LogCapture log(4);
  FilterSpecObject filter(SetvaultObjectId("vswitch", "net", "korvo"));
  filter.SetValue("mtu", 9000);
  auto uplink = filter.CreateSubObjectFilter(SubObjectId("uplink"));
  EXPECT_EQ(uplink->GetSetvaultObjectId(), SetvaultObjectId("uplink", "net", "korvo"));
  uplink->SetValue("lacp", true);
  uplink->CreateSubObjectFilter(SubObjectId("timers"))->SetValue("fast", 1);
  EXPECT_EQ(filter.GetData(), R"({"mtu":9000,"uplink":{"lacp":true,"timers":{"fast":1}}})");
  bool lacp = false;
  EXPECT_EQ(filter.GetSubObjectFilter(SubObjectId("uplink"))->GetValue("lacp", &lacp), 1);
  EXPECT_TRUE(lacp);
  EXPECT_EQ(filter.GetSubObjectFilter(SubObjectId("absent")), nullptr);
  EXPECT_EQ(MessageOf([&] { filter.CreateSubObjectFilter(SubObjectId("uplink")); }),
            "SubObject filter already exists.");
  filter.DeleteSubObjectFilter(SubObjectId("uplink"));
  filter.DeleteSubObjectFilter(SubObjectId("uplink"));  // absent: nothing happens
  EXPECT_EQ(filter.GetData(), R"({"mtu":9000})");
  // A handle on a deleted nested filter reports the missing member.
  EXPECT_NE(CodeOf([&] { uplink->SetValue("lacp", false); }), 0);

  // Nested filters stop at the nesting limit of parsed texts (root is level 1).
  std::shared_ptr<FilterSpecObject> level = filter.CreateSubObjectFilter(SubObjectId("n"));
  for (int depth = 2; depth < 512; ++depth) level = level->CreateSubObjectFilter(SubObjectId("n"));
  EXPECT_EQ(
      MessageOf<InvalidArgumentException>([&] { level->CreateSubObjectFilter(SubObjectId("n")); }),
      "Value nested deeper than 512 levels: n");
}

TEST(SchemaGuidedSubset, ComparesDescribedMembersAndPairsInstancesById) {
  LogCapture log(0);
  auto schema = CreateDocumentFromString(R"({"type": "object", "properties": {
      "mtu": {"type": "integer"}, "dns": {"properties": {"domain": {"type": "string"}}},
      "ports": {"type": "array", "instanceIdProperty": "name", "items": {"properties": {
          "name": {"type": "string"}, "speed": {"type": "integer"}}}}}})");
  auto object = CreateDocumentFromString(R"({"mtu": 1500, "dns": {"domain": "lab"},
      "ports": [{"name": "p0", "speed": 10}, {"name": "p1", "speed": 25}]})");
  const std::pair<const char*, const char*> cases[] = {
      {R"({"mtu": 1500, "ports": [{"name": "p1", "speed": 25}]})", ""},
      {R"({"undescribed": 1, "dns": {"domain": "lab"}})", ""},
      {R"({"mtu": 9000})", "obj is not susbset, key mtu did not match"},
      {R"({"dns": {"domain": "prod"}})", "obj is not susbset, key domain did not match"},
      {R"({"ports": [{"name": "p7"}]})", "obj is not subset, instanceId p7 did not match"},
      {R"({"ports": [{"name": "p0", "speed": 25}]})",
       "obj is not susbset, key speed did not match"},
  };
  for (const auto& [subset, finding] : cases) {
    log.Clear();
    auto doc = CreateDocumentFromString(subset);
    EXPECT_EQ(IsSubsetBySchema(*object->GetJsonValuePtr(), *doc->GetJsonValuePtr(),
                               *schema->GetJsonValuePtr()),
              *finding == '\0')
        << subset;
    EXPECT_EQ(log.Lines(),
              (*finding == '\0' ? decltype(log.Lines()){} : decltype(log.Lines()){{0, finding}}))
        << subset;
  }
}

}  // namespace
}  // namespace KorvoSetvault
