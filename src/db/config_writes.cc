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
// A set by the auto-configuration or non-user kind replaces the row with its own
// column (`own`, bound with the vital and cached parts as ?6 to ?8) and carries
// the other value column (`carried`), the pending next-boot value (DesiredValue)
// and the success flag over from the stored row.
std::string CarryingSetSql(const char* own, const char* carried) {
  auto stored = [](const char* column) {
    return std::string("( SELECT ") + column +
           " FROM Config WHERE Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND "
           "Component = ?4 )";
  };
  return std::string(
             "INSERT OR REPLACE INTO Config ( Name, ConfigGroup, Component, Identifier, "
             "Version, CreationTime, Revision, Success, DesiredValue, ") +
         carried + ", " + own + ", VitalValue, CachedValue ) VALUES ( ?2, ?3, ?4, ?1, ?5, " +
         "COALESCE( " + stored("CreationTime") + ", (DATETIME(CURRENT_TIMESTAMP)) ), " +
         "COALESCE( " + stored("Revision") + ", (0) ) + 1, COALESCE( " + stored("Success") +
         ", 1 ), " + stored("DesiredValue") + ", " + stored(carried) + ", ?6, ?7, ?8 )";
}
// Built once, on first use, and never destroyed (writers may run during exit).
const char* SetAutoConfByContextSql() {
  static const std::string* sql = new std::string(CarryingSetSql("AutoConfValue", "UserValue"));
  return sql->c_str();
}
const char* SetNonUserByContextSql() {
  static const std::string* sql = new std::string(CarryingSetSql("UserValue", "AutoConfValue"));
  return sql->c_str();
}

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

[[noreturn]] void Fail(const std::string& message) { DBStore::ThrowFailure(message.c_str()); }

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

// The columns one object is written with: its split parts, with what it has
// no part for taken over from its stored row. The user part goes to UserValue
// for the external context and to AutoConfValue otherwise; the other of those
// two columns keeps its stored value.
ColumnValues ColumnsOf(const ObjectPtr& object, const SchemaPtr& schema,
                       const USERDATA_CONTEXT& context, const ConnectionPtr& conn) {
  SplitParts parts = SplitObjectData(object->GetImpl()->Root(), schema->GetSchemaJson());
  const bool external = context.kind == kExternalContext;
  ColumnValues columns;
  VisitStoreRow(object->GetSetvaultObjectId(), conn, kCarriedColumnsSql,
                [&](const RowView& stored) {
                  auto carry = [&stored](const char* column, std::optional<std::string>& into) {
                    if (const char* text = stored.Find(column)) into = text;
                  };
                  if (external) {
                    carry(kAutoConfValueColumn, columns.autoconf);
                  } else {
                    carry(kUserValueColumn, columns.user);
                  }
                  if (!parts.vital) carry(kVitalValueColumn, columns.vital);
                  if (!parts.cached) carry(kCachedValueColumn, columns.cached);
                });
  (external ? columns.user : columns.autoconf) = std::move(parts.user);
  if (parts.vital) columns.vital = std::move(parts.vital);
  if (parts.cached) columns.cached = std::move(parts.cached);
  return columns;
}

}  // namespace

void WriteUserConfigInstances(const ObjectList& objects, const ConnectionPtr& conn,
                              bool confirmed) {
  const int success = confirmed || GetUpgradeCtx() != kUnconfirmedUpgradeCtx ? 1 : 0;
  for (const ObjectPtr& object : objects) {
    const std::string version = object->GetVersion();
    const std::optional<std::string> data = ColumnTextOf(object);
    DBStore::StmtPtr stmt =
        DBStore::internal::Prepare(conn, kWriteUserSql, DBStore::kBusyTimeoutMs);
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

void WriteCompleteConfigInstances(const std::vector<ColumnValues>& columns,
                                  const ObjectList& objects, const SchemaPtr& schema,
                                  const ConnectionPtr& conn, const RevisionMap* history) {
  const bool unconfirmed =
      GetUpgradeCtx() == kUnconfirmedUpgradeCtx && !(schema && schema->IsConfirmedDuringUpgrade());
  const int success = unconfirmed ? 0 : 1;
  for (size_t i = 0; i < objects.size(); ++i) {
    const SetvaultObjectId& id = objects[i]->GetSetvaultObjectId();
    const ColumnValues& values = columns.at(i);
    const std::string version = objects[i]->GetVersion();
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
    for (const auto* text : {&values.autoconf, &values.user, &values.vital, &values.cached}) {
      bound = bound && DBStore::internal::Bind(conn, stmt, index, Nullable(*text)) == 0;
    }
    bound = bound && DBStore::internal::Bind(conn, stmt, index, Nullable(creation_time)) == 0 &&
            DBStore::internal::Bind(conn, stmt, index, revision_base) == 0;
    if (!bound || !Execute(conn, stmt)) Fail("WriteComplete failed");
  }
}

void SetInternal(const ObjectPtr& object, const SchemaPtr& schema, const USERDATA_CONTEXT& context,
                 const ConnectionPtr& conn) {
  SetInstancesInternal({object}, context, schema, conn, nullptr);
}

void SetInstancesInternal(const ObjectList& objects, const USERDATA_CONTEXT& context,
                          const SchemaPtr& schema, const ConnectionPtr& conn,
                          const RevisionMap* history) {
  // Each object reads its own stored row by its full key (an index lookup), so
  // the cost follows the number of objects written, not the number stored.
  // Every row is read before any is written.
  std::vector<ColumnValues> columns;
  columns.reserve(objects.size());
  for (const ObjectPtr& object : objects) {
    columns.push_back(ColumnsOf(object, schema, context, conn));
  }
  WriteCompleteConfigInstances(columns, objects, schema, conn, history);
}

void UpdateByContextInternal(const ObjectPtr& object, const SchemaPtr& schema, UPDATE_CONTEXT kind,
                             const ConnectionPtr& conn) {
  const char* sql = kind == kUpdateUser         ? kUpdateUserSql
                    : kind == kUpdateAutoConfig ? kUpdateAutoConfSql
                                                : kUpdateNonUserSql;
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  const SplitParts parts = SplitObjectData(object->GetImpl()->Root(), schema->GetSchemaJson());
  DBStore::StmtPtr stmt = DBStore::internal::Prepare(conn, sql, DBStore::kBusyTimeoutMs);
  int index = 1;
  const bool bound =
      stmt && BindParts(conn, stmt, index, parts) && BindWhereKey(conn, stmt, index, id);
  if (!bound || !Execute(conn, stmt)) {
    Fail("Database call to update configuration by context failed for: " + id.toString());
  }
}

void SetByContextInternal(const ObjectPtr& object, const SchemaPtr& schema, UPDATE_CONTEXT kind,
                          const ConnectionPtr& conn) {
  const char* sql = kind == kUpdateUser         ? kSetUserByContextSql
                    : kind == kUpdateAutoConfig ? SetAutoConfByContextSql()
                                                : SetNonUserByContextSql();
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
  DBStore::StmtPtr stmt =
      kDeleteSql.PrepareAndBind(conn, id.key, id.group, id.component, id.instanceId);
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
