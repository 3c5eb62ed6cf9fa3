// The schema dialect: every keyword the validator accepts changes the outcome
// of some instance, checked against the validator directly and through a
// store write of a type whose definition holds every case.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "json_validator_fixture.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"
#include "support/temp_dir.h"

namespace setvault_test {
namespace {

using ::testing::IsEmpty;
using ::testing::Not;

// Definitions that the cases refer to ("#/definitions/...").
constexpr char kDefinitions[] = R"({"positive": {"type": "integer", "minimum": 1},
    "never": false, "tree": {"type": "object", "patternProperties": {"^n": {"$ref":
    "#/definitions/tree"}}, "additionalProperties": {"type": "integer"}}})";

struct DialectCase {
  const char* keyword;
  std::string schema;
  std::vector<std::string> accepted;
  std::vector<std::string> refused;
};

const std::vector<DialectCase>& Cases() {
  static const auto* cases = new std::vector<DialectCase>{
      {"true", "true", {"1", "{\"a\": []}"}, {}},
      {"false", "false", {}, {"1", "{}", "null"}},
      {"type integer",
       R"({"type": "integer"})",
       {"1", "1.0", "-7", "12345678901234"},
       {"1.5", "\"1\"", "null"}},
      {"type list", R"({"type": ["string", "null"]})", {"\"x\"", "null"}, {"1", "{}"}},
      {"type number", R"({"type": "number"})", {"1", "1.5"}, {"\"1\"", "true"}},
      {"enum", R"({"enum": [1, "a", null]})", {"1", "\"a\"", "null"}, {"2", "\"b\""}},
      {"const", R"({"const": {"a": [1, 2]}})", {R"({"a": [1, 2]})"}, {R"({"a": [2, 1]})", "1"}},
      {"multipleOf integer", R"({"multipleOf": 4})", {"8", "-4", "0"}, {"6", "4.5"}},
      {"multipleOf fraction", R"({"multipleOf": 0.1})", {"0.3", "7"}, {"0.35"}},
      {"multipleOf tiny",
       R"({"multipleOf": 1e-8})",
       {"12345678901", "0.00000003"},
       {"0.000000015"}},
      {"bounds", R"({"minimum": 1, "exclusiveMaximum": 3})", {"1", "2.5", "\"x\""}, {"0.5", "3"}},
      {"exclusiveMinimum maximum",
       R"({"exclusiveMinimum": 1, "maximum": 3})",
       {"3", "1.5"},
       {"1", "3.5"}},
      {"lengths",
       R"({"minLength": 2.0, "maxLength": 3})",
       {"\"ab\"", "\"abc\"", "7"},
       {"\"a\"", "\"abcd\""}},
      {"pattern", R"({"pattern": "^[a-z]+$"})", {"\"abc\"", "1"}, {"\"ab1\"", "\"\""}},
      {"pattern unanchored", R"({"pattern": "b"})", {"\"abc\""}, {"\"ac\""}},
      {"format date",
       R"({"format": "date"})",
       {"\"2024-02-29\"", "5"},
       {"\"2023-02-29\"", "\"2024-13-01\"", "\"2024-1-01\""}},
      {"format time",
       R"({"format": "time"})",
       {"\"23:59:60Z\"", "\"08:00:00.25-02:30\""},
       {"\"24:00:00Z\"", "\"08:00:00\""}},
      {"format date-time",
       R"({"format": "date-time"})",
       {"\"2024-01-01T10:00:00Z\"", "\"2024-01-01t10:00:00.5+02:00\""},
       {"\"2024-01-01 10:00:00Z\"", "\"2024-01-01\""}},
      {"format ipv4", R"({"format": "ipv4"})", {"\"10.0.0.1\""}, {"\"10.0.0.256\"", "\"::1\""}},
      {"format ipv6", R"({"format": "ipv6"})", {"\"::1\"", "\"fe80::1:2\""}, {"\"1::2::3\""}},
      {"format hostname",
       R"({"format": "hostname"})",
       {"\"host-1.example\""},
       {"\"-bad\"", "\"a..b\"", "\"a_b\""}},
      {"format regex", R"({"format": "regex"})", {"\"^a+$\""}, {"\"([\""}},
      {"items", R"({"items": {"type": "integer"}})", {"[1, 2]", "[]"}, {"[1, \"x\"]"}},
      {"items false", R"({"items": false})", {"[]", "1"}, {"[1]"}},
      {"items true", R"({"items": true})", {"[1, \"x\"]"}, {}},
      {"items tuple",
       R"({"items": [{"type": "integer"}, false], "additionalItems": false})",
       {"[1]", "[]"},
       {"[1, 2]", "[\"x\"]"}},
      {"additionalItems",
       R"({"items": [{"type": "integer"}], "additionalItems": {"type":
       "string"}})",
       {"[1, \"a\"]"},
       {"[1, 2]"}},
      {"array counts",
       R"({"minItems": 1, "maxItems": 2.0})",
       {"[1]", "[1, 2]"},
       {"[]", "[1, 2, 3]"}},
      {"uniqueItems",
       R"({"uniqueItems": true})",
       {"[1, 2]", R"([{"a": 1}, {"a": 2}])"},
       {"[1, 1]", R"([{"a": 1}, {"a": 1}])"}},
      {"contains", R"({"contains": {"const": 3}})", {"[1, 3]"}, {"[1, 2]", "[]"}},
      {"contains false", R"({"contains": false})", {"1"}, {"[1]", "[]"}},
      {"properties",
       R"({"properties": {"x": false, "y": {"type": "integer"}, "z": true}})",
       {R"({"y": 1})", "{}", R"({"z": [null]})"},
       {R"({"x": 1})", R"({"y": "a"})"}},
      {"required", R"({"properties": {"a": {}}, "required": ["a"]})", {R"({"a": 1})"}, {"{}"}},
      {"object counts",
       R"({"properties": {"a": {}, "b": {}}, "minProperties": 1,
       "maxProperties": 1.0})",
       {R"({"a": 1})"},
       {R"({"a": 1, "b": 2})", "{}"}},
      {"additionalProperties",
       R"({"properties": {"a": {}}, "additionalProperties":
       {"type": "integer"}})",
       {R"({"a": "x", "b": 1})"},
       {R"({"b": "x"})"}},
      {"additionalProperties false",
       R"({"properties": {"a": {}}, "additionalProperties":
       false})",
       {R"({"a": 1})"},
       {R"({"b": 1})"}},
      {"patternProperties",
       R"({"patternProperties": {"^n_": {"type": "integer"}},
       "additionalProperties": false})",
       {R"({"n_a": 1})", "{}"},
       {R"({"n_a": "x"})", R"({"b": 1})"}},
      {"patternProperties with properties",
       R"({"properties": {"n_x": {"type": "string"}},
       "patternProperties": {"^n_": {"minLength": 2}}})",
       {R"({"n_x": "ab"})"},
       {R"({"n_x": "a"})", R"({"n_x": 1})"}},
      {"patternProperties false",
       R"({"patternProperties": {"^x": false}})",
       {R"({"a": 1})"},
       {R"({"xa": 1})"}},
      {"propertyNames pattern",
       R"({"propertyNames": {"pattern": "^[a-z]+$"}})",
       {R"({"ab": 1})"},
       {R"({"Ab": 1})"}},
      {"propertyNames enum",
       R"({"propertyNames": {"enum": ["a", "b"]}})",
       {R"({"a": 1})"},
       {R"({"c": 1})"}},
      {"propertyNames const",
       R"({"propertyNames": {"const": "a"}})",
       {R"({"a": 1})"},
       {R"({"b": 1})"}},
      {"propertyNames length",
       R"({"propertyNames": {"maxLength": 2}})",
       {R"({"ab": 1})"},
       {R"({"abc": 1})"}},
      {"propertyNames false", R"({"propertyNames": false})", {"{}"}, {R"({"a": 1})"}},
      {"dependencies",
       R"({"dependencies": {"a": ["b"], "c": {"required": ["d"]}, "e": false}})",
       {R"({"a": 1, "b": 2})", R"({"c": 1, "d": 1})"},
       {R"({"a": 1})", R"({"c": 1})", R"({"e": 1})"}},
      {"allOf", R"({"allOf": [{"minimum": 1}, {"maximum": 3}]})", {"2"}, {"4"}},
      {"allOf false", R"({"allOf": [true, false]})", {}, {"1"}},
      {"anyOf", R"({"anyOf": [{"type": "string"}, false]})", {"\"a\""}, {"1"}},
      {"oneOf", R"({"oneOf": [{"minimum": 1}, {"maximum": 3}]})", {"0", "4"}, {"2"}},
      {"oneOf booleans", R"({"oneOf": [true, false]})", {"1"}, {}},
      {"not", R"({"not": {"type": "string"}})", {"1"}, {"\"a\""}},
      {"not booleans", R"({"allOf": [{"not": false}, {"not": {"not": true}}]})", {"1"}, {}},
      {"not true", R"({"not": true})", {}, {"1"}},
      {"if then else",
       R"({"if": {"type": "string"}, "then": {"minLength": 2}, "else":
       {"minimum": 0}})",
       {"\"ab\"", "1"},
       {"\"a\"", "-1"}},
      {"if booleans",
       R"({"anyOf": [{"if": true, "then": false}, {"if": false, "else":
       false}]})",
       {},
       {"1"}},
      {"$ref", R"({"$ref": "#/definitions/positive"})", {"1"}, {"0", "1.5"}},
      {"$ref to false", R"({"items": {"$ref": "#/definitions/never"}})", {"[]"}, {"[1]"}},
      {"$ref recursive with patterns",
       R"({"$ref": "#/definitions/tree"})",
       {R"({"n1": {"n2": {"v": 1}}})"},
       {R"({"n1": {"n2": {"v": "x"}}})", R"({"n1": 5})"}},
      {"annotations",
       R"({"title": "t", "description": "d", "default": 1, "examples": [1],
       "$comment": "c", "readOnly": false, "writeOnly": false, "minimum": 1})",
       {"1"},
       {"0"}},
  };
  return *cases;
}

