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
//     "currentValueDuringBoot": false,  // reads during boot show the pending user
//                                       // value instead of the confirmed one (default false)
//     "defaults": { "mtu": 1500 },      // optional default values
//     "schema": { "type": "object", "properties": { ... } } }   // required
//
// Names (component, group, key, valueType, instance id members) hold only
// letters, digits, '_' and '-'. "schema" is a JSON Schema (draft 7 subset)
// whose nodes, as far as "properties" and "items" lead, are objects with a
// valid "type" where they have one. Inside "schema", any node may carry the
// booleans "vital", "cached" and "solutionUser"; an array property whose
// elements are sub-object instances carries either "instanceIdProperty" (the
// member of each element holding its id, which its "items" must describe) or
// "generatedInstanceId": true (ids are generated into "sv_generated_id", which
// its "items" must describe as well).
#ifndef SETVAULT_SRC_PLATFORM_SCHEMA_DEFINITION_H_
#define SETVAULT_SRC_PLATFORM_SCHEMA_DEFINITION_H_

#include <memory>
#include <string>
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
};

// True when `name` is non-empty and holds only letters, digits, '_' and '-'.
bool IsValidSchemaName(const std::string& name);

// Parses and checks the definition `text`. `origin` (a file name, or a row of
// the schema database) starts every error message. Throws SetvaultException
// 2000 "<origin>: <what is wrong>" for a definition that is not accepted,
// "<origin>: not valid JSON at offset <n>: <reason>" for text that does not
// parse (nesting deeper than 512 levels and invalid UTF-8 included).
std::shared_ptr<const SchemaDefinition> ParseSchemaDefinition(const std::string& text,
                                                              const std::string& origin);

}  // namespace KorvoSchemaStore

#endif  // SETVAULT_SRC_PLATFORM_SCHEMA_DEFINITION_H_
