// SchemaDefinition: one configuration type's definition, parsed and checked.
//
// A definition is a JSON object (one file per type, see examples/schemas/):
//
//   { "component": "korvo", "group": "net", "key": "vswitch",   // required names
//     "version": "1.0",                                         // required
//     "description": "...",                                     // optional, ignored
//     "instanceIdProperty": "name",     // present: a multi-instance type
//     "tags": ["@rebootRequiredSetvault"],
//     "configKind": 0,                  // default 0
//     "nonUserInstanceIds": ["uplink"], // kind 5 only: instances that are not user data
//     "valueType": "korvo-shared",      // optional category of the type
//     "confirmedDuringUpgrade": false,  // user writes during an upgrade count as
//                                       // confirmed at once (default false)
//     "currentValueDuringBoot": false,  // see below (default false)
//     "defaults": { "mtu": 1500 },      // optional default values: the shipped
//                                       // value of a singleton type; for a
//                                       // multi-instance type, the values an
//                                       // instance's getters fall back to
//     "defaultInstances": [             // optional, multi-instance types only:
//       { "name": "vSwitch0", "mtu": 1500 } ],  // the shipped instances, each
//                                       // naming itself in the instance id member
//     "schema": { "type": "object", "properties": { ... } } }   // required
//
// "currentValueDuringBoot" concerns Update only: during boot (outside an
// upgrade) an Update with the external context merges into the pending user
// value (the desired value, else the user value confirmed or not) instead of
// the confirmed one. External writes of user configuration are refused during
// boot, so it matters for types that are not user configuration. Get,
// GetInstances and the other reads do not depend on it: they show the
// confirmed user value, and the pending one only during an upgrade.
//
// LoadSchemaDefinitions writes a singleton type's "defaults" and a
// multi-instance type's "defaultInstances" into the store's DefaultConfig;
// default instances must pass the type's schema as a whole-object write.
//
// Names (component, group, key, valueType, instance id members) hold only
// letters, digits, '_' and '-'. "schema" is a JSON Schema of draft 7 in the
// dialect that CheckDefinitionSchema describes; its nodes, as far as
// "properties" and "items" lead, are objects (or the boolean schemas true and
// false) with a valid "type" where they have one. Inside "schema", any node may carry the
// booleans "vital", "cached" and "solutionUser"; an array property whose
// elements are sub-object instances carries either "instanceIdProperty" (the
// member of each element holding its id, which its "items" must describe) or
// "generatedInstanceId": true (ids are generated into "sv_generated_id", which
// its "items" must describe as well).
#ifndef SETVAULT_SRC_SCHEMA_SCHEMA_DEFINITION_H_
#define SETVAULT_SRC_SCHEMA_SCHEMA_DEFINITION_H_

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "setvault/json_doc.h"

namespace KorvoSchemaStore {

// The member that holds a generated instance id.
extern const char kGeneratedIdMember[];
// The tag of types whose changes take effect at the next boot.
extern const char kRebootRequiredTag[];

struct SchemaDefinition {
  std::string component;
  std::string group;
  std::string key;
  std::string version;
  std::string valueType;           // empty when the definition names none
  std::string instanceIdProperty;  // empty for a singleton type
  std::vector<std::string> tags;
  int configKind = 0;
  std::vector<std::string> nonUserInstanceIds;
  bool confirmedDuringUpgrade = false;
  bool currentValueDuringBoot = false;
  // The whole definition document; "schema" and "defaults" are parts of it.
  std::shared_ptr<KorvoSetvault::JsonDoc> document;
  // A view of "defaults" in `document`; empty when the definition has none.
  std::shared_ptr<KorvoSetvault::JsonDoc> defaults;
  // An object: the type's key and every instance-array sub-object key, each to
  // the member that holds its instance id.
  std::shared_ptr<KorvoSetvault::JsonDoc> idMap;
  // The definition as compact JSON text (what the schema database stores).
  std::string text;

  // The "schema" member of `document`.
  const KorvoSetvault::JsonValue& Schema() const;
  // The "defaultInstances" member of `document` (an array), or null when the
  // definition has none.
  const KorvoSetvault::JsonValue* DefaultInstances() const;
};

// True when `name` is non-empty and holds only letters, digits, '_' and '-'.
bool IsValidSchemaName(const std::string& name);

// Parses and checks the definition `text`. `origin` (a file name, or a row of
// the schema database) starts every error message. Throws SetvaultException
// 2000 "<origin>: <what is wrong>" for a definition that is not accepted,
// "<origin>: not valid JSON at offset <n>: <reason>" for text that does not
// parse (nesting deeper than 512 levels and invalid UTF-8 included). Used for
// definitions already checked by CheckSchemaDefinition (rows of the schema
// database) and as its first step.
std::shared_ptr<const SchemaDefinition> ParseSchemaDefinition(const std::string& text,
                                                              const std::string& origin);

// The whole check of a definition file before it is loaded:
// ParseSchemaDefinition, then CheckDefinitionSchema, the defaults against the
// schema (CheckValueAgainstSchema at "/defaults") and each shipped default
// instance as a whole-object write would check it (value checks, no
// undescribed member, "required", instance ids; at "/defaultInstances/<i>"). Throws
// SetvaultException 2000 with one line "<origin>: <JSON Pointer>: <fault>"
// per fault found (the pointer leads into the definition document).
std::shared_ptr<const SchemaDefinition> CheckSchemaDefinition(const std::string& text,
                                                              const std::string& origin);

// Checks a definition's "schema" against the supported dialect: the
// meta-schema of draft 7 narrowed to the keywords the validator honours
// (every other keyword is refused), every pattern compiles with RE2, every
// "format" is one the validator checks, every "$ref" is a local JSON Pointer
// that resolves to a schema, and the validator compiles the schema. Appends
// "<JSON Pointer into the definition>: <fault>" to `faults` per fault.
void CheckDefinitionSchema(const KorvoSetvault::JsonValue& schema,
                           std::vector<std::string>* faults);

// Validates `value` (default values or a default instance) against `schema`
// with the validator's option set `options` (by default value checks and no
// member the schema does not describe; "required" is not applied). Appends
// "<pointer_base><field>: <error>" to `faults` per finding ("/defaults/mtu:
// value 70000 exceeds maximum 9216"). `schema` must have passed
// CheckDefinitionSchema; a schema that does not compile adds one fault.
void CheckValueAgainstSchema(const KorvoSetvault::JsonValue& schema,
                             const KorvoSetvault::JsonValue& value,
                             const std::string& pointer_base, std::vector<std::string>* faults,
                             const std::unordered_set<int>& options = {0, 1});

}  // namespace KorvoSchemaStore

#endif  // SETVAULT_SRC_SCHEMA_SCHEMA_DEFINITION_H_