std::string Describe(const DialectCase& c, const std::string& instance) {
  return std::string(c.keyword) + ": " + c.schema + " with " + instance;
}

TEST(JsonValidatorDialect, EveryKeywordAcceptsAndRefuses) {
  for (const DialectCase& c : Cases()) {
    const std::string schema =
        std::string(R"({"definitions": )") + kDefinitions + R"(, "allOf": [)" + c.schema + "]}";
    for (const std::string& instance : c.accepted) {
      EXPECT_THAT(Check(schema, instance, {0, 7}), IsEmpty()) << Describe(c, instance);
    }
    for (const std::string& instance : c.refused) {
      EXPECT_THAT(Check(schema, instance, {0, 7}), Not(IsEmpty())) << Describe(c, instance);
    }
  }
}

// One type whose member "v<i>" holds case i; every case is written through
// the store.
TEST(JsonValidatorDialect, StoreWritesFollowTheDialect) {
  std::string properties;
  for (size_t i = 0; i < Cases().size(); ++i) {
    properties += (i ? ", " : "") + std::string("\"v") + std::to_string(i) +
                  R"(": {"type": ["array", "boolean", "integer", "null", "number", "object",
                  "string"], "allOf": [)" +
                  Cases()[i].schema + "]}";
  }
  TempDir dir;
  TempDir defs;
  defs.WriteFile("dialect.json",
                 R"({"component": "korvo", "group": "test", "key": "dialect", "version": "1",
                    "schema": {"type": "object", "definitions": )" +
                     std::string(kDefinitions) + R"(, "properties": {)" + properties + "}}}");
  KorvoSetvault::SetSchemaStorePath(dir.File("schema.db"));
  KorvoSetvault::SetStorePath(dir.File("store.db"));
  KorvoSetvault::LoadSchemaDefinitions(defs.path());
  auto store = KorvoSetvault::Setvault::GetStore("");
  const KorvoSetvault::SetvaultObjectId id("dialect", "test", "korvo");
  for (size_t i = 0; i < Cases().size(); ++i) {
    const DialectCase& c = Cases()[i];
    auto write = [&](const std::string& instance) {
      auto object = std::make_shared<KorvoSetvault::SetvaultObject>(id);
      object->SetData(("{\"v" + std::to_string(i) + "\": " + instance + "}").c_str());
      store->Set(object, KorvoSetvault::USERDATA_CONTEXT{KorvoSetvault::kExternalContext});
    };
    for (const std::string& instance : c.accepted) {
      EXPECT_NO_THROW(write(instance)) << Describe(c, instance);
    }
    for (const std::string& instance : c.refused) {
      EXPECT_THROW(write(instance), KorvoSetvault::ValidationException) << Describe(c, instance);
    }
  }
  store.reset();
  KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath);
  KorvoSetvault::SetSchemaStorePath(KorvoSetvault::kDefaultSchemaStorePath);
}

}  // namespace
}  // namespace setvault_test
