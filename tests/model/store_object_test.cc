// Store objects and their typed values; drift objects and the drift between documents;
// filters and the subset checks they use.
#include "setvault/store_object.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "model/filter_match.h"
#include "setvault/drift.h"
#include "setvault/drift_object.h"
#include "setvault/filter_spec_object.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"
#include "support/thrown.h"

namespace KorvoSetvault {
namespace {

using setvault_test::CodeOf;
using setvault_test::LogCapture;
using setvault_test::MessageOf;
using Strings = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

const SetvaultObjectId kHost("host", "system", "korvo");

class StoreObjectTest : public ::testing::Test {
 protected:
  // Stores `value` under `key` and returns what a read (which must find it) gives back.
  template <typename T>
  T RoundTrip(const char* key, const T& value) {
    object_.SetValue(key, value);
    T out{};
    EXPECT_EQ(object_.GetValue(key, &out), 1) << key;
    return out;
  }

  StoreObject object_{SetvaultObjectId("vswitch", "net", "korvo")};
  LogCapture log_{0};
};

TEST_F(StoreObjectTest, ValuesRoundTrip) {
  const std::string with_nul("a\0\xc3\x80", 4);  // the lowest continuation byte ends it
  const long long min = std::numeric_limits<long long>::min();
  EXPECT_EQ(RoundTrip("s", with_nul), with_nul);
  EXPECT_EQ(RoundTrip("i", -7), -7);
  EXPECT_EQ(RoundTrip("l", 1L << 40), 1L << 40);
  EXPECT_EQ(RoundTrip("ll", min), min);
  EXPECT_EQ(RoundTrip("u", 4000000000u), 4000000000u);
  EXPECT_EQ(RoundTrip("d", 3.0), 3.0);
  EXPECT_TRUE(RoundTrip("b", true));
  EXPECT_EQ(RoundTrip("vs", Strings{"a", "", "c"}), (Strings{"a", "", "c"}));
  EXPECT_EQ(RoundTrip("vi", std::vector<int>{1, -2}), (std::vector<int>{1, -2}));
  EXPECT_EQ(RoundTrip("vl", std::vector<long long>{1LL << 50}), std::vector<long long>{1LL << 50});
  EXPECT_EQ(RoundTrip("vd", std::vector<double>{0.5, -1.25}), (std::vector<double>{0.5, -1.25}));
  EXPECT_EQ(RoundTrip("vb", std::vector<bool>{true, false}), (std::vector<bool>{true, false}));
  // Narrow setters store unsigned integers, a float is widened to double, and
  // narrow getters truncate without a range check.
  object_.SetData(R"({"v": 300, "w": 70000})");
  object_.SetValue("c", static_cast<unsigned char>(200));
  object_.SetValue("s", static_cast<unsigned short>(60000));
  object_.SetValue("f", 0.1f);
  EXPECT_EQ(object_.GetData(), R"({"v":300,"w":70000,"c":200,"s":60000,"f":0.10000000149011612})");
  unsigned char narrow = 0;
  unsigned short shorter = 0;
  EXPECT_EQ(object_.GetValue("v", &narrow), 1);
  EXPECT_EQ(object_.GetValue("w", &shorter), 1);
  EXPECT_EQ(narrow, 44);
  EXPECT_EQ(shorter, 70000 - 65536);
}

// Reads give only the kind asked for, and absent or null members leave the output untouched.
// JSON holds no NaN or infinity: setters refuse them, not a later write. An append checks only the
// first element: a double needs a floating-point one, an integer goes after either.
TEST_F(StoreObjectTest, ValuesOfAnotherKindAreRefused) {
  object_.SetData(R"({"three": 3, "big": 5000000000, "neg": -1, "n": null, "strings": ["x"],
                      "mixed": ["x", 5], "ints": [1], "doubles": [1.5], "names": []})");
  double d = 0;
  int i = 17;
  unsigned char narrow = 0;
  Strings strings;
  EXPECT_EQ(object_.GetValue("n", &i) + object_.GetValue("absent", &i), 0);
  EXPECT_EQ(i, 17);
  const double nan = std::nan("");
  const std::vector<double> infinite = {1.0, std::numeric_limits<double>::infinity()};
  const std::pair<const char*, std::function<void()>> refused[] = {
      {"three", [&] { object_.GetValue("three", &d); }},
      {"big", [&] { object_.GetValue("big", &i); }},
      {"neg", [&] { object_.GetValue("neg", &narrow); }},
      {"three", [&] { object_.GetValue("three", &strings); }},
      {"d", [&] { object_.SetValue("d", nan); }},
      {"l", [&] { object_.SetValue("l", infinite); }},
      {"doubles", [&] { object_.AppendValue("doubles", nan); }},
      {"strings", [&] { object_.AppendValue("strings", 1); }},
      {"three", [&] { object_.AppendValue("three", 1); }},
      {"n", [&] { object_.AppendValue("n", 1); }},
      {"ints", [&] { object_.AppendValue("ints", 2.5); }},
  };
  for (const auto& [key, call] : refused) {
    EXPECT_EQ(MessageOf<InvalidTypeException>(call),
              std::string("Invalid type specified for: ") + key);
  }
  object_.AppendValue("mixed", std::string("y"));
  object_.AppendValue("doubles", 2.0);
  object_.AppendValue("ints", 7LL);
  object_.AppendValue("names", "eth0");
  // The vector setter keeps the elements before the refused one.
  EXPECT_EQ(object_.GetData(), R"({"three":3,"big":5000000000,"neg":-1,"n":null,"strings":["x"],)"
                               R"("mixed":["x",5,"y"],"ints":[1,7],"doubles":[1.5,2.0],)"
                               R"("names":["eth0"],"l":[1.0]})");
}

TEST_F(StoreObjectTest, BadArgumentsAreRefusedAndChangeNothing) {
  object_.SetData(R"({"list": [1.5], "empty": []})");
  int i = 0;
  unsigned char* data = nullptr;
  const char* null_text = nullptr;
  const struct {
    std::function<void()> call;
    const char* message;
  } invalid_arguments[] = {
      {[&] { object_.GetValue("", &i); }, "key cannot be empty"},
      {[&] { object_.GetValue(nullptr, &i); }, "key cannot be null"},
      {[&] { object_.AppendValue("", 1); }, "Key not found: "},
      {[&] { object_.GetValue("list", static_cast<int*>(nullptr)); }, "output cannot be null"},
      {[&] { object_.GetValueBinary("list", &data, nullptr); }, "output cannot be null"},
      {[&] { object_.SetValue("k", null_text); }, "value cannot be null"},
      {[&] { object_.AppendValue("empty", null_text); }, "value cannot be null"},
  };
  for (const auto& c : invalid_arguments) {
    EXPECT_EQ(MessageOf<InvalidArgumentException>(c.call), c.message);
  }
  EXPECT_EQ(object_.GetData(), R"({"list":[1.5],"empty":[]})");
  // List reads: a double list takes integers; a wrong element throws 1082 and keeps the elements
  // before it; the output must start empty.
  object_.SetData(R"({"d": [1, 2.5], "i": [1, 2, "three", 4]})");
  std::vector<double> list;
  EXPECT_EQ(object_.GetValue("d", &list), 1);
  EXPECT_EQ(list, (std::vector<double>{1.0, 2.5}));
  std::vector<int> out;
  EXPECT_EQ(CodeOf([&] { object_.GetValue("i", &out); }), 1082);
  EXPECT_EQ(out, (std::vector<int>{1, 2}));
  EXPECT_EQ(MessageOf<InvalidArgumentException>([&] { object_.GetValue("i", &out); }),
            "Output vector must be empty.");
}

TEST_F(StoreObjectTest, RemoveValueErasesTheFirstEqualElement) {
  object_.SetValue("i", std::vector<int>{2, 3, 2});
  object_.RemoveValue("i", 2);
  object_.RemoveValue("i", 42);  // absent: nothing changes
  object_.SetValue("s", Strings{"a", "b", "a"});
  object_.RemoveValue("s", "a");
  object_.SetValue("b", std::vector<bool>{false, true});
  object_.RemoveValue("b", true);
  EXPECT_EQ(object_.GetData(), R"({"i":[3,2],"s":["b","a"],"b":[false]})");
  object_.SetData(R"({"d": [1.5, 2, 2.0], "s": ["a", 5, "b"]})");
  object_.RemoveValue("d", 2.0);  // integer 2 equals 2.0 after conversion
  // An element of another kind before the match is an error, and nothing is removed.
  EXPECT_EQ(CodeOf([&] { object_.RemoveValue("s", "b"); }), 1082);
  EXPECT_EQ(object_.GetData(), R"({"d":[1.5,2.0],"s":["a",5,"b"]})");
}

// Every byte value survives a binary round trip (every length modulo 3, for each padding case);
// text that is not base64 is refused.
TEST_F(StoreObjectTest, BinaryValues) {
  std::vector<unsigned char> bytes(256);
  for (int i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(i);
  unsigned char* data = nullptr;
  unsigned long length = 0;
  for (size_t size : {size_t{1}, size_t{2}, size_t{3}, size_t{255}, size_t{256}}) {
    object_.SetValueBinary("blob", bytes.data(), size);
    ASSERT_EQ(object_.GetValueBinary("blob", &data, &length), 1);
    std::unique_ptr<unsigned char[]> owned(data);
    ASSERT_EQ(length, size);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + size, data));
  }
  const unsigned char* first = bytes.data();
  for (const unsigned char* value : {first, static_cast<const unsigned char*>(nullptr)}) {
    EXPECT_EQ(MessageOf<InvalidArgumentException>(
                  [&] { object_.SetValueBinary("b", value, value == nullptr ? 4 : 0); }),
              "Value pointer cannot be null and length cannot be zero");
  }
  data = nullptr;
  for (const char* bad : {"abc", "ab=c", "a!==", "A===", "AB==AB==", "AQ=", "AR=="}) {
    object_.SetValue("bad", bad);
    EXPECT_EQ(MessageOf([&] { object_.GetValueBinary("bad", &data, &length); }),
              "Failed to decode binary value")
        << bad;
  }
  EXPECT_EQ(data, nullptr);
}

