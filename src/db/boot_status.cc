#include "db/boot_status.h"

#include "db/statement_binds.h"
#include "model/filter_match.h"
#include "model/setvault_object_impl.h"
#include "model/update_merge.h"
#include "setvault/exceptions.h"

namespace KorvoSetvault {
namespace {

const KeyStatement4 kConfirmInstanceSql(
    "UPDATE Config SET UserValue = CASE WHEN DesiredValue IS NULL THEN UserValue ELSE "
    "DesiredValue END, DesiredValue = NULL, Success = 1 WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ? AND Identifier = ?");
const KeyStatement3 kConfirmTypeSql(
    "UPDATE Config SET UserValue = CASE WHEN DesiredValue IS NULL THEN UserValue ELSE "
    "DesiredValue END, DesiredValue = NULL, Success = 1 WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ?");

const KeyStatement4 kConfirmedUserSql(
    "SELECT Version, UserValue, CreationTime, ModifiedTime, Revision FROM Config WHERE Name = ? "
    "AND ConfigGroup = ? AND Component = ? AND Identifier = ? AND Success = 1");
const KeyStatement4 kCopyUserToDesiredSql(
    "UPDATE Config SET DesiredValue = UserValue WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ? AND Identifier = ?");
const KeyStatement4 kDesiredSql(
    "SELECT Version, DesiredValue, CreationTime, ModifiedTime, Revision FROM Config WHERE Name = "
    "? AND ConfigGroup = ? AND Component = ? AND Identifier = ?");
// Binds name, group, component and instance id first, then the value (?5).
const char kStorePartialSql[] =
    "UPDATE Config SET UserValue = ?5, Success = 1 WHERE Name = ?1 AND ConfigGroup = ?2 AND "
    "Component = ?3 AND Identifier = ?4";
const KeyStatement4 kClearDesiredSql(
    "UPDATE Config SET DesiredValue = NULL WHERE Name = ? AND ConfigGroup = ? AND Component = ? "
    "AND Identifier = ?");

[[noreturn]] void Fail(const std::string& message) {
  DBStore::ThrowFailure(message.c_str());
}

// A new object of the id's type without data.
ObjectPtr EmptyObject(const SetvaultObjectId& id, const SchemaPtr& schema) {
  SetvaultObjectImpl::Parts parts;
  parts.id = id;
  parts.schema = schema;
  return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(std::move(parts)));
}

void StoreConfirmedUserValue(const ObjectPtr& merged, const ConnectionPtr& conn) {
  const SetvaultObjectId& id = merged->GetSetvaultObjectId();
  const std::string value = merged->GetSerializedData();
  DBStore::StmtPtr stmt =
      DBStore::internal::Prepare(conn, kStorePartialSql, DBStore::kBusyTimeoutMs);
  int index = 1;
  const bool bound = stmt && BindWhereKey(conn, stmt, index, id) &&
                     DBStore::internal::Bind(conn, stmt, index, DBStore::NullableSV(value)) == 0;
  if (!bound || !ExecuteUnlessFailed(conn, stmt)) {
    Fail("Database call to update configuration failed for: " + id.toString());
  }
}

}  // namespace

int SetBootStatusInternal(const SetvaultObjectId& id, bool success, const ConnectionPtr& conn) {
  if (!success) return 0;
  DBStore::StmtPtr stmt =
      id.instanceId.empty()
          ? kConfirmTypeSql.PrepareAndBind(conn, id.key, id.group, id.component)
          : kConfirmInstanceSql.PrepareAndBind(conn, id.key, id.group, id.component, id.instanceId);
  if (!Execute(conn, stmt)) Fail("SetBootStatus: Failed to mark success status for given svoId.");
  return 0;
}

void SetPartialBootStatusInternal(const ObjectPtr& partial, const SchemaPtr& schema,
                                  const ConnectionPtr& conn) {
  const SetvaultObjectId& id = partial->GetSetvaultObjectId();
  // 1. The confirmed user value. 2. Without a confirmed row the pending value
  // is the unconfirmed UserValue: stage it as the desired value. A confirmed
  // row without user value keeps its pending value in DesiredValue already,
  // and copying would erase it.
  const StoreRow confirmed_row = ReadStoreRow(id, conn, kConfirmedUserSql);
  ObjectPtr confirmed = RowToObject(confirmed_row, kUserValueColumn, id, schema);
  if (confirmed_row.empty()) {
    DBStore::StmtPtr copy =
        kCopyUserToDesiredSql.PrepareAndBind(conn, id.key, id.group, id.component, id.instanceId);
    if (!ExecuteUnlessFailed(conn, copy)) {
      Fail("Failed to copy user config to desired config for: " + id.toString());
    }
  }
  if (!confirmed) confirmed = EmptyObject(id, schema);
  // 3. The desired value; 4. the partial must be part of it.
  const ObjectPtr desired =
      RowToObject(ReadStoreRow(id, conn, kDesiredSql), kDesiredValueColumn, id, schema);
  if (!desired) Fail("desired config is empty");
  if (!IsSubsetBySchema(desired->GetImpl()->Root(), partial->GetImpl()->Root(),
                        schema->GetSchemaJson())) {
    Fail("partial config being restored is not part of desired config");
  }
  // 5. and 6. The confirmed value with the partial merged in is the new user value.
  UpdateConfigInternal(partial, confirmed);
  StoreConfirmedUserValue(confirmed, conn);
  // 7. Once everything staged is applied, the desired value goes.
  if (desired->GetImpl()->Root() == confirmed->GetImpl()->Root()) {
    DBStore::StmtPtr clear =
        kClearDesiredSql.PrepareAndBind(conn, id.key, id.group, id.component, id.instanceId);
    if (!Execute(conn, clear))
      Fail("DeleteDesiredValue: Failed to delete DesiredValue for given svoId.");
  }
}

}  // namespace KorvoSetvault
