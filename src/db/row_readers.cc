#include "db/row_readers.h"

#include <cstdlib>

#include "db/row_callbacks.h"
#include "db/upgrade_ctx.h"
#include "document/json_parse.h"
#include "model/setvault_object_impl.h"
#include "model/update_merge.h"
#include "setvault/exceptions.h"

namespace KorvoSetvault {

const char kVersionColumn[] = "Version";
const char kSuccessColumn[] = "Success";
const char kIdentifierColumn[] = "Identifier";
const char kUserValueColumn[] = "UserValue";
const char kVitalValueColumn[] = "VitalValue";
const char kCachedValueColumn[] = "CachedValue";
const char kAutoConfValueColumn[] = "AutoConfValue";
const char kDesiredValueColumn[] = "DesiredValue";
const char kValueColumn[] = "Value";
const char kCreationTimeColumn[] = "CreationTime";
const char kModifiedTimeColumn[] = "ModifiedTime";
const char kRevisionColumn[] = "Revision";

namespace {

// Buckets a single-row map starts with: one per column a read selects.
constexpr size_t kRowBuckets = 14;
// Stack memory for parsing a part that is merged into an object.
constexpr size_t kScratchBufferSize = 4096;

std::string ColumnOrEmpty(const StoreRow& row, const char* column) {
  auto found = row.find(column);
  return found == row.end() ? std::string() : found->second;
}

[[noreturn]] void ThrowReadFailure(const char* what, const SetvaultObjectId& id) {
  DBStore::ThrowFailure((what + id.toString()).c_str());
}

// An object over `document` with the row's version, times and revision.
ObjectPtr ObjectOfRow(const StoreRow& row, std::shared_ptr<JsonDoc> document,
                      const SetvaultObjectId& id, const SchemaPtr& schema) {
  SetvaultObjectImpl::Parts parts;
  parts.id = id;
  parts.document = std::move(document);
  parts.schema = schema;
  parts.loadSchema = true;
  parts.metadata.version = ColumnOrEmpty(row, kVersionColumn);
  parts.metadata.creationTime = ColumnOrEmpty(row, kCreationTimeColumn);
  parts.metadata.modifiedTime = ColumnOrEmpty(row, kModifiedTimeColumn);
  parts.metadata.revision =
      static_cast<int32_t>(std::strtol(ColumnOrEmpty(row, kRevisionColumn).c_str(), nullptr, 10));
  return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(std::move(parts)));
}

}  // namespace

StoreRow ReadStoreRow(const SetvaultObjectId& id, const ConnectionPtr& conn,
                      const KeyStatement4& statement) {
  StoreRow row(kRowBuckets);
  DBStore::StmtPtr stmt =
      statement.PrepareAndBind(conn, id.key, id.group, id.component, id.instanceId);
  if (DBStore::ExecuteStmt(conn, stmt, RowIntoMapCallback, &row, DBStore::kBusyTimeoutMs) == 1) {
    ThrowReadFailure("Get failed: ", id);
  }
  return row;
}

StoreRows ReadStoreRows(const SetvaultObjectId& id, const ConnectionPtr& conn,
                        const KeyStatement3& statement) {
  StoreRows rows = std::make_shared<std::vector<std::shared_ptr<StoreRow>>>();
  DBStore::StmtPtr stmt = statement.PrepareAndBind(conn, id.key, id.group, id.component);
  if (DBStore::ExecuteStmt(conn, stmt, RowAppendedCallback, &rows, DBStore::kBusyTimeoutMs) == 1) {
    ThrowReadFailure("Read Instances failed for: ", id);
  }
  return rows;
}

StoreRows ReadAllRows(const ConnectionPtr& conn, const DBStore::StmtPtr& statement) {
  StoreRows rows = std::make_shared<std::vector<std::shared_ptr<StoreRow>>>();
  if (DBStore::ExecuteStmt(conn, statement, RowAppendedCallback, &rows, DBStore::kBusyTimeoutMs) ==
      1) {
    DBStore::ThrowFailure("Get store rows failed.");
  }
  return rows;
}

ObjectPtr RowToObject(const StoreRow& row, const char* column, const SetvaultObjectId& id,
                      const SchemaPtr& schema) {
  if (column == nullptr) return nullptr;
  auto value = row.find(column);
  if (value == row.end()) return nullptr;
  return ObjectOfRow(row, CreateDocumentFromString(value->second), id, schema);
}

ObjectPtr RowToValuelessObject(const StoreRow& row, const SetvaultObjectId& id,
                               const SchemaPtr& schema) {
  ObjectPtr object = ObjectOfRow(row, nullptr, id, schema);
  object->SetInstanceIdFromSvoId();
  return object;
}

