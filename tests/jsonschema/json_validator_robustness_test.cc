// Malformed schemas give a clear exception; hostile instances give findings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pthread.h>

#include <string>
#include <vector>

#include "json_validator_fixture.h"
#include "setvault/exceptions.h"

namespace setvault_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// Expects Validate to throw SetvaultException 2000 naming `detail`.
void ExpectInvalidSchema(const std::string& schema, const std::string& detail) {
  SCOPED_TRACE(schema);
  try {
    Check(schema, R"({"a": "x"})", {0, 1, 3, 7, 8});
    ADD_FAILURE() << "no exception";
  } catch (const KorvoSetvault::SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), KorvoSetvault::SV_ERR_GENERIC);
    EXPECT_THAT(e.what(), HasSubstr("Invalid JSON schema"));
    EXPECT_THAT(e.what(), HasSubstr(detail));
  }
}

TEST(JsonValidatorRobustness, MalformedSchemasThrowAClearError) {
  ExpectInvalidSchema("[]", "not a JSON object");
  ExpectInvalidSchema(R"({"properties": 5})", "\"properties\" at # is not an object");
  ExpectInvalidSchema(R"({"properties": {"a": 5}})", "#/properties/a is not an object");
  ExpectInvalidSchema(R"({"properties": {"a": {"vital": "yes"}}})",
                      "\"vital\" at #/properties/a is not a boolean");
  ExpectInvalidSchema(R"({"type": "array", "instanceIdProperty": 1, "items": {}})",
                      "\"instanceIdProperty\" at # is not a string");
  ExpectInvalidSchema(R"({"properties": {"a": {"$ref": "http://example.com/s.json"}}})",
                      "only local references");
  ExpectInvalidSchema(R"({"$ref": "#"})", "circular");
  ExpectInvalidSchema(R"({"properties": {"a": {"type": 5}}})", "");
  ExpectInvalidSchema(R"({"properties": {"a": {"maxLength": "long"}}})", "");
  ExpectInvalidSchema(R"({"properties": {"a": {"pattern": "(["}}})", "pattern");
  std::string deep = R"({"type": "object"})";
  for (int i = 0; i < 200; ++i) deep = R"({"properties": {"a": )" + deep + "}}";
  ExpectInvalidSchema(deep, "nested deeper");
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
  auto schema = KorvoSetvault::CreateDocumentFromString(R"({"items": {"$ref": "#"}})");
  EXPECT_THAT(CheckValues(*schema->GetJsonValuePtr(), instance, {0, 1}),
              ElementsAre(Found{"/", "value is nested deeper than 128 levels"}));
  // 127 objects around a string: it sits exactly at the limit and is checked.
  std::string inside = R"({"v": "x"})";
  for (int i = 0; i < 127; ++i) inside = R"({"child": )" + inside + "}";
  const auto findings = Check(R"({"type": "object", "properties": {
      "child": {"$ref": "#"}, "v": {"type": "integer"}}})",
                              inside, {0, 1});
  ASSERT_THAT(findings, SizeIs(1));
  EXPECT_EQ(findings[0].field.size(), std::string("/child").size() * 127 + 2);
}

// Patterns run in linear time without recursion: a long string on a thread
// with a small stack, and a pattern that backtracks exponentially elsewhere.
TEST(JsonValidatorRobustness, PatternsNeverStallOrExhaustTheStack) {
  const std::string text = std::string(41, 'a') + "!";
  const std::string name(5000, 'a');
  struct Run {
    std::string schema;
    std::string instance;
    std::vector<Found> expected = {};
    std::vector<Found> findings = {};
  } runs[] = {
      {R"({"properties": {"s": {"type": "string", "pattern": "^(a|b)*$"}}})",
       R"({"s": ")" + std::string(200000, 'a') + R"("})"},
      {R"({"properties": {"s": {"type": "string", "pattern": "^(a+)+$"}}})",
       R"({"s": ")" + text + R"("})",
       {{"/s", "value \"" + text + "\" does not match the pattern \"^(a+)+$\""}}},
      {R"({"patternProperties": {"^(a+)+$": {"type": "integer"}}})",
       R"({")" + name + R"(": "x"})",
       {{"/" + name, "value of type string is not allowed here (expected integer)"}}},
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  pthread_t thread;
  auto body = [](void* argument) -> void* {
    for (Run& run : *static_cast<Run(*)[3]>(argument)) {
      run.findings = Check(run.schema, run.instance, {0});
    }
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, body, &runs), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  for (const Run& run : runs) EXPECT_EQ(run.findings, run.expected) << run.schema;
}

}  // namespace
}  // namespace setvault_test
