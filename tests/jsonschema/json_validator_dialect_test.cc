// The schema dialect: every keyword the validator accepts changes the outcome
// of some instance.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "document/setvault_document.h"
#include "json_validator_fixture.h"

namespace setvault_test {
namespace {

// Definitions that the cases refer to ("#/definitions/...").
constexpr char kDefinitions[] = R"({"positive": {"type": "integer", "minimum": 1},
    "never": false, "tree": {"type": "object", "patternProperties": {"^n": {"$ref":
    "#/definitions/tree"}}, "additionalProperties": {"type": "integer"}}})";

// One case a line: a schema, the instances it accepts, the instances it
// refuses and, for the first refused ones, a message their findings hold.
constexpr char kCases[] = R"json([
  [true, [1, {"a": []}], []],
  [false, [], [1, {}, null]],
  [{"type": "integer"}, [1, 1.0, -7, 12345678901234], [1.5, "1", null],
    ["value of type number is not allowed here (expected integer)"]],
  [{"type": ["string", "null"]}, ["x", null], [1, {}]],
  [{"type": "number"}, [1, 1.5], ["1", true]],
  [{"enum": [1, "a", null]}, [1, "a", null], [2, "b"]],
  [{"const": {"a": [1, 2]}}, [{"a": [1, 2]}], [{"a": [2, 1]}, 1]],
  [{"multipleOf": 4}, [8, -4, 0], [6, 4.5], ["value 6 is not a multiple of 4"]],
  [{"multipleOf": 0.1}, [0.3, 7], [0.35], ["value 0.35 is not a multiple of 0.1"]],
  [{"multipleOf": 1e-8}, [12345678901, 0.00000003], [0.000000015]],
  [{"minimum": 1, "exclusiveMaximum": 3}, [1, 2.5, "x"], [0.5, 3],
    ["value 0.5 is below minimum 1", "value 3 is not below the exclusive maximum 3"]],
  [{"exclusiveMinimum": 1, "maximum": 3}, [3, 1.5], [1, 3.5]],
  [{"minLength": 2.0, "maxLength": 3}, ["ab", "abc", 7], ["a", "abcd"],
    ["string of 1 byte is shorter than the minimum length 2",
     "string of 4 bytes is longer than the maximum length 3"]],
  [{"pattern": "^[a-z]+$"}, ["abc", 1], ["ab1", ""],
    ["value \"ab1\" does not match the pattern \"^[a-z]+$\""]],
  [{"pattern": "b"}, ["abc"], ["ac"]],
  [{"format": "date"}, ["2024-02-29", 5], ["2023-02-29", "2024-13-01", "2024-1-01"],
    ["value \"2023-02-29\" is not a valid date"]],
  [{"format": "time"}, ["23:59:60Z", "08:00:00.25-02:30"], ["24:00:00Z", "08:00:00"]],
  [{"format": "date-time"}, ["2024-01-01T10:00:00Z", "2024-01-01t10:00:00.5+02:00"],
    ["2024-01-01 10:00:00Z", "2024-01-01"]],
  [{"format": "ipv4"}, ["10.0.0.1"], ["10.0.0.256", "::1"]],
  [{"format": "ipv6"}, ["::1", "fe80::1:2"], ["1::2::3"]],
  [{"format": "hostname"}, ["host-1.example"], ["-bad", "a..b", "a_b"]],
  [{"format": "regex"}, ["^a+$"], ["(["]],
  [{"items": {"type": "integer"}}, [[1, 2], []], [[1, "x"]]],
  [{"items": false}, [[], 1], [[1]]],
  [{"items": true}, [[1, "x"]], []],
  [{"items": [{"type": "integer"}, false], "additionalItems": false}, [[1], []],
    [[1, null, 3], [1, 2], ["x"]], ["the array has more elements than allowed"]],
  [{"items": [{"type": "integer"}], "additionalItems": {"type": "string"}}, [[1, "a"]], [[1, 2]]],
  [{"minItems": 1, "maxItems": 2.0}, [[1], [1, 2]], [[], [1, 2, 3]],
    ["array of 0 elements has fewer than the minimum of 1",
     "array of 3 elements has more than the maximum of 2"]],
  [{"uniqueItems": true}, [[1, 2], [{"a": 1}, {"a": 2}]], [[1, 1], [{"a": 1}, {"a": 1}]],
    ["the array has equal elements (\"uniqueItems\")"]],
  [{"contains": {"const": 3}}, [[1, 3]], [[1, 2], []],
    ["the array has no element that matches \"contains\""]],
  [{"contains": false}, [1], [[1], []]],
  [{"properties": {"x": false, "y": {"type": "integer"}, "z": true}},
    [{"y": 1}, {}, {"z": [null]}], [{"x": 1}, {"y": "a"}]],
  [{"properties": {"a": {}}, "required": ["a"]}, [{"a": 1}], [{}]],
  [{"properties": {"a": {}, "b": {}}, "minProperties": 1, "maxProperties": 1.0},
    [{"a": 1}], [{}, {"a": 1, "b": 2}], ["the object has fewer members than allowed"]],
  [{"properties":{"a":{}},"additionalProperties":{"type":"integer"}},[{"a":"x","b":1}],[{"b":"x"}]],
  [{"properties": {"a": {}}, "additionalProperties": false}, [{"a": 1}], [{"b": 1}]],
  [{"patternProperties": {"^n_": {"type": "integer"}}, "additionalProperties": false},
    [{"n_a": 1}, {}], [{"n_a": "x"}, {"b": 1}]],
  [{"properties": {"n_x": {"type": "string"}}, "patternProperties": {"^n_": {"minLength": 2}}},
    [{"n_x": "ab"}], [{"n_x": "a"}, {"n_x": 1}]],
  [{"patternProperties": {"^x": false}}, [{"a": 1}], [{"xa": 1}]],
  [{"propertyNames": {"pattern": "^[a-z]+$"}}, [{"ab": 1}], [{"Ab": 1}]],
  [{"propertyNames": {"enum": ["a", "b"]}}, [{"a": 1}], [{"c": 1}]],
  [{"propertyNames": {"const": "a"}}, [{"a": 1}], [{"b": 1}]],
  [{"propertyNames": {"maxLength": 2}}, [{"ab": 1}], [{"abc": 1}],
    ["member name \"abc\" is not allowed by \"propertyNames\""]],
  [{"propertyNames": false}, [{}], [{"a": 1}]],
  [{"dependencies": {"a": ["b"], "c": {"required": ["d"]}, "e": false}},
    [{"a": 1, "b": 2}, {"c": 1, "d": 1}], [{"a": 1}, {"c": 1}, {"e": 1}],
    ["missing member 'b' that another member depends on"]],
  [{"allOf": [{"minimum": 1}, {"maximum": 3}]}, [2], [4]],
  [{"allOf": [true, false]}, [], [1], ["no value is allowed here"]],
  [{"anyOf": [{"type": "string"}, false]}, ["a"], [1],
    ["value 1 matches none of the schemas of \"anyOf\""]],
  [{"oneOf": [{"minimum": 1}, {"maximum": 3}]}, [0, 4], [2],
    ["value 2 does not match exactly one schema of \"oneOf\""]],
  [{"oneOf": [true, false]}, [1], []],
  [{"not": {"type": "string"}}, [1], ["a"], ["value \"a\" matches the schema under \"not\""]],
  [{"allOf": [{"not": false}, {"not": {"not": true}}]}, [1], []],
  [{"not": true}, [], [1]],
  [{"if":{"type":"string"},"then":{"minLength":2},"else":{"minimum":0}},["ab",1],["a",-1]],
  [{"anyOf": [{"if": true, "then": false}, {"if": false, "else": false}]}, [], [1]],
  [{"$ref": "#/definitions/positive"}, [1], [0, 1.5]],
  [{"items": {"$ref": "#/definitions/never"}}, [[]], [[1]]],
  [{"$ref":"#/definitions/tree"},[{"n1":{"n2":{"v":1}}}],[{"n1":{"n2":{"v":"x"}}},{"n1":5}]],
  [{"title": "t", "description": "d", "default": 1, "examples": [1],
    "$comment": "c", "readOnly": false, "writeOnly": false, "minimum": 1}, [1], [0]]
])json";