ObjectPtr RowToMergedObject(const StoreRow& row, std::initializer_list<const char*> columns,
                            const SetvaultObjectId& id, const SchemaPtr& schema) {
  return RowToMergedObject(row, columns.begin(), columns.size(), id, schema);
}

ObjectPtr RowToMergedObject(const StoreRow& row, const char* const* columns, size_t count,
                            const SetvaultObjectId& id, const SchemaPtr& schema) {
  ObjectPtr merged;
  for (const char* const* at = columns; at != columns + count; ++at) {
    const char* column = *at;
    if (column == nullptr) continue;
    auto value = row.find(column);
    if (value == row.end()) continue;
    if (!merged) {
      merged = ObjectOfRow(row, CreateDocumentFromString(value->second), id, schema);
      continue;
    }
    // A part merged into the object is parsed into a scratch document whose
    // memory comes from the stack unless the part is large.
    char buffer[kScratchBufferSize];
    JsonAllocator allocator(buffer, sizeof buffer);
    JsonDocument part(&allocator);
    std::string fault;
    if (!ParseJsonText(value->second, part, &fault)) {
      ThrowException<InvalidArgumentException, const char*>(SV_ERR_JSON_PARSE, fault.c_str());
    }
    MergeDataInto(part, *merged);
  }
  return merged;
}

const char* ConfirmedUserColumn(const StoreRow& row) {
  auto success = row.find(kSuccessColumn);
  return success != row.end() && success->second == "1" ? kUserValueColumn : nullptr;
}

const char* PendingUserColumn(const StoreRow& row) {
  return row.find(kDesiredValueColumn) != row.end() ? kDesiredValueColumn : kUserValueColumn;
}

const char* CurrentUserColumn(const StoreRow& row, int upgradeCtx) {
  return upgradeCtx == 0 ? ConfirmedUserColumn(row) : PendingUserColumn(row);
}

const char* CurrentUserColumn(const StoreRow& row) {
  // Most rows look the same in both views; only the others need the host's
  // upgrade context.
  if (!UserViewsDiffer(row)) return ConfirmedUserColumn(row);
  return CurrentUserColumn(row, GetUpgradeCtx());
}

ObjectPtr RowToConfirmedUserObject(const StoreRow& row, const SetvaultObjectId& id,
                                   const SchemaPtr& schema) {
  return RowToObject(row, ConfirmedUserColumn(row), id, schema);
}

ObjectPtr RowToPendingUserObject(const StoreRow& row, const SetvaultObjectId& id,
                                 const SchemaPtr& schema) {
  return RowToObject(row, PendingUserColumn(row), id, schema);
}

bool UserViewsDiffer(const StoreRow& row) {
  if (row.find(kDesiredValueColumn) != row.end()) return true;
  auto success = row.find(kSuccessColumn);
  return success != row.end() && success->second != "1";
}

ObjectPtr RowToCurrentUserObject(const StoreRow& row, const SetvaultObjectId& id,
                                 const SchemaPtr& schema) {
  return RowToObject(row, CurrentUserColumn(row), id, schema);
}

ObjectPtr RowToCurrentUserObject(const StoreRow& row, const SetvaultObjectId& id,
                                 const SchemaPtr& schema, int upgradeCtx) {
  return RowToObject(row, CurrentUserColumn(row, upgradeCtx), id, schema);
}

ObjectPtr MergeConfig(ObjectPtr base, const ObjectPtr& first, const ObjectPtr& second,
                      const ObjectPtr& third) {
  if (!base) {
    const ObjectPtr& model = first ? first : second ? second : third;
    if (!model) return nullptr;
    const SetvaultObjectImpl& impl = *model->GetImpl();
    SetvaultObjectImpl::Parts parts;
    parts.id = impl.GetSetvaultObjectId();
    parts.schema = impl.GetSchema();
    parts.metadata = impl.GetMetadata();
    parts.idMap = impl.GetIdMap();
    parts.defaults = impl.GetDefaults();
    base = std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(std::move(parts)));
  }
  UpdateConfigInternal(first, base);
  UpdateConfigInternal(second, base);
  UpdateConfigInternal(third, base);
  return base;
}

SetvaultObjectId InstanceIdOfRow(const StoreRow& row, const SetvaultObjectId& type) {
  return SetvaultObjectId(type.key, type.group, type.component,
                          ColumnOrEmpty(row, kIdentifierColumn));
}

}  // namespace KorvoSetvault
