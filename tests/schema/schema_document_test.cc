// Schemas for whole documents, generated instance ids, and placing objects
// into export documents.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "document/setvault_document.h"
#include "schema/schema_generated_id.h"
#include "schema/schema_store.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"
#include "support/temp_dir.h"

namespace {

using KorvoSchemaStore::GenerateSchemaDocument;
using KorvoSchemaStore::SchemaStore;
using KorvoSetvault::CreateDocument;
using KorvoSetvault::CreateDocumentFromString;
using KorvoSetvault::JsonValue;
using KorvoSetvault::SetvaultDocument;
using ::testing::HasSubstr;

std::string Serialize(const JsonValue& value) { return SetvaultDocument::SerializeValue(value); }

class SchemaDocumentTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new setvault_test::TempDir();
    KorvoSetvault::SetSchemaStorePath(dir_->File("schema.db"));
    KorvoSetvault::SetStorePath(dir_->File("store.db"));
    KorvoSetvault::LoadSchemaDefinitions(setvault_test::SourceDir() + "/examples/schemas");
  }
  static void TearDownTestSuite() { delete dir_; }

  // Generates the schema of `text` into schema_ and its findings into result_.
  void Generate(const std::string& text) {
    document_ = CreateDocumentFromString(text);
    GenerateSchemaDocument(document_->GetDocument(), SchemaStore::GetCache(),
                           schema_->GetDocument(), result_->GetDocument());
  }
  const JsonValue& Schema() { return schema_->GetDocument(); }
  const JsonValue& Result() { return result_->GetDocument(); }
  const JsonValue& TypeSchema(const char* component, const char* group, const char* key) {
    return SchemaStore::GetCache()->GetSchemaObject(component, group, key)->GetSchemaJson();
  }

  static setvault_test::TempDir* dir_;
  std::shared_ptr<KorvoSetvault::JsonDoc> document_;
  std::shared_ptr<KorvoSetvault::JsonDoc> schema_ = CreateDocument();
  std::shared_ptr<KorvoSetvault::JsonDoc> result_ = CreateDocument();
};

setvault_test::TempDir* SchemaDocumentTest::dir_ = nullptr;

TEST_F(SchemaDocumentTest, SingletonAndMultiInstanceTypesAtTheirLevels) {
  Generate(R"({"korvo": {"system": {"host": {"hostname": "h1"}},
                         "net": {"vswitch": [{"name": "vs0"}], "dns": {}}}})");
  EXPECT_EQ(Serialize(Result()), "[]");
  EXPECT_EQ(Schema()["type"], "object");
  const JsonValue& korvo = Schema()["properties"]["korvo"];
  EXPECT_EQ(korvo["type"], "object");
  EXPECT_EQ(korvo["properties"]["system"]["type"], "object");
  EXPECT_TRUE(korvo["properties"]["system"]["properties"]["host"] ==
              TypeSchema("korvo", "system", "host"));
  const JsonValue& net = korvo["properties"]["net"]["properties"];
  EXPECT_EQ(net["vswitch"]["type"], "array");
  EXPECT_EQ(net["vswitch"]["instanceIdProperty"], "name");
  EXPECT_TRUE(net["vswitch"]["items"] == TypeSchema("korvo", "net", "vswitch"));
  EXPECT_TRUE(net["dns"] == TypeSchema("korvo", "net", "dns"));
  EXPECT_EQ(net.MemberCount(), 2u);  // only the keys that the document holds
}

TEST_F(SchemaDocumentTest, UnknownTypesAreFindingsWithTheirPointer) {
  Generate(R"({"korvo": {"net": {"vswitch": [], "bridge": {}}},
               "acme": {"a/b": {"x~y": 1}}})");
  ASSERT_TRUE(Result().IsArray());
  ASSERT_EQ(Result().Size(), 2u);
  EXPECT_EQ(Result()[0]["field"], "/korvo/net/bridge");
  EXPECT_EQ(Result()[0]["error"], "Schema not found for comp korvo grp net key bridge");
  EXPECT_EQ(Result()[1]["field"], "/acme/a~1b/x~0y");
  EXPECT_THAT(Result()[1]["error"].GetString(), HasSubstr("comp acme grp a/b key x~y"));
  // The unknown key accepts anything, so the finding is its only report.
  EXPECT_EQ(Serialize(Schema()["properties"]["korvo"]["properties"]["net"]["properties"]["bridge"]),
            "{}");
  EXPECT_TRUE(
      Schema()["properties"]["korvo"]["properties"]["net"]["properties"]["vswitch"].IsObject());
}

