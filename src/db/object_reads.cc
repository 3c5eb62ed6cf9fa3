// Reads of one stored object.
#include "db/config_reads.h"

#include "db/host_flags.h"
#include "db/object_cache.h"
#include "db/upgrade_ctx.h"
#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

const KeyStatement4 kDesiredWithPartsSql(
    "SELECT Version, CASE Success WHEN 0 THEN UserValue ELSE DesiredValue END Value, VitalValue, "
    "CachedValue, CreationTime, ModifiedTime, Revision FROM Config WHERE Name = ? AND "
    "ConfigGroup = ? AND Component = ? AND Identifier = ? AND (Value NOT NULL OR VitalValue NOT "
    "NULL OR CachedValue NOT NULL)");

const KeyStatement4 kDesiredUserSql(
    "SELECT Version, CASE Success WHEN 0 THEN UserValue ELSE DesiredValue END Value, "
    "CreationTime, ModifiedTime, Revision FROM Config WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ? AND Identifier = ? AND Value IS NOT NULL");

const KeyStatement4 kRebootRequiredSql(
    "SELECT Version, Value as UserValue, VitalValue, CachedValue FROM DesiredUserConfig WHERE "
    "BootAction = 'SET' AND Name = ? AND ConfigGroup = ? AND Component = ? AND Identifier = ?");

ObjectPtr LogIfAbsent(ObjectPtr object, const SetvaultObjectId& id) {
  if (!object) SVLogger::Log(2, "Object not found: %s", id.toString().c_str());
  return object;
}

// During boot and upgrades writers see the pending user value where the
// schema asks for it; otherwise the confirmed one.
bool CurrentUserViewApplies(const SchemaPtr& schema) {
  if (GetUpgradeCtx() != 0) return true;
  return IsBoot() && schema && schema->UsesCurrentValueDuringBoot();
}

}  // namespace

ObjectPtr GetInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                      const SchemaPtr& schema) {
  return GetThroughObjectCache(id, conn, schema, [&] {
    const StoreRow row = ReadStoreRow(id, conn, READ_TABLE_CONFIG);
    // A row whose user views differ reads by the host's upgrade context: not cached.
    return DecodedObject{RowToMergedObject(row,
                                           {kVitalValueColumn, kCachedValueColumn,
                                            kAutoConfValueColumn, CurrentUserColumn(row)},
                                           id, schema),
                         !UserViewsDiffer(row)};
  });
}

ObjectPtr GetCurrentConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                   const SchemaPtr& schema) {
  const StoreRow row = ReadStoreRow(id, conn, READ_TABLE_USER_AUTO_CONFIG);
  return RowToMergedObject(row, {kAutoConfValueColumn, ConfirmedUserColumn(row)}, id, schema);
}

ObjectPtr GetConfigByBootAndContext(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                    const USERDATA_CONTEXT& context, const SchemaPtr& schema) {
  const StoreRow row = ReadStoreRow(id, conn, READ_TABLE_CONFIG);
  const char* main_column;
  if (context.kind != kExternalContext) {
    main_column = kAutoConfValueColumn;
  } else if (UserViewsDiffer(row) && CurrentUserViewApplies(schema)) {
    main_column = PendingUserColumn(row);
  } else {
    main_column = ConfirmedUserColumn(row);
  }
  return RowToMergedObject(row, {kVitalValueColumn, kCachedValueColumn, main_column}, id, schema);
}

ObjectPtr GetDefaultConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                   const SchemaPtr& schema) {
  const StoreRow row = ReadStoreRow(id, conn, GET_DEFAULT_INSTANCE);
  return LogIfAbsent(
      RowToMergedObject(row, {kVitalValueColumn, kCachedValueColumn, kValueColumn}, id, schema),
      id);
}

ObjectPtr GetDefaultUserConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                       const SchemaPtr& schema) {
  const StoreRow row = ReadStoreRow(id, conn, GET_DEFAULT_INSTANCE);
  return LogIfAbsent(RowToObject(row, kValueColumn, id, schema), id);
}

ObjectPtr GetDesiredInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                             const SchemaPtr& schema, int flag) {
  if (flag != 1) {
    const StoreRow row = ReadStoreRow(id, conn, kDesiredUserSql);
    return RowToObject(row, kValueColumn, id, schema);
  }
  const StoreRow row = ReadStoreRow(id, conn, kDesiredWithPartsSql);
  return RowToMergedObject(row, {kVitalValueColumn, kCachedValueColumn, kValueColumn}, id, schema);
}

ObjectPtr GetRebootRequiredConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                          const SchemaPtr& schema) {
  const StoreRow row = ReadStoreRow(id, conn, kRebootRequiredSql);
  return RowToMergedObject(row, {kVitalValueColumn, kCachedValueColumn, kUserValueColumn}, id,
                           schema);
}

}  // namespace KorvoSetvault
