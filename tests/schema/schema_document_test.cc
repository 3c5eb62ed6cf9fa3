// Checks of single definitions (what is refused, with which message, and
// what an accepted definition yields), schemas for whole documents, generated
// instance ids, and placing objects into export documents.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "document/setvault_document.h"
#include "schema/schema_definition.h"
#include "schema/schema_generated_id.h"
#include "schema/schema_store.h"
#include "setvault/exceptions.h"
#include "support/example_schemas.h"
#include "support/thrown.h"

namespace KorvoSetvault {
namespace {

using KorvoSchemaStore::CheckSchemaDefinition;
using KorvoSchemaStore::ParseSchemaDefinition;
using KorvoSchemaStore::SchemaStore;
using setvault_test::Thrown;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string Serialize(const JsonValue& value) { return SetvaultDocument::SerializeValue(value); }

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

// A definition whose member "a" is a string with the keywords `keywords`.
std::string Str(const std::string& keywords) {
  return Prop(R"({"type":"string",)" + keywords + "}");
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

// A definition of korvo/`group`/k with an empty schema.
std::string Grouped(const std::string& group) {
  return R"({"component":"korvo","group":")" + group + R"(","key":"k","version":"1","schema":{}})";
}

TEST(SchemaDefinitionTest, RefusalNamesTheFileAndTheFault) {
  const std::string names = R"("component":"korvo","group":"net","key":"k")";
  const std::string arrays = R"({"type":"array","items":{"type":"object","properties":)";
  const struct {
    std::string text;
    std::string fault;
  } cases[] = {
      {"[1, 2]", "the definition must be a JSON object"},
      {Grouped(""), "\"group\" must not be empty"},
      {Grouped("n et"), "\"group\" value \"n et\" may hold"},
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
      {Str(R"("vital":"true")"), "node /schema/properties/a: \"vital\" must be true or false"},
      // Type names are checked by this library, not only by the validator.
      {Prop(R"({"type":"strng"})"), "schema node /schema/properties/a: \"type\" must name JSON"},
      {Def("", R"({"type":["object", 1]})"), "schema node /schema: \"type\" must name JSON types"},
      {Prop("5"), "schema node /schema/properties/a must be a JSON object or a boolean"},
      {Prop(R"({"type":"array"})"), "/schema/properties/a: an array needs \"items\""},
      {Def("", Nested(125)), "defs/bad.json: /schema: value is nested deeper than 128 levels"},
      {Str(R"("contentMediaType":"t")"), "/a/contentMediaType: \"contentMediaType\" is not a"},
      {Str(R"("pattern":"^(a)\\1$")"), "/schema/properties/a/pattern: value"},
      {Def("", R"({"patternProperties":{"a(":{}}})"), "/schema/patternProperties/a(: member name"},
      {Str(R"("format":"uri")"), "/schema/properties/a/format: value \"uri\" is not one of the"},
      {Str(R"("$ref":"http://x/s.json#/a")"),
       "/a/$ref: value \"http://x/s.json#/a\" does not match"},
      {Def("", R"({"definitions":{"b":{}},"properties":{"a":{"type":"string","$ref":"#b"}}})"),
       "unresolved \"$ref\" \"#b\""},
      {Def("", R"({"$schema":"http://json-schema.org/draft-04/schema#"})"), "/schema/$schema: "},
      {Str(R"("maxLength":2.5)"),
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
    const std::string thrown = Thrown([&] { CheckSchemaDefinition(c.text, "defs/bad.json"); });
    EXPECT_THAT(thrown, StartsWith("2000 defs/bad.json: "));
    EXPECT_THAT(thrown, HasSubstr(c.fault));
  }
}

TEST(SchemaDefinitionTest, AcceptedDefinitionKeepsItsMembers) {
  const std::string text = Def(
      R"("instanceIdProperty":"name","tags":["@x","@rebootRequiredSetvault"],"configKind":5,
         "nonUserInstanceIds":["up0"],"valueType":"korvo-shared","currentValueDuringBoot":true,
         "defaults":{"mtu":1500},"defaultInstances":[{"name":"a"}])",
      R"({"type":"object","properties":{"name":{"type":["string","null"]},"mtu":{"type":"integer"},
        "pg":{"type":"array","instanceIdProperty":"pgName","items":{"type":"object","properties":
          {"pgName":{"type":"string"},"rules":{"type":"array","generatedInstanceId":true,"items":
            {"type":"object","properties":{"sv_generated_id":{"type":"string"}}}}}}},
        "lag":{"type":"object","properties":{"pg":{"type":"array","instanceIdProperty":"pgName",
          "items":{"type":"object","properties":{"pgName":{"type":"string"}}}}}}}})");
  const KorvoSchemaStore::SchemaObject type(CheckSchemaDefinition(text, "ok.json"));
  EXPECT_EQ(type.GetComponent() + "/" + type.GetGroup() + "/" + type.GetKey() + " " +
                type.GetVersion() + " " + type.GetInstanceIdProperty() + " " + type.GetValueType(),
            "korvo/net/vswitch 1.0 name korvo-shared");
  EXPECT_EQ(std::make_tuple(type.IsNonSingleton(), type.IsRebootRequiredConfig(),
                            type.UsesCurrentValueDuringBoot(), type.IsConfirmedDuringUpgrade(),
                            type.GetConfigKind(), type.GetNonUserInstanceIds()),
            std::make_tuple(true, true, true, false, 5, std::vector<std::string>{"up0"}));
  // One entry per key, also for a key met in two places with the same id member.
  EXPECT_EQ(Serialize(*type.GetIdMap()->GetJsonValuePtr()),
            R"({"vswitch":"name","pg":"pgName","rules":"sv_generated_id"})");
  EXPECT_EQ(Serialize(*type.GetDefaults()->GetJsonValuePtr()), R"({"mtu":1500})");
  // The type's own id member is named in its schema for the checks of its data.
  EXPECT_EQ(type.GetSchemaJson()["instanceIdProperty"], "name");
  // The stored text parses back to the same definition.
  auto definition = ParseSchemaDefinition(text, "ok.json");
  EXPECT_EQ(ParseSchemaDefinition(definition->text, "row")->text, definition->text);
}

class SchemaDocumentTest : public ::testing::Test {
 protected:
  // Generates the schema of `text` (against `cache`) into schema_, its findings into result_.
  void Generate(
      const std::string& text,
      const std::shared_ptr<KorvoSchemaStore::SchemaObjectCache>& cache = SchemaStore::GetCache()) {
    document_ = CreateDocumentFromString(text);
    KorvoSchemaStore::GenerateSchemaDocument(document_->GetDocument(), cache,
                                             schema_->GetDocument(), result_->GetDocument());
  }
  const JsonValue& Schema() { return schema_->GetDocument(); }
  const JsonValue& Result() { return result_->GetDocument(); }

  setvault_test::ExampleSchemas schemas_;
  std::shared_ptr<JsonDoc> document_;
  std::shared_ptr<JsonDoc> schema_ = CreateDocument();
  std::shared_ptr<JsonDoc> result_ = CreateDocument();
};

TEST_F(SchemaDocumentTest, UnknownTypesAreFindingsAndMalformedLevelsAreSkipped) {
  result_->GetDocument().Parse(R"([{"field": "/", "error": "earlier"}])");
  Generate(R"({"korvo": {"net": {"vswitch": [], "bridge": {}}}, "acme": {"a/b": {"x~y": 1}}})");
  EXPECT_EQ(Serialize(Result()),
            R"([{"field":"/","error":"earlier"},)"
            R"({"field":"/korvo/net/bridge","error":"Schema not found for comp korvo grp net key )"
            R"(bridge"},{"field":"/acme/a~1b/x~0y","error":"Schema not found for comp acme grp )"
            R"(a/b key x~y"}])");
  // The unknown key accepts anything, so the finding is its only report.
  const JsonValue& net = Schema()["properties"]["korvo"]["properties"]["net"]["properties"];
  EXPECT_EQ(Serialize(net["bridge"]), "{}");
  EXPECT_TRUE(net["vswitch"].IsObject());
  // Malformed levels do not stop the walk.
  result_->GetDocument().SetArray();
  Generate(R"({"korvo": {"net": [1, 2], "system": {"host": {}}}, "acme": 5})");
  EXPECT_EQ(Serialize(Result()), "[]");
  const JsonValue& properties = Schema()["properties"];
  EXPECT_EQ(Serialize(properties["acme"]), R"({"type":"object","properties":{}})");
  EXPECT_EQ(Serialize(properties["korvo"]["properties"]["net"]),
            R"({"type":"object","properties":{}})");
  EXPECT_TRUE(properties["korvo"]["properties"]["system"]["properties"]["host"].IsObject());
  Generate("[1]");
  EXPECT_EQ(Serialize(Schema()), R"({"type":"object"})");
}

const std::regex kUuid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");

TEST_F(SchemaDocumentTest, GeneratedIdsFillWholeDocumentsThroughTheGeneratedSchema) {
  Generate(R"({"korvo": {"net": {
      "firewall": {"rules": [{"port": 22}, {"sv_generated_id": "keep", "port": 80}, 7, {}]},
      "vswitch": [{"name": "vs0", "portgroups": [{"name": "pg0"}]}]}}})");
  PopulateGeneratedInstanceId(Schema(), *document_);
  const JsonValue& rules = document_->GetDocument()["korvo"]["net"]["firewall"]["rules"];
  EXPECT_TRUE(std::regex_match(rules[0]["sv_generated_id"].GetString(), kUuid));
  EXPECT_EQ(rules[1]["sv_generated_id"], "keep");
  EXPECT_EQ(rules[2], 7);
  EXPECT_NE(rules[3]["sv_generated_id"], rules[0]["sv_generated_id"]);  // fresh per element
  // Arrays with caller-given ids get nothing.
  EXPECT_EQ(Serialize(document_->GetDocument()["korvo"]["net"]["vswitch"]),
            R"([{"name":"vs0","portgroups":[{"name":"pg0"}]}])");
}

