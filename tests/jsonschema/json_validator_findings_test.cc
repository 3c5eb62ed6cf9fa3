// Findings: JSON Pointers of the offending members and the message texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_validator_fixture.h"

namespace setvault_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

TEST(JsonValidatorFindings, RootIsWrittenAsSlash) {
  EXPECT_THAT(Check(R"({"type": "object"})", "[1]", {0, 1}),
              ElementsAre(Found{"/", "value of type array is not allowed here (expected object)"}));
}

TEST(JsonValidatorFindings, MemberNamesAreEscapedInPointers) {
  const std::string schema = R"({"type": "object", "properties": {
      "a/b": {"type": "integer"},
      "m~n": {"type": "object", "properties": {"x/~y": {"type": "integer"}}},
      "list": {"type": "array", "items": {"type": "object",
               "properties": {"a/b": {"type": "integer"}}}}}})";
  EXPECT_THAT(
      Check(schema, R"({"a/b": "s", "m~n": {"x/~y": "s"}, "list": [{}, {}, {"a/b": "s"}]})",
            {0, 1}),
      UnorderedElementsAre(
          Found{"/a~1b", "value of type string is not allowed here (expected integer)"},
          Found{"/m~0n/x~1~0y", "value of type string is not allowed here (expected integer)"},
          Found{"/list/2/a~1b", "value of type string is not allowed here (expected integer)"}));
  EXPECT_THAT(Check(schema, R"({"m~n": {"~/": 1}})", {0, 1}),
              ElementsAre(Found{"/m~0n/~0~1", "member '~/' is not described in the schema"}));
}

TEST(JsonValidatorFindings, NumericMemberNamesAndIndexesAreTellApart) {
  const std::string schema = R"({"type": "object", "properties": {
      "list": {"type": "array", "items": {"type": "object", "properties": {
          "0": {"type": "integer"}, "[1]": {"type": "integer"}}}}}})";
  EXPECT_THAT(
      Check(schema, R"({"list": [{"0": 1}, {"0": "x", "[1]": "y"}]})", {0, 1}),
      UnorderedElementsAre(
          Found{"/list/1/0", "value of type string is not allowed here (expected integer)"},
          Found{"/list/1/[1]", "value of type string is not allowed here (expected integer)"}));
}

TEST(JsonValidatorFindings, EveryViolationIsReported) {
  const std::string schema = R"({"type": "object", "properties": {
      "a": {"type": "integer", "minimum": 1}, "b": {"type": "string", "minLength": 3},
      "c": {"type": "array", "maxItems": 1}}, "required": ["d"]})";
  auto findings = Check(schema, R"({"a": 0, "b": "x", "c": [1, 2], "e": 1})", {0, 1, 7});
  EXPECT_THAT(Fields(findings), UnorderedElementsAre("/a", "/b", "/c", "/d", "/e"));
}

// The other messages are checked with the dialect's cases.
TEST(JsonValidatorFindings, MessagesNameValueLimitAndMember) {
  const std::string schema = R"({"type": "object", "properties": {
      "low": {"type": "number", "minimum": 0.5}, "fixed": {"const": "on"},
      "names": {"propertyNames": {"maxLength": 1}}}})";
  EXPECT_THAT(Check(schema, R"({"low": 0.25, "fixed": "off", "names": {"ab": 1}})", {0}),
              UnorderedElementsAre(
                  Found{"/low", "value 0.25 is below minimum 0.5"},
                  Found{"/fixed", "value \"off\" is not the required value \"on\""},
                  Found{"/names/ab", "member name \"ab\" is not allowed by \"propertyNames\""}));
}

TEST(JsonValidatorFindings, LongValuesAreCutInMessages) {
  std::string long_text(200, 'q');
  auto findings = Check(R"({"type": "object", "properties": {"e": {"enum": ["a"]}}})",
                        R"({"e": ")" + long_text + R"("})", {0});
  ASSERT_THAT(findings, SizeIs(1));
  EXPECT_THAT(findings[0].error, HasSubstr("\"" + std::string(64, 'q') + "...\""));
  EXPECT_THAT(findings[0].error, Not(HasSubstr(std::string(65, 'q'))));
}

TEST(JsonValidatorFindings, ReferencedDefinitionsAreFollowed) {
  const std::string schema = R"({"definitions": {"port": {"type": "object",
      "properties": {"speed": {"type": "integer", "maximum": 100}, "lock": {"vital": true}}}},
      "type": "object", "properties": {"ports": {"type": "array", "instanceIdProperty": "n",
          "items": {"allOf": [{"$ref": "#/definitions/port"},
                              {"properties": {"n": {"type": "string"}}}]}}}})";
  EXPECT_THAT(Check(schema, R"({"ports": [{"n": "a", "speed": 1}]})", {0, 1, 3, 7, 8}), IsEmpty());
  EXPECT_THAT(
      Check(schema, R"({"ports": [{"n": "a", "speed": 101, "lock": 1, "odd": 1}]})",
            {0, 1, 3, 7, 8}),
      UnorderedElementsAre(
          Found{"/ports/0/odd", "member 'odd' is not described in the schema"},
          Found{"/ports/0/lock", "member 'lock' is not allowed in user data (it is vital data)"},
          Found{"/ports/0/speed", "value 101 exceeds maximum 100"}));
}

TEST(JsonValidatorFindings, RecursiveSchemasReportDeepPaths) {
  const std::string schema = R"({"type": "object", "properties": {
      "child": {"$ref": "#"}, "v": {"type": "integer"}}})";
  EXPECT_THAT(Check(schema, R"({"child": {"child": {"child": {"v": "x", "w": 1}}}})", {0, 1}),
              UnorderedElementsAre(
                  Found{"/child/child/child/v",
                        "value of type string is not allowed here (expected integer)"},
                  Found{"/child/child/child/w", "member 'w' is not described in the schema"}));
}

TEST(JsonValidatorFindings, ResultDocumentIsReplaced) {
  auto schema = KorvoSetvault::CreateDocumentFromString(R"({"type": "object"})");
  auto instance = KorvoSetvault::CreateDocumentFromString("{}");
  KorvoSetvault::JsonDocument result;
  result.Parse(R"({"stale": true})");
  JsonValidator::Validate(*schema->GetJsonValuePtr(), *instance->GetJsonValuePtr(), result, {0, 1},
                          "");
  ASSERT_TRUE(result.IsArray());
  EXPECT_EQ(result.Size(), 0u);
}

}  // namespace
}  // namespace setvault_test
