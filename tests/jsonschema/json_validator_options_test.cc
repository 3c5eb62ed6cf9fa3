// Each option of the validator changes the outcome of some case: a validator
// that ignored the option would fail the case.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_validator_fixture.h"

namespace setvault_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// A type with user, vital, cached and solutionUser members, nested objects
// and an instance array.
constexpr char kSwitchSchema[] = R"({
  "type": "object",
  "properties": {
    "name": {"type": "string", "maxLength": 8, "pattern": "^[a-z0-9]+$"},
    "mtu": {"type": "integer", "minimum": 68, "maximum": 9216},
    "mode": {"enum": ["fast", "slow"]},
    "secret": {"type": "string", "vital": true},
    "owner": {"type": "string", "solutionUser": true},
    "stats": {"type": "object", "cached": true,
              "properties": {"rx": {"type": "integer"}}},
    "hw": {"type": "object",
           "properties": {"serial": {"type": "string", "vital": true},
                          "label": {"type": "string"}}},
    "uplinks": {"type": "array", "instanceIdProperty": "port",
                "items": {"type": "object",
                          "properties": {"port": {"type": "string"},
                                         "speed": {"type": "integer"},
                                         "key": {"type": "string", "vital": true},
                                         "hits": {"type": "integer", "cached": true}},
                          "required": ["port"]}}
  },
  "required": ["name"]
})";

std::vector<Found> CheckSwitch(const std::string& instance,
                               const std::unordered_set<int>& options) {
  return Check(kSwitchSchema, instance, options);
}

TEST(JsonValidatorOptions, ValueChecksOnlyWithOptionZero) {
  const std::string instance = R"({"name": "sw1", "mtu": 7000000, "mode": "eco"})";
  EXPECT_THAT(CheckSwitch(instance, {1}), IsEmpty());
  EXPECT_THAT(CheckSwitch(instance, {0, 1}),
              UnorderedElementsAre(Found{"/mtu", "value 7000000 exceeds maximum 9216"},
                                   Found{"/mode",
                                         "value \"eco\" is not one of the allowed values "
                                         "(allowed: \"fast\", \"slow\")"}));
}

TEST(JsonValidatorOptions, ValueChecksReachNestedSchemasAndArrayElements) {
  const std::string instance =
      R"({"name": "sw1", "hw": {"label": 5}, "uplinks": [{"port": "p1", "speed": "x"}]})";
  EXPECT_THAT(CheckSwitch(instance, {0, 1}),
              UnorderedElementsAre(
                  Found{"/hw/label", "value of type integer is not allowed here (expected string)"},
                  Found{"/uplinks/0/speed",
                        "value of type string is not allowed here (expected integer)"}));
}

TEST(JsonValidatorOptions, UndescribedMembersAreErrorsAtEveryLevelWithOptionOne) {
  const std::string instance =
      R"({"name": "sw1", "color": "red", "hw": {"x": 1}, "uplinks": [{"port": "p", "zz": 0}]})";
  EXPECT_THAT(CheckSwitch(instance, {0}), IsEmpty());
  EXPECT_THAT(CheckSwitch(instance, {0, 1}),
              ElementsAre(Found{"/color", "member 'color' is not described in the schema"},
                          Found{"/hw/x", "member 'x' is not described in the schema"},
                          Found{"/uplinks/0/zz", "member 'zz' is not described in the schema"}));
}

TEST(JsonValidatorOptions, FreeFormAndMapObjectsAcceptUndescribedMembers) {
  const std::string schema = R"({"type": "object", "properties": {
      "free": {"type": "object"},
      "labels": {"type": "object", "properties": {}, "additionalProperties": {"type": "string"}}}})";
  EXPECT_THAT(Check(schema, R"({"free": {"a": 1}, "labels": {"k": "v"}})", {0, 1}), IsEmpty());
  // The map's members are still checked against its member schema.
  EXPECT_THAT(Fields(Check(schema, R"({"labels": {"k": 1}})", {0, 1})), ElementsAre("/labels/k"));
}

TEST(JsonValidatorOptions, UserDataRejectsTaggedMembersWithOptionThree) {
  const std::string instance = R"({"name": "sw1", "secret": "s", "owner": "o",
      "stats": {"rx": 1}, "hw": {"serial": "x", "label": "l"},
      "uplinks": [{"port": "p", "key": "k"}]})";
  EXPECT_THAT(CheckSwitch(instance, {0, 1}), IsEmpty());
  EXPECT_THAT(
      CheckSwitch(instance, {0, 1, 3}),
      ElementsAre(
          Found{"/secret", "member 'secret' is not allowed in user data (it is vital data)"},
          Found{"/owner", "member 'owner' is not allowed in user data (it is solutionUser data)"},
          // Reported once, at the tagged member, not for what it holds.
          Found{"/stats", "member 'stats' is not allowed in user data (it is cached data)"},
          Found{"/hw/serial", "member 'serial' is not allowed in user data (it is vital data)"},
          Found{"/uplinks/0/key", "member 'key' is not allowed in user data (it is vital data)"}));
}