TEST(AddObjectTest, BuildsTheExportLayoutAndRefusesMixingSingletonsAndInstances) {
  auto out = CreateDocument();
  JsonValue& root = out->GetDocument();
  auto add = [&](const char* group, const char* key, const char* id, const char* data) {
    JsonValue value(CreateDocumentFromString(data)->GetDocument(), out->GetAllocator());
    SetvaultDocument::AddObject(root, "korvo", group, key, id, value, out->GetAllocator());
  };
  add("net", "vswitch", "vs0", R"({"name":"vs0","mtu":9000})");
  add("system", "host", "", R"({"hostname":"h1"})");
  add("net", "vswitch", "vs1", R"({"name":"vs1"})");
  add("system", "host", "", R"({"hostname":"h2"})");  // replaces the first
  EXPECT_EQ(Serialize(root), R"({"korvo":{"net":{"vswitch":[{"name":"vs0","mtu":9000},)"
                             R"({"name":"vs1"}]},"system":{"host":{"hostname":"h2"}}}})");
  setvault_test::ExpectError(
      [&] { add("system", "host", "x", "{}"); }, SV_ERR_GENERIC,
      "Cannot add instance x to korvo/system/host: it holds a singleton object");
  EXPECT_THROW(add("net", "vswitch", "", "{}"), SetvaultException);
  root["korvo"].AddMember("storage", 5, out->GetAllocator());
  EXPECT_THROW(add("storage", "datastore", "d", "{}"), SetvaultException);
  EXPECT_EQ(Serialize(root["korvo"]["system"]), R"({"host":{"hostname":"h2"}})");  // unchanged
}

}  // namespace
}  // namespace KorvoSetvault
