// The write operations of the store.
#include "db/config_reads.h"
#include "db/config_writes.h"
#include "dbstore/path_watch.h"
#include "model/update_merge.h"
#include "notify/notifier.h"
#include "store/api_log.h"
#include "store/revision_check.h"
#include "store/setvault_impl.h"
#include "store/transaction_scope.h"
#include "store/write_guards.h"
#include "validation/cleanup.h"
#include "validation/guards.h"
#include "validation/schema_validation.h"

namespace KorvoSetvault {
namespace {

using ObjectVector = std::vector<std::shared_ptr<SetvaultObject>>;

// The update kind: auto-configuration for the auto-configuration context,
// otherwise by whether the object is user configuration.
UPDATE_CONTEXT UpdateKindOf(const USERDATA_CONTEXT& context, bool user_type) {
  if (context.kind == kAutoConfigContext) return kUpdateAutoConfig;
  return user_type ? kUpdateUser : kUpdateNonUser;
}

// The schema of an instances call's type, after the list checks every such
// call shares. Logs the call.
std::shared_ptr<KorvoSchemaStore::SchemaObject> CheckInstancesCall(
    const char* operation, const ObjectVector& objects, const USERDATA_CONTEXT& context) {
  const SetvaultObjectId& id = objects.front()->GetSetvaultObjectId();
  LogApiCall(kWriteCallPriority, operation, id, ContextValue(context));
  auto schema = LookUpSchema(id);
  ValidateSvoIdInstances(id, schema);
  return schema;
}

// Checks every object of a one-column instances write, writes them all in one
// transaction and notifies.
template <typename Validate, typename Write>
void SetDataInstancesInternal(const std::shared_ptr<DBStore::StoreConnection>& connection,
                              const ObjectVector& objects,
                              const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema,
                              Validate validate, Write write) {
  RequireOneType(objects);
  for (const auto& object : objects) {
    validateInstanceId(object->GetSetvaultObjectId());
    validate(schema, object);
  }
  RunUnderTransaction(connection, "SetDataInstancesInternal", [&] { write(objects, connection); });
  NotifyAfterCommit(objects.front()->GetSetvaultObjectId(), connection);
}

}  // namespace

void SetvaultImpl::Set(std::shared_ptr<SetvaultObject> object, const USERDATA_CONTEXT& context) {
  SetChecked("Set", std::move(object), std::nullopt, context);
}

void SetvaultImpl::SetIfRevision(std::shared_ptr<SetvaultObject> object, int expectedRevision,
                                 const USERDATA_CONTEXT& context) {
  SetChecked("SetIfRevision", std::move(object), expectedRevision, context);
}

void SetvaultImpl::SetChecked(const char* operation, std::shared_ptr<SetvaultObject> object,
                              std::optional<int> expected, const USERDATA_CONTEXT& context) {
  DBStore::internal::OneLookPerCall look;  // at the schema and store files
  if (IsNull(object, operation)) return;
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  LogApiCall(kWriteCallPriority, operation, id, ContextValue(context));
  auto schema = LookUpSchema(id);
  ValidateSvoId(object, schema);
  ValidateSet(schema, object);
  // Reading the stored row and writing the row that carries its columns over
  // are one step: no other writer can slip in between.
  RunUnderTransaction(connection_, operation, [&] {
    BootGuard(object, schema, context);
    if (expected) RequireRevision(id, *expected, connection_);
    SetInternal(object, schema, context, connection_);
  });
  NotifyAfterCommit(id, connection_);
}

void SetvaultImpl::SetUserData(std::shared_ptr<SetvaultObject> object,
                               const USERDATA_CONTEXT& context) {
  if (IsNull(object, "SetUserData")) return;
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  LogApiCall(kWriteCallPriority, "SetUserData", id, ContextValue(context));
  auto schema = LookUpSchema(id);
  ValidateSvoId(object, schema);
  BootGuard(object, schema, context);
  ValidateUserConfig(schema, object);
  RunUnderTransaction(connection_, "SetUserData", [&] {
    if (context.kind != kExternalContext) {
      WriteAutoConfConfigInstances({object}, connection_);
    } else {
      WriteUserConfigInstances({object}, connection_, schema->IsConfirmedDuringUpgrade());
    }
  });
  NotifyAfterCommit(id, connection_);
}

void SetvaultImpl::SetVitalData(std::shared_ptr<SetvaultObject> object) {
  if (IsNull(object, "SetVitalData")) return;
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  LogApiCall(kWriteCallPriority, "SetVitalData", id, 1);
  auto schema = LookUpSchema(id);
  ValidateSvoId(object, schema);
  ValidateVitalConfig(schema, object);
  RunUnderTransaction(connection_, "SetVitalData",
                      [&] { WriteVitalConfigInstances({object}, connection_); });
  NotifyAfterCommit(id, connection_);
}

void SetvaultImpl::SetCachedData(std::shared_ptr<SetvaultObject> object) {
  if (IsNull(object, "SetCachedData")) return;
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  LogApiCall(kWriteCallPriority, "SetCachedData", id, 1);
  auto schema = LookUpSchema(id);
  ValidateSvoId(object, schema);
  ValidateCachedConfig(schema, object);
  RunUnderTransaction(connection_, "SetCachedData",
                      [&] { WriteCachedConfigInstances({object}, connection_); });
  NotifyAfterCommit(id, connection_);
}

void SetvaultImpl::Update(std::shared_ptr<SetvaultObject> object, const USERDATA_CONTEXT& context) {
  UpdateChecked("Update", std::move(object), std::nullopt, context);
}

void SetvaultImpl::UpdateIfRevision(std::shared_ptr<SetvaultObject> object, int expectedRevision,
                                    const USERDATA_CONTEXT& context) {
  UpdateChecked("UpdateIfRevision", std::move(object), expectedRevision, context);
}

void SetvaultImpl::UpdateChecked(const char* operation, std::shared_ptr<SetvaultObject> object,
                                 std::optional<int> expected, const USERDATA_CONTEXT& context) {
  DBStore::internal::OneLookPerCall look;  // at the schema and store files
  if (IsNull(object, operation)) return;
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  LogApiCall(kWriteCallPriority, operation, id, ContextValue(context));
  auto schema = LookUpSchema(id);
  ValidateSvoId(object, schema);
  ValidateUpdate(schema, object);
  const bool user_type = isUserType(object, schema);
  BootGuard(object, schema, context);
  if (object->IsEmpty()) {
    SVLogger::Log(1, "Update called with empty object for %s, deletes are not supported",
                  id.toString().c_str());
    return;
  }
  const UPDATE_CONTEXT kind = UpdateKindOf(context, user_type);
  RunUnderTransaction(connection_, operation, [&] {
    if (expected) RequireRevision(id, *expected, connection_);
    // The stored value of the part this context writes, with vital and
    // cached data: the update merges into it and writes those columns back.
    auto stored = GetConfigByBootAndContext(id, connection_, context, schema);
    if (stored) {
      UpdateConfigInternal(object, stored);
      ValidateSet(schema, stored);
      CleanupObject(stored, schema);
      UpdateByContextInternal(stored, schema, kind, connection_);
      // An in-place update keeps the revision; a conditional one marks the
      // change, so that a reader of the old revision is refused next.
      if (expected) RaiseRevision(id, connection_);
    } else {
      ValidateSet(schema, object);
      SetByContextInternal(object, schema, kind, connection_);
    }
  });
  NotifyAfterCommit(id, connection_);
}

void SetvaultImpl::Delete(const SetvaultObjectId& id) {
  LogApiCall(kWriteCallPriority, "Delete", id, 1);
  ValidateSvoId(id, LookUpSchema(id));
  RunUnderTransaction(connection_, "Delete", [&] { DeleteInternal(id, connection_); });
  NotifyAfterCommit(id, connection_);
}

void SetvaultImpl::DeleteInstances(const std::shared_ptr<FilterSpecObject>& filter) {
  if (IsNull(filter, "DeleteInstances")) return;
  const SetvaultObjectId& id = filter->GetSetvaultObjectId();
  LogApiCall(kWriteCallPriority, "DeleteInstances", id, 1);
  auto schema = LookUpSchema(id);
  ValidateSvoIdInstances(filter, schema);
  RunUnderTransaction(connection_, "DeleteInstances", [&] {
    if (!filter->IsEmpty()) {
      for (const auto& instance : GetConfigInstancesInternal(filter, connection_, schema)) {
        DeleteInternal(instance->GetSetvaultObjectId(), connection_);
      }
    } else if (!id.instanceId.empty()) {
      DeleteInternal(id, connection_);
    } else {
      DeleteInstancesInternal(id, connection_);
    }
  });
  NotifyAfterCommit(id, connection_);
}

void SetvaultImpl::SetInstances(std::vector<std::shared_ptr<SetvaultObject>> objects,
                                const USERDATA_CONTEXT& context) {
  SetInstancesChecked("SetInstances", std::move(objects), nullptr, context);
}

void SetvaultImpl::SetInstancesIfRevisions(std::vector<std::shared_ptr<SetvaultObject>> objects,
                                           const std::map<std::string, int>& expectedRevisions,
                                           const USERDATA_CONTEXT& context) {
  SetInstancesChecked("SetInstancesIfRevisions", std::move(objects), &expectedRevisions, context);
}

void SetvaultImpl::SetInstancesChecked(const char* operation, ObjectVector objects,
                                       const std::map<std::string, int>* expected,
                                       const USERDATA_CONTEXT& context) {
  DBStore::internal::OneLookPerCall look;  // at the schema and store files
  objects = WithoutEmptyPointers(std::move(objects));
  auto schema = CheckInstancesCall(operation, objects, context);
  RequireOneType(objects);
  std::optional<bool> booting;
  for (const auto& object : objects) {
    validateInstanceId(object->GetSetvaultObjectId());
    ValidateSet(schema, object);
    BootGuard(object, schema, context, &booting);
  }
  const SetvaultObjectId& id = objects.front()->GetSetvaultObjectId();
  // A replaced row's revision and creation time are carried over by the write
  // statement itself: no history of the whole type is read.
  RunUnderTransaction(connection_, operation, [&] {
    if (expected) RequireRevisions(id, *expected, connection_);
    SetInstancesInternal(objects, context, schema, connection_, nullptr);
  });
  NotifyAfterCommit(id, connection_);
}

void SetvaultImpl::SetUserDataInstances(std::vector<std::shared_ptr<SetvaultObject>> objects,
                                        const USERDATA_CONTEXT& context) {
  objects = WithoutEmptyPointers(std::move(objects));
  auto schema = CheckInstancesCall("SetUserDataInstances", objects, context);
  SetDataInstancesInternal(
      connection_, objects, schema,
      // No boot guard: only Set, SetUserData, SetInstances and Update refuse
      // external callers during boot.
      [](const auto& type_schema, const auto& object) { ValidateUserConfig(type_schema, object); },
      [&context, &schema](const ObjectVector& list, const auto& conn) {
        if (context.kind != kExternalContext) {
          WriteAutoConfConfigInstances(list, conn);
        } else {
          WriteUserConfigInstances(list, conn, schema->IsConfirmedDuringUpgrade());
        }
      });
}

void SetvaultImpl::SetCachedDataInstances(std::vector<std::shared_ptr<SetvaultObject>> objects) {
  objects = WithoutEmptyPointers(std::move(objects));
  auto schema = CheckInstancesCall("SetCachedDataInstances", objects, USERDATA_CONTEXT{});
  SetDataInstancesInternal(
      connection_, objects, schema,
      [](const auto& type_schema, const auto& object) {
        ValidateCachedConfig(type_schema, object);
      },
      WriteCachedConfigInstances);
}

void SetvaultImpl::SetVitalDataInstances(std::vector<std::shared_ptr<SetvaultObject>> objects) {
  objects = WithoutEmptyPointers(std::move(objects));
  auto schema = CheckInstancesCall("SetVitalDataInstances", objects, USERDATA_CONTEXT{});
  SetDataInstancesInternal(
      connection_, objects, schema,
      [](const auto& type_schema, const auto& object) { ValidateVitalConfig(type_schema, object); },
      WriteVitalConfigInstances);
}

}  // namespace KorvoSetvault
