#include "validation/guards.h"

#include "db/upgrade_ctx.h"
#include "platform/utf8.h"
#include "setvault/exceptions.h"
#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

[[noreturn]] void Refuse(const char* message) {
  throw ValidationException(SV_ERR_GENERIC, message);
}

}  // namespace

void RequireCleanInstanceId(const SetvaultObjectId& id) {
  if (id.instanceId.find('\0') != std::string::npos) {
    throw InvalidArgumentException(SV_ERR_GENERIC, "Instance id cannot contain a NUL byte");
  }
  if (!IsValidUtf8(id.instanceId)) {
    throw InvalidArgumentException(SV_ERR_GENERIC, "Instance id must be valid UTF-8");
  }
}

void checkUserContext(bool duringBoot, const USERDATA_CONTEXT& context) {
  if (!duringBoot || context.kind != kExternalContext) return;
  if (GetUpgradeCtx() != 0) return;
  Refuse("API cannot be invoked with EXTERNAL context during boot");
}

void validateInstanceId(const SetvaultObjectId& id) {
  if (id.instanceId.empty()) Refuse("Non-Singleton object should contain instanceId");
  RequireCleanInstanceId(id);
}

void validateSingletonNonSingleton(const SetvaultObjectId& id,
                                   const std::shared_ptr<SchemaObject>& schema) {
  if (schema->IsNonSingleton()) {
    validateInstanceId(id);
  } else if (!id.instanceId.empty()) {
    Refuse("Singleton object cannot contain instanceId");
  }
}

void validateSingletonNonSingleton(const std::shared_ptr<SetvaultObject>& object,
                                   const std::shared_ptr<SchemaObject>& schema) {
  const SetvaultObjectId id = object->GetSetvaultObjectId();
  validateSingletonNonSingleton(id, schema);
}

void ThrowSchemaNotFound(const SetvaultObjectId& id) {
  const std::string text = id.toString();
  throw SetvaultException(
      SV_ERR_SCHEMA_NOT_FOUND,
      Format<const char*>(ErrorMessageForId(SV_ERR_SCHEMA_NOT_FOUND), text.c_str()).c_str(),
      KorvoSchemaStore::SchemaStore::DescribeMissing(text));
}

void CheckSchema(const SetvaultObjectId& id, const std::shared_ptr<SchemaObject>& schema) {
  if (!schema) ThrowSchemaNotFound(id);
}

void ValidateSvoId(const SetvaultObjectId& id, const std::shared_ptr<SchemaObject>& schema) {
  CheckSchema(id, schema);
  validateSingletonNonSingleton(id, schema);
}

void ValidateSvoId(const std::shared_ptr<SetvaultObject>& object,
                   const std::shared_ptr<SchemaObject>& schema) {
  ValidateSvoId(object->GetSetvaultObjectId(), schema);
}

void ValidateSvoIdInstances(const SetvaultObjectId& id,
                            const std::shared_ptr<SchemaObject>& schema) {
  CheckSchema(id, schema);
  if (!schema->IsNonSingleton()) Refuse("API called for singleton object, non-singleton expected");
  RequireCleanInstanceId(id);
}

void ValidateSvoIdInstances(const std::shared_ptr<FilterSpecObject>& filter,
                            const std::shared_ptr<SchemaObject>& schema) {
  ValidateSvoIdInstances(filter->GetSetvaultObjectId(), schema);
}

void ValidateRebootRequiredConfig(const std::shared_ptr<SchemaObject>& schema) {
  if (!schema->IsRebootRequiredConfig()) {
    Refuse("API should only be invoked for configurations tagged @rebootRequiredSetvault.");
  }
}

void ValidateEmptyObject(const std::shared_ptr<SetvaultObject>& object) {
  if (object->IsEmpty()) {
    Refuse("Empty object cannot be set for configurations tagged @rebootRequiredSetvault.");
  }
}

void ValidateKernelOptionsSvoId(const SetvaultObjectId& id) {
  if (id.component != "korvo" || id.group != "hvcore" || id.key != "options") {
    Refuse("API should only be invoked for Kernel options configuration.");
  }
}

template <typename T>
bool IsNull(const std::shared_ptr<T>& pointer, const char* operationName) {
  if (pointer) return false;
  SVLogger::Log(1, "[%d] %s: %s", static_cast<int>(SV_ERR_NULL_OBJECT), operationName,
                ErrorMessageForId(SV_ERR_NULL_OBJECT));
  return true;
}

template bool IsNull<SetvaultObject>(const std::shared_ptr<SetvaultObject>&, const char*);
template bool IsNull<FilterSpecObject>(const std::shared_ptr<FilterSpecObject>&, const char*);

bool ObjIsEmpty(const std::shared_ptr<SetvaultObject>& object, const char* operationName) {
  if (!object->IsEmpty()) return false;
  SVLogger::Log(1, "%s, Configuration object for %s is empty, will not be persisted in the db",
                operationName, object->GetSetvaultObjectId().toString().c_str());
  return true;
}

}  // namespace KorvoSetvault
