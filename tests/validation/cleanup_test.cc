#include "validation/cleanup.h"

#include <gtest/gtest.h>

#include "document/setvault_document.h"
#include "model/setvault_object_impl.h"
#include "setvault/exceptions.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;

// A schema object over an inline definition, for shapes the examples lack.
class InlineSchema : public KorvoSchemaStore::SchemaObject {
 public:
  InlineSchema(const std::string& schema, int kind = 0, std::string instance_property = "",
               std::vector<std::string> non_user = {})
      : schema_(CreateDocumentFromString(schema)),
        kind_(kind),
        instance_property_(std::move(instance_property)),
        non_user_(std::move(non_user)) {}
  const JsonValue& GetSchemaJson() const override { return *schema_->GetJsonValuePtr(); }
  int GetConfigKind() const override { return kind_; }
  std::string GetInstanceIdProperty() const override { return instance_property_; }
  std::vector<std::string> GetNonUserInstanceIds() const override { return non_user_; }
  bool IsNonSingleton() const override { return !instance_property_.empty(); }
  std::shared_ptr<JsonDoc> GetIdMap() const override { return nullptr; }
  std::shared_ptr<JsonDoc> GetDefaults() const override { return nullptr; }

 private:
  std::shared_ptr<JsonDoc> schema_;
  int kind_;
  std::string instance_property_;
  std::vector<std::string> non_user_;
};

const char kUserSchema[] = R"({"type": "object", "properties": {
    "a": {"type": "object", "properties": {"b": {"type": "object", "properties": {}}}},
    "kept": {"type": "object", "cached": true, "properties": {}},
    "list": {"type": "array", "items": {"type": "object", "properties": {
        "x": {"type": "integer"}, "sv_generated_id": {"type": "string"}}}},
    "scalars": {"type": "array", "items": {"type": "integer"}},
    "sv_generated_id": {"type": "string"}}})";

std::string Cleaned(const std::string& data,
                    const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema,
                    const std::string& instance_id = "") {
  SetvaultObjectImpl::Parts parts;
  parts.id = SetvaultObjectId("k", "g", "c", instance_id);
  parts.document = CreateDocumentFromString(data);
  parts.schema = schema;
  auto object = std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(parts));
  CleanupObject(object, schema);
  return object->GetSerializedData();
}

TEST(CleanupObjectTest, RemovesEmptyUserObjectsRecursively) {
  LogCapture log(2);
  auto schema = std::make_shared<InlineSchema>(kUserSchema);
  EXPECT_EQ(Cleaned(R"({"a": {}})", schema), "{}");
  EXPECT_EQ(Cleaned(R"({"a": {"b": {}}, "z": 1})", schema), R"({"z":1})");
  EXPECT_TRUE(log.Contains(2, "Erasing empty object prop b"));
  EXPECT_TRUE(log.Contains(2, "Erasing empty object prop a"));
  EXPECT_EQ(Cleaned(R"({"kept": {}})", schema), R"({"kept":{}})");
  EXPECT_EQ(Cleaned(R"({"undescribed": {}, "scalars": []})", schema),
            R"({"undescribed":{},"scalars":[]})");
}

TEST(CleanupObjectTest, RemovesEmptyInstancesAndArrays) {
  LogCapture log(2);
  auto schema = std::make_shared<InlineSchema>(kUserSchema);
  EXPECT_EQ(Cleaned(R"({"list": [{}, {"x": 1}, {}]})", schema), R"({"list":[{"x":1}]})");
  EXPECT_TRUE(log.Contains(2, "Erasing empty instance of array prop list"));
  EXPECT_EQ(Cleaned(R"({"list": [{}]})", schema), "{}");
  EXPECT_TRUE(log.Contains(2, "Erasing empty array prop list"));
  EXPECT_EQ(Cleaned(R"({"list": [{"sv_generated_id": "g"}, {"sv_generated_id": "h", "x": 2}]})",
                    schema),
            R"({"list":[{"sv_generated_id":"h","x":2}]})");
}

TEST(CleanupObjectTest, LoneGeneratedIdIsRemoved) {
  LogCapture log(2);
  auto schema = std::make_shared<InlineSchema>(kUserSchema);
  EXPECT_EQ(Cleaned(R"({"sv_generated_id": "g1"})", schema), "{}");
  EXPECT_TRUE(log.Contains(
      2, "Erasing sv_generated_id since it is the only remaining property in the object"));
  EXPECT_EQ(Cleaned(R"({"sv_generated_id": "g1", "x": 1})", schema),
            R"({"sv_generated_id":"g1","x":1})");
}

