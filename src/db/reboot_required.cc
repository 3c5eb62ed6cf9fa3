#include "db/reboot_required.h"

#include <string>
#include <unordered_set>

#include "db/config_reads.h"
#include "db/key_value.h"
#include "db/row_callbacks.h"
#include "db/statement_binds.h"
#include "model/setvault_object_impl.h"
#include "setvault/exceptions.h"

namespace KorvoSetvault {
namespace {

const char kSetActionSql[] =
    "INSERT OR REPLACE INTO DesiredUserConfig ( Identifier, Name, ConfigGroup, Component, "
    "Version, Value, VitalValue, CachedValue, BootAction ) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, "
    "?8, ?9)";
const char kDeleteActionSql[] =
    "INSERT OR REPLACE INTO DesiredUserConfig ( Identifier, Name, ConfigGroup, Component, "
    "Version, BootAction ) VALUES (?1, ?2, ?3, ?4, ?5, ?6)";
const KeyStatement3 kClearActionsSql(
    "DELETE FROM DesiredUserConfig WHERE Name = ? AND ConfigGroup = ? AND Component = ?;");

const char kSetKernelOptionsSql[] =
    "INSERT OR REPLACE INTO Config ( Identifier, Name, ConfigGroup, Component, Version, "
    "CreationTime, Revision, UserValue, DesiredValue, VitalValue ) VALUES ( ?1, ?2, ?3, ?4, ?5, "
    "COALESCE( ( SELECT CreationTime FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), (DATETIME(CURRENT_TIMESTAMP)) ), COALESCE( ( SELECT "
    "Revision FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component "
    "= ?4 ), (0) ) + 1, ( SELECT UserValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), ?6, ?7 )";
// While remediated: the value staged as reboot-required configuration, with
// the stored vital part.
const char kKernelOptionsRemediatedSql[] =
    "SELECT duc1.Version, duc1.Value, c1.VitalValue FROM DesiredUserConfig duc1 LEFT JOIN Config "
    "c1 ON duc1.Name = c1.Name AND duc1.ConfigGroup = c1.ConfigGroup AND duc1.Component = "
    "c1.Component WHERE duc1.Name = 'options' AND duc1.ConfigGroup = 'hvcore' AND "
    "duc1.Component = 'korvo' UNION SELECT duc2.Version, duc2.Value, c2.VitalValue FROM Config c2 "
    "LEFT JOIN DesiredUserConfig duc2 ON c2.Name = duc2.Name AND c2.ConfigGroup = "
    "duc2.ConfigGroup AND c2.Component = duc2.Component WHERE c2.Name = 'options' AND "
    "c2.ConfigGroup = 'hvcore' AND c2.Component = 'korvo';";
const char kKernelOptionsSql[] =
    "SELECT Version, CASE WHEN DesiredValue IS NULL THEN UserValue ELSE DesiredValue END AS "
    "Value, VitalValue FROM Config WHERE Name = 'options' AND ConfigGroup = 'hvcore' AND "
    "Component = 'korvo';";

const char kActionSet[] = "SET";
const char kActionDelete[] = "DELETE";
const char kActionDeleteInstance[] = "DELETE_INSTANCE";

[[noreturn]] void Fail(const std::string& message) {
  DBStore::ThrowFailure(message.c_str());
}

void RefuseWhileRemediated(const ConnectionPtr& conn) {
  if (IsHostRemediated(conn)) {
    Fail("Korvo host is being remediated by QCM, cannot set next-boot configuration.");
  }
}

void WriteSetAction(const ObjectPtr& object, const SchemaPtr& schema, const ConnectionPtr& conn) {
  const std::string version = object->GetVersion();
  const SplitParts parts = SplitObjectData(object->GetImpl()->Root(), schema->GetSchemaJson());
  DBStore::StmtPtr stmt = DBStore::internal::Prepare(conn, kSetActionSql, DBStore::kBusyTimeoutMs);
  int index = 1;
  const bool bound = stmt &&
                     BindKeyAndVersion(conn, stmt, index, object->GetSetvaultObjectId(), version) &&
                     BindParts(conn, stmt, index, parts) &&
                     DBStore::internal::Bind(conn, stmt, index, kActionSet, false) == 0;
  if (!bound || !ExecuteUnlessFailed(conn, stmt)) {
    Fail("Failed to update reboot-required configuraition.");
  }
}

void WriteDeleteAction(const SetvaultObjectId& id, const SchemaPtr& schema,
                       const ConnectionPtr& conn) {
  const std::string version = schema->GetVersion();
  const char* action = schema->IsNonSingleton() ? kActionDeleteInstance : kActionDelete;
  DBStore::StmtPtr stmt =
      DBStore::internal::Prepare(conn, kDeleteActionSql, DBStore::kBusyTimeoutMs);
  int index = 1;
  const bool bound = stmt && BindKeyAndVersion(conn, stmt, index, id, version) &&
                     DBStore::internal::Bind(conn, stmt, index, action, false) == 0;
  if (!bound || !ExecuteUnlessFailed(conn, stmt)) {
    Fail("Failed to delete reboot-required configuraition.");
  }
}

// The ids of the instances a next-boot delete by filter names (see the
// header).
std::vector<SetvaultObjectId> NamedInstances(const std::shared_ptr<FilterSpecObject>& filter,
                                             const SchemaPtr& schema, const ConnectionPtr& conn) {
  const SetvaultObjectId& named = filter->GetSetvaultObjectId();
  if (filter->IsEmpty() && !named.instanceId.empty()) return {named};
  auto whole_type =
      std::make_shared<FilterSpecObject>(SetvaultObjectId(named.key, named.group, named.component));
  // The next-boot view: staged values first, stored instances without one.
  std::vector<ObjectPtr> view = GetRebootRequiredConfigInstancesInternal(whole_type, schema, conn);
  std::unordered_set<std::string> staged;
  for (const ObjectPtr& object : view) staged.insert(object->GetSetvaultObjectId().instanceId);
  for (const ObjectPtr& object : GetConfigInstancesInternal(whole_type, conn, schema)) {
    if (object && staged.count(object->GetSetvaultObjectId().instanceId) == 0) {
      view.push_back(object);
    }
  }
  std::vector<SetvaultObjectId> ids;
  for (const ObjectPtr& object : FilterSetvaultObjects(view, filter)) {
    if (!object) continue;
    const SetvaultObjectId& id = object->GetSetvaultObjectId();
    if (named.instanceId.empty() || id.instanceId == named.instanceId) ids.push_back(id);
  }
  return ids;
}

}  // namespace

void SetRebootRequiredConfigInternal(const ObjectPtr& object, const SchemaPtr& schema,
                                     const ConnectionPtr& conn) {
  SetRebootRequiredConfigInstancesInternal({object}, schema, conn);
}

void SetRebootRequiredConfigInstancesInternal(const std::vector<ObjectPtr>& objects,
                                              const SchemaPtr& schema, const ConnectionPtr& conn) {
  RefuseWhileRemediated(conn);
  for (const ObjectPtr& object : objects) WriteSetAction(object, schema, conn);
  MarkBootModeChanged(conn);
}

void DeleteRebootRequiredConfigInternal(const SetvaultObjectId& id, const SchemaPtr& schema,
                                        const ConnectionPtr& conn) {
  RefuseWhileRemediated(conn);
  WriteDeleteAction(id, schema, conn);
  MarkBootModeChanged(conn);
}

void DeleteRebootRequiredConfigInstancesInternal(const std::shared_ptr<FilterSpecObject>& filter,
                                                 const SchemaPtr& schema,
                                                 const ConnectionPtr& conn) {
  RefuseWhileRemediated(conn);
  for (const SetvaultObjectId& id : NamedInstances(filter, schema, conn)) {
    WriteDeleteAction(id, schema, conn);
  }
  MarkBootModeChanged(conn);
}

void ClearRebootRequiredConfigInstances(const SetvaultObjectId& id, const SchemaPtr& /*schema*/,
                                        const ConnectionPtr& conn) {
  RefuseWhileRemediated(conn);
  DBStore::StmtPtr stmt = kClearActionsSql.PrepareAndBind(conn, id.key, id.group, id.component);
  if (!Execute(conn, stmt))
    Fail("Failed to clear RebootRequired config for svoId: " + id.toString());
}

void SetKernelOptionsInternal(const ObjectPtr& object, const SchemaPtr& schema,
                              const ConnectionPtr& conn) {
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  const std::string version = object->GetVersion();
  const SplitParts parts = SplitObjectData(object->GetImpl()->Root(), schema->GetSchemaJson());
  DBStore::StmtPtr stmt =
      DBStore::internal::Prepare(conn, kSetKernelOptionsSql, DBStore::kBusyTimeoutMs);
  int index = 1;
  const bool bound = stmt && BindKeyAndVersion(conn, stmt, index, id, version) &&
                     DBStore::internal::Bind(conn, stmt, index, Nullable(parts.user)) == 0 &&
                     DBStore::internal::Bind(conn, stmt, index, Nullable(parts.vital)) == 0;
  if (!bound || !Execute(conn, stmt)) {
    Fail("Database call to update Kernel options configuration failed for: " + id.toString());
  }
}

ObjectPtr GetKernelOptionsInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                   const SchemaPtr& schema) {
  const char* sql = IsHostRemediated(conn) ? kKernelOptionsRemediatedSql : kKernelOptionsSql;
  DBStore::StmtPtr stmt = DBStore::internal::Prepare(conn, sql, DBStore::kBusyTimeoutMs);
  StoreRow row;
  if (DBStore::ExecuteStmt(conn, stmt, RowIntoMapCallback, &row, DBStore::kBusyTimeoutMs) == 1) {
    Fail("Get failed: " + id.toString());
  }
  return RowToMergedObject(row, {kVitalValueColumn, kValueColumn}, id, schema);
}

}  // namespace KorvoSetvault
