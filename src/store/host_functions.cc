// The host-level functions: boot confirmation, desired reads, kernel options,
// schema versions and objects made from JSON text. (The host flags and the
// key-value accessors live with the key-value code in src/db/.)
#include "setvault/host_functions.h"

#include "db/boot_status.h"
#include "db/config_reads.h"
#include "db/reboot_required.h"
#include "model/setvault_object_impl.h"
#include "model/update_merge.h"
#include "notify/notifier.h"
#include "schema/schema_generated_id.h"
#include "setvault/logger.h"
#include "store/setvault_impl.h"
#include "store/transaction_scope.h"
#include "store/write_guards.h"
#include "validation/guards.h"
#include "validation/schema_validation.h"

namespace KorvoSetvault {
namespace {

std::shared_ptr<DBStore::StoreConnection> OwnConnection() {
  return GetDBStore(DBStore::kConfigStore, true);
}

void LogInvoked(const char* function) { SVLogger::Log(4, "%s invoked", function); }

// The kernel options merged with `update`, validated and staged.
void StageKernelOptions(const std::shared_ptr<SetvaultObject>& update,
                        const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema,
                        const std::shared_ptr<DBStore::StoreConnection>& conn) {
  std::shared_ptr<SetvaultObject> merged =
      GetKernelOptionsInternal(update->GetSetvaultObjectId(), conn, schema);
  if (merged) {
    UpdateConfigInternal(update, merged);
  } else {
    merged = update;
  }
  ValidateSet(schema, merged);
  SetKernelOptionsInternal(merged, schema, conn);
}

}  // namespace

int SetBootStatus(const SetvaultObjectId& id, bool status) {
  return SetBootStatusInternal(id, status, OwnConnection());
}

void SetPartialBootStatus(std::shared_ptr<SetvaultObject> object) {
  if (IsNull(object, "SetPartialBootStatus")) return;
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  auto schema = LookUpSchema(id);
  CheckSchema(id, schema);
  ValidatePartialConfig(schema, object);
  auto conn = OwnConnection();
  // Up to three writes: all of them or none.
  RunUnderTransaction(conn, "SetPartialBootStatus",
                      [&] { SetPartialBootStatusInternal(object, schema, conn); });
}

std::shared_ptr<SetvaultObject> GetDesiredUserConfig(const SetvaultObjectId& id, FLAG flag) {
  LogInvoked("GetDesiredUserConfig");
  auto schema = LookUpSchema(id);
  ValidateSvoId(id, schema);
  return GetDesiredInternal(id, OwnConnection(), schema, flag);
}

std::vector<std::shared_ptr<SetvaultObject>> GetDesiredUserConfigInstances(
    const SetvaultObjectId& id, FLAG flag) {
  LogInvoked("GetDesiredUserConfigInstances");
  auto schema = LookUpSchema(id);
  ValidateSvoIdInstances(id, schema);
  return GetDesiredUserConfigInstancesInternal(id, OwnConnection(), schema, flag);
}

std::string GetSchemaVersion(const SetvaultObjectId& id) {
  auto schema = LookUpSchema(id);
  if (schema) return schema->GetVersion();
  SVLogger::Log(0, "%s: Schema object not found", "GetSchemaVersion");
  return "";
}

std::shared_ptr<SetvaultObject> GetKernelOptions(const SetvaultObjectId& id) {
  LogInvoked("GetKernelOptions");
  ValidateKernelOptionsSvoId(id);
  auto schema = LookUpSchema(id);
  ValidateSvoId(id, schema);
  return GetKernelOptionsInternal(id, OwnConnection(), schema);
}

void UpdateKernelOptions(std::shared_ptr<SetvaultObject> object) {
  if (IsNull(object, "UpdateKernelOptions")) return;
  LogInvoked("UpdateKernelOptions");
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  ValidateKernelOptionsSvoId(id);
  auto schema = LookUpSchema(id);
  ValidateSvoId(object, schema);
  ValidateUpdate(schema, object);
  BootGuard(object, schema, USERDATA_CONTEXT{kExternalContext});
  if (object->IsEmpty()) {
    SVLogger::Log(1, "Update called with empty object for %s, deletes are not supported",
                  id.toString().c_str());
    return;
  }
  auto conn = OwnConnection();
  // The library's own exceptions pass unchanged (a ValidationException keeps
  // its findings); only a foreign one is reported as a failed transaction.
  RunUnderTransaction(conn, "UpdateKernelOptions", [&] {
    try {
      StageKernelOptions(object, schema, conn);
    } catch (const SetvaultException&) {
      throw;
    } catch (const std::exception& e) {
      throw SetvaultException(SV_ERR_GENERIC,
                              (std::string("Transaction failed") + e.what()).c_str());
    }
  });
  NotifyAfterCommit(id, conn);
}

std::shared_ptr<SetvaultObject> CreateObject(const SetvaultObjectId& id, const std::string& json) {
  return CreateObject(id, json, std::nullopt);
}

std::shared_ptr<SetvaultObject> CreateObject(const SetvaultObjectId& id, const std::string& json,
                                             std::optional<unsigned long> revision) {
  SetvaultObjectImpl::Parts parts;
  parts.id = id;
  parts.document = CreateDocumentFromString(json);
  parts.loadSchema = true;
  if (revision) parts.metadata.revision = static_cast<int32_t>(*revision);
  auto impl = std::make_shared<SetvaultObjectImpl>(std::move(parts));
  if (impl->GetSchema())
    PopulateGeneratedInstanceId(impl->GetSchema()->GetSchemaJson(), *impl->GetDocument());
  return std::make_shared<SetvaultObject>(impl);
}

}  // namespace KorvoSetvault
