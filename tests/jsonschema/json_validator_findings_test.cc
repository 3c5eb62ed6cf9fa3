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

TEST(JsonValidatorFindings, BoundsAndLengthMessagesNameValueAndLimit) {
  const std::string schema = R"({"type": "object", "properties": {
      "low": {"type": "number", "minimum": 0.5},
      "high": {"type": "integer", "exclusiveMaximum": 10},
      "step": {"type": "integer", "multipleOf": 4},
      "short": {"type": "string", "minLength": 3},
      "long": {"type": "string", "maxLength": 2},
      "few": {"type": "array", "minItems": 2},
      "many": {"type": "array", "maxItems": 1},
      "fixed": {"const": "on"},
      "word": {"type": "string", "pattern": "^[a-z]+$"}}})";
  auto findings = Check(schema, R"({"low": 0.25, "high": 10, "step": 6, "short": "ab",
      "long": "abc", "few": [1], "many": [1, 2], "fixed": "off", "word": "A1"})",
                        {0});
  EXPECT_THAT(findings,
              UnorderedElementsAre(
                  Found{"/low", "value 0.25 is below minimum 0.5"},
                  Found{"/high", "value 10 is not below the exclusive maximum 10"},
                  Found{"/step", "value 6 is not a multiple of 4"},
                  Found{"/short", "string of 2 bytes is shorter than the minimum length 3"},
                  Found{"/long", "string of 3 bytes is longer than the maximum length 2"},
                  Found{"/few", "array of 1 element has fewer than the minimum of 2"},
                  Found{"/many", "array of 2 elements has more than the maximum of 1"},
                  Found{"/fixed", "value \"off\" is not the required value \"on\""},
                  Found{"/word", "value \"A1\" does not match the pattern \"^[a-z]+$\""}));
}

TEST(JsonValidatorFindings, KeywordsOfWholeValuesAreNamed) {
  const std::string schema = R"({"type": "object", "properties": {
      "not": {"not": {"type": "string"}}, "any": {"anyOf": [{"type": "string"}, false]},
      "one": {"oneOf": [{"minimum": 1}, {"maximum": 3}]},
      "has": {"contains": {"const": 3}}, "set": {"uniqueItems": true},
      "pair": {"items": [{}], "additionalItems": false}, "few": {"minProperties": 1},
      "dep": {"dependencies": {"a": ["b"]}}, "never": false, "int": {"type": "integer"},
      "step": {"multipleOf": 0.5}, "day": {"format": "date"},
      "names": {"propertyNames": {"maxLength": 1}}}})";
  EXPECT_THAT(
      Check(schema, R"({"not": "s", "any": 1, "one": 2, "has": [1], "set": [1, 1], "pair": [1, 2],
          "few": {}, "dep": {"a": 1}, "never": null, "int": 1.5, "step": 0.7,
          "day": "2023-02-29", "names": {"ab": 1}})",
            {0}),
      UnorderedElementsAre(
          Found{"/not", "value \"s\" matches the schema under \"not\""},
          Found{"/any", "no value is allowed here"},
          Found{"/any", "value of type integer is not allowed here (expected string)"},
          Found{"/any", "value 1 matches none of the schemas of \"anyOf\""},
          Found{"/one", "value 2 does not match exactly one schema of \"oneOf\""},
          Found{"/has", "the array has no element that matches \"contains\""},
          Found{"/set", "the array has equal elements (\"uniqueItems\")"},
          Found{"/pair", "the array has more elements than allowed"},
          Found{"/few", "the object has fewer members than allowed"},
          Found{"/dep", "missing member 'b' that another member depends on"},
          Found{"/never", "no value is allowed here"},
          Found{"/int", "value of type number is not allowed here (expected integer)"},
          Found{"/step", "value 0.7 is not a multiple of 0.5"},
          Found{"/day", "value \"2023-02-29\" is not a valid date"},
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
