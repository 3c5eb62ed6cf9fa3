// Export of stored configuration as a document.
#include <tuple>

#include "db/config_reads.h"
#include "document/config_document.h"
#include "model/filter_match.h"
#include "setvault/logger.h"
#include "store/setvault_impl.h"
#include "validation/cleanup.h"
#include "validation/guards.h"

namespace KorvoSetvault {
namespace {

using KorvoSchemaStore::SchemaObject;
using KorvoSchemaStore::SchemaObjectCache;

// Instances are handed to ExportInternal in batches of this many, so that a
// type with many instances is never held in memory whole.
constexpr size_t kExportBatch = 32;

// What an export reads of one type.
struct TypeExport {
  std::shared_ptr<SchemaObject> schema;
  // The filters of a multi-instance type; one empty filter (or none) selects all.
  std::vector<std::shared_ptr<FilterSpecObject>> filters;
};
using ExportPlan = std::map<SetvaultObjectId, TypeExport, DocumentOrder>;

std::function<void(const SetvaultObjectId&)>& TypeHook() {
  static std::function<void(const SetvaultObjectId&)> hook;
  return hook;
}

bool Selected(const SetvaultObject& object, const TypeExport& type) {
  if (type.filters.empty()) return true;
  for (const auto& filter : type.filters) {
    if (filter->IsEmpty() || svoMatchesFilter(object.GetImpl()->Root(), FilterData(*filter))) {
      return true;
    }
  }
  return false;
}

void ExportType(ExportDocument& document, const SetvaultObjectId& type, const TypeExport& plan,
                const std::shared_ptr<DBStore::StoreConnection>& conn) {
  DocumentObjectMap batch;
  if (!plan.schema->IsNonSingleton()) {
    if (auto object = GetInternal(type, conn, plan.schema)) batch.emplace(type, std::move(object));
  } else {
    VisitConfigInstancesInternal(type, conn, plan.schema, [&](const ObjectPtr& object) {
      if (!Selected(*object, plan)) return;
      batch.emplace(object->GetSetvaultObjectId(), object);
      if (batch.size() < kExportBatch) return;
      ExportInternal(document, batch, true);
      batch.clear();
    });
  }
  ExportInternal(document, batch, true);
  if (TypeHook()) TypeHook()(type);
}

// Reads every type of `plan` in one snapshot and returns the document.
std::string ExportPlanned(const ExportPlan& plan) {
  const auto conn = GetDBStore(DBStore::kConfigStore, true);
  ExportDocument document;
  DBStore::ReadSnapshot snapshot(conn);
  if (snapshot.status() != 0) {
    DBStore::ThrowFailure("Export failed: the store cannot be read", DBStore::FailureOf(conn));
  }
  for (const auto& [type, type_plan] : plan) ExportType(document, type, type_plan, conn);
  return document.Finish();
}

}  // namespace

void ExportInternal(ExportDocument& document, const DocumentObjectMap& map, bool clear) {
  for (const auto& [id, object] : map) {
    JsonValue& data = object->GetImpl()->Root();
    if (clear) ClearGeneratedInstanceId(&data);
    document.AddObject(id.component, id.group, id.key, id.instanceId, data);
  }
}

std::string Export(std::vector<std::shared_ptr<FilterSpecObject>> filters) {
  SVLogger::Log(3, "%s invoked", "Export");
  if (filters.empty()) return ExportDocument().Finish();
  const std::shared_ptr<SchemaObjectCache> cache = KorvoSchemaStore::SchemaStore::GetCache();
  ExportPlan plan;
  for (const auto& filter : filters) {
    if (IsNull(filter, "Export")) continue;
    SetvaultObjectId type = filter->GetSetvaultObjectId();
    type.instanceId.clear();
    auto schema = cache->GetSchemaObject(type.component, type.group, type.key);
    CheckSchema(type, schema);
    TypeExport& entry = plan[type];
    entry.schema = std::move(schema);
    entry.filters.push_back(filter);
  }
  return ExportPlanned(plan);
}

std::string ExportStore() {
  SVLogger::Log(3, "%s invoked", "ExportStore");
  ExportPlan plan;
  KorvoSchemaStore::SchemaStore::GetCache()->ForEach(
      [&plan](const std::shared_ptr<SchemaObject>& schema) {
        plan[SetvaultObjectId(schema->GetKey(), schema->GetGroup(), schema->GetComponent())]
            .schema = schema;
      });
  return ExportPlanned(plan);
}

void SetExportTypeHookForTesting(std::function<void(const SetvaultObjectId&)> hook) {
  TypeHook() = std::move(hook);
}

}  // namespace KorvoSetvault