TEST(JsonValidatorOptions, TaggedMembersLoseTheirValueChecksWhenRejected) {
  // The rejected member's bad value is not reported a second time.
  EXPECT_THAT(CheckSwitch(R"({"name": "a", "stats": {"rx": "many"}})", {0, 1, 3}),
              ElementsAre(Found{"/stats",
                                "member 'stats' is not allowed in user data (it is cached data)"}));
}

TEST(JsonValidatorOptions, ApplyFileAllowsSolutionUserButNotVitalOrCachedWithOptionFour) {
  EXPECT_THAT(CheckSwitch(R"({"name": "a", "owner": "o"})", {0, 1, 4}), IsEmpty());
  EXPECT_THAT(Fields(CheckSwitch(R"({"name": "a", "owner": "o"})", {0, 1, 3})),
              ElementsAre("/owner"));
  EXPECT_THAT(
      CheckSwitch(R"({"name": "a", "secret": "s", "uplinks": [{"port": "p", "hits": 1}]})",
                  {0, 1, 4}),
      ElementsAre(
          Found{"/secret", "member 'secret' is not allowed in an apply file (it is vital data)"},
          Found{"/uplinks/0/hits",
                "member 'hits' is not allowed in an apply file "
                "(it is cached data)"}));
}

TEST(JsonValidatorOptions, VitalDataAllowsOnlyVitalMembersWithOptionFive) {
  // Untagged containers of vital members are accepted; instance ids too.
  const std::string vital_only =
      R"({"secret": "s", "hw": {"serial": "1"}, "uplinks": [{"port": "p", "key": "k"}]})";
  EXPECT_THAT(CheckSwitch(vital_only, {0, 1, 5}), IsEmpty());
  const std::string mixed = R"({"name": "a", "secret": "s", "hw": {"serial": "1", "label": "l"},
      "stats": {"rx": 1}, "uplinks": [{"port": "p", "key": "k", "speed": 1}]})";
  EXPECT_THAT(Fields(CheckSwitch(mixed, {0, 1})), IsEmpty());
  EXPECT_THAT(CheckSwitch(mixed, {0, 1, 5}),
              ElementsAre(Found{"/name", "member 'name' is not vital data"},
                          Found{"/hw/label", "member 'label' is not vital data"},
                          Found{"/stats", "member 'stats' is not vital data"},
                          Found{"/uplinks/0/speed", "member 'speed' is not vital data"}));
}

TEST(JsonValidatorOptions, VitalTagCoversEverythingBelowIt) {
  const std::string schema = R"({"type": "object", "properties": {
      "keys": {"type": "object", "vital": true,
               "properties": {"a": {"type": "string"}, "b": {"type": "object"}}},
      "plain": {"type": "string"}}})";
  EXPECT_THAT(Check(schema, R"({"keys": {"a": "x", "b": {"deep": 1}}})", {0, 1, 5}), IsEmpty());
  EXPECT_THAT(Fields(Check(schema, R"({"keys": {"a": "x"}, "plain": "p"})", {0, 1, 5})),
              ElementsAre("/plain"));
  // Under user data the whole sub-object is one finding.
  EXPECT_THAT(Fields(Check(schema, R"({"keys": {"a": "x", "b": {}}})", {0, 1, 3})),
              ElementsAre("/keys"));
}

TEST(JsonValidatorOptions, RequiredMembersOnlyWithOptionSeven) {
  EXPECT_THAT(CheckSwitch("{}", {0, 1}), IsEmpty());
  EXPECT_THAT(CheckSwitch("{}", {0, 1, 7}),
              ElementsAre(Found{"/name", "missing required member 'name'"}));
  EXPECT_THAT(CheckSwitch(R"({"name": "a", "uplinks": [{"speed": 1}]})", {0, 1, 7}),
              ElementsAre(Found{"/uplinks/0/port", "missing required member 'port'"}));
}

TEST(JsonValidatorOptions, RequiredTaggedMembersAreNotDemandedWhereTheyAreRejected) {
  const std::string schema = R"({"type": "object",
      "properties": {"name": {"type": "string"}, "secret": {"type": "string", "vital": true}},
      "required": ["name", "secret"]})";
  EXPECT_THAT(Check(schema, "{}", {0, 1, 7}),
              ElementsAre(Found{"/name", "missing required member 'name'"},
                          Found{"/secret", "missing required member 'secret'"}));
  EXPECT_THAT(Check(schema, "{}", {0, 1, 3, 7}),
              ElementsAre(Found{"/name", "missing required member 'name'"}));
}

