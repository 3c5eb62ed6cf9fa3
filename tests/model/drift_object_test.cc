#include "setvault/drift_object.h"

#include <gtest/gtest.h>

#include "model/thrown.h"
#include "setvault/drift.h"
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
  auto drift = CreateDriftObject(kHost,
                                 R"({"ports": [{"INSTANCEID": "p0", "mtu": 9000},
                                               {"INSTANCEID": "p1", "speed": "DELETE"}],
                                     "routes": "ADD", "vlans": "DELETE", "dns": {},
                                     "noId": [{"mtu": 1}], "numericId": [{"INSTANCEID": 5}],
                                     "scalars": [1], "mixed": [{"INSTANCEID": "p0"}, "p1"]})",
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

}  // namespace
}  // namespace KorvoSetvault
