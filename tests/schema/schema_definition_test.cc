// Checks of single definitions: what is refused, with which message, and what
// an accepted definition yields.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "document/setvault_document.h"
#include "schema/schema_definition.h"
#include "setvault/exceptions.h"

namespace {

using KorvoSchemaStore::CheckSchemaDefinition;
using KorvoSchemaStore::ParseSchemaDefinition;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// The message of the SetvaultException that checking `text` throws.
std::string RefusalOf(const std::string& text) {
  try {
    CheckSchemaDefinition(text, "defs/bad.json");
  } catch (const KorvoSetvault::SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), KorvoSetvault::SV_ERR_GENERIC);
    return e.what();
  }
  ADD_FAILURE() << "accepted: " << text;
  return std::string();
}

// A definition with `extra` members added after the names and version.
std::string Definition(const std::string& extra,
                       const std::string& schema = R"({"type":"object"})") {
  std::string text = R"({"component":"korvo","group":"net","key":"vswitch","version":"1.0",)";
  if (!extra.empty()) text += extra + ",";
  return text + R"("schema":)" + schema + "}";
}

struct RefusalCase {
  const char* name;
  std::string text;
  const char* expected;  // part of the message after the origin
};

class DefinitionRefusalTest : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(DefinitionRefusalTest, NamesTheFileAndTheFault) {
  const std::string message = RefusalOf(GetParam().text);
  EXPECT_THAT(message, StartsWith("defs/bad.json: "));
  EXPECT_THAT(message, HasSubstr(GetParam().expected));
}

const std::string kNames = R"("component":"korvo","group":"net","key":"vswitch","version":"1")";

// A schema of `levels` nested "properties" (two levels of JSON each).
std::string NestedSchema(int levels) {
  std::string schema = R"({"type":"string"})";
  for (int i = 0; i < levels; ++i) schema = R"({"type":"object","properties":{"a":)" + schema + "}}";
  return schema;
}