TEST(CleanupObjectTest, KindsDecideWhetherToClean) {
  LogCapture log(3);
  for (int kind : {1, 3, 4}) {
    auto schema = std::make_shared<InlineSchema>(kUserSchema, kind);
    EXPECT_EQ(Cleaned(R"({"a": {}})", schema), R"({"a":{}})") << kind;
  }
  EXPECT_TRUE(
      log.Contains(3, "Skipping empty object check since non-user config: comp c grp g key k"));
  for (int kind : {0, 2, 6}) {
    auto schema = std::make_shared<InlineSchema>(kUserSchema, kind);
    EXPECT_EQ(Cleaned(R"({"a": {}})", schema), "{}") << kind;
  }
  auto kind5 = std::make_shared<InlineSchema>(kUserSchema, 5, "label",
                                              std::vector<std::string>{"bootbank"});
  EXPECT_EQ(Cleaned(R"({"a": {}})", kind5, "bootbank"), R"({"a":{}})");
  EXPECT_EQ(Cleaned(R"({"a": {}})", kind5, "data1"), "{}");
  EXPECT_TRUE(log.Contains(
      3, "Checking for empty objects and arrays in comp c grp g key k id data1 object"));
}

TEST(CleanupObjectTest, MalformedSchemasAreJsonErrors) {
  LogCapture log(0);
  auto code_of = [](const std::string& schema_text, const std::string& data) {
    try {
      Cleaned(data, std::make_shared<InlineSchema>(schema_text));
    } catch (const SetvaultException& e) {
      return e.GetErrorCode();
    }
    return 0;
  };
  EXPECT_EQ(code_of(R"({"type": "object"})", R"({"a": 1})"), 1082);          // no properties
  EXPECT_EQ(code_of(R"({"properties": {"a": {}}})", R"({"a": 1})"), 1082);   // no type
  EXPECT_EQ(code_of(R"({"properties": {"a": {"type": "array"}}})", R"({"a": []})"), 1082);
  EXPECT_EQ(code_of(R"({"properties": {"a": {"type": "object", "vital": "yes", "properties": {}}}})",
                    R"({"a": {}})"),
            1082);
  // Data never causes an error: a non-object instance is left alone.
  EXPECT_EQ(Cleaned(R"({"list": [5, {}]})", std::make_shared<InlineSchema>(kUserSchema)),
            R"({"list":[5]})");
}

TEST(GeneratedIds, ClearedEverywhereWithLastMemberMovedIntoPlace) {
  auto doc = CreateDocumentFromString(
      R"({"sv_generated_id": "g", "a": 1, "b": 2,
          "rules": [{"sv_generated_id": "r", "p": {"sv_generated_id": "q"}}]})");
  ClearGeneratedInstanceId(doc->GetJsonValuePtr());
  EXPECT_EQ(SetvaultDocument::SerializeValue(*doc->GetJsonValuePtr()),
            R"({"rules":[{"p":{}}],"a":1,"b":2})");
  auto simple = CreateDocumentFromString(R"({"sv_generated_id": "g", "a": 1, "b": 2})");
  ClearGeneratedInstanceId(simple->GetJsonValuePtr());
  EXPECT_EQ(SetvaultDocument::SerializeValue(*simple->GetJsonValuePtr()), R"({"b":2,"a":1})");
}

TEST(InstanceIdFromValue, ReadsTheSchemasMember) {
  LogCapture log(0);
  auto with_id = std::make_shared<InlineSchema>(kUserSchema, 0, "label");
  auto without_id = std::make_shared<InlineSchema>(kUserSchema);
  auto doc = CreateDocumentFromString(R"({"label": "ds1", "n": 5})");
  EXPECT_EQ(GetInstanceIdFromValue(*doc->GetJsonValuePtr(), with_id), "ds1");
  EXPECT_EQ(GetInstanceIdFromValue(*doc->GetJsonValuePtr(), without_id), "");
  auto bad = CreateDocumentFromString(R"({"label": 5})");
  try {
    GetInstanceIdFromValue(*bad->GetJsonValuePtr(), with_id);
    FAIL();
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1032);
    EXPECT_NE(std::string(e.what()).find("label"), std::string::npos);
  }
  auto missing = CreateDocumentFromString(R"({"n": 5})");
  EXPECT_THROW(GetInstanceIdFromValue(*missing->GetJsonValuePtr(), with_id), SetvaultException);
}

TEST(CleanupObjectTest, ExampleTypesCleanTheirUserPartOnly) {
  LogCapture log(0);
  setvault_test::ExampleSchemas schemas;
  auto host = std::make_shared<SetvaultObject>(SetvaultObjectId("host", "system", "korvo"));
  host->SetData(R"({"ntp": {}, "bmc": {}, "syslog": {"rotation": {}}, "hostname": "h"})");
  CleanupObject(host, host->GetImpl()->GetSchema());
  EXPECT_EQ(host->GetData(), R"({"bmc":{},"hostname":"h"})");
}

}  // namespace
}  // namespace KorvoSetvault
