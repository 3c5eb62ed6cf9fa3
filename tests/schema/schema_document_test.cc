// Schemas for whole documents, generated instance ids, and placing objects
// into export documents.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "document/setvault_document.h"
#include "schema/schema_generated_id.h"
#include "schema/schema_store.h"
#include "setvault/exceptions.h"
#include "support/example_schemas.h"

namespace KorvoSetvault {
namespace {

using KorvoSchemaStore::SchemaStore;

std::string Serialize(const JsonValue& value) { return SetvaultDocument::SerializeValue(value); }

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
  // Without a cache every type is a finding.
  result_->GetDocument().SetArray();
  Generate(R"({"korvo": {"net": {"dns": {}, "vswitch": []}}})", nullptr);
  EXPECT_EQ(Result().Size(), 2u);
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
  auto add = [&](const char* group, const char* key, const char* id, const char* data,
                 const char* component = "korvo") {
    JsonValue value(CreateDocumentFromString(data)->GetDocument(), out->GetAllocator());
    SetvaultDocument::AddObject(root, component, group, key, id, value, out->GetAllocator());
  };
  add("net", "vswitch", "vs0", R"({"name":"vs0","mtu":9000})");
  add("system", "host", "", R"({"hostname":"h1"})");
  add("net", "vswitch", "vs1", R"({"name":"vs1"})");
  add("hw", "firmware", "0000:3b:00.0", R"({"pciAddress":"0000:3b:00.0"})", "nicmgr");
  add("system", "host", "", R"({"hostname":"h2"})");  // replaces the first
  const std::string layout =
      R"({"korvo":{"net":{"vswitch":[{"name":"vs0","mtu":9000},{"name":"vs1"}]},)"
      R"("system":{"host":{"hostname":"h2"}}},)"
      R"("nicmgr":{"hw":{"firmware":[{"pciAddress":"0000:3b:00.0"}]}}})";
  EXPECT_EQ(Serialize(root), layout);
  try {
    add("system", "host", "x", "{}");
    ADD_FAILURE() << "instance added to a singleton";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), SV_ERR_GENERIC);
    EXPECT_STREQ(e.what(),
                 "Cannot add instance x to korvo/system/host: it holds a singleton object");
  }
  EXPECT_THROW(add("net", "vswitch", "", "{}"), SetvaultException);
  root["korvo"].AddMember("storage", 5, out->GetAllocator());
  EXPECT_THROW(add("storage", "datastore", "d", "{}"), SetvaultException);
  EXPECT_EQ(Serialize(root["korvo"]["system"]), R"({"host":{"hostname":"h2"}})");  // unchanged
}

}  // namespace
}  // namespace KorvoSetvault
