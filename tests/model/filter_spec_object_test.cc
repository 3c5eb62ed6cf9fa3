#include "setvault/filter_spec_object.h"

#include <gtest/gtest.h>

#include "model/filter_match.h"
#include "model/thrown.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;

// A filter matches an object when every filtered member is equal (numbers by value),
// nested objects as subsets; array members are never filtered on.
TEST(FilterMatching, MembersMustBeEqualAndObjectsSubsets) {
  LogCapture log(0);
  const struct {
    const char* object;
    const char* filter;
    bool matches;
  } cases[] = {
      {R"({"a": 1, "b": 2})", R"({"a": 1})", true},
      {R"({"a": 2, "b": 2})", R"({"a": 1})", false},
      {R"({"b": 2})", R"({"a": 1})", false},
      {R"({"a": 1.0})", R"({"a": 1})", true},
      {R"({"a": "1"})", R"({"a": 1})", false},
      {R"({"a": null})", R"({"a": false})", false},
      {R"({"s": {"x": true, "y": 0}})", R"({"s": {"x": true}})", true},
      {R"({"s": 5})", R"({"s": {"x": true}})", false},
      {R"({"s": {"x": false}})", R"({"s": {"x": true}})", false},
      {R"({"s": {"t": {"u": 1, "v": 2}}})", R"({"s": {"t": {"v": 2}}})", true},
      {R"({"list": [1, 2], "a": 1})", R"({"a": 1})", true},
      {R"({"list": [1, 2]})", R"({"list": [1, 2]})", false},
      {R"({"a": [1], "b": {"c": 1}})", "{}", true},
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
  auto schema = CreateDocumentFromString(R"({
    "type": "object",
    "properties": {
      "mtu": {"type": "integer"},
      "dns": {"type": "object", "properties": {"domain": {"type": "string"}}},
      "ports": {"type": "array", "instanceIdProperty": "name",
                "items": {"type": "object", "properties": {"name": {"type": "string"},
                                                           "speed": {"type": "integer"}}}}}})");
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
