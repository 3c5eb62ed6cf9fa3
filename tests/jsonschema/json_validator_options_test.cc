// Each option of the validator changes the outcome of some case: a validator
// that ignored the option would fail the case. Also the findings' pointers
// and messages.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json_validator_fixture.h"

namespace setvault_test {
namespace {

// A type with user, vital, cached and solutionUser members, nested objects
// and an instance array.
constexpr char kSwitch[] = R"({"type": "object", "properties": {
    "name": {"type": "string", "maxLength": 8, "pattern": "^[a-z0-9]+$"},
    "mtu": {"type": "integer", "minimum": 68, "maximum": 9216}, "mode": {"enum": ["fast", "slow"]},
    "secret": {"type": "string", "vital": true}, "owner": {"type": "string", "solutionUser": true},
    "stats": {"type": "object", "cached": true, "properties": {"rx": {"type": "integer"}}},
    "hw": {"type": "object", "properties": {"serial": {"type": "string", "vital": true},
                                            "label": {"type": "string"}}},
    "uplinks": {"type": "array", "instanceIdProperty": "port", "items": {"type": "object",
        "properties": {"port": {"type": "string"}, "speed": {"type": "integer"},
                       "key": {"type": "string", "vital": true},
                       "hits": {"type": "integer", "cached": true}}, "required": ["port"]}}},
    "required": ["name", "secret"]})";
// Free-form and map objects (one of vital members); a sub-object tagged vital
// as a whole.
constexpr char kMaps[] = R"({"type": "object", "properties": {"free": {"type": "object"},
    "labels": {"type": "object", "properties": {}, "additionalProperties": {"type": "string"}},
    "vault": {"type": "object", "additionalProperties": {"type": "string", "vital": true}},
    "keys": {"type": "object", "vital": true,
             "properties": {"a": {"type": "string"}, "b": {"type": "object"}}}}})";
// A type tagged cached at the top.
constexpr char kCachedType[] = R"({"type": "object", "cached": true,
    "properties": {"a": {"type": "integer"}, "b": {"type": "object"}}})";
// An array whose instance ids the library generates.
constexpr char kGenerated[] = R"({"type": "object", "properties": {
    "rules": {"type": "array", "generatedInstanceId": true,
              "items": {"type": "object", "properties": {"action": {"type": "string"}}}}}})";
// A multi-instance type naming its own id member.
constexpr char kTyped[] = R"({"type": "object", "instanceIdProperty": "name", "properties": {
    "name": {"type": "string"}, "serial": {"type": "string", "vital": true},
    "load": {"type": "integer", "cached": true}, "mtu": {"type": "integer"}}})";

// The finding at `path` that its last member "is <what>".
Found Is(const std::string& path, const std::string& what) {
  return {path, "member '" + path.substr(path.rfind('/') + 1) + "' is " + what};
}

// The finding at `path` that its member is `kind` data, refused in `where`.
Found In(const std::string& where, const std::string& path, const std::string& kind) {
  return Is(path, "not allowed in " + where + " (it is " + kind + " data)");
}

void Expect(const char* schema, const std::string& instance, const std::unordered_set<int>& options,
            const std::vector<Found>& expected) {
  EXPECT_EQ(Check(schema, instance, options), expected) << instance;
}

