// Checks of single definitions: what is refused, with which message, and what
// an accepted definition yields.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "document/setvault_document.h"
#include "schema/schema_definition.h"
#include "schema/schema_store.h"
#include "setvault/exceptions.h"

namespace {

using KorvoSchemaStore::CheckSchemaDefinition;
using KorvoSchemaStore::ParseSchemaDefinition;
using KorvoSetvault::SetvaultDocument;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// A definition of korvo/net/vswitch with `extra` members before its schema.
std::string Def(const std::string& extra, const std::string& schema = R"({"type":"object"})") {
  std::string text = R"({"component":"korvo","group":"net","key":"vswitch","version":"1.0",)";
  if (!extra.empty()) text += extra + ",";
  return text + R"("schema":)" + schema + "}";
}

// A definition whose schema has the member "a" described by `node`.
std::string Prop(const std::string& node) {
  return Def("", R"({"type":"object","properties":{"a":)" + node + "}}");
}

// A multi-instance type with the id member "id", an integer "n" and `instances`.
std::string Instances(const std::string& instances) {
  return Def(R"("instanceIdProperty":"id","defaultInstances":)" + instances,
             R"({"type":"object","properties":{"id":{"type":"string"},"n":{"type":"integer"}}})");
}

// A schema of `levels` nested "properties" (two levels of JSON each).
std::string Nested(int levels) {
  std::string schema = R"({"type":"string"})";
  for (int i = 0; i < levels; ++i)
    schema = R"({"type":"object","properties":{"a":)" + schema + "}}";
  return schema;
}

// A definition with the names `names` (JSON members) and an empty schema.
std::string Named(const std::string& names) {
  return "{" + names + R"(,"version":"1","schema":{}})";
}

TEST(SchemaDefinitionTest, RefusalNamesTheFileAndTheFault) {
  const std::string names = R"("component":"korvo","group":"net","key":"k")";
  const std::string arrays = R"({"type":"array","items":{"type":"object","properties":)";
  const struct {
    std::string text;
    std::string fault;
  } cases[] = {
      {"[1, 2]", "the definition must be a JSON object"},
      {Named(R"("component":"korvo","group":"","key":"k")"), "\"group\" must not be empty"},
      {Named(R"("component":"korvo","group":"n et","key":"k")"),
       "\"group\" value \"n et\" may hold"},
      {"{" + names + R"(,"version":"1"})", "\"schema\" is missing"},
      {"{" + names + R"(,"version":"1","schema":"object"})", "\"schema\" must be a JSON object"},
      {Def(R"("instanceIDProperty":"name")"), "unknown member \"instanceIDProperty\""},
      {Def(R"("tags":"@rebootRequiredSetvault")"), "\"tags\" must be an array of strings"},
      {Def(R"("tags":["@a", 3])"), "\"tags\" must hold strings only"},
      {Def(R"("configKind":-1)"), "\"configKind\" must be a non-negative integer"},
      {Def(R"("configKind":"5")"), "\"configKind\" must be a non-negative integer"},
      {Def(R"("confirmedDuringUpgrade":"yes")"), "\"confirmedDuringUpgrade\" must be true or"},
      {Def(R"("defaults":[1])"), "\"defaults\" must be a JSON object"},
      {Def(R"("instanceIdProperty":"n","nonUserInstanceIds":["a"])"), "to \"configKind\" 5 only"},
      {Prop(R"({"type":"string","vital":"true"})"),
       "schema node /schema/properties/a: \"vital\" must be true or false"},
      // Type names are checked by this library, not only by the validator.
      {Prop(R"({"type":"strng"})"), "schema node /schema/properties/a: \"type\" must name JSON"},
      {Def("", R"({"type":["object", 1]})"), "schema node /schema: \"type\" must name JSON types"},
      {Prop("5"), "schema node /schema/properties/a must be a JSON object or a boolean"},
      {Prop(R"({"type":"array"})"), "/schema/properties/a: an array needs \"items\""},
      {Def("", Nested(125)), "defs/bad.json: /schema: value is nested deeper than 128 levels"},
      {Prop(R"({"type":"string","contentMediaType":"text/plain"})"),
       "/schema/properties/a/contentMediaType: \"contentMediaType\" is not a supported keyword"},
      {Prop(R"({"type":"string","pattern":"^(a)\\1$"})"), "/schema/properties/a/pattern: value"},
      {Def("", R"({"patternProperties":{"a(":{"type":"string"}}})"),
       "/schema/patternProperties/a(: member name \"a(\""},
      {Prop(R"({"type":"string","format":"uri"})"),
       "/schema/properties/a/format: value \"uri\" is not one of the allowed"},
      {Prop(R"({"type":"string","$ref":"http://x/s.json#/a"})"),
       "/schema/properties/a/$ref: value \"http://x/s.json#/a\" does not match"},
      {Def("", R"({"definitions":{"b":{"type":"string"}},)"
               R"("properties":{"a":{"type":"string","$ref":"#b"}}})"),
       "unresolved \"$ref\" \"#b\""},
      {Def("", R"({"$schema":"http://json-schema.org/draft-04/schema#"})"), "/schema/$schema: "},
      {Prop(R"({"type":"string","maxLength":2.5})"),
       "/schema/properties/a/maxLength: value of type number is not allowed here (expected "
       "integer)"},
      {Def("", R"({"vital":true,"cached":true})"), "both \"vital\" and \"cached\""},
      {Def(R"("instanceIdProperty":"name")", R"({"properties":{"mtu":{"type":"integer"}}})"),
       "schema node /schema: instance id member \"name\" is not described"},
      {Prop(arrays + R"({"vlan":{"type":"integer"}}},"instanceIdProperty":"name"})"),
       "schema node /schema/properties/a/items: instance id member \"name\""},
      {Prop(arrays + R"({"n":{"type":"string"}}},"instanceIdProperty":"n",)"
                     R"("generatedInstanceId":true})"),
       "not both"},
      {Prop(R"({"type":"object","instanceIdProperty":"n","properties":{}})"),
       "an instance array needs \"type\": \"array\""},
      {Def("", R"({"properties":{"a":)" + arrays + R"({"x":{"type":"string"},)" + R"("ports":)" +
                   arrays + R"({"id":{"type":"string"}}},"instanceIdProperty":"id"}}},)" +
                   R"("instanceIdProperty":"x"},"ports":)" + arrays +
                   R"({"name":{"type":"string"}}},"instanceIdProperty":"name"}}})"),
       "instances of \"ports\" are told apart by \"id\" in one place and by \"name\" in another"},
      {Def(R"("defaultInstances":[])"), "\"defaultInstances\" needs a multi-instance type"},
      {Instances("{}"), "\"defaultInstances\" must be an array of objects"},
      {Instances("[5]"), "\"defaultInstances\" element 0 must be an object"},
      {Instances(R"([{"n":1}])"), "element 0 must name its instance in \"id\""},
      {Instances(R"([{"id":""}])"), "element 0 must name its instance in \"id\""},
      {Instances(R"([{"id":"a"},{"id":"a"}])"), "element 1: instance \"a\" is listed twice"},
      // Limits of every parse: 400 KB of nested brackets once overflowed the stack.
      {std::string(200000, '[') + std::string(200000, ']'),
       "not valid JSON at offset 512: arrays and objects nested deeper than 512 levels."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 300));
    try {
      CheckSchemaDefinition(c.text, "defs/bad.json");
      ADD_FAILURE() << "accepted";
    } catch (const KorvoSetvault::SetvaultException& e) {
      EXPECT_EQ(e.GetErrorCode(), KorvoSetvault::SV_ERR_GENERIC);
      EXPECT_THAT(e.what(), StartsWith("defs/bad.json: "));
      EXPECT_THAT(e.what(), HasSubstr(c.fault));
    }
  }
}

TEST(SchemaDefinitionTest, AcceptedDefinitionKeepsItsMembers) {
  const std::string text = Def(
      R"("instanceIdProperty":"name","tags":["@x","@rebootRequiredSetvault"],"configKind":5,
         "nonUserInstanceIds":["up0"],"valueType":"korvo-shared","currentValueDuringBoot":true,
         "defaults":{"mtu":1500},"defaultInstances":[{"name":"a"}])",
      R"({"type":"object","properties":{"name":{"type":["string","null"]},"mtu":{"type":"integer"},
        "pg":{"type":"array","instanceIdProperty":"pgName","items":{"type":"object",
          "properties":{"pgName":{"type":"string"},
            "rules":{"type":"array","generatedInstanceId":true,"items":{"type":"object",
              "properties":{"sv_generated_id":{"type":"string"}}}}}}},
        "lag":{"type":"object","properties":{"pg":{"type":"array","instanceIdProperty":"pgName",
          "items":{"type":"object","properties":{"pgName":{"type":"string"}}}}}}}})");
  const KorvoSchemaStore::SchemaObject type(CheckSchemaDefinition(text, "ok.json"));
  EXPECT_EQ(type.GetComponent() + "/" + type.GetGroup() + "/" + type.GetKey(), "korvo/net/vswitch");
  EXPECT_EQ(type.GetVersion(), "1.0");
  EXPECT_TRUE(type.IsNonSingleton());
  EXPECT_EQ(type.GetInstanceIdProperty(), "name");
  EXPECT_TRUE(type.IsRebootRequiredConfig());
  EXPECT_EQ(type.GetConfigKind(), 5);
  EXPECT_EQ(type.GetNonUserInstanceIds(), std::vector<std::string>{"up0"});
  EXPECT_EQ(type.GetValueType(), "korvo-shared");
  EXPECT_TRUE(type.UsesCurrentValueDuringBoot());
  EXPECT_FALSE(type.IsConfirmedDuringUpgrade());
  // One entry per key, also for a key met in two places with the same id member.
  EXPECT_EQ(SetvaultDocument::SerializeValue(*type.GetIdMap()->GetJsonValuePtr()),
            R"({"vswitch":"name","pg":"pgName","rules":"sv_generated_id"})");
  EXPECT_EQ(SetvaultDocument::SerializeValue(*type.GetDefaults()->GetJsonValuePtr()),
            R"({"mtu":1500})");
  // The type's own id member is named in its schema for the checks of its data.
  EXPECT_EQ(type.GetSchemaJson()["instanceIdProperty"], "name");
  // The stored text parses back to the same definition.
  auto definition = ParseSchemaDefinition(text, "ok.json");
  EXPECT_EQ(ParseSchemaDefinition(definition->text, "row")->text, definition->text);
}

}  // namespace
