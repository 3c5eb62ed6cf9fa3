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

using JsonValidator::internal::CompiledSchemaCache;
using KorvoSetvault::CreateDocumentFromString;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class JsonValidatorCache : public ::testing::Test {
 protected:
  void SetUp() override { JsonValidator::ResetCacheForTesting(); }
  static size_t Compiled() { return JsonValidator::CompileCountForTesting(); }
};

std::string Limit(int maximum) {
  return R"({"type": "object", "properties": {"mtu": {"type": "integer", "maximum": )" +
         std::to_string(maximum) + "}}}";
}

TEST_F(JsonValidatorCache, CompiledFormIsReusedUntilTheSchemaChanges) {
  auto schema = CreateDocumentFromString(Limit(9000));
  auto bad = CreateDocumentFromString(R"({"mtu": 9001})");
  for (int i = 0; i < 3; ++i) EXPECT_THAT(CheckDocs(schema, bad, {0, 1}), SizeIs(1));
  EXPECT_EQ(Compiled(), 1u);
  CheckDocs(schema, bad, {0, 1, 7});  // another option set is another compiled form
  EXPECT_EQ(Compiled(), 2u);
  // A change at the same address is seen; a reload with the same content
  // keeps the compiled form.
  (*schema->GetJsonValuePtr())["properties"]["mtu"]["maximum"].SetInt(10000);
  EXPECT_THAT(CheckDocs(schema, bad, {0, 1}), IsEmpty());
  schema->GetDocument().Parse(Limit(10000).c_str());
  EXPECT_THAT(CheckDocs(schema, bad, {0, 1}), IsEmpty());
  EXPECT_EQ(Compiled(), 3u);
  // Named schemas are keyed by name and still compared.
  const std::string name = "korvo/net/vswitch";
  EXPECT_THAT(CheckDocs(CreateDocumentFromString(Limit(9000)), bad, {0, 1}, name), SizeIs(1));
  EXPECT_THAT(CheckDocs(schema, bad, {0, 1}, name), IsEmpty());
  auto copy = CreateDocumentFromString(Limit(9000));  // same content, another address
  for (int i = 0; i < 2; ++i) EXPECT_THAT(CheckDocs(copy, bad, {0, 1}, name), SizeIs(1));
  EXPECT_EQ(Compiled(), 6u);
}

TEST_F(JsonValidatorCache, SizeIsBoundedAndOldestEntriesAreDropped) {
  std::vector<std::shared_ptr<KorvoSetvault::JsonDoc>> schemas;
  auto instance = CreateDocumentFromString("{}");
  for (size_t i = 0; i < CompiledSchemaCache::kMaxEntries + 10; ++i) {
    schemas.push_back(CreateDocumentFromString(Limit(i)));
    CheckDocs(schemas.back(), instance, {0, 1});
  }
  EXPECT_EQ(CompiledSchemaCache::Instance().Size(), CompiledSchemaCache::kMaxEntries);
  const size_t compiled = Compiled();
  CheckDocs(schemas.back(), instance, {0, 1});
  EXPECT_EQ(Compiled(), compiled);
  CheckDocs(schemas.front(), instance, {0, 1});
  EXPECT_EQ(Compiled(), compiled + 1);
}

TEST_F(JsonValidatorCache, ThreadsShareCompiledSchemasWithConsistentResults) {
  auto schema = CreateDocumentFromString(R"({"type": "object", "properties": {
      "name": {"type": "string", "pattern": "^[a-z]+$"},
      "ports": {"type": "array", "instanceIdProperty": "id",
                "items": {"type": "object", "properties": {"id": {"type": "string"}}}}}})");
  auto instance =
      CreateDocumentFromString(R"({"name": "Bad", "ports": [{"id": "a"}, {"id": "a"}], "x": 1})");
  const auto expected = CheckDocs(schema, instance, {0, 1, 8});
  ASSERT_EQ(expected.size(), 3u);
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i)
        mismatches[t] += CheckDocs(schema, instance, {0, 1, 8}) != expected;
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mismatches, std::vector<int>(4, 0));
  EXPECT_EQ(Compiled(), 1u);
}

}  // namespace
}  // namespace setvault_test