TEST(JsonValidatorOptions, InstanceIdsAreCheckedWithOptionEight) {
  const std::string instance =
      R"({"uplinks": [{"speed": 1}, {"port": "a"}, {"port": "a"}, {"port": 7}, "x"]})";
  EXPECT_THAT(CheckSwitch(instance, {1}), IsEmpty());
  EXPECT_THAT(
      CheckSwitch(instance, {1, 8}),
      ElementsAre(
          Found{"/uplinks/0/port", "missing instance id member 'port'"},
          Found{"/uplinks/2/port", "duplicate instance id \"a\" (also at element 1)"},
          Found{"/uplinks/3/port", "instance id member 'port' must be a string, not integer"},
          Found{"/uplinks/4", "instance of type string cannot carry its id member 'port'"}));
}

TEST(JsonValidatorOptions, InstanceIdFindingReplacesTheValueFindingAtTheSameMember) {
  auto findings = CheckSwitch(R"({"uplinks": [{"port": 7}]})", {0, 1, 8});
  EXPECT_THAT(findings,
              ElementsAre(Found{"/uplinks/0/port",
                                "instance id member 'port' must be a string, not integer"}));
}

TEST(JsonValidatorOptions, CachedDataAllowsOnlyCachedMembersWithOptionNine) {
  EXPECT_THAT(
      CheckSwitch(R"({"stats": {"rx": 1}, "uplinks": [{"port": "p", "hits": 2}]})", {0, 1, 9}),
      IsEmpty());
  EXPECT_THAT(CheckSwitch(R"({"stats": {"rx": 1}, "secret": "s", "name": "n"})", {0, 1, 9}),
              ElementsAre(Found{"/secret", "member 'secret' is not cached data"},
                          Found{"/name", "member 'name' is not cached data"}));
  EXPECT_THAT(CheckSwitch(R"({"secret": "s", "name": "n"})", {0, 1}), IsEmpty());
}

TEST(JsonValidatorOptions, TypeTaggedAtTheTopAppliesToAllItsMembers) {
  const std::string cached_type = R"({"type": "object", "cached": true,
      "properties": {"a": {"type": "integer"}, "b": {"type": "object"}}})";
  EXPECT_THAT(Check(cached_type, R"({"a": 1, "b": {"x": 1}})", {0, 1, 9}), IsEmpty());
  EXPECT_THAT(Fields(Check(cached_type, R"({"a": 1})", {0, 1, 5})), ElementsAre("/a"));
  EXPECT_THAT(
      Check(cached_type, R"({"a": 1})", {0, 1, 3}),
      ElementsAre(Found{"/a", "member 'a' is not allowed in user data (it is cached data)"}));
}

TEST(JsonValidatorOptions, GeneratedIdMemberIsReservedEverywhere) {
  const std::string schema = R"({"type": "object", "properties": {
      "rules": {"type": "array", "generatedInstanceId": true,
                "items": {"type": "object", "properties": {"action": {"type": "string"}}}}}})";
  // Not an undescribed member; elements without one are fine (ids come later).
  EXPECT_THAT(Check(schema, R"({"sv_generated_id": "g0",
      "rules": [{"action": "drop"}, {"action": "pass", "sv_generated_id": "g1"}]})",
                    {0, 1, 7, 8}),
              IsEmpty());
  EXPECT_THAT(Check(schema, R"({"rules": [{"sv_generated_id": "g1"}, {"sv_generated_id": "g1"}]})",
                    {0, 1, 8}),
              ElementsAre(Found{"/rules/1/sv_generated_id",
                                "duplicate instance id \"g1\" (also at element 0)"}));
  EXPECT_THAT(Fields(Check(schema, R"({"rules": [{"sv_generated_id": 5}]})", {0, 1})),
              ElementsAre("/rules/0/sv_generated_id"));
}

TEST(JsonValidatorOptions, UnknownOptionsAreIgnored) {
  const std::string instance = R"({"name": "a", "extra": 1})";
  EXPECT_EQ(CheckSwitch(instance, {0, 1, 2, 6, 42, -1}), CheckSwitch(instance, {0, 1}));
}

TEST(JsonValidatorOptions, LibraryOptionSetsOnAValidObjectFindNothing) {
  const std::string user = R"({"name": "sw1", "mtu": 1500, "hw": {"label": "l"},
      "uplinks": [{"port": "p1", "speed": 10}, {"port": "p2"}]})";
  for (const auto& options : std::vector<std::unordered_set<int>>{
           {0, 1, 3, 7, 8}, {0, 1, 7, 8}, {0, 1}, {0, 1, 3, 7}, {0, 1, 4, 8}}) {
    EXPECT_THAT(CheckSwitch(user, options), IsEmpty());
  }
}

}  // namespace
}  // namespace setvault_test
