// Clean-up of user data before it is written: empty objects, instances and
// arrays go, as does a generated id left alone; non-user kinds are kept.
#include "validation/cleanup.h"

#include <gtest/gtest.h>

#include "setvault/exceptions.h"
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
  for (int kind : {0, 1, 2, 3, 4, 6}) {
    const bool user = kind == 0 || kind == 2 || kind == 6;
    EXPECT_EQ(Cleaned(R"({"a": {}})", std::make_shared<InlineSchema>(kUserSchema, "", kind)),
              user ? "{}" : R"({"a":{}})")
        << kind;
  }
  EXPECT_TRUE(
      log.Contains(3, "Skipping empty object check since non-user config: comp c grp g key k"));
  // Kind 5 keeps the data of its non-user instances only.
  auto kind5 =
      std::make_shared<InlineSchema>(kUserSchema, "label", 5, std::vector<std::string>{"bootbank"});
  EXPECT_EQ(Cleaned(R"({"a": {}})", kind5, "bootbank"), R"({"a":{}})");
  EXPECT_EQ(Cleaned(R"({"a": {}})", kind5, "data1"), "{}");
  // Other kinds clean every instance, whatever instance ids they call non-user.
  auto kind0 =
      std::make_shared<InlineSchema>(kUserSchema, "label", 0, std::vector<std::string>{"bootbank"});
  EXPECT_EQ(Cleaned(R"({"a": {}})", kind0, "bootbank"), "{}");
  EXPECT_TRUE(log.Contains(
      3, "Checking for empty objects and arrays in comp c grp g key k id data1 object"));
}

TEST(CleanupObjectTest, MalformedSchemasAreJsonErrors) {
  LogCapture log(0);
  const struct {
    const char* schema;
    const char* data;
  } cases[] = {
      {R"({"type": "object"})", R"({"a": 1})"},                         // no properties
      {R"({"properties": {"a": {}}})", R"({"a": 1})"},                  // no type
      {R"({"properties": {"a": {"type": "array"}}})", R"({"a": []})"},  // no items
      {R"({"properties": {"a": {"type": "object", "vital": "yes", "properties": {}}}})",
       R"({"a": {}})"},
  };
  for (const auto& c : cases) {
    try {
      Cleaned(c.data, std::make_shared<InlineSchema>(c.schema));
      ADD_FAILURE() << c.schema;
    } catch (const SetvaultException& e) {
      EXPECT_EQ(e.GetErrorCode(), SV_ERR_JSON) << c.schema;
    }
  }
}

TEST(GeneratedIds, ClearedEverywhereWithLastMemberMovedIntoPlace) {
  auto doc = CreateDocumentFromString(
      R"({"sv_generated_id": "g", "a": 1, "b": 2,
          "rules": [{"sv_generated_id": "r", "p": {"sv_generated_id": "q"}}]})");
  ClearGeneratedInstanceId(doc->GetJsonValuePtr());
  EXPECT_EQ(SetvaultDocument::SerializeValue(*doc->GetJsonValuePtr()),
            R"({"rules":[{"p":{}}],"a":1,"b":2})");
}

TEST(InstanceIdFromValue, ReadsTheSchemasMember) {
  LogCapture log(0);
  auto with_id = std::make_shared<InlineSchema>(kUserSchema, "label");
  auto doc = CreateDocumentFromString(R"({"label": "ds1", "n": 5})");
  EXPECT_EQ(GetInstanceIdFromValue(*doc->GetJsonValuePtr(), with_id), "ds1");
  EXPECT_EQ(GetInstanceIdFromValue(*doc->GetJsonValuePtr(), std::make_shared<InlineSchema>("{}")),
            "");
  for (const char* bad : {R"({"label": 5})", R"({"n": 5})", "[]"}) {
    try {
      GetInstanceIdFromValue(*CreateDocumentFromString(bad)->GetJsonValuePtr(), with_id);
      ADD_FAILURE() << bad;
    } catch (const SetvaultException& e) {
      EXPECT_EQ(e.GetErrorCode(), SV_ERR_INSTANCE_ID_VALUE);
      EXPECT_NE(std::string(e.what()).find("label"), std::string::npos);
    }
  }
}

}  // namespace
}  // namespace KorvoSetvault
