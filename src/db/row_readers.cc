#include "db/row_readers.h"

#include <cstdlib>
#include <cstring>

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

// The text of `column` in a row, null when absent or NULL: the one access the
// readers below make, so that they read a StoreRow and a RowView alike.
const char* TextOf(const StoreRow& row, const char* column) {
  auto found = row.find(column);
  return found == row.end() ? nullptr : found->second.c_str();
}
const char* TextOf(const RowView& row, const char* column) { return row.Find(column); }

template <typename Row>
std::string ColumnOrEmpty(const Row& row, const char* column) {
  const char* text = TextOf(row, column);
  return text == nullptr ? std::string() : std::string(text);
}

[[noreturn]] void ThrowReadFailure(const char* what, const SetvaultObjectId& id) {
  DBStore::ThrowFailure((what + id.toString()).c_str());
}

// An object over `document` with the row's version, times and revision.
template <typename Row>
ObjectPtr ObjectOfRow(const Row& row, std::shared_ptr<JsonDoc> document, const SetvaultObjectId& id,
                      const SchemaPtr& schema) {
  SetvaultObjectImpl::Parts parts;
  parts.id = id;
  parts.document = std::move(document);
  parts.schema = schema;
  parts.loadSchema = true;
  parts.metadata.version = ColumnOrEmpty(row, kVersionColumn);
  parts.metadata.creationTime = ColumnOrEmpty(row, kCreationTimeColumn);
  parts.metadata.modifiedTime = ColumnOrEmpty(row, kModifiedTimeColumn);
  const char* revision = TextOf(row, kRevisionColumn);
  parts.metadata.revision =
      revision == nullptr ? 0 : static_cast<int32_t>(std::strtol(revision, nullptr, 10));
  return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(std::move(parts)));
}

template <typename Row>
ObjectPtr MergedObjectOfRow(const Row& row, const char* const* columns, size_t count,
                            const SetvaultObjectId& id, const SchemaPtr& schema) {
  ObjectPtr merged;
  for (const char* const* at = columns; at != columns + count; ++at) {
    const char* text = *at == nullptr ? nullptr : TextOf(row, *at);
    if (text == nullptr) continue;
    if (!merged) {
      merged = ObjectOfRow(row, ParseDocument(text), id, schema);
      continue;
    }
    // A part merged into the object is parsed into a scratch document whose
    // memory comes from the stack unless the part is large.
    char buffer[kScratchBufferSize];
    JsonAllocator allocator(buffer, sizeof buffer);
    JsonDocument part(&allocator);
    std::string fault;
    if (!ParseJsonText(text, part, &fault)) {
      ThrowException<InvalidArgumentException, const char*>(SV_ERR_JSON_PARSE, fault.c_str());
    }
    MergeDataInto(part, *merged);
  }
  return merged;
}

template <typename Row>
const char* ConfirmedUserColumnOf(const Row& row) {
  const char* success = TextOf(row, kSuccessColumn);
  return success != nullptr && std::strcmp(success, "1") == 0 ? kUserValueColumn : nullptr;
}

template <typename Row>
const char* PendingUserColumnOf(const Row& row) {
  return TextOf(row, kDesiredValueColumn) != nullptr ? kDesiredValueColumn : kUserValueColumn;
}

template <typename Row>
bool UserViewsDifferIn(const Row& row) {
  if (TextOf(row, kDesiredValueColumn) != nullptr) return true;
  const char* success = TextOf(row, kSuccessColumn);
  return success != nullptr && std::strcmp(success, "1") != 0;
}

// Calls the visitor of VisitStoreRow with each row.
int VisitRowCallback(void* context, int count, char** texts, char** names) {
  (*static_cast<const std::function<void(const RowView&)>*>(context))(RowView(count, texts, names));
  return 0;
}

}  // namespace

const char* RowView::Find(const char* column) const {
  // A handful of columns: comparing names is cheaper than any index, and their first
  // letters mostly differ.
  for (int i = 0; i < count_; ++i) {
    if (names_[i][0] == column[0] && std::strcmp(names_[i], column) == 0) return texts_[i];
  }
  return nullptr;
}

StoreRow RowView::Copy() const {
  StoreRow row;
  for (int i = 0; i < count_; ++i) {
    if (texts_[i] != nullptr) row[names_[i]] = texts_[i];
  }
  return row;
}

void VisitStoreRow(const SetvaultObjectId& id, const ConnectionPtr& conn,
                   const KeyStatement4& statement,
                   const std::function<void(const RowView&)>& visit) {
  DBStore::StmtPtr stmt =
      statement.PrepareAndBind(conn, id.key, id.group, id.component, id.instanceId);
  auto* context = const_cast<std::function<void(const RowView&)>*>(&visit);
  if (DBStore::ExecuteStmt(conn, stmt, VisitRowCallback, context, DBStore::kBusyTimeoutMs) == 1) {
    ThrowReadFailure("Get failed: ", id);
  }
}

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
  const char* text = TextOf(row, column);
  if (text == nullptr) return nullptr;
  return ObjectOfRow(row, ParseDocument(text), id, schema);
}

ObjectPtr RowToValuelessObject(const StoreRow& row, const SetvaultObjectId& id,
                               const SchemaPtr& schema) {
  ObjectPtr object = ObjectOfRow(row, nullptr, id, schema);
  object->SetInstanceIdFromSvoId();
  return object;
}

ObjectPtr RowToMergedObject(const StoreRow& row, std::initializer_list<const char*> columns,
                            const SetvaultObjectId& id, const SchemaPtr& schema) {
  return MergedObjectOfRow(row, columns.begin(), columns.size(), id, schema);
}

ObjectPtr RowToMergedObject(const StoreRow& row, const char* const* columns, size_t count,
                            const SetvaultObjectId& id, const SchemaPtr& schema) {
  return MergedObjectOfRow(row, columns, count, id, schema);
}

ObjectPtr RowToMergedObject(const RowView& row, std::initializer_list<const char*> columns,
                            const SetvaultObjectId& id, const SchemaPtr& schema) {
  return MergedObjectOfRow(row, columns.begin(), columns.size(), id, schema);
}

ObjectPtr RowToMergedObject(const RowView& row, const char* const* columns, size_t count,
                            const SetvaultObjectId& id, const SchemaPtr& schema) {
  return MergedObjectOfRow(row, columns, count, id, schema);
}

const char* ConfirmedUserColumn(const StoreRow& row) { return ConfirmedUserColumnOf(row); }
const char* ConfirmedUserColumn(const RowView& row) { return ConfirmedUserColumnOf(row); }

const char* PendingUserColumn(const StoreRow& row) { return PendingUserColumnOf(row); }
const char* PendingUserColumn(const RowView& row) { return PendingUserColumnOf(row); }

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

bool UserViewsDiffer(const StoreRow& row) { return UserViewsDifferIn(row); }
bool UserViewsDiffer(const RowView& row) { return UserViewsDifferIn(row); }

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