TEST_F(SchemaDocumentTest, FindingsAreAppendedToAnExistingResult) {
  result_->GetDocument().Parse(R"([{"field": "/", "error": "earlier"}])");
  Generate(R"({"korvo": {"net": {"nosuch": {}}}})");
  ASSERT_EQ(Result().Size(), 2u);
  EXPECT_EQ(Result()[0]["error"], "earlier");
  EXPECT_EQ(Result()[1]["field"], "/korvo/net/nosuch");
}

TEST_F(SchemaDocumentTest, MalformedLevelsDoNotStopTheWalk) {
  Generate(R"({"korvo": {"net": [1, 2], "system": {"host": {}}}, "acme": 5})");
  EXPECT_EQ(Serialize(Result()), "[]");
  const JsonValue& properties = Schema()["properties"];
  EXPECT_EQ(Serialize(properties["acme"]), R"({"type":"object","properties":{}})");
  EXPECT_EQ(Serialize(properties["korvo"]["properties"]["net"]),
            R"({"type":"object","properties":{}})");
  EXPECT_TRUE(properties["korvo"]["properties"]["system"]["properties"]["host"].IsObject());

  Generate("[1]");
  EXPECT_EQ(Serialize(Schema()), R"({"type":"object"})");
  EXPECT_EQ(Serialize(Result()), "[]");
}

TEST_F(SchemaDocumentTest, WithoutCacheEveryTypeIsAFinding) {
  document_ = CreateDocumentFromString(R"({"korvo": {"net": {"dns": {}, "vswitch": []}}})");
  GenerateSchemaDocument(document_->GetDocument(), nullptr, schema_->GetDocument(),
                         result_->GetDocument());
  EXPECT_EQ(Result().Size(), 2u);
}

const std::regex kUuid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");

TEST_F(SchemaDocumentTest, GeneratedIdsFillWholeDocumentsThroughTheGeneratedSchema) {
  Generate(R"({"korvo": {"net": {
      "firewall": {"rules": [{"port": 22}, {"sv_generated_id": "keep", "port": 80}, 7]},
      "vswitch": [{"name": "vs0", "portgroups": [{"name": "pg0"}]}]}}})");
  KorvoSetvault::PopulateGeneratedInstanceId(Schema(), document_->GetDocument());
  const JsonValue& rules = document_->GetDocument()["korvo"]["net"]["firewall"]["rules"];
  ASSERT_TRUE(rules[0].HasMember("sv_generated_id"));
  EXPECT_TRUE(std::regex_match(rules[0]["sv_generated_id"].GetString(), kUuid));
  EXPECT_EQ(rules[1]["sv_generated_id"], "keep");
  EXPECT_EQ(rules[2], 7);
  // Arrays with caller-given ids get nothing.
  EXPECT_EQ(Serialize(document_->GetDocument()["korvo"]["net"]["vswitch"]),
            R"([{"name":"vs0","portgroups":[{"name":"pg0"}]}])");
}

TEST_F(SchemaDocumentTest, GeneratedIdsInsideInstancesAndFreshPerElement) {
  const char* schema = R"({"type": "object", "properties": {
      "zones": {"type": "array", "instanceIdProperty": "zone", "items": {"type": "object",
        "properties": {"zone": {"type": "string"},
          "rules": {"type": "array", "generatedInstanceId": true, "items": {"type": "object",
            "properties": {"sv_generated_id": {"type": "string"}}}}}}},
      "other": {"type": "array", "items": {"type": "object"}}}})";
  auto schema_doc = CreateDocumentFromString(schema);
  auto data = CreateDocumentFromString(R"({"zones": [{"zone": "a", "rules": [{}, {}]},
      {"zone": "b", "rules": [{"x": 1}]}], "other": [{}], "unknown": [{}]})");
  KorvoSetvault::PopulateGeneratedInstanceId(schema_doc->GetDocument(), *data);
  const JsonValue& zones = data->GetDocument()["zones"];
  std::set<std::string> ids;
  for (const JsonValue& zone : zones.GetArray()) {
    for (const JsonValue& rule : zone["rules"].GetArray()) {
      ASSERT_TRUE(rule.HasMember("sv_generated_id"));
      ids.insert(rule["sv_generated_id"].GetString());
    }
  }
  EXPECT_EQ(ids.size(), 3u);
  EXPECT_FALSE(zones[0].HasMember("sv_generated_id"));
  EXPECT_EQ(Serialize(data->GetDocument()["other"]), "[{}]");
  EXPECT_EQ(Serialize(data->GetDocument()["unknown"]), "[{}]");
}

