// Running a compiled schema over an instance.
#ifndef SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_RUN_H_
#define SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_RUN_H_

#include "jsonschema/json_validator_cache.h"
#include "jsonschema/json_validator_report.h"

namespace JsonValidator {
namespace internal {

// Undescribed members (option 1), tag policies (3, 4, 5, 9) and instance ids
// (8). Expects an instance no deeper than kMaxInstanceDepth.
void RunMemberRules(const CompiledSchema& compiled, const KorvoSetvault::JsonValue& instance,
                    Findings& findings);

// Type, value, length, pattern and nested-schema checks, and "required" when
// the option set asks for it.
void RunValueChecks(const CompiledSchema& compiled, const KorvoSetvault::JsonValue& instance,
                    Findings& findings);

}  // namespace internal
}  // namespace JsonValidator

#endif  // SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_RUN_H_
