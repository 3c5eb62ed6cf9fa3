// Reads of every instance of a type.
#include "db/config_reads.h"

#include <optional>

#include "model/setvault_object_impl.h"
#include "platform/upgrade_ctx.h"

namespace KorvoSetvault {
namespace {

const KeyStatement3 kDefaultInstancesSql(
    "SELECT Value, VitalValue, CachedValue, Identifier, Version FROM DefaultConfig WHERE Name = ? "
    "AND ConfigGroup = ? AND Component = ?");

const KeyStatement3 kDesiredInstancesWithPartsSql(
    "SELECT Identifier, CASE Success WHEN 0 THEN UserValue ELSE DesiredValue END Value, "
    "VitalValue, CachedValue, Version, CreationTime, ModifiedTime, Revision FROM Config WHERE "
    "Name = ? AND ConfigGroup = ? AND Component = ? AND (Value NOT NULL OR VitalValue NOT NULL "
    "OR CachedValue NOT NULL)");

const KeyStatement3 kDesiredUserInstancesSql(
    "SELECT Identifier, CASE Success WHEN 0 THEN UserValue ELSE DesiredValue END Value, Version, "
    "CreationTime, ModifiedTime, Revision FROM Config WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ? AND Value NOT NULL");

const KeyStatement3 kRebootRequiredInstancesSql(
    "SELECT Version, Identifier, Value as UserValue, VitalValue, CachedValue FROM "
    "DesiredUserConfig WHERE BootAction = 'SET' AND Name = ? AND ConfigGroup = ? AND "
    "Component = ?");

// Builds one object per row with `to_object` and keeps the non-empty ones.
template <typename RowToMerged>
ObjectList ObjectsOfRows(const StoreRows& rows, const SetvaultObjectId& type,
                         RowToMerged to_object) {
  ObjectList objects;
  objects.reserve(rows->size());
  for (const auto& row : *rows) {
    ObjectPtr object = to_object(*row, InstanceIdOfRow(*row, type));
    if (object) objects.push_back(std::move(object));
  }
  return objects;
}

ObjectList Filtered(ObjectList objects, const std::shared_ptr<FilterSpecObject>& filter) {
  return FilterSetvaultObjects(objects, filter);
}

}  // namespace

ObjectList GetConfigInstancesInternal(const std::shared_ptr<FilterSpecObject>& filter,
                                      const ConnectionPtr& conn, const SchemaPtr& schema) {
  const SetvaultObjectId& type = filter->GetSetvaultObjectId();
  const StoreRows rows = ReadStoreRows(type, conn, GET_INSTANCES);
  // The upgrade context is read once, and only when a row's views differ.
  std::optional<int> upgrade_ctx;
  auto user_column = [&upgrade_ctx](const StoreRow& row) {
    if (!UserViewsDiffer(row)) return ConfirmedUserColumn(row);
    if (!upgrade_ctx) upgrade_ctx = GetUpgradeCtx();
    return CurrentUserColumn(row, *upgrade_ctx);
  };
  // Every stored instance yields an object, as GetInstanceIds lists every
  // row: one that shows no value is an object holding only its id.
  return Filtered(ObjectsOfRows(rows, type,
                                [&](const StoreRow& row, const SetvaultObjectId& id) {
                                  ObjectPtr merged =
                                      RowToMergedObject(row,
                                                        {kVitalValueColumn, kCachedValueColumn,
                                                         kAutoConfValueColumn, user_column(row)},
                                                        id, schema);
                                  return merged ? merged : RowToValuelessObject(row, id, schema);
                                }),
                  filter);
}

ObjectList GetCurrentConfigInstancesInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                             const SchemaPtr& schema) {
  const StoreRows rows = ReadStoreRows(id, conn, GET_INSTANCES);
  return ObjectsOfRows(rows, id, [&schema](const StoreRow& row, const SetvaultObjectId& row_id) {
    return RowToMergedObject(row, {kAutoConfValueColumn, ConfirmedUserColumn(row)}, row_id,
                             schema);
  });
}

ObjectList GetDefaultConfigInstancesInternal(const std::shared_ptr<FilterSpecObject>& filter,
                                             const ConnectionPtr& conn, const SchemaPtr& schema) {
  const SetvaultObjectId& type = filter->GetSetvaultObjectId();
  const StoreRows rows = ReadStoreRows(type, conn, kDefaultInstancesSql);
  return Filtered(ObjectsOfRows(rows, type,
                                [&schema](const StoreRow& row, const SetvaultObjectId& id) {
                                  return RowToMergedObject(
                                      row, {kVitalValueColumn, kCachedValueColumn, kValueColumn},
                                      id, schema);
                                }),
                  filter);
}

ObjectList GetDefaultUserConfigInstancesInternal(const SetvaultObjectId& id,
                                                 const ConnectionPtr& conn,
                                                 const SchemaPtr& schema) {
  const StoreRows rows = GetDefaultUserConfigMapList(id, conn);
  return ObjectsOfRows(rows, id, [&schema](const StoreRow& row, const SetvaultObjectId& row_id) {
    return RowToObject(row, kValueColumn, row_id, schema);
  });
}

ObjectList GetDesiredUserConfigInstancesInternal(const SetvaultObjectId& id,
                                                 const ConnectionPtr& conn, const SchemaPtr& schema,
                                                 int flag) {
  if (flag != 1) {
    const StoreRows rows = ReadStoreRows(id, conn, kDesiredUserInstancesSql);
    return ObjectsOfRows(rows, id, [&schema](const StoreRow& row, const SetvaultObjectId& row_id) {
      return RowToObject(row, kValueColumn, row_id, schema);
    });
  }
  const StoreRows rows = ReadStoreRows(id, conn, kDesiredInstancesWithPartsSql);
  return ObjectsOfRows(rows, id, [&schema](const StoreRow& row, const SetvaultObjectId& row_id) {
    return RowToMergedObject(row, {kVitalValueColumn, kCachedValueColumn, kValueColumn}, row_id,
                             schema);
  });
}

ObjectList GetRebootRequiredConfigInstancesInternal(const std::shared_ptr<FilterSpecObject>& filter,
                                                    const SchemaPtr& schema,
                                                    const ConnectionPtr& conn) {
  const SetvaultObjectId& type = filter->GetSetvaultObjectId();
  const StoreRows rows = ReadStoreRows(type, conn, kRebootRequiredInstancesSql);
  return Filtered(ObjectsOfRows(rows, type,
                                [&schema](const StoreRow& row, const SetvaultObjectId& id) {
                                  return RowToMergedObject(
                                      row,
                                      {kVitalValueColumn, kCachedValueColumn, kUserValueColumn},
                                      id, schema);
                                }),
                  filter);
}

}  // namespace KorvoSetvault