TEST_F(SchemaDocumentTest, GeneratedIdsForOneTypesData) {
  auto data = CreateDocumentFromString(R"({"enabled": true, "rules": [{"port": 443}]})");
  auto firewall = SchemaStore::GetCache()->GetSchemaObject("korvo", "net", "firewall");
  KorvoSetvault::PopulateGeneratedInstanceId(firewall->GetSchemaJson(), *data->GetJsonValuePtr(),
                                             data->GetAllocator());
  EXPECT_TRUE(data->GetDocument()["rules"][0].HasMember("sv_generated_id"));
  EXPECT_FALSE(data->GetDocument().HasMember("sv_generated_id"));
}

TEST(AddObjectTest, BuildsTheExportLayout) {
  auto out = CreateDocument();
  auto& allocator = out->GetAllocator();
  JsonValue& root = out->GetDocument();
  auto add = [&](const char* component, const char* group, const char* key, const char* id,
                 const char* data) {
    JsonValue value(CreateDocumentFromString(data)->GetDocument(), allocator);
    SetvaultDocument::AddObject(root, component, group, key, id, value, allocator);
  };
  add("korvo", "net", "vswitch", "vs0", R"({"name":"vs0","mtu":9000})");
  add("korvo", "system", "host", "", R"({"hostname":"h1"})");
  add("korvo", "net", "vswitch", "vs1", R"({"name":"vs1"})");
  add("nicmgr", "hw", "firmware", "0000:3b:00.0", R"({"pciAddress":"0000:3b:00.0"})");
  add("korvo", "system", "host", "", R"({"hostname":"h2"})");  // replaces the first
  EXPECT_EQ(Serialize(root),
            R"({"korvo":{"net":{"vswitch":[{"name":"vs0","mtu":9000},{"name":"vs1"}]},)"
            R"("system":{"host":{"hostname":"h2"}}},)"
            R"("nicmgr":{"hw":{"firmware":[{"pciAddress":"0000:3b:00.0"}]}}})");
}

TEST(AddObjectTest, RefusesMixingSingletonsAndInstancesUnderOneKey) {
  auto out = CreateDocument();
  auto& allocator = out->GetAllocator();
  JsonValue& root = out->GetDocument();
  JsonValue first(rapidjson::kObjectType);
  SetvaultDocument::AddObject(root, "korvo", "net", "dns", "", first, allocator);
  JsonValue instance(rapidjson::kObjectType);
  try {
    SetvaultDocument::AddObject(root, "korvo", "net", "dns", "x", instance, allocator);
    ADD_FAILURE() << "instance added to a singleton";
  } catch (const KorvoSetvault::SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), KorvoSetvault::SV_ERR_GENERIC);
    EXPECT_STREQ(e.what(), "Cannot add instance x to korvo/net/dns: it holds a singleton object");
  }
  JsonValue second(rapidjson::kObjectType);
  SetvaultDocument::AddObject(root, "korvo", "net", "vswitch", "vs0", second, allocator);
  JsonValue singleton(rapidjson::kObjectType);
  EXPECT_THROW(
      SetvaultDocument::AddObject(root, "korvo", "net", "vswitch", "", singleton, allocator),
      KorvoSetvault::SetvaultException);
  root["korvo"].AddMember("storage", 5, allocator);
  JsonValue third(rapidjson::kObjectType);
  EXPECT_THROW(
      SetvaultDocument::AddObject(root, "korvo", "storage", "datastore", "d", third, allocator),
      KorvoSetvault::SetvaultException);
  EXPECT_EQ(Serialize(root), R"({"korvo":{"net":{"dns":{},"vswitch":[{}]},"storage":5}})");
}

}  // namespace
