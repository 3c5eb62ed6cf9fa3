#include "db/config_writes.h"

#include "db/object_split.h"
#include "db/statement_binds.h"
#include "db/upgrade_ctx.h"
#include "model/setvault_object_impl.h"
#include "setvault/exceptions.h"

namespace KorvoSetvault {
namespace {

// The upgrade context under which user writes stay unconfirmed.
constexpr int kUnconfirmedUpgradeCtx = 2;

// --- Statements -------------------------------------------------------------
// Parameters ?1 to ?4 are Identifier, Name, ConfigGroup and Component; the
// sub-selects find the row being replaced by exactly these four, so that
// CreationTime is kept, Revision rises by 1 and untouched columns carry over.

const char kWriteUserSql[] =
    "INSERT OR REPLACE INTO Config ( Identifier, Name, ConfigGroup, Component, Version, Success, "
    "UserValue, CreationTime, Revision, AutoConfValue, VitalValue, CachedValue ) VALUES ( ?1, ?2, "
    "?3, ?4, ?5, ?6, ?7, COALESCE( ( SELECT CreationTime FROM Config WHERE Identifier = ?1 AND "
    "Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (DATETIME(CURRENT_TIMESTAMP)) ), "
    "COALESCE( ( SELECT Revision FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = "
    "?3 AND Component = ?4 ), (0) ) + 1, ( SELECT AutoConfValue FROM Config WHERE Identifier = ?1 "
    "AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ( SELECT VitalValue FROM Config "
    "WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ( SELECT "
    "CachedValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND "
    "Component = ?4 ) )";

const char kWriteCachedSql[] =
    "INSERT OR REPLACE INTO Config ( Identifier, Name, ConfigGroup, Component, Version, "
    "CreationTime, Revision, Success, DesiredValue, AutoConfValue, UserValue, VitalValue, "
    "CachedValue ) VALUES ( ?1, ?2, ?3, ?4, ?5, COALESCE( ( SELECT CreationTime FROM Config WHERE "
    "Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), "
    "(DATETIME(CURRENT_TIMESTAMP)) ), COALESCE( ( SELECT Revision FROM Config WHERE Identifier = "
    "?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (0) ) + 1, COALESCE( ( SELECT "
    "Success FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = "
    "?4 ), 1 ), ( SELECT DesiredValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), ( SELECT AutoConfValue FROM Config WHERE Identifier = "
    "?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ( SELECT UserValue FROM Config "
    "WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ( SELECT "
    "VitalValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND "
    "Component = ?4 ), ?6 )";

const char kWriteVitalSql[] =
    "INSERT OR REPLACE INTO Config ( Identifier, Name, ConfigGroup, Component, Version, "
    "CreationTime, Revision, Success, DesiredValue, AutoConfValue, UserValue, CachedValue, "
    "VitalValue ) VALUES ( ?1, ?2, ?3, ?4, ?5, COALESCE( ( SELECT CreationTime FROM Config WHERE "
    "Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), "
    "(DATETIME(CURRENT_TIMESTAMP)) ), COALESCE( ( SELECT Revision FROM Config WHERE Identifier = "
    "?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (0) ) + 1, COALESCE( ( SELECT "
    "Success FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = "
    "?4 ), 1 ), ( SELECT DesiredValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), ( SELECT AutoConfValue FROM Config WHERE Identifier = "
    "?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ( SELECT UserValue FROM Config "
    "WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ( SELECT "
    "CachedValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND "
    "Component = ?4 ), ?6 )";

const char kWriteAutoConfSql[] =
    "INSERT OR REPLACE INTO Config ( Identifier, Name, ConfigGroup, Component, Version, "
    "CreationTime, Revision, Success, DesiredValue, UserValue, VitalValue, CachedValue, "
    "AutoConfValue ) VALUES ( ?1, ?2, ?3, ?4, ?5, COALESCE( ( SELECT CreationTime FROM Config "
    "WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), "
    "(DATETIME(CURRENT_TIMESTAMP)) ), COALESCE( ( SELECT Revision FROM Config WHERE Identifier = "
    "?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (0) ) + 1, COALESCE( ( SELECT "
    "Success FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = "
    "?4 ), 1 ), ( SELECT DesiredValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), ( SELECT UserValue FROM Config WHERE Identifier = ?1 "
    "AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ( SELECT VitalValue FROM Config "
    "WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ( SELECT "
    "CachedValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND Configgroup = ?3 AND "
    "Component = ?4 ), ?6 )";

const char kWriteCompleteSql[] =
    "INSERT OR REPLACE INTO Config ( Identifier, Name, ConfigGroup, Component, Version, Success, "
    "AutoConfValue, UserValue, VitalValue, CachedValue, CreationTime, Revision ) VALUES ( ?1, ?2, "
    "?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, COALESCE( ( SELECT CreationTime FROM Config WHERE "
    "Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), COALESCE(?11, "
    "(DATETIME(CURRENT_TIMESTAMP))) ), COALESCE( ( SELECT Revision FROM Config WHERE Identifier = "
    "?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (?12) ) + 1 )";

const char kUpdateUserSql[] =
    "UPDATE Config SET UserValue = ?, VitalValue = ?, CachedValue = ?, DesiredValue = NULL WHERE "
    "Name = ? AND ConfigGroup = ? AND Component = ? AND Identifier = ?";
const char kUpdateAutoConfSql[] =
    "UPDATE Config SET AutoConfValue = ?, VitalValue = ?, CachedValue = ? WHERE Name = ? AND "
    "ConfigGroup = ? AND Component = ? AND Identifier = ?";
const char kUpdateNonUserSql[] =
    "UPDATE Config SET UserValue = ?, VitalValue = ?, CachedValue = ? WHERE Name = ? AND "
    "ConfigGroup = ? AND Component = ? AND Identifier = ?";

const char kSetUserByContextSql[] =
    "INSERT OR REPLACE INTO Config ( Name, ConfigGroup, Component, Identifier, Version, "
    "CreationTime, Revision, AutoConfValue, UserValue, VitalValue, CachedValue, DesiredValue ) "
    "VALUES ( ?2, ?3, ?4, ?1, ?5, COALESCE( ( SELECT CreationTime FROM Config WHERE Identifier = "
    "?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (DATETIME(CURRENT_TIMESTAMP)) ), "
    "COALESCE( ( SELECT Revision FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = "
    "?3 AND Component = ?4 ), (0) ) + 1, ( SELECT AutoConfValue FROM Config WHERE Identifier = ?1 "
    "AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ?6, ?7, ?8, NULL )";
const char kSetAutoConfByContextSql[] =
    "INSERT OR REPLACE INTO Config ( Name, ConfigGroup, Component, Identifier, Version, "
    "CreationTime, Revision, Success, UserValue, AutoConfValue, VitalValue, CachedValue ) VALUES "
    "( ?2, ?3, ?4, ?1, ?5, COALESCE( ( SELECT CreationTime FROM Config WHERE Identifier = ?1 AND "
    "Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (DATETIME(CURRENT_TIMESTAMP)) ), "
    "COALESCE( ( SELECT Revision FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = "
    "?3 AND Component = ?4 ), (0) ) + 1, COALESCE( ( SELECT Success FROM Config WHERE Identifier "
    "= ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), 1 ), ( SELECT UserValue FROM "
    "Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), ?6, "
    "?7, ?8 )";
const char kSetNonUserByContextSql[] =
    "INSERT OR REPLACE INTO Config ( Name, ConfigGroup, Component, Identifier, Version, "
    "CreationTime, Revision, Success, AutoConfValue, UserValue, VitalValue, CachedValue ) VALUES "
    "( ?2, ?3, ?4, ?1, ?5, COALESCE( ( SELECT CreationTime FROM Config WHERE Identifier = ?1 AND "
    "Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (DATETIME(CURRENT_TIMESTAMP)) ), "
    "COALESCE( ( SELECT Revision FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = "
    "?3 AND Component = ?4 ), (0) ) + 1, COALESCE( ( SELECT Success FROM Config WHERE Identifier "
    "= ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), 1 ), ( SELECT AutoConfValue "
    "FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), "
    "?6, ?7, ?8 )";

const KeyStatement4 kDeleteSql(
    "DELETE FROM 'Config' WHERE Name=? and ConfigGroup=? and Component=? and Identifier=?");
const KeyStatement3 kDeleteInstancesSql(
    "DELETE FROM Config WHERE Name = ? AND ConfigGroup = ? AND Component = ?;");
const KeyStatement3 kClearUserSql(
    "UPDATE Config SET UserValue = NULL WHERE Name = ? AND ConfigGroup = ? AND Component = ?");
const KeyStatement3 kClearVitalSql(
    "UPDATE Config SET VitalValue = NULL WHERE Name = ? AND ConfigGroup = ? AND Component = ?");
const KeyStatement3 kClearCachedSql(
    "UPDATE Config SET CachedValue = NULL WHERE Name = ? AND ConfigGroup = ? AND Component = ?");
const KeyStatement3 kClearAutoConfSql(
    "UPDATE Config SET AutoConfValue = NULL WHERE Name = ? AND ConfigGroup = ? AND Component = ?");
// The value columns a whole-object write carries over from the stored row.
const KeyStatement4 kCarriedColumnsSql(
    "SELECT AutoConfValue, UserValue, VitalValue, CachedValue FROM Config WHERE Name = ? AND "
    "ConfigGroup = ? AND Component = ? AND Identifier = ?");
const KeyStatement3 kRevisionMapSql(
    "SELECT Identifier, Revision, CreationTime FROM Config WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ?;");

// --- Helpers ----------------------------------------------------------------

[[noreturn]] void Fail(const std::string& message) {
  DBStore::ThrowFailure(message.c_str());
}

// The column text of a one-column write: the object's serialized data, or
// none (NULL) for an object without members.
std::optional<std::string> ColumnTextOf(const ObjectPtr& object) {
  if (object->IsEmpty()) return std::nullopt;
  return object->GetSerializedData();
}

// The cached, vital and auto-configuration writers: ?6 is the object's data.
void WriteContextConfigInstances(const char* sql, const ObjectList& objects,
                                 const ConnectionPtr& conn) {
  for (const ObjectPtr& object : objects) {
    const std::string version = object->GetVersion();
    const std::optional<std::string> data = ColumnTextOf(object);
    DBStore::StmtPtr stmt = DBStore::internal::Prepare(conn, sql, DBStore::kBusyTimeoutMs);
    int index = 1;
    const bool bound =
        stmt && BindKeyAndVersion(conn, stmt, index, object->GetSetvaultObjectId(), version) &&
        DBStore::internal::Bind(conn, stmt, index, Nullable(data)) == 0;
    if (!bound || !Execute(conn, stmt)) Fail("Write config instances failed");
  }
}

void ClearColumn(const KeyStatement3& statement, const SetvaultObjectId& id,
                 const ConnectionPtr& conn) {
  DBStore::StmtPtr stmt = statement.PrepareAndBind(conn, id.key, id.group, id.component);
  if (!Execute(conn, stmt)) Fail("Failed to Delete in SetConfigInstancesInternal");
}

const char* UserColumnOf(const USERDATA_CONTEXT& context) {
  return context.kind == kExternalContext ? kUserValueColumn : kAutoConfValueColumn;
}

// The columns one object is written with: its split parts, with what it has
// no part for taken over from `stored`.
ColumnValues ColumnsOf(const ObjectPtr& object, const SchemaPtr& schema,
                       const USERDATA_CONTEXT& context, const StoreRow& stored) {
  const SplitParts parts = SplitObjectData(object->GetImpl()->Root(), schema->GetSchemaJson());
  ColumnValues columns;
  for (const char* column : {kAutoConfValueColumn, kUserValueColumn, kVitalValueColumn,
                             kCachedValueColumn}) {
    auto kept = stored.find(column);
    if (kept != stored.end()) columns[column] = kept->second;
  }
  const char* user_column = UserColumnOf(context);
  if (parts.user) {
    columns[user_column] = *parts.user;
  } else {
    columns.erase(user_column);
  }
  if (parts.vital) columns[kVitalValueColumn] = *parts.vital;
  if (parts.cached) columns[kCachedValueColumn] = *parts.cached;
  return columns;
}

std::optional<std::string> ColumnText(const ColumnValues& columns, const char* column) {
  auto found = columns.find(column);
  if (found == columns.end()) return std::nullopt;
  return found->second;
}

}  // namespace

void WriteUserConfigInstances(const ObjectList& objects, const ConnectionPtr& conn,
                              bool confirmed) {
  const int success = confirmed || GetUpgradeCtx() != kUnconfirmedUpgradeCtx ? 1 : 0;
  for (const ObjectPtr& object : objects) {
    const std::string version = object->GetVersion();
    const std::optional<std::string> data = ColumnTextOf(object);
    DBStore::StmtPtr stmt = DBStore::internal::Prepare(conn, kWriteUserSql, DBStore::kBusyTimeoutMs);
    int index = 1;
    const bool bound =
        stmt && BindKeyAndVersion(conn, stmt, index, object->GetSetvaultObjectId(), version) &&
        DBStore::internal::Bind(conn, stmt, index, success) == 0 &&
        DBStore::internal::Bind(conn, stmt, index, Nullable(data)) == 0;
    if (!bound || !Execute(conn, stmt)) Fail("Write user data failed");
  }
}

void WriteCachedConfigInstances(const ObjectList& objects, const ConnectionPtr& conn) {
  WriteContextConfigInstances(kWriteCachedSql, objects, conn);
}

void WriteVitalConfigInstances(const ObjectList& objects, const ConnectionPtr& conn) {
  WriteContextConfigInstances(kWriteVitalSql, objects, conn);
}

void WriteAutoConfConfigInstances(const ObjectList& objects, const ConnectionPtr& conn) {
  WriteContextConfigInstances(kWriteAutoConfSql, objects, conn);
}

void WriteCompleteConfigInstances(const std::unordered_map<SetvaultObjectId, ColumnValues>& columns,
                                  const ObjectList& objects, const SchemaPtr& schema,
                                  const ConnectionPtr& conn, const RevisionMap* history) {
  const bool unconfirmed = GetUpgradeCtx() == kUnconfirmedUpgradeCtx &&
                           !(schema && schema->IsConfirmedDuringUpgrade());
  const int success = unconfirmed ? 0 : 1;
  static const ColumnValues kNoColumns;
  for (const ObjectPtr& object : objects) {
    const SetvaultObjectId& id = object->GetSetvaultObjectId();
    auto found = columns.find(id);
    const ColumnValues& values = found == columns.end() ? kNoColumns : found->second;
    const std::string version = object->GetVersion();
    const std::optional<std::string> texts[] = {
        ColumnText(values, kAutoConfValueColumn), ColumnText(values, kUserValueColumn),
        ColumnText(values, kVitalValueColumn), ColumnText(values, kCachedValueColumn)};
    std::optional<std::string> creation_time;
    int revision_base = 0;
    if (history != nullptr) {
      auto previous = history->find(id.instanceId);
      if (previous != history->end()) {
        revision_base = previous->second.first;
        creation_time = previous->second.second;
      }
    }
    DBStore::StmtPtr stmt =
        DBStore::internal::Prepare(conn, kWriteCompleteSql, DBStore::kBusyTimeoutMs);
    int index = 1;
    bool bound = stmt && BindKeyAndVersion(conn, stmt, index, id, version) &&
                 DBStore::internal::Bind(conn, stmt, index, success) == 0;
    for (const auto& text : texts) {
      bound = bound && DBStore::internal::Bind(conn, stmt, index, Nullable(text)) == 0;
    }
    bound = bound && DBStore::internal::Bind(conn, stmt, index, Nullable(creation_time)) == 0 &&
            DBStore::internal::Bind(conn, stmt, index, revision_base) == 0;
    if (!bound || !Execute(conn, stmt)) Fail("WriteComplete failed");
  }
}

void SetInternal(const ObjectPtr& object, const SchemaPtr& schema, const USERDATA_CONTEXT& context,
                 const ConnectionPtr& conn) {
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  const StoreRow stored = ReadStoreRow(id, conn, kCarriedColumnsSql);
  std::unordered_map<SetvaultObjectId, ColumnValues> columns;
  columns.emplace(id, ColumnsOf(object, schema, context, stored));
  WriteCompleteConfigInstances(columns, {object}, schema, conn, nullptr);
}

void SetInstancesInternal(const ObjectList& objects, const USERDATA_CONTEXT& context,
                          const SchemaPtr& schema, const ConnectionPtr& conn,
                          const RevisionMap* history) {
  // Each object reads its own stored row by its full key (an index lookup), so
  // the cost follows the number of objects written, not the number stored.
  std::unordered_map<SetvaultObjectId, ColumnValues> columns;
  columns.reserve(objects.size());
  for (const ObjectPtr& object : objects) {
    const SetvaultObjectId& id = object->GetSetvaultObjectId();
    const StoreRow stored = ReadStoreRow(id, conn, kCarriedColumnsSql);
    columns[id] = ColumnsOf(object, schema, context, stored);
  }
  WriteCompleteConfigInstances(columns, objects, schema, conn, history);
}

void UpdateByContextInternal(const ObjectPtr& object, const SchemaPtr& schema, UPDATE_CONTEXT kind,
                             const ConnectionPtr& conn) {
  const char* sql = kind == kUpdateUser        ? kUpdateUserSql
                    : kind == kUpdateAutoConfig ? kUpdateAutoConfSql
                                                : kUpdateNonUserSql;
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  const SplitParts parts = SplitObjectData(object->GetImpl()->Root(), schema->GetSchemaJson());
  DBStore::StmtPtr stmt = DBStore::internal::Prepare(conn, sql, DBStore::kBusyTimeoutMs);
  int index = 1;
  const bool bound = stmt && BindParts(conn, stmt, index, parts) &&
                     BindWhereKey(conn, stmt, index, id);
  if (!bound || !Execute(conn, stmt)) {
    Fail("Database call to update configuration by context failed for: " + id.toString());
  }
}

void SetByContextInternal(const ObjectPtr& object, const SchemaPtr& schema, UPDATE_CONTEXT kind,
                          const ConnectionPtr& conn) {
  const char* sql = kind == kUpdateUser        ? kSetUserByContextSql
                    : kind == kUpdateAutoConfig ? kSetAutoConfByContextSql
                                                : kSetNonUserByContextSql;
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  const std::string version = object->GetVersion();
  const SplitParts parts = SplitObjectData(object->GetImpl()->Root(), schema->GetSchemaJson());
  DBStore::StmtPtr stmt = DBStore::internal::Prepare(conn, sql, DBStore::kBusyTimeoutMs);
  int index = 1;
  const bool bound = stmt && BindKeyAndVersion(conn, stmt, index, id, version) &&
                     BindParts(conn, stmt, index, parts);
  if (!bound || !Execute(conn, stmt)) {
    Fail("Database call to update configuration by context failed for: " + id.toString());
  }
}

void DeleteInternal(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  DBStore::StmtPtr stmt = kDeleteSql.PrepareAndBind(conn, id.key, id.group, id.component,
                                                    id.instanceId);
  if (!Execute(conn, stmt)) Fail("Delete failed: " + id.toString());
}

void DeleteInstancesInternal(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  DBStore::StmtPtr stmt = kDeleteInstancesSql.PrepareAndBind(conn, id.key, id.group, id.component);
  if (!Execute(conn, stmt)) Fail("Delete instances failed: " + id.toString());
}

void DeleteUserConfigInstances(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  ClearColumn(kClearUserSql, id, conn);
}
void DeleteVitalConfigInstances(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  ClearColumn(kClearVitalSql, id, conn);
}
void DeleteCachedConfigInstances(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  ClearColumn(kClearCachedSql, id, conn);
}
void DeleteAutoConfConfigInstances(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  ClearColumn(kClearAutoConfSql, id, conn);
}

RevisionMap ReadRevisionMap(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  StoreRows rows;
  try {
    rows = ReadStoreRows(id, conn, kRevisionMapSql);
  } catch (const SetvaultException&) {
    Fail("Failed to read revision from setvault.");
  }
  RevisionMap revisions;
  for (const auto& row : *rows) {
    auto identifier = row->find(kIdentifierColumn);
    auto revision = row->find(kRevisionColumn);
    auto created = row->find(kCreationTimeColumn);
    revisions[identifier == row->end() ? "" : identifier->second] = {
        revision == row->end() ? 0 : std::atoi(revision->second.c_str()),
        created == row->end() ? "" : created->second};
  }
  return revisions;
}

}  // namespace KorvoSetvault
