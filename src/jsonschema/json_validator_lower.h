// Lowering: the schema that valijson compiles, made from a prepared schema.
#ifndef SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_LOWER_H_
#define SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_LOWER_H_

#include <string>

#include "setvault/json_doc.h"

namespace JsonValidator {
namespace internal {

// Writes into `lowered` the checker's form of `prepared`: the keywords that
// the library checks itself are renamed to the constraints of
// json_validator_keywords.h, the boolean schemas true and false become {} and
// {"svFalse": true}, counts written as 2.0 become integers, annotations and
// the library's tags are dropped, and every "$ref" is rewritten to the
// place of its target in `lowered`. Throws SetvaultException 2000 (naming
// the keyword and its place, "#/properties/a") for an unknown or refused
// keyword, a keyword with a value of the wrong kind, a "$ref" that is not a
// local JSON Pointer to a schema, and "$id" or "$schema" below the root.
void LowerForChecker(const KorvoSetvault::JsonValue& prepared,
                     KorvoSetvault::JsonDocument& lowered);

// "#" and `pointer` percent-encoded as a URI fragment.
std::string FragmentOf(const std::string& pointer);

}  // namespace internal
}  // namespace JsonValidator

#endif  // SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_LOWER_H_
