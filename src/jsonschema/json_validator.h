// JsonValidator: JSON-schema validation of configuration data, with option
// sets that select which checks apply.
//
// Validate() checks `instance` against `schema` and writes one finding per
// violation into `result`, a JSON array of {"field": <JSON Pointer>, "error":
// <English text>} objects; an empty array means the instance passed.
//
// Options (small integers; unknown ones are ignored):
//   0  value checks: type, enum, const, bounds, lengths, pattern, nested schemas
//   1  members not described under "properties" are errors, at every level
//   3  user data only: members tagged vital, cached or solutionUser are errors
//   4  apply file: solutionUser members are allowed; vital and cached are errors
//   5  vital data only: only vital members (and instance ids) are allowed
//   7  "required" members must be present (without 7 "required" is ignored)
//   8  each element of an instance array carries its id as a string, unique in
//      its array
//   9  cached data only: only cached members (and instance ids) are allowed
//
// Conventions of the findings:
//   - "field" is an RFC 6901 JSON Pointer into the instance ("~" is written
//     "~0" and "/" is written "~1"), except that the root itself is "/".
//   - A missing required member is reported at the pointer of that member
//     ("/a/b" when "b" is missing from the object at "/a").
//   - A tag (vital, cached, solutionUser) holds for everything below the
//     member, array items node or schema root that carries it. Under 3 and 4 a
//     forbidden member is reported once, at the highest tagged member, and
//     nothing below it is looked at. Under 5 and 9 a member that is not tagged
//     is still accepted when its schema has a tagged member somewhere below it
//     (a container of vital or cached data); its content is then checked
//     member by member. A member tagged vital (under 5) or cached (under 9)
//     accepts everything below it.
//   - "sv_generated_id" is accepted (as a string) in every object, and the id
//     member of an instance array element is always allowed. An instance
//     array is an array schema with "instanceIdProperty" (the id member) or
//     "generatedInstanceId": true (ids in "sv_generated_id", checked under 8
//     only where present, since they are filled in after validation).
//   - Findings of the member rules (options 1, 3, 4, 5, 8, 9) come first, in
//     instance order, then those of the value checks. A member reported by a
//     member rule gets no further value finding at the same pointer.
//   - Local references ("#/definitions/x") are followed; members described in
//     "allOf", "anyOf" or "oneOf" branches count as described. A definition
//     reached through "$ref" is prepared for the value checks where it is
//     defined, so tags of the places that refer to it do not change which of
//     its members keep their value checks.
//   - An instance nested deeper than 128 levels gives the single finding
//     {"/", "value is nested deeper than 128 levels"}.
//
// The schema dialect is JSON Schema draft 7. valijson walks the schema; the
// library checks "type" (1.0 is an integer), "pattern", "patternProperties"
// and "propertyNames" (patterns with RE2, linear time: see jsonschema/pattern.h),
// "format" (date, time, date-time, ipv4, ipv6, hostname, regex), "multipleOf"
// and the boolean schemas itself (json_validator_keywords.h). Counts may be
// written 2.0. Annotations ("title", "description", "default", "examples",
// "$comment", "readOnly", "writeOnly") are accepted and not checked; "$id"
// and "$schema" (draft 7 only) are accepted at the root only. Every other
// keyword, a remote reference or one by "$id", and any other format make the
// schema malformed.
//   - An object schema without "properties" (or with "additionalProperties"
//     true or a schema) accepts undescribed members under option 1.
//
// A compiled form of each (schema, option set) is cached and shared by all
// threads; a schema that changes at the same address is detected by a deep
// comparison and recompiled. A caller whose schemas never change (the schema
// store's) names each one by a stamp instead, and the comparison is skipped.
#ifndef SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_H_
#define SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>

#include "setvault/json_doc.h"

namespace JsonValidator {

// Validates `instance` against `schema` under `options` and replaces the
// content of `result` with the array of findings (the result document owns
// them). `name`, when not empty, keys the compiled-schema cache (for example
// "component/group/key"); otherwise the schema's address does. Neither
// `schema` nor `instance` is changed or retained.
// Throws KorvoSetvault::SetvaultException 2000 when the schema is malformed
// (not an object, a keyword of the wrong kind, an unresolvable reference) or
// nested deeper than the supported limit. A hostile instance (however deep)
// yields findings, never a crash.
void Validate(const KorvoSetvault::JsonValue& schema, const KorvoSetvault::JsonValue& instance,
              KorvoSetvault::JsonDocument& result, const std::unordered_set<int>& options,
              const std::string& name);

// The same, with the compiled form of `schema` cached under `stamp`: a number
// that the caller gives to this schema content only, for the life of the
// process (KorvoSchemaStore::SchemaObject::Stamp()), never 0. The cached form
// is used without comparing the schema with the one it was compiled from.
void ValidateStamped(const KorvoSetvault::JsonValue& schema, uint64_t stamp,
                     const KorvoSetvault::JsonValue& instance, KorvoSetvault::JsonDocument& result,
                     const std::unordered_set<int>& options);

// Test hooks: the number of compilations since the process started (or since
// the last ResetCacheForTesting), and emptying the cache.
size_t CompileCountForTesting();
void ResetCacheForTesting();

}  // namespace JsonValidator

#endif  // SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_H_