TEST(JsonValidatorOptions, EachOptionChangesAnOutcome) {
  const std::string user = "user data";
  const std::string apply = "an apply file";
  const std::string undescribed = "not described in the schema";
  const std::string mixed = R"({"name": "a", "secret": "s", "hw": {"serial": "1", "label": "l"},
      "stats": {"rx": 1}, "uplinks": [{"port": "p", "key": "k", "speed": 1}]})";
  const std::string ids =
      R"({"uplinks": [{"speed": 1}, {"port": "a"}, {"port": "a"}, {"port": 7}, "x"]})";
  const std::string odd =
      R"({"name": "sw1", "color": "red", "hw": {"x": 1}, "uplinks": [{"port": "p", "zz": 0}]})";
  const std::string tagged = R"({"name": "sw1", "secret": "s", "owner": "o", "stats": {"rx": 1},
      "hw": {"serial": "x", "label": "l"}, "uplinks": [{"port": "p", "key": "k"}]})";
  // 0: value checks.
  Expect(kSwitch, R"({"name": "sw1", "mtu": 7000000, "mode": "eco"})", {1}, {});
  Expect(kSwitch, R"({"name": "sw1", "mtu": 7000000, "mode": "eco"})", {0, 1},
         {{"/mode", R"(value "eco" is not one of the allowed values (allowed: "fast", "slow"))"},
          {"/mtu", "value 7000000 exceeds maximum 9216"}});
  // 1: undescribed members are errors at every level, except in free-form
  // and map objects (whose members still meet the member schema).
  Expect(kSwitch, odd, {0}, {});
  Expect(kSwitch, odd, {0, 1},
         {Is("/color", undescribed), Is("/hw/x", undescribed), Is("/uplinks/0/zz", undescribed)});
  Expect(kMaps, R"({"free": {"a": 1}, "labels": {"k": "v"}})", {0, 1}, {});
  Expect(kMaps, R"({"labels": {"k": 1}})", {0, 1},
         {{"/labels/k", "value of type integer is not allowed here (expected string)"}});
  // 3: user data refuses tagged members, once at the tagged member and
  // without its value findings.
  Expect(kSwitch, tagged, {0, 1}, {});
  Expect(kSwitch, tagged, {0, 1, 3},
         {In(user, "/secret", "vital"), In(user, "/owner", "solutionUser"),
          In(user, "/stats", "cached"), In(user, "/hw/serial", "vital"),
          In(user, "/uplinks/0/key", "vital")});
  Expect(kSwitch, R"({"name": "a", "stats": {"rx": "many"}})", {0, 1, 3},
         {In(user, "/stats", "cached")});
  Expect(kMaps, R"({"vault": {"k": "v"}})", {0, 1, 3}, {In(user, "/vault/k", "vital")});
  Expect(kMaps, R"({"keys": {"a": "x", "b": {}}})", {0, 1, 3}, {In(user, "/keys", "vital")});
  // 4: an apply file allows solutionUser members, not vital or cached ones.
  Expect(kSwitch, R"({"name": "a", "owner": "o"})", {0, 1, 4}, {});
  Expect(kSwitch, R"({"name": "a", "secret": "s", "uplinks": [{"port": "p", "hits": 1}]})",
         {0, 1, 4}, {In(apply, "/secret", "vital"), In(apply, "/uplinks/0/hits", "cached")});
  // 5: vital data allows only vital members; untagged containers of vital
  // members and instance ids pass, and a vital tag covers all below it.
  Expect(kSwitch,
         R"({"secret": "s", "hw": {"serial": "1"}, "uplinks": [{"port": "p", "key": "k"}]})",
         {0, 1, 5}, {});
  Expect(kSwitch, mixed, {0, 1, 5},
         {Is("/name", "not vital data"), Is("/hw/label", "not vital data"),
          Is("/stats", "not vital data"), Is("/uplinks/0/speed", "not vital data")});
  Expect(kMaps, R"({"keys": {"a": "x", "b": {"deep": 1}}, "free": {}})", {0, 1, 5},
         {Is("/free", "not vital data")});
  // 7: required members, not demanded where they are refused anyway.
  Expect(kSwitch, "{}", {0, 1, 7},
         {{"/name", "missing required member 'name'"},
          {"/secret", "missing required member 'secret'"}});
  Expect(kSwitch, "{}", {0, 1, 3, 7}, {{"/name", "missing required member 'name'"}});
  // 8: instance ids; an id finding replaces the value finding of its member.
  Expect(kSwitch, ids, {1}, {});
  Expect(kSwitch, ids, {1, 8},
         {{"/uplinks/0/port", "missing instance id member 'port'"},
          {"/uplinks/2/port", "duplicate instance id \"a\" (also at element 1)"},
          {"/uplinks/3/port", "instance id member 'port' must be a string, not integer"},
          {"/uplinks/4", "instance of type string cannot carry its id member 'port'"}});
  Expect(kSwitch, R"({"uplinks": [{"port": 7}]})", {0, 1, 8},
         {{"/uplinks/0/port", "instance id member 'port' must be a string, not integer"}});
  // 9: cached data allows only cached members.
  Expect(kSwitch, R"({"stats": {"rx": 1}, "uplinks": [{"port": "p", "hits": 2}]})", {0, 1, 9}, {});
  Expect(kSwitch, R"({"stats": {"rx": 1}, "secret": "s", "name": "n"})", {0, 1, 9},
         {Is("/secret", "not cached data"), Is("/name", "not cached data")});
  // A type tagged at the top tags all its members.
  Expect(kCachedType, R"({"a": 1, "b": {"x": 1}})", {0, 1, 9}, {});
  Expect(kCachedType, R"({"a": 1})", {0, 1, 3}, {In(user, "/a", "cached")});
  // The generated id member is reserved everywhere, and checked as an id.
  Expect(kGenerated,
         R"({"sv_generated_id": "g0",
           "rules": [{"action": "drop"}, {"action": "pass", "sv_generated_id": "g1"}]})",
         {0, 1, 7, 8}, {});
  Expect(kGenerated, R"({"rules": [{"sv_generated_id": "g1"}, {"sv_generated_id": "g1"}]})",
         {0, 1, 8},
         {{"/rules/1/sv_generated_id", "duplicate instance id \"g1\" (also at element 0)"}});
  Expect(kGenerated, R"({"rules": [{"sv_generated_id": 5}]})", {0, 1},
         {{"/rules/0/sv_generated_id",
           "value of type integer is not allowed here (expected string)"}});
  // A multi-instance type's own id member passes the vital and cached
  // only checks (an untagged "name" does not: see the vital data cases).
  Expect(kTyped, R"({"name": "a", "serial": "x"})", {0, 1, 5}, {});
  Expect(kTyped, R"({"name": "a", "mtu": 3})", {0, 1, 5}, {Is("/mtu", "not vital data")});
  // Unknown options are ignored.
  Expect(kSwitch, R"({"name": "a", "extra": 1})", {0, 1, 2, 6, 42, -1},
         {Is("/extra", undescribed)});
}

