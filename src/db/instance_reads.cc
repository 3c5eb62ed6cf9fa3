// Reads of every instance of a type.
#include "db/config_reads.h"

#include <exception>
#include <optional>

#include "db/upgrade_ctx.h"
#include "model/setvault_object_impl.h"
#include "setvault/exceptions.h"

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

namespace {

// The row callback of VisitConfigInstancesInternal: one object per row, handed on at once.
struct InstanceVisit {
  const SetvaultObjectId& type;
  const SchemaPtr& schema;
  const std::function<void(const ObjectPtr&)>& visit;
  std::optional<int> upgrade_ctx;  // read once, and only when a row's user views differ
  std::exception_ptr failure;

  static int OnRow(void* context, int count, char** texts, char** names) {
    auto& self = *static_cast<InstanceVisit*>(context);
    try {
      // Decoded in place from the statement's column texts.
      const RowView row(count, texts, names);
      const char* user = ConfirmedUserColumn(row);
      if (UserViewsDiffer(row)) {
        // The current view (CurrentUserColumn): pending during an upgrade.
        if (!self.upgrade_ctx) self.upgrade_ctx = GetUpgradeCtx();
        if (*self.upgrade_ctx != 0) user = PendingUserColumn(row);
      }
      const char* identifier = row.Find(kIdentifierColumn);
      const SetvaultObjectId id(self.type.key, self.type.group, self.type.component,
                                identifier != nullptr ? identifier : "");
      ObjectPtr object = RowToMergedObject(
          row, {kVitalValueColumn, kCachedValueColumn, kAutoConfValueColumn, user}, id,
          self.schema);
      // Every stored instance yields an object, as GetInstanceIds lists every
      // row: one that shows no value is an object holding only its id.
      self.visit(object ? object : RowToValuelessObject(row.Copy(), id, self.schema));
      return 0;
    } catch (...) {
      self.failure = std::current_exception();
      return 1;
    }
  }
};

}  // namespace

void VisitConfigInstancesInternal(const SetvaultObjectId& type, const ConnectionPtr& conn,
                                  const SchemaPtr& schema,
                                  const std::function<void(const ObjectPtr&)>& visit) {
  DBStore::StmtPtr stmt = GET_INSTANCES.PrepareAndBind(conn, type.key, type.group, type.component);
  InstanceVisit context{type, schema, visit, std::nullopt, nullptr};
  const int status =
      DBStore::ExecuteStmt(conn, stmt, &InstanceVisit::OnRow, &context, DBStore::kBusyTimeoutMs);
  if (context.failure) std::rethrow_exception(context.failure);
  if (status != 0) {
    DBStore::ThrowFailure(("Read Instances failed for: " + type.toString()).c_str());
  }
}

ObjectList GetConfigInstancesInternal(const std::shared_ptr<FilterSpecObject>& filter,
                                      const ConnectionPtr& conn, const SchemaPtr& schema) {
  ObjectList objects;
  VisitConfigInstancesInternal(filter->GetSetvaultObjectId(), conn, schema,
                               [&objects](const ObjectPtr& object) { objects.push_back(object); });
  return Filtered(std::move(objects), filter);
}

ObjectList GetCurrentConfigInstancesInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                             const SchemaPtr& schema) {
  const StoreRows rows = ReadStoreRows(id, conn, GET_INSTANCES);
  return ObjectsOfRows(rows, id, [&schema](const StoreRow& row, const SetvaultObjectId& row_id) {
    return RowToMergedObject(row, {kAutoConfValueColumn, ConfirmedUserColumn(row)}, row_id, schema);
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
                                      {kVitalValueColumn, kCachedValueColumn, kUserValueColumn}, id,
                                      schema);
                                }),
                  filter);
}

}  // namespace KorvoSetvault
