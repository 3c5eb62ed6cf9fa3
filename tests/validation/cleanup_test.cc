// Clean-up of user data before it is written: empty objects, instances and
// arrays go, as does a generated id left alone; non-user kinds are kept.
#include "validation/cleanup.h"

#include <gtest/gtest.h>

#include "support/expect_error.h"
#include "support/log_capture.h"
#include "validation/inline_schema.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;

const char kUserSchema[] = R"({"type": "object", "properties": {
    "a": {"type": "object", "properties": {"b": {"type": "object", "properties": {}}}},
    "kept": {"type": "object", "cached": true, "properties": {}},
    "list": {"type": "array", "items": {"type": "object", "properties": {
        "x": {"type": "integer"}, "sv_generated_id": {"type": "string"}}}},
    "scalars": {"type": "array", "items": {"type": "integer"}},
    "sv_generated_id": {"type": "string"}}})";

std::string Cleaned(const std::string& data, const std::shared_ptr<InlineSchema>& schema,
                    const std::string& instance_id = "") {
  auto object = MakeObject(data, schema, SetvaultObjectId("k", "g", "c", instance_id));
  CleanupObject(object, schema);
  return object->GetSerializedData();
}

TEST(CleanupObjectTest, RemovesEmptyUserObjectsInstancesAndArrays) {
  LogCapture log(2);
  auto schema = std::make_shared<InlineSchema>(kUserSchema);
  const struct {
    const char* data;
    const char* cleaned;
  } cases[] = {
      {R"({"a": {"b": {}}, "z": 1})", R"({"z":1})"},
      {R"({"kept": {}, "undescribed": {}, "scalars": []})",
       R"({"kept":{},"undescribed":{},"scalars":[]})"},
      {R"({"list": [{}, {"x": 1}, 5, {}]})", R"({"list":[{"x":1},5]})"},
      {R"({"list": [{"sv_generated_id": "g"}, {"sv_generated_id": "h", "x": 2}]})",
       R"({"list":[{"sv_generated_id":"h","x":2}]})"},
      {R"({"list": [{}], "sv_generated_id": "g1"})", "{}"},
      {R"({"sv_generated_id": "g1", "x": 1})", R"({"sv_generated_id":"g1","x":1})"},
      {"[1]", "[1]"},
  };
  for (const auto& c : cases) EXPECT_EQ(Cleaned(c.data, schema), c.cleaned) << c.data;
  for (const char* line :
       {"Erasing empty object prop b", "Erasing empty object prop a",
        "Erasing empty instance of array prop list", "Erasing empty array prop list",
        "Erasing sv_generated_id since it is the only remaining property in the object"}) {
    EXPECT_TRUE(log.Contains(2, line)) << line;
  }
}

TEST(CleanupObjectTest, KindsDecideWhetherToClean) {
  LogCapture log(3);
  const struct {
    int kind;
    const char* instance;
    bool cleaned;
  } cases[] = {
      {0, "", true},
      {1, "", false},
      {2, "", true},
      {3, "", false},
      {4, "", false},
      {6, "", true},
      // Kind 5 keeps the data of its non-user instances only; other kinds
      // clean every instance, whatever instance ids they call non-user.
      {5, "bootbank", false},
      {5, "data1", true},
      {0, "bootbank", true},
  };
  for (const auto& c : cases) {
    auto schema = std::make_shared<InlineSchema>(kUserSchema, *c.instance ? "label" : "", c.kind,
                                                 std::vector<std::string>{"bootbank"});
    EXPECT_EQ(Cleaned(R"({"a": {}})", schema, c.instance), c.cleaned ? "{}" : R"({"a":{}})")
        << c.kind << " " << c.instance;
  }
  EXPECT_TRUE(
      log.Contains(3, "Skipping empty object check since non-user config: comp c grp g key k"));
  EXPECT_TRUE(log.Contains(
      3, "Checking for empty objects and arrays in comp c grp g key k id data1 object"));
}

TEST(InstanceIdFromValue, ReadsTheSchemasMember) {
  auto with_id = std::make_shared<InlineSchema>(kUserSchema, "label");
  auto id = [&](const char* data, const std::shared_ptr<InlineSchema>& schema) {
    return GetInstanceIdFromValue(*CreateDocumentFromString(data)->GetJsonValuePtr(), schema);
  };
  EXPECT_EQ(id(R"({"label": "ds1", "n": 5})", with_id), "ds1");
  EXPECT_EQ(id(R"({"label": "ds1"})", std::make_shared<InlineSchema>("{}")), "");
  for (const char* bad : {R"({"label": 5})", R"({"n": 5})", "[]"}) {
    setvault_test::ExpectError([&] { id(bad, with_id); }, SV_ERR_INSTANCE_ID_VALUE,
                               "Invalid instance id value: label");
  }
}

}  // namespace
}  // namespace KorvoSetvault