// Pointers escape "~" and "/" and start at "/"; messages name the value
// (cut when long) and the limit; tags are found through references.
TEST(JsonValidatorFindings, PointersAndMessages) {
  const std::string type_error = "value of type string is not allowed here (expected integer)";
  Expect(R"({"type": "object"})", "[1]", {0, 1},
         {{"/", "value of type array is not allowed here (expected object)"}});
  const char escaped[] = R"({"type": "object", "properties": {"a/b": {"type": "integer"},
      "m~n": {"type": "object", "properties": {"x/~y": {"type": "integer"}}}}})";
  Expect(escaped, R"({"a/b": "s", "m~n": {"x/~y": "s", "~/": 1}})", {0, 1},
         {{"/m~0n/~0~1", "member '~/' is not described in the schema"},
          {"/a~1b", type_error},
          {"/m~0n/x~1~0y", type_error}});
  Expect(R"({"type": "object", "properties": {"fixed": {"const": "on"},
             "names": {"propertyNames": {"maxLength": 1}}}})",
         R"({"fixed": "off", "names": {"ab": 1}})", {0},
         {{"/fixed", "value \"off\" is not the required value \"on\""},
          {"/names/ab", "member name \"ab\" is not allowed by \"propertyNames\""}});
  Expect(R"({"type": "object", "properties": {"e": {"enum": ["a"]}}})",
         R"({"e": ")" + std::string(200, 'q') + R"("})", {0},
         {{"/e", "value \"" + std::string(64, 'q') +
                     "...\" is not one of the allowed values (allowed: \"a\")"}});
  const char referenced[] = R"({"definitions": {"port": {"type": "object", "properties": {"speed":
      {"type": "integer", "maximum": 100}, "lock": {"vital": true}}}}, "type": "object",
      "properties": {"ports": {"type": "array", "instanceIdProperty": "n", "items": {"allOf":
      [{"$ref": "#/definitions/port"}, {"properties": {"n": {"type": "string"}}}]}}}})";
  Expect(referenced, R"({"ports": [{"n": "a", "speed": 1}]})", {0, 1, 3, 7, 8}, {});
  Expect(referenced, R"({"ports": [{"n": "a", "speed": 101, "lock": 1, "odd": 1}]})",
         {0, 1, 3, 7, 8},
         {{"/ports/0/lock", "member 'lock' is not allowed in user data (it is vital data)"},
          {"/ports/0/odd", "member 'odd' is not described in the schema"},
          {"/ports/0/speed", "value 101 exceeds maximum 100"}});
}

}  // namespace
}  // namespace setvault_test