TEST_F(StoreObjectTest, WholeObjectOperations) {
  EXPECT_TRUE(object_.IsEmpty());
  object_.SetData(R"({"n": null, "a": 1})");
  EXPECT_FALSE(object_.IsEmpty());
  EXPECT_TRUE(object_.CheckKey("n"));  // a null member is present
  EXPECT_FALSE(object_.CheckKey("z"));
  object_.Remove("z");
  object_.Remove("n");
  object_.SetData(nullptr);  // ignored
  EXPECT_EQ(CodeOf([&] { object_.SetData("{broken"); }), 1080);
  object_.SetValueEmptyList("list");
  EXPECT_EQ(object_.GetData(), R"({"a":1,"list":[]})");
  // A root that is not an object gives JSON errors.
  object_.SetData("[1, 2]");
  int i = 0;
  EXPECT_EQ(CodeOf([&] { object_.GetValue("a", &i); }), 1082);
  EXPECT_EQ(CodeOf([&] { object_.IsEmpty(); }), 1082);
  EXPECT_FALSE(object_.CheckKey("a"));
}

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

TEST(FilterSpecObjectTest, NestedFiltersLandInsideTheParent) {
  LogCapture log(4);
  FilterSpecObject filter(SetvaultObjectId("vswitch", "net", "korvo"));
  filter.SetValue("mtu", 9000);
  auto uplink = filter.CreateSubObjectFilter(SubObjectId("uplink"));
  EXPECT_EQ(uplink->GetSetvaultObjectId(), SetvaultObjectId("uplink", "net", "korvo"));
  uplink->SetValue("lacp", true);
  uplink->CreateSubObjectFilter(SubObjectId("timers"))->SetValue("fast", 1);
  EXPECT_EQ(filter.GetData(), R"({"mtu":9000,"uplink":{"lacp":true,"timers":{"fast":1}}})");
  EXPECT_EQ(filter.GetSubObjectFilter(SubObjectId("uplink"))->GetData(),
            R"({"lacp":true,"timers":{"fast":1}})");
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
    EXPECT_EQ(log.Lines().size(), *finding == '\0' ? 0u : 1u) << subset;
    EXPECT_TRUE(*finding == '\0' || log.Contains(0, finding)) << subset;
  }
}

}  // namespace
}  // namespace KorvoSetvault
