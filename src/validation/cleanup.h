// Clean-up of user data before it is validated and written, and the handling
// of generated instance ids.
#ifndef SETVAULT_SRC_VALIDATION_CLEANUP_H_
#define SETVAULT_SRC_VALIDATION_CLEANUP_H_

#include <memory>
#include <string>

#include "schema/schema_store.h"
#include "setvault/json_doc.h"
#include "setvault/setvault_object.h"

namespace KorvoSetvault {

// Removes from the object's user data what carries no configuration: object
// members left empty, empty instances of instance arrays, instance arrays
// left empty, and a generated id left alone in an object. Only schema nodes
// of user data are touched (not tagged "vital", "cached" or "solutionUser").
// Types of config kind 1, 3 and 4, and kind-5 objects whose instance id the
// schema lists as non-user, are skipped. A malformed schema node throws
// SetvaultException 1082 (the data may then be partly cleaned).
void CleanupObject(const std::shared_ptr<SetvaultObject>& object,
                   const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema);

// Removes every "sv_generated_id" member below `value` (recursively). Removal
// moves an object's last member into the removed member's place.
void ClearGeneratedInstanceId(JsonValue* value);

// The instance id that `value` holds in the member the schema names; "" for
// a type without instance-id member. Throws SetvaultException 1032 when that
// member is missing or not a string.
std::string GetInstanceIdFromValue(const JsonValue& value,
                                   const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_VALIDATION_CLEANUP_H_