INSTANTIATE_TEST_SUITE_P(
    Refusals, DefinitionRefusalTest,
    ::testing::Values(
        RefusalCase{"BadJson", R"({"component": "korvo",)", "not valid JSON at offset"},
        RefusalCase{"Empty", "", "not valid JSON at offset 0"},
        RefusalCase{"NotObject", "[1, 2]", "must be a JSON object"},
        RefusalCase{"NoComponent", R"({"group":"net","key":"k","version":"1","schema":{}})",
                    "\"component\" is missing"},
        RefusalCase{"NoGroup", R"({"component":"korvo","key":"k","version":"1","schema":{}})",
                    "\"group\" is missing"},
        RefusalCase{"NoKey", R"({"component":"korvo","group":"net","version":"1","schema":{}})",
                    "\"key\" is missing"},
        RefusalCase{"NoVersion", R"({"component":"korvo","group":"net","key":"k","schema":{}})",
                    "\"version\" is missing"},
        RefusalCase{"KeyNotString",
                    R"({"component":"korvo","group":"net","key":7,"version":"1","schema":{}})",
                    "\"key\" must be a string"},
        RefusalCase{"EmptyGroup",
                    R"({"component":"korvo","group":"","key":"k","version":"1","schema":{}})",
                    "\"group\" must not be empty"},
        RefusalCase{"NameWithBlank",
                    R"({"component":"korvo","group":"n et","key":"k","version":"1","schema":{}})",
                    "\"group\" value \"n et\" may hold only letters, digits, '_' and '-'"},
        RefusalCase{"NameWithSlash",
                    R"({"component":"korvo/x","group":"net","key":"k","version":"1","schema":{}})",
                    "may hold only letters, digits"},
        RefusalCase{"NoSchema", "{" + kNames + "}", "\"schema\" is missing"},
        RefusalCase{"SchemaString", "{" + kNames + R"(,"schema":"object"})",
                    "\"schema\" must be a JSON object"},
        RefusalCase{"SchemaArray", "{" + kNames + R"(,"schema":[]})",
                    "\"schema\" must be a JSON object"},
        RefusalCase{"UnknownMember", Definition(R"("instanceIDProperty":"name")"),
                    "unknown member \"instanceIDProperty\""},
        RefusalCase{"TagsNotArray", Definition(R"("tags":"@rebootRequiredSetvault")"),
                    "\"tags\" must be an array of strings"},
        RefusalCase{"TagNotString", Definition(R"("tags":["@a", 3])"),
                    "\"tags\" must hold strings only"},
        RefusalCase{"KindNegative", Definition(R"("configKind":-1)"),
                    "\"configKind\" must be a non-negative integer"},
        RefusalCase{"KindText", Definition(R"("configKind":"5")"),
                    "\"configKind\" must be a non-negative integer"},
        RefusalCase{"UpgradeFlagText", Definition(R"("confirmedDuringUpgrade":"yes")"),
                    "\"confirmedDuringUpgrade\" must be true or false"},
        RefusalCase{"DefaultsArray", Definition(R"("defaults":[1])"),
                    "\"defaults\" must be a JSON object"},
        RefusalCase{"NonUserIdsWrongKind",
                    Definition(R"("instanceIdProperty":"n","nonUserInstanceIds":["a"])"),
                    "applies to \"configKind\" 5 only"},
        RefusalCase{"VitalNotBool",
                    Definition("", R"({"properties":{"a":{"type":"string","vital":"true"}}})"),
                    "schema node /schema/properties/a: \"vital\" must be true or false"},
        RefusalCase{"UnknownTypeName", Definition("", R"({"properties":{"a":{"type":"strng"}}})"),
                    "schema node /schema/properties/a: \"type\" must name JSON types"},
        RefusalCase{"TypeListWithNumber", Definition("", R"({"type":["object", 1]})"),
                    "schema node /schema: \"type\" must name JSON types"},
        RefusalCase{"PropertyNotSchema", Definition("", R"({"properties":{"a":5}})"),
                    "schema node /schema/properties/a must be a JSON object or a boolean"},
        RefusalCase{"DeepSchema", Definition("", NestedSchema(125)),
                    "defs/bad.json: /schema: value is nested deeper than 128 levels"},
        RefusalCase{"MisspeltKeyword",
                    Definition("", R"({"type":"object","propertise":{"a":{"type":"string"}}})"),
                    "/schema/propertise: \"propertise\" is not a supported keyword"},
        RefusalCase{"UnsupportedKeyword",
                    Definition("", R"({"properties":{"a":{"type":"string",
                        "contentMediaType":"text/plain"}}})"),
                    "/schema/properties/a/contentMediaType: \"contentMediaType\" is not a "
                    "supported keyword"},
        RefusalCase{"PatternDoesNotCompile",
                    Definition("", R"({"properties":{"a":{"type":"string","pattern":"(["}}})"),
                    "/schema/properties/a/pattern: value \"([\" is not a valid regex (missing ]: [)"},
        RefusalCase{"PatternWithBackreference",
                    Definition("", R"({"properties":{"a":{"type":"string",
                        "pattern":"^(a)\\1$"}}})"),
                    "/schema/properties/a/pattern: value"},
        RefusalCase{"PatternPropertyDoesNotCompile",
                    Definition("", R"({"patternProperties":{"a(":{"type":"string"}}})"),
                    "/schema/patternProperties/a(: member name \"a(\""},
        RefusalCase{"UnsupportedFormat",
                    Definition("", R"({"properties":{"a":{"type":"string","format":"uri"}}})"),
                    "/schema/properties/a/format: value \"uri\" is not one of the allowed"},
        RefusalCase{"RemoteReference",
                    Definition("", R"({"properties":{"a":{"type":"string","$ref":"http://x/s.json#/a"}}})"),
                    "/schema/properties/a/$ref: value \"http://x/s.json#/a\" does not match"},
        RefusalCase{"DanglingReference",
                    Definition("", R"({"properties":{"a":{"type":"string","$ref":"#/definitions/gone"}}})"),
                    "/schema: Invalid JSON schema: unresolved \"$ref\" \"#/definitions/gone\""},
        RefusalCase{"AnchorReference",
                    Definition("", R"({"definitions":{"b":{"type":"string"}},
                        "properties":{"a":{"type":"string","$ref":"#b"}}})"),
                    "unresolved \"$ref\" \"#b\""},
        RefusalCase{"IdBelowTheRoot",
                    Definition("", R"({"properties":{"a":{"$id":"#a","type":"string"}}})"),
                    "/schema/properties/a/$id: \"$id\" is not a supported keyword"},
        RefusalCase{"OtherDraft",
                    Definition("", R"({"$schema":"http://json-schema.org/draft-04/schema#"})"),
                    "/schema/$schema: value"},
        RefusalCase{"FractionalCount",
                    Definition("", R"({"properties":{"a":{"type":"string","maxLength":2.5}}})"),
                    "/schema/properties/a/maxLength: value of type number is not allowed here "
                    "(expected integer)"},
        RefusalCase{"DefaultsAgainstSchema",
                    Definition(R"("defaults":{"mtu":70000,"name":1,"odd":true})",
                               R"({"type":"object","properties":{
                        "mtu":{"type":"integer","maximum":9216},"name":{"type":"string"}}})"),
                    "defs/bad.json: /defaults/odd: member 'odd' is not described in the schema\n"
                    "defs/bad.json: /defaults/mtu: value 70000 exceeds maximum 9216\n"
                    "defs/bad.json: /defaults/name: value of type integer is not allowed here "
                    "(expected string)"},
        RefusalCase{"VitalAndCached", Definition("", R"({"vital":true,"cached":true})"),
                    "both \"vital\" and \"cached\""},
        RefusalCase{"TypeIdUndescribed",
                    Definition(R"("instanceIdProperty":"name")",
                               R"({"properties":{"mtu":{"type":"integer"}}})"),
                    "instance id member \"name\" is not described"},
        RefusalCase{"ArrayIdUndescribed", Definition("", R"({"properties":{"pg":{"type":"array",
                        "instanceIdProperty":"name","items":{"type":"object",
                        "properties":{"vlan":{"type":"integer"}}}}}})"),
                    "schema node /schema/properties/pg/items: instance id member \"name\""},
        RefusalCase{"GeneratedIdUndescribed",
                    Definition("", R"({"properties":{"rules":{"type":"array",
                        "generatedInstanceId":true,"items":{"type":"object",
                        "properties":{"port":{"type":"integer"}}}}}})"),
                    "instance id member \"sv_generated_id\""},
        RefusalCase{"NamedAndGenerated",
                    Definition("", R"({"properties":{"r":{"type":"array","instanceIdProperty":"n",
                        "generatedInstanceId":true,"items":{"type":"object",
                        "properties":{"n":{"type":"string"}}}}}})"),
                    "not both"},
        RefusalCase{"IdOnObject", Definition("", R"({"properties":{"r":{"type":"object",
                        "instanceIdProperty":"n","properties":{"n":{"type":"string"}}}}})"),
                    "an instance array needs \"type\": \"array\""},
        RefusalCase{"ConflictingIdMembers", Definition("", R"({"properties":{
                        "a":{"type":"array","instanceIdProperty":"x","items":{"type":"object",
                          "properties":{"x":{"type":"string"},
                            "ports":{"type":"array","instanceIdProperty":"id","items":{
                              "type":"object","properties":{"id":{"type":"string"}}}}}}},
                        "ports":{"type":"array","instanceIdProperty":"name","items":{
                          "type":"object","properties":{"name":{"type":"string"}}}}}})"),
                    "instances of \"ports\" are told apart by \"id\" in one place and by "
                    "\"name\" in another"}),
    [](const ::testing::TestParamInfo<RefusalCase>& test) { return test.param.name; });

