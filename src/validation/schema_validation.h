// Validation of configuration objects and documents against their schemas.
//
// Each operation passes the validator a fixed option set (see
// jsonschema/json_validator.h for what each option checks); findings become
// ErrorInfo records, are logged (code 1083) and are either appended to a
// caller's list or thrown as a ValidationException carrying all of them.
#ifndef SETVAULT_SRC_VALIDATION_SCHEMA_VALIDATION_H_
#define SETVAULT_SRC_VALIDATION_SCHEMA_VALIDATION_H_

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "schema/schema_store.h"
#include "setvault/exceptions.h"
#include "setvault/json_doc.h"
#include "setvault/setvault_object.h"

namespace KorvoSetvault {

using KorvoSchemaStore::SchemaObject;
using KorvoSchemaStore::SchemaObjectCache;
using OptionSet = std::unordered_set<int>;

// The option sets, built once.
extern const OptionSet CachedDataOptions;     // 0, 1, 9
extern const OptionSet VitalDataOptions;      // 0, 1, 5
extern const OptionSet UserDataOptions;       // 0, 1, 3, 7, 8
extern const OptionSet SetOptions;            // 0, 1, 7, 8
extern const OptionSet UpdateOptions;         // 0, 1
extern const OptionSet PartialConfigOptions;  // 0, 1, 3, 7
extern const OptionSet ApplyFileOptions;      // 0, 1, 4, 8

// What validateObject validates for; kNone and kRead skip the data check.
enum ACTION : int32_t { kNone = 0, kCreate = 1, kModify = 2, kRead = 3 };

// Appends {field, text of `code` formatted with `argument`}.
void AddErrorInfo(const std::string& field, SVErrorCodes code, std::vector<ErrorInfo>& errors,
                  const std::string& argument);
// Appends one ErrorInfo per element of the validator's result array (logged
// with code 1083 unless `quiet`). Throws SetvaultException 1082 when the
// result is not an array of objects with string "field" and "error".
void CollectValidationResults(const JsonValue& result, std::vector<ErrorInfo>& errors, bool quiet);
// Throws ValidationException with `code`, its message and `errors`.
[[noreturn]] void ThrowValidationErrors(SVErrorCodes code, std::vector<ErrorInfo>& errors);
// Validates the object's data with `options`, appending findings. Returns
// whether `errors` is empty afterwards (entries already in it count).
bool ValidateObjectData(const std::shared_ptr<SchemaObject>& schema,
                        const std::shared_ptr<SetvaultObject>& object, const OptionSet& options,
                        std::vector<ErrorInfo>& errors, bool quiet);

// Per-operation checks: each throws ValidationException with its code and
// every finding. The user-data ones clean the object first (empty sub-objects,
// lone generated ids).
void ValidateCachedConfig(const std::shared_ptr<SchemaObject>& schema,
                          const std::shared_ptr<SetvaultObject>& object);   // 1084
void ValidateVitalConfig(const std::shared_ptr<SchemaObject>& schema,
                         const std::shared_ptr<SetvaultObject>& object);    // 1086
void ValidateUserConfig(const std::shared_ptr<SchemaObject>& schema,
                        const std::shared_ptr<SetvaultObject>& object);     // 1087
void ValidatePartialConfig(const std::shared_ptr<SchemaObject>& schema,
                           const std::shared_ptr<SetvaultObject>& object);  // 1088
void ValidateSet(const std::shared_ptr<SchemaObject>& schema,
                 const std::shared_ptr<SetvaultObject>& object);            // 1089
void ValidateUpdate(const std::shared_ptr<SchemaObject>& schema,
                    const std::shared_ptr<SetvaultObject>& object);         // 1090

// The store's Validate: appends findings without logging them and never
// throws for invalid data. A missing schema, or an instance id that does not
// fit the type, is one finding at "/".
void ValidateSVO(const std::shared_ptr<SchemaObject>& schema,
                 const std::shared_ptr<SetvaultObject>& object, std::vector<ErrorInfo>& errors);
// Checks the object's user data (unless `action` is kNone or kRead). A type
// without schema is a finding {component/key, "Schema not found."}.
bool validateObject(const std::shared_ptr<SetvaultObject>& object, ACTION action,
                    std::vector<ErrorInfo>& errors, std::string unused);
// Validates a whole document ({component: {group: {key: data}}}) against the
// schemas in `cache` and fills in generated instance ids.
bool ValidateAgainstCache(JsonDocument& document, const OptionSet& options,
                          const std::shared_ptr<SchemaObjectCache>& cache,
                          std::vector<ErrorInfo>& errors);
bool ValidateImportDocument(JsonDocument& document, const std::shared_ptr<SchemaObjectCache>& cache,
                            std::vector<ErrorInfo>& errors);
// The object's data, as a whole document, against the schema store's cache.
bool ValidateDocument(const std::shared_ptr<SetvaultObject>& object, std::vector<ErrorInfo>& errors);
// Throws ValidationException 1091 with every finding of `document` against
// `schema` under the apply-file options.
void ValidateApplyFile(const JsonValue& document, const JsonValue& schema);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_VALIDATION_SCHEMA_VALIDATION_H_
