// The compiled-schema cache: reuse, recompilation when a schema changes,
// bounded size, and use from several threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "json_validator_fixture.h"
#include "jsonschema/json_validator_cache.h"

namespace setvault_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class JsonValidatorCache : public ::testing::Test {
 protected:
  void SetUp() override { JsonValidator::ResetCacheForTesting(); }

  std::shared_ptr<KorvoSetvault::JsonDoc> Parse(const std::string& text) {
    return KorvoSetvault::CreateDocumentFromString(text);
  }
};

constexpr char kLimitSchema[] =
    R"({"type": "object", "properties": {"mtu": {"type": "integer", "maximum": 9000}}})";

TEST_F(JsonValidatorCache, SameSchemaAndOptionsCompileOnce) {
  auto schema = Parse(kLimitSchema);
  auto bad = Parse(R"({"mtu": 9001})");
  auto first = CheckDocs(schema, bad, {0, 1});
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(CheckDocs(schema, bad, {0, 1}), first);
  }
  EXPECT_THAT(first, ElementsAre(Found{"/mtu", "value 9001 exceeds maximum 9000"}));
  EXPECT_EQ(JsonValidator::CompileCountForTesting(), 1u);
  // Another option set is another compiled form.
  CheckDocs(schema, bad, {0, 1, 7});
  EXPECT_EQ(JsonValidator::CompileCountForTesting(), 2u);
}

TEST_F(JsonValidatorCache, SchemaChangedAtTheSameAddressIsRecompiled) {
  auto schema = Parse(kLimitSchema);
  auto instance = Parse(R"({"mtu": 9001})");
  KorvoSetvault::JsonValue& value = *schema->GetJsonValuePtr();
  EXPECT_THAT(CheckValues(value, *instance->GetJsonValuePtr(), {0, 1}), SizeIs(1));
  value["properties"]["mtu"]["maximum"].SetInt(10000);
  EXPECT_THAT(CheckValues(value, *instance->GetJsonValuePtr(), {0, 1}), IsEmpty());
  EXPECT_EQ(JsonValidator::CompileCountForTesting(), 2u);
  // A reload with the same content keeps the compiled form.
  KorvoSetvault::JsonDocument& document = schema->GetDocument();
  document.Parse(
      R"({"type": "object", "properties": {"mtu": {"type": "integer", "maximum": 10000}}})");
  EXPECT_THAT(CheckValues(document, *instance->GetJsonValuePtr(), {0, 1}), IsEmpty());
  EXPECT_EQ(JsonValidator::CompileCountForTesting(), 2u);
}

TEST_F(JsonValidatorCache, NamedSchemasAreKeyedByNameAndStillCompared) {
  const std::string name = "korvo/net/vswitch";
  auto loose = Parse(R"({"type": "object", "properties": {"mtu": {"type": "integer"}}})");
  auto instance = Parse(R"({"mtu": 9001})");
  EXPECT_THAT(CheckDocs(Parse(kLimitSchema), instance, {0, 1}, name), SizeIs(1));
  EXPECT_THAT(CheckDocs(loose, instance, {0, 1}, name), IsEmpty());
  auto copy = Parse(kLimitSchema);  // same content, another address, same name
  EXPECT_THAT(CheckDocs(copy, instance, {0, 1}, name), SizeIs(1));
  EXPECT_THAT(CheckDocs(copy, instance, {0, 1}, name), SizeIs(1));
  EXPECT_EQ(JsonValidator::CompileCountForTesting(), 3u);
}

TEST_F(JsonValidatorCache, SizeIsBoundedAndOldestEntriesAreDropped) {
  using JsonValidator::internal::CompiledSchemaCache;
  std::vector<std::shared_ptr<KorvoSetvault::JsonDoc>> schemas;
  auto instance = Parse("{}");
  for (size_t i = 0; i < CompiledSchemaCache::kMaxEntries + 10; ++i) {
    schemas.push_back(Parse(R"({"type": "object", "maxProperties": )" + std::to_string(i) + "}"));
    CheckDocs(schemas.back(), instance, {0, 1});
  }
  EXPECT_EQ(CompiledSchemaCache::Instance().Size(), CompiledSchemaCache::kMaxEntries);
  size_t compiled = JsonValidator::CompileCountForTesting();
  CheckDocs(schemas.back(), instance, {0, 1});
  EXPECT_EQ(JsonValidator::CompileCountForTesting(), compiled);
  CheckDocs(schemas.front(), instance, {0, 1});
  EXPECT_EQ(JsonValidator::CompileCountForTesting(), compiled + 1);
}

TEST_F(JsonValidatorCache, ThreadsShareCompiledSchemasWithConsistentResults) {
  auto schema = Parse(R"({"type": "object", "properties": {
      "name": {"type": "string", "pattern": "^[a-z]+$"},
      "ports": {"type": "array", "instanceIdProperty": "id",
                "items": {"type": "object", "properties": {"id": {"type": "string"}}}}}})");
  auto instance = Parse(R"({"name": "Bad", "ports": [{"id": "a"}, {"id": "a"}], "x": 1})");
  const auto expected = CheckDocs(schema, instance, {0, 1, 8});
  ASSERT_EQ(expected.size(), 3u);
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        auto got = CheckDocs(schema, instance, {0, 1, 8});
        if (got != expected) ++mismatches[t];
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(mismatches, ElementsAre(0, 0, 0, 0));
  EXPECT_EQ(JsonValidator::CompileCountForTesting(), 1u);
}

}  // namespace
}  // namespace setvault_test
