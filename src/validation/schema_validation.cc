#include "validation/schema_validation.h"

#include "jsonschema/json_validator.h"
#include "model/setvault_object_impl.h"
#include "platform/utf8.h"
#include "schema/schema_generated_id.h"
#include "setvault/logger.h"
#include "validation/cleanup.h"

namespace KorvoSetvault {

const OptionSet CachedDataOptions = {0, 1, 9};
const OptionSet VitalDataOptions = {0, 1, 5};
const OptionSet UserDataOptions = {0, 1, 3, 7, 8};
const OptionSet SetOptions = {0, 1, 7, 8};
const OptionSet UpdateOptions = {0, 1};
const OptionSet PartialConfigOptions = {0, 1, 3, 7};
const OptionSet ApplyFileOptions = {0, 1, 4, 8};

namespace {

constexpr char kNotUtf8Finding[] = "Text is not valid UTF-8.";

// Runs the validator into a fresh result document.
void RunValidator(const JsonValue& schema, const JsonValue& data, const OptionSet& options,
                  JsonDocument& result) {
  JsonValidator::Validate(schema, data, result, options, "");
}
// The same for a type's schema: its compiled form is found by the schema object's stamp.
void RunValidator(const SchemaObject& schema, const JsonValue& data, const OptionSet& options,
                  JsonDocument& result) {
  JsonValidator::ValidateStamped(schema.GetSchemaJson(), schema.Stamp(), data, result, options);
}

// Cleans (when asked), validates with `options` and throws `code` with every
// finding.
void ValidateOrThrow(const std::shared_ptr<SchemaObject>& schema,
                     const std::shared_ptr<SetvaultObject>& object, const OptionSet& options,
                     SVErrorCodes code, bool cleanup_first) {
  std::vector<ErrorInfo> errors;
  if (cleanup_first) CleanupObject(object, schema);
  if (!ValidateObjectData(schema, object, options, errors, false)) {
    ThrowValidationErrors(code, errors);
  }
}

// The option set for the store's Validate: by the type's top-level tags.
const OptionSet& OptionsForType(const JsonValue& schema) {
  schema.GetObject();  // must be an object: asserts otherwise
  auto vital = schema.FindMember("vital");
  if (vital != schema.MemberEnd() && vital->value.GetBool()) return VitalDataOptions;
  auto cached = schema.FindMember("cached");
  if (cached != schema.MemberEnd() && cached->value.GetBool()) return CachedDataOptions;
  return SetOptions;
}

}  // namespace

void AddErrorInfo(const std::string& field, SVErrorCodes code, std::vector<ErrorInfo>& errors,
                  const std::string& argument) {
  errors.push_back({field, Format<const char*>(ErrorMessageForId(code), argument.c_str())});
}

void CollectValidationResults(const JsonValue& result, std::vector<ErrorInfo>& errors, bool quiet) {
  for (const JsonValue& finding : result.GetArray()) {
    const JsonValue& field = finding["field"];
    const JsonValue& error = finding["error"];
    ErrorInfo info{std::string(field.GetString(), field.GetStringLength()),
                   std::string(error.GetString(), error.GetStringLength())};
    if (!quiet) SVLogger::LogErrCode(0, SV_ERR_VALIDATION, info.path.c_str(), info.message.c_str());
    errors.push_back(std::move(info));
  }
}

void ThrowValidationErrors(SVErrorCodes code, std::vector<ErrorInfo>& errors) {
  throw ValidationException(code, Format(ErrorMessageForId(code)).c_str(), errors);
}

bool ValidateObjectData(const std::shared_ptr<SchemaObject>& schema,
                        const std::shared_ptr<SetvaultObject>& object, const OptionSet& options,
                        std::vector<ErrorInfo>& errors, bool quiet) {
  const JsonValue& data = object->GetImpl()->Root();
  if (data.IsObject()) {
    // Values built through the API (not parsed from text) may hold any bytes.
    if (auto pointer = FindInvalidUtf8(data)) errors.push_back({*pointer, kNotUtf8Finding});
    JsonDocument result;
    RunValidator(*schema, data, options, result);
    CollectValidationResults(result, errors, quiet);
  } else {
    AddErrorInfo("/", SV_ERR_JSON_TYPE, errors, "Expected JSON of type object.");
  }
  return errors.empty();
}

void ValidateCachedConfig(const std::shared_ptr<SchemaObject>& schema,
                          const std::shared_ptr<SetvaultObject>& object) {
  ValidateOrThrow(schema, object, CachedDataOptions, SV_ERR_CACHED_DATA_INVALID, false);
}

void ValidateVitalConfig(const std::shared_ptr<SchemaObject>& schema,
                         const std::shared_ptr<SetvaultObject>& object) {
  ValidateOrThrow(schema, object, VitalDataOptions, SV_ERR_VITAL_DATA_INVALID, false);
}

void ValidateUserConfig(const std::shared_ptr<SchemaObject>& schema,
                        const std::shared_ptr<SetvaultObject>& object) {
  ValidateOrThrow(schema, object, UserDataOptions, SV_ERR_USER_DATA_INVALID, true);
}

void ValidatePartialConfig(const std::shared_ptr<SchemaObject>& schema,
                           const std::shared_ptr<SetvaultObject>& object) {
  ValidateOrThrow(schema, object, PartialConfigOptions, SV_ERR_PARTIAL_CONFIG_INVALID, true);
}

void ValidateSet(const std::shared_ptr<SchemaObject>& schema,
                 const std::shared_ptr<SetvaultObject>& object) {
  ValidateOrThrow(schema, object, SetOptions, SV_ERR_SET_DATA_INVALID, true);
}

void ValidateUpdate(const std::shared_ptr<SchemaObject>& schema,
                    const std::shared_ptr<SetvaultObject>& object) {
  ValidateOrThrow(schema, object, UpdateOptions, SV_ERR_UPDATE_DATA_INVALID, true);
}

void ValidateSVO(const std::shared_ptr<SchemaObject>& schema,
                 const std::shared_ptr<SetvaultObject>& object, std::vector<ErrorInfo>& errors) {
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  const std::string path = "/" + id.component + "/" + id.group + "/" + id.key;
  if (!schema) {
    AddErrorInfo("/", SV_ERR_SCHEMA_NOT_FOUND, errors, path);
    return;
  }
  const bool non_singleton = schema->IsNonSingleton();
  if (non_singleton && id.instanceId.empty()) {
    AddErrorInfo("/", SV_ERR_SUBOBJECT_NEEDS_INSTANCE, errors, path);
    return;
  }
  if (!non_singleton && !id.instanceId.empty()) {
    AddErrorInfo("/", SV_ERR_SUBOBJECT_NOT_ARRAY, errors, path);
    return;
  }
  ValidateObjectData(schema, object, OptionsForType(schema->GetSchemaJson()), errors, true);
}

bool validateObject(const std::shared_ptr<SetvaultObject>& object, ACTION action,
                    std::vector<ErrorInfo>& errors, std::string /*unused*/) {
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  auto schema = LookUpSchema(id);
  if (!schema) {
    SVLogger::LogErrCode(0, SV_ERR_SCHEMA_NOT_FOUND, id.toString().c_str());
    errors.push_back({id.component + "/" + id.key, "Schema not found."});
    return false;
  }
  if (action == kNone || action == kRead) {
    SVLogger::Log(2, "validate completed successfully");
    return true;
  }
  JsonDocument result;
  RunValidator(*schema, object->GetImpl()->Root(), UserDataOptions, result);
  if (!result.GetArray().Empty()) {
    CollectValidationResults(result, errors, false);
    SVLogger::Log(0, "validate completed with errors");
    return false;
  }
  SVLogger::Log(2, "validate completed successfully");
  return true;
}

bool ValidateAgainstCache(JsonDocument& document, const OptionSet& options,
                          const std::shared_ptr<SchemaObjectCache>& cache,
                          std::vector<ErrorInfo>& errors) {
  if (!document.IsObject()) {
    errors.push_back({"/", "INCORRECT TYPE: expected object."});
    return errors.empty();
  }
  JsonDocument schema_document;
  JsonDocument result;
  KorvoSchemaStore::GenerateSchemaDocument(document, cache, schema_document, result);
  // The generator's findings (types without schema) come first; the
  // validator appends its own after them.
  JsonDocument validator_result;
  RunValidator(schema_document, document, options, validator_result);
  if (!result.IsArray()) result.SetArray();
  for (JsonValue& finding : validator_result.GetArray()) {
    result.PushBack(JsonValue(finding, result.GetAllocator()), result.GetAllocator());
  }
  PopulateGeneratedInstanceId(schema_document, document);
  CollectValidationResults(result, errors, false);
  return errors.empty();
}

bool ValidateImportDocument(JsonDocument& document, const std::shared_ptr<SchemaObjectCache>& cache,
                            std::vector<ErrorInfo>& errors) {
  return ValidateAgainstCache(document, SetOptions, cache, errors);
}

bool ValidateDocument(const std::shared_ptr<SetvaultObject>& object,
                      std::vector<ErrorInfo>& errors) {
  return ValidateAgainstCache(object->GetImpl()->GetDocument()->GetDocument(), UserDataOptions,
                              KorvoSchemaStore::SchemaStore::GetCache(), errors);
}

void ValidateApplyFile(const JsonValue& document, const JsonValue& schema) {
  JsonDocument result;
  RunValidator(schema, document, ApplyFileOptions, result);
  if (result.GetArray().Empty()) return;
  std::vector<ErrorInfo> errors;
  CollectValidationResults(result, errors, false);
  ThrowValidationErrors(SV_ERR_APPLY_FILE_INVALID, errors);
}

}  // namespace KorvoSetvault
