#include "setvault/filter_spec_object.h"

#include <gtest/gtest.h>

#include "model/filter_match.h"
#include "setvault/exceptions.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;

bool Matches(const std::string& object, const std::string& filter) {
  auto object_doc = CreateDocumentFromString(object);
  auto filter_doc = CreateDocumentFromString(filter);
  return svoMatchesFilter(*object_doc->GetJsonValuePtr(), *filter_doc->GetJsonValuePtr());
}

TEST(FilterMatching, ScalarsMustBeEqual) {
  LogCapture log(0);
  EXPECT_TRUE(Matches(R"({"a": 1, "b": 2})", R"({"a": 1})"));
  EXPECT_FALSE(Matches(R"({"a": 2, "b": 2})", R"({"a": 1})"));
  EXPECT_FALSE(Matches(R"({"b": 2})", R"({"a": 1})"));
  EXPECT_TRUE(Matches(R"({"a": 1.0})", R"({"a": 1})"));  // numbers by value
  EXPECT_FALSE(Matches(R"({"a": "1"})", R"({"a": 1})"));
  EXPECT_FALSE(Matches(R"({"a": {}})", R"({"a": 1})"));
  EXPECT_FALSE(Matches(R"({"a": null})", R"({"a": false})"));
  EXPECT_TRUE(Matches(R"({"a": null})", R"({"a": null})"));
}

TEST(FilterMatching, NestedObjectsMatchAsSubsets) {
  LogCapture log(0);
  EXPECT_TRUE(Matches(R"({"s": {"x": true, "y": 0}})", R"({"s": {"x": true}})"));
  EXPECT_FALSE(Matches(R"({"s": 5})", R"({"s": {"x": true}})"));
  EXPECT_FALSE(Matches(R"({"s": {"x": false}})", R"({"s": {"x": true}})"));
  EXPECT_TRUE(Matches(R"({"s": {"t": {"u": 1, "v": 2}}})", R"({"s": {"t": {"v": 2}}})"));
  EXPECT_TRUE(Matches(R"({"s": {"x": 1}})", R"({"s": {}})"));
}

TEST(FilterMatching, ArrayMembersAreNeverFilteredOn) {
  LogCapture log(0);
  EXPECT_FALSE(Matches(R"({"list": [1, 2]})", R"({"list": [1, 2]})"));
  EXPECT_TRUE(log.Contains(0, "svoMatchesFilter: Non-Singleton SubObject filtering not supported"));
  EXPECT_TRUE(Matches(R"({"list": [1, 2], "a": 1})", R"({"a": 1})"));
}

TEST(FilterMatching, EmptyFilterMatchesAnything) {
  LogCapture log(0);
  EXPECT_TRUE(Matches(R"({})", R"({})"));
  EXPECT_TRUE(Matches(R"({"a": [1], "b": {"c": 1}})", R"({})"));
}

TEST(FilterMatching, NonObjectRootsAreJsonErrors) {
  LogCapture log(0);
  try {
    Matches("[1]", R"({"a": 1})");
    FAIL();
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1082);
  }
  EXPECT_THROW(Matches(R"({"a": 1})", "5"), SetvaultException);
}

TEST(FilterSpecObjectTest, NestedFiltersLandInsideTheParent) {
  LogCapture log(4);
  FilterSpecObject filter(SetvaultObjectId("vswitch", "net", "korvo"));
  filter.SetValue("mtu", 9000);
  auto uplink = filter.CreateSubObjectFilter(SubObjectId("uplink"));
  ASSERT_NE(uplink, nullptr);
  EXPECT_EQ(uplink->GetSetvaultObjectId(), SetvaultObjectId("uplink", "net", "korvo"));
  uplink->SetValue("lacp", true);
  auto deeper = uplink->CreateSubObjectFilter(SubObjectId("timers"));
  deeper->SetValue("fast", 1);
  EXPECT_EQ(filter.GetData(), R"({"mtu":9000,"uplink":{"lacp":true,"timers":{"fast":1}}})");
  EXPECT_TRUE(log.Contains(4, "CreateSubObjectFilter : key uplink"));

  auto again = filter.GetSubObjectFilter(SubObjectId("uplink"));
  ASSERT_NE(again, nullptr);
  bool lacp = false;
  EXPECT_EQ(again->GetValue("lacp", &lacp), 1);
  EXPECT_TRUE(lacp);
  EXPECT_EQ(filter.GetSubObjectFilter(SubObjectId("absent")), nullptr);

  try {
    filter.CreateSubObjectFilter(SubObjectId("uplink"));
    FAIL();
  } catch (const SetvaultException& e) {
    EXPECT_STREQ(e.what(), "SubObject filter already exists.");
  }
  filter.DeleteSubObjectFilter(SubObjectId("uplink"));
  filter.DeleteSubObjectFilter(SubObjectId("uplink"));  // absent: nothing happens
  EXPECT_EQ(filter.GetData(), R"({"mtu":9000})");
  // A handle on a deleted nested filter reports the missing member.
  EXPECT_THROW(uplink->SetValue("lacp", false), SetvaultException);

  // Nested filters stop at the nesting limit of parsed texts (root is level 1).
  std::shared_ptr<FilterSpecObject> level = filter.CreateSubObjectFilter(SubObjectId("n"));
  for (int depth = 2; depth < 512; ++depth) level = level->CreateSubObjectFilter(SubObjectId("n"));
  try {
    level->CreateSubObjectFilter(SubObjectId("n"));
    FAIL();
  } catch (const InvalidArgumentException& e) {
    EXPECT_STREQ(e.what(), "Value nested deeper than 512 levels: n");
  }
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
  auto check = [&](const std::string& subset) {
    auto doc = CreateDocumentFromString(subset);
    return IsSubsetBySchema(*object->GetJsonValuePtr(), *doc->GetJsonValuePtr(),
                            *schema->GetJsonValuePtr());
  };
  EXPECT_TRUE(check(R"({"mtu": 1500, "ports": [{"name": "p1", "speed": 25}]})"));
  EXPECT_TRUE(check(R"({"undescribed": 1})"));
  EXPECT_TRUE(check(R"({"dns": {"domain": "lab"}})"));

  EXPECT_FALSE(check(R"({"mtu": 9000})"));
  EXPECT_TRUE(log.Contains(0, "obj is not susbset, key mtu did not match"));
  EXPECT_FALSE(check(R"({"dns": {"domain": "prod"}})"));
  EXPECT_TRUE(log.Contains(0, "obj is not susbset, key domain did not match"));
  EXPECT_FALSE(check(R"({"ports": [{"name": "p7"}]})"));
  EXPECT_TRUE(log.Contains(0, "obj is not subset, instanceId p7 did not match"));
  log.Clear();
  EXPECT_FALSE(check(R"({"ports": [{"name": "p0", "speed": 25}]})"));
  EXPECT_TRUE(log.Contains(0, "obj is not susbset, key speed did not match"));
  EXPECT_EQ(log.Lines().size(), 1u);
}

}  // namespace
}  // namespace KorvoSetvault
