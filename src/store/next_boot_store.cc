// The operations of the next-boot store.
#include "store/next_boot_store.h"

#include "db/config_reads.h"
#include "db/reboot_required.h"
#include "model/setvault_object_impl.h"
#include "store/api_log.h"
#include "store/transaction_scope.h"
#include "store/write_guards.h"
#include "validation/guards.h"
#include "validation/schema_validation.h"

namespace KorvoSetvault {
namespace {

// Logs the call and returns the schema of a reboot-required type, after the
// identity check `check_id`.
template <typename CheckId>
std::shared_ptr<KorvoSchemaStore::SchemaObject> RebootRequiredSchema(const char* operation,
                                                                     const SetvaultObjectId& id,
                                                                     CheckId check_id) {
  LogApiCall(kWriteCallPriority, operation, id, 1);
  auto schema = LookUpSchema(id);
  check_id(schema);
  ValidateRebootRequiredConfig(schema);
  return schema;
}

void ValidateStaged(const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema,
                    const std::shared_ptr<SetvaultObject>& object) {
  ValidateSet(schema, object);
  ValidateEmptyObject(object);
}

}  // namespace

NextBootStoreImpl::NextBootStoreImpl(std::shared_ptr<DBStore::StoreConnection> connection)
    : connection_(std::move(connection)) {}

NextBootStoreImpl::~NextBootStoreImpl() = default;

std::shared_ptr<SetvaultObject> NextBootStoreImpl::Get(const SetvaultObjectId& id) {
  auto schema = RebootRequiredSchema("Get", id, [&](const auto& s) { ValidateSvoId(id, s); });
  return GetRebootRequiredConfigInternal(id, connection_, schema);
}

void NextBootStoreImpl::Set(std::shared_ptr<SetvaultObject> object) {
  if (IsNull(object, "Set")) return;
  auto schema = RebootRequiredSchema("Set", object->GetSetvaultObjectId(),
                                     [&](const auto& s) { ValidateSvoId(object, s); });
  ValidateStaged(schema, object);
  ExecuteUnderTransaction(connection_, object, schema, SetRebootRequiredConfigInternal);
}

void NextBootStoreImpl::Delete(const SetvaultObjectId& id) {
  auto schema = RebootRequiredSchema("Delete", id, [&](const auto& s) { ValidateSvoId(id, s); });
  ExecuteUnderTransaction(connection_, id, schema, DeleteRebootRequiredConfigInternal);
}

void NextBootStoreImpl::Reset(const SetvaultObjectId& id) {
  auto schema = RebootRequiredSchema("Reset", id, [&](const auto& s) { CheckSchema(id, s); });
  ExecuteUnderTransaction(connection_, id, schema, ClearRebootRequiredConfigInstances);
}

void NextBootStoreImpl::SetInstances(std::vector<std::shared_ptr<SetvaultObject>> objects) {
  objects = WithoutEmptyPointers(std::move(objects));
  const SetvaultObjectId& id = objects.front()->GetSetvaultObjectId();
  auto schema = RebootRequiredSchema("SetInstances", id,
                                     [&](const auto& s) { ValidateSvoIdInstances(id, s); });
  RequireOneType(objects);
  for (const auto& object : objects) {
    validateInstanceId(object->GetSetvaultObjectId());
    ValidateStaged(schema, object);
  }
  ExecuteUnderTransaction(connection_, objects, schema, SetRebootRequiredConfigInstancesInternal);
}

std::vector<std::shared_ptr<SetvaultObject>> NextBootStoreImpl::GetInstances(
    const std::shared_ptr<FilterSpecObject>& filter) {
  if (IsNull(filter, "GetInstances")) return {};
  auto schema = RebootRequiredSchema("GetInstances", filter->GetSetvaultObjectId(),
                                     [&](const auto& s) { ValidateSvoIdInstances(filter, s); });
  return GetRebootRequiredConfigInstancesInternal(filter, schema, connection_);
}

void NextBootStoreImpl::DeleteInstances(const std::shared_ptr<FilterSpecObject>& filter) {
  if (IsNull(filter, "DeleteInstances")) return;
  auto schema = RebootRequiredSchema("DeleteInstances", filter->GetSetvaultObjectId(),
                                     [&](const auto& s) { ValidateSvoIdInstances(filter, s); });
  ExecuteUnderTransaction(connection_, filter, schema, DeleteRebootRequiredConfigInstancesInternal);
}

}  // namespace KorvoSetvault