TEST(SchemaDefinitionTest, AcceptedDefinitionKeepsItsMembers) {
  auto definition = ParseSchemaDefinition(
      Definition(R"("instanceIdProperty":"name","tags":["@x"],"configKind":5,
                 "nonUserInstanceIds":["up0"],"valueType":"korvo-shared",
                 "currentValueDuringBoot":true,"defaults":{"mtu":1500})",
                 R"({"type":"object","properties":{"name":{"type":["string","null"]},
                   "pg":{"type":"array","instanceIdProperty":"pgName","items":{"type":"object",
                     "properties":{"pgName":{"type":"string"},
                       "rules":{"type":"array","generatedInstanceId":true,"items":{
                         "type":"object",
                         "properties":{"sv_generated_id":{"type":"string"}}}}}}}}})"),
      "ok.json");
  EXPECT_EQ(definition->component, "korvo");
  EXPECT_EQ(definition->group, "net");
  EXPECT_EQ(definition->key, "vswitch");
  EXPECT_EQ(definition->instanceIdProperty, "name");
  EXPECT_EQ(definition->configKind, 5);
  EXPECT_EQ(definition->nonUserInstanceIds, std::vector<std::string>{"up0"});
  EXPECT_EQ(definition->valueType, "korvo-shared");
  EXPECT_TRUE(definition->currentValueDuringBoot);
  EXPECT_FALSE(definition->confirmedDuringUpgrade);
  EXPECT_EQ(KorvoSetvault::SetvaultDocument::SerializeValue(*definition->idMap->GetJsonValuePtr()),
            R"({"vswitch":"name","pg":"pgName","rules":"sv_generated_id"})");
  ASSERT_NE(definition->defaults, nullptr);
  EXPECT_EQ((*definition->defaults->GetJsonValuePtr())["mtu"].GetInt(), 1500);
  // The stored text parses back to the same definition.
  auto again = ParseSchemaDefinition(definition->text, "row");
  EXPECT_EQ(again->text, definition->text);
}

TEST(SchemaDefinitionTest, SameSubObjectKeyWithSameIdMemberIsOneEntry) {
  const std::string ports =
      R"({"type":"array","instanceIdProperty":"id","items":{"type":"object",
          "properties":{"id":{"type":"string"}}}})";
  auto definition = ParseSchemaDefinition(
      Definition("", R"({"properties":{"ports":)" + ports +
                         R"(,"lag":{"type":"object","properties":{"ports":)" + ports + "}}}}"),
      "ok.json");
  EXPECT_EQ(KorvoSetvault::SetvaultDocument::SerializeValue(*definition->idMap->GetJsonValuePtr()),
            R"({"ports":"id"})");
  EXPECT_EQ(definition->defaults, nullptr);
}

TEST(SchemaDefinitionTest, NamesAllowLettersDigitsUnderscoreAndDash) {
  EXPECT_TRUE(KorvoSchemaStore::IsValidSchemaName("cpu_Scheduler-2"));
  EXPECT_FALSE(KorvoSchemaStore::IsValidSchemaName(""));
  EXPECT_FALSE(KorvoSchemaStore::IsValidSchemaName("a.b"));
  EXPECT_FALSE(KorvoSchemaStore::IsValidSchemaName("caf\xc3\xa9"));
}

}  // namespace
