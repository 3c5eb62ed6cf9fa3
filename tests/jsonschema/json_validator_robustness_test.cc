// The validator under load: malformed schemas give a clear exception, hostile
// instances give findings, and the compiled-schema cache is reused, bounded
// and shared by several threads (a reloaded schema is seen: see the store's
// cache tests).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "json_validator_fixture.h"
#include "jsonschema/json_validator_cache.h"
#include "support/thrown.h"

namespace setvault_test {
namespace {

using JsonValidator::internal::CompiledSchemaCache;
using KorvoSetvault::CreateDocumentFromString;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(JsonValidatorRobustness, MalformedSchemasThrowAClearError) {
  std::string deep = R"({"type": "object"})";
  for (int i = 0; i < 200; ++i) deep = R"({"properties": {"a": )" + deep + "}}";
  const std::pair<std::string, std::string> cases[] = {
      {"[]", "not a JSON object"},
      {R"({"properties": 5})", "\"properties\" at # is not an object"},
      {R"({"properties": {"a": 5}})", "#/properties/a is not an object"},
      {R"({"properties": {"a": {"vital": "yes"}}})",
       "\"vital\" at #/properties/a is not a boolean"},
      {R"({"type": "array", "instanceIdProperty": 1, "items": {}})",
       "\"instanceIdProperty\" at # is not a string"},
      {R"({"properties": {"a": {"$ref": "http://example.com/s.json"}}})", "only local references"},
      {R"({"$ref": "#"})", "circular"},
      {R"({"properties": {"a": {"type": 5}}})", ""},
      {R"({"properties": {"a": {"maxLength": "long"}}})", ""},
      {R"({"properties": {"a": {"pattern": "(["}}})", "pattern"},
      {deep, "nested deeper"},
  };
  for (const auto& [schema, detail] : cases) {
    const std::string thrown = Thrown([&] { Check(schema, R"({"a": "x"})", {0, 1, 3, 7, 8}); });
    EXPECT_THAT(thrown, ::testing::StartsWith("2000 Invalid JSON schema: ")) << schema;
    EXPECT_THAT(thrown, HasSubstr(detail)) << schema;
  }
}

TEST(JsonValidatorRobustness, DeepInstanceGivesOneFindingInsteadOfACrash) {
  // Built in place: parsing text this deep would itself recurse too far.
  KorvoSetvault::JsonDocument instance;
  KorvoSetvault::JsonValue* current = &instance;
  current->SetArray();
  for (int i = 0; i < 100000; ++i) {
    current->PushBack(KorvoSetvault::JsonValue(rapidjson::kArrayType), instance.GetAllocator());
    current = &(*current)[0];
  }
  auto schema = CreateDocumentFromString(R"({"items": {"$ref": "#"}})");
  EXPECT_THAT(CheckValues(*schema->GetJsonValuePtr(), instance, {0, 1}),
              ElementsAre(Found{"/", "value is nested deeper than 128 levels"}));
  // 127 objects around a string: it sits exactly at the limit and is checked.
  std::string inside = R"({"v": "x"})";
  for (int i = 0; i < 127; ++i) inside = R"({"child": )" + inside + "}";
  EXPECT_THAT(Check(R"({"type": "object", "properties": {
      "child": {"$ref": "#"}, "v": {"type": "integer"}}})",
                    inside, {0, 1}),
              ElementsAre(::testing::Field(&Found::first, SizeIs(6 * 127 + 2))));
}

// Patterns run in linear time without recursion: a long string on a thread with a small
// stack, and patterns that backtrack exponentially elsewhere.
TEST(JsonValidatorRobustness, PatternsNeverStallOrExhaustTheStack) {
  auto body = [](void*) -> void* {
    const std::string text = std::string(41, 'a') + "!";
    const std::string name(5000, 'a');
    EXPECT_THAT(Check(R"({"properties": {"s": {"pattern": "^(a|b)*$"}}})",
                      R"({"s": ")" + std::string(200000, 'a') + R"("})", {0}),
                IsEmpty());
    EXPECT_THAT(
        Check(R"({"properties": {"s": {"pattern": "^(a+)+$"}}})", R"({"s": ")" + text + "\"}", {0}),
        ElementsAre(Found{"/s", "value \"" + text + "\" does not match the pattern \"^(a+)+$\""}));
    EXPECT_THAT(Check(R"({"patternProperties": {"^(a+)+$": {"type": "integer"}}})",
                      "{\"" + name + R"(": "x"})", {0}),
                ElementsAre(Found{"/" + name,
                                  "value of type string is not allowed here (expected integer)"}));
    return nullptr;
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, body, nullptr), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

class JsonValidatorCache : public ::testing::Test {
 protected:
  void SetUp() override { JsonValidator::ResetCacheForTesting(); }
  static size_t Compiled() { return JsonValidator::CompileCountForTesting(); }
};

std::string Limit(int maximum) {
  return R"({"type": "object", "properties": {"mtu": {"type": "integer", "maximum": )" +
         std::to_string(maximum) + "}}}";
}

TEST_F(JsonValidatorCache, SizeIsBoundedAndOldestEntriesAreDropped) {
  std::vector<std::shared_ptr<KorvoSetvault::JsonDoc>> schemas;
  auto instance = CreateDocumentFromString("{}");
  for (size_t i = 0; i < CompiledSchemaCache::kMaxEntries + 10; ++i) {
    schemas.push_back(CreateDocumentFromString(Limit(i)));
    CheckDocs(schemas.back(), instance, {0, 1});
  }
  EXPECT_EQ(CompiledSchemaCache::Instance().Size(), CompiledSchemaCache::kMaxEntries);
  EXPECT_EQ(Compiled(), CompiledSchemaCache::kMaxEntries + 10);
  CheckDocs(schemas.back(), instance, {0, 1});  // reused
  EXPECT_EQ(Compiled(), CompiledSchemaCache::kMaxEntries + 10);
  CheckDocs(schemas.front(), instance, {0, 1});  // dropped: compiled again
  EXPECT_EQ(Compiled(), CompiledSchemaCache::kMaxEntries + 11);
}

TEST_F(JsonValidatorCache, ThreadsShareCompiledSchemasWithConsistentResults) {
  auto schema = CreateDocumentFromString(R"({"type": "object", "properties": {
      "name": {"type": "string", "pattern": "^[a-z]+$"}, "ports": {"type": "array",
      "instanceIdProperty": "id", "items": {"type": "object", "properties": {"id": {}}}}}})");
  auto instance =
      CreateDocumentFromString(R"({"name": "Bad", "ports": [{"id": "a"}, {"id": "a"}], "x": 1})");
  const auto expected = CheckDocs(schema, instance, {0, 1, 8});
  ASSERT_EQ(expected.size(), 3u);
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i)
        mismatches += CheckDocs(schema, instance, {0, 1, 8}) != expected;
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(Compiled(), 1u);
}

}  // namespace
}  // namespace setvault_test