using KorvoSetvault::SetvaultDocument;
using ::testing::Contains;
using ::testing::Field;

// Every instance of every case is checked (with the case's message where it has one).
TEST(JsonValidatorDialect, EveryKeywordAcceptsAndRefuses) {
  auto cases = KorvoSetvault::CreateDocumentFromString(kCases);
  const auto& list = *cases->GetJsonValuePtr();
  for (rapidjson::SizeType i = 0; i < list.Size(); ++i) {
    const std::string schema = SetvaultDocument::SerializeValue(list[i][0]);
    const std::string wrapped =
        std::string(R"({"definitions": )") + kDefinitions + R"(, "allOf": [)" + schema + "]}";
    for (rapidjson::SizeType group : {1, 2}) {
      for (rapidjson::SizeType j = 0; j < list[i][group].Size(); ++j) {
        const std::string instance = SetvaultDocument::SerializeValue(list[i][group][j]);
        SCOPED_TRACE(schema + " with " + instance);
        const auto findings = Check(wrapped, instance, {0, 7});
        EXPECT_EQ(findings.empty(), group == 1);
        if (group == 2 && list[i].Size() > 3 && j < list[i][3].Size()) {
          EXPECT_THAT(findings, Contains(Field(&Found::second, list[i][3][j].GetString())));
        }
      }
    }
  }
}

}  // namespace
}  // namespace setvault_test
