// Argument and schema-kind checks that store operations run before touching
// the database. Every refusal is a ValidationException with code 2000 and no
// findings, except a missing schema (SetvaultException 1037) and an instance
// id holding a NUL byte or invalid UTF-8 (InvalidArgumentException 2000
// "Instance id cannot contain a NUL byte", "Instance id must be valid UTF-8").
#ifndef SETVAULT_SRC_VALIDATION_GUARDS_H_
#define SETVAULT_SRC_VALIDATION_GUARDS_H_

#include <memory>

#include "schema/schema_store.h"
#include "setvault/filter_spec_object.h"
#include "setvault/object_id.h"
#include "setvault/setvault_object.h"
#include "setvault/user_context.h"

namespace KorvoSetvault {

using KorvoSchemaStore::SchemaObject;

// Refuses an external caller during boot unless an upgrade is in progress.
void checkUserContext(bool duringBoot, const USERDATA_CONTEXT& context);
// Throws InvalidArgumentException 2000 "Instance id cannot contain a NUL
// byte" or "Instance id must be valid UTF-8" for such an instance id: stored
// whole, a NUL would be read back cut and name another row.
void RequireCleanInstanceId(const SetvaultObjectId& id);
// Refuses an id without instance id, or with one that is not clean text.
void validateInstanceId(const SetvaultObjectId& id);
// Refuses an instance id on a singleton type and its absence on a
// non-singleton type. `schema` must not be empty.
void validateSingletonNonSingleton(const SetvaultObjectId& id,
                                   const std::shared_ptr<SchemaObject>& schema);
void validateSingletonNonSingleton(const std::shared_ptr<SetvaultObject>& object,
                                   const std::shared_ptr<SchemaObject>& schema);
// Throws SetvaultException 1037 with the id's text; its detailed message tells
// whether the schema database is missing or unreadable, or only lacks the type.
[[noreturn]] void ThrowSchemaNotFound(const SetvaultObjectId& id);
// Throws SetvaultException 1037 (ThrowSchemaNotFound) when `schema` is empty.
void CheckSchema(const SetvaultObjectId& id, const std::shared_ptr<SchemaObject>& schema);
// CheckSchema, then validateSingletonNonSingleton.
void ValidateSvoId(const SetvaultObjectId& id, const std::shared_ptr<SchemaObject>& schema);
void ValidateSvoId(const std::shared_ptr<SetvaultObject>& object,
                   const std::shared_ptr<SchemaObject>& schema);
// CheckSchema, then refuses a singleton type and an instance id that is not
// clean text. An id without instance id stands for every instance.
void ValidateSvoIdInstances(const SetvaultObjectId& id, const std::shared_ptr<SchemaObject>& schema);
void ValidateSvoIdInstances(const std::shared_ptr<FilterSpecObject>& filter,
                            const std::shared_ptr<SchemaObject>& schema);
// Refuses a type not tagged "@rebootRequiredSetvault".
void ValidateRebootRequiredConfig(const std::shared_ptr<SchemaObject>& schema);
// Refuses an object without data.
void ValidateEmptyObject(const std::shared_ptr<SetvaultObject>& object);
// Refuses any id but the kernel options' (korvo / hvcore / options).
void ValidateKernelOptionsSvoId(const SetvaultObjectId& id);

// True (with a warning logged) when `pointer` is empty; the caller then
// returns an empty result.
template <typename T>
bool IsNull(const std::shared_ptr<T>& pointer, const char* operationName);
// True (with a warning logged) when the object holds no data; the caller then
// skips the write.
bool ObjIsEmpty(const std::shared_ptr<SetvaultObject>& object, const char* operationName);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_VALIDATION_GUARDS_H_
