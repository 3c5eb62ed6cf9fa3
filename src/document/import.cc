// Import of configuration documents.
#include <rapidjson/error/en.h>

#include <set>

#include "db/config_writes.h"
#include "document/config_document.h"
#include "document/json_parse.h"
#include "document/setvault_document.h"
#include "model/setvault_object_impl.h"
#include "setvault/logger.h"
#include "store/setvault_impl.h"
#include "store/transaction_scope.h"
#include "validation/cleanup.h"
#include "validation/schema_validation.h"

namespace KorvoSetvault {
namespace {

using KorvoSchemaStore::SchemaObject;
using KorvoSchemaStore::SchemaObjectCache;

std::string Text(const JsonValue& name) {
  return std::string(name.GetString(), name.GetStringLength());
}

std::string Pointer(const std::vector<std::string>& tokens) {
  std::string pointer;
  for (const std::string& token : tokens)
    pointer += "/" + SetvaultDocument::EscapePointerToken(token);
  return pointer;
}

// Checks that the validator leaves to the import: a name given twice on one
// of the three levels (the parser keeps both, so one would be lost), and an
// empty instance id (the id of a singleton row). Levels that are not objects
// are left to the validator.
void CheckStructure(const JsonValue& root, const SchemaObjectCache& cache,
                    std::vector<ErrorInfo>& errors) {
  auto members = [&errors](const JsonValue& level, std::vector<std::string> path, auto&& visit) {
    if (!level.IsObject()) return;
    std::set<std::string> seen;
    for (const auto& member : level.GetObject()) {
      path.push_back(Text(member.name));
      if (!seen.insert(path.back()).second) {
        errors.push_back({Pointer(path), "member given more than once"});
      } else {
        visit(member.value, path);
      }
      path.pop_back();
    }
  };
  members(root, {}, [&](const JsonValue& groups, const std::vector<std::string>& c) {
    members(groups, c, [&](const JsonValue& keys, const std::vector<std::string>& g) {
      members(keys, g, [&](const JsonValue& data, const std::vector<std::string>& k) {
        auto schema = cache.GetSchemaObject(k[0], k[1], k[2]);
        if (!schema || !schema->IsNonSingleton() || !data.IsArray()) return;
        const std::string id_member = schema->GetInstanceIdProperty();
        for (rapidjson::SizeType i = 0; i < data.Size(); ++i) {
          const JsonValue& instance = data[i];
          if (!instance.IsObject()) continue;
          auto id = instance.FindMember(id_member.c_str());
          if (id != instance.MemberEnd() && id->value.IsString() &&
              id->value.GetStringLength() == 0) {
            errors.push_back({Pointer({k[0], k[1], k[2], std::to_string(i), id_member}),
                              "instance id must not be empty"});
          }
        }
      });
    });
  });
}

std::shared_ptr<SetvaultObject> MakeObject(SetvaultObjectId id,
                                           const std::shared_ptr<JsonDoc>& view,
                                           const std::shared_ptr<SchemaObject>& schema) {
  SetvaultObjectImpl::Parts parts;
  parts.id = std::move(id);
  parts.document = view;
  parts.schema = schema;
  return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(std::move(parts)));
}

JsonNode Step(const std::string& name) {
  JsonNode node;
  node.name = name;
  return node;
}

// One object per singleton key and per instance, each a view into `doc`.
void CollectObjects(const std::shared_ptr<JsonDoc>& doc, const SchemaObjectCache& cache,
                    DocumentObjectMap& map) {
  for (const auto& component : doc->GetJsonValuePtr()->GetObject()) {
    const std::string c = Text(component.name);
    auto component_view = doc->MakeView(Step(c));
    for (const auto& group : component.value.GetObject()) {
      const std::string g = Text(group.name);
      auto group_view = component_view->MakeView(Step(g));
      for (const auto& key : group.value.GetObject()) {
        const std::string k = Text(key.name);
        auto schema = cache.GetSchemaObject(c, g, k);
        if (!schema->IsNonSingleton()) {
          map[SetvaultObjectId(k, g, c)] =
              MakeObject(SetvaultObjectId(k, g, c), group_view->MakeView(Step(k)), schema);
          continue;
        }
        const std::string id_member = schema->GetInstanceIdProperty();
        for (rapidjson::SizeType i = 0; i < key.value.Size(); ++i) {
          SetvaultObjectId id(k, g, c, GetInstanceIdFromValue(key.value[i], schema));
          JsonNode step = Step(k);
          step.instanceKey = id_member;
          step.instanceId = id.instanceId;
          step.index = i;
          step.hasIndex = true;
          auto object = MakeObject(id, group_view->MakeView(std::move(step)), schema);
          map[std::move(id)] = std::move(object);
        }
      }
    }
  }
}

}  // namespace

bool GetSvoidObjMapFromDocument(const std::string& text, DocumentObjectMap& map,
                                const std::shared_ptr<SchemaObjectCache>& cache,
                                std::vector<ErrorInfo>& errors) {
  std::shared_ptr<JsonDoc> doc = CreateDocument();
  JsonDocument& document = doc->GetDocument();
  if (!ParseJsonText(text, document)) {
    std::string why = "not valid JSON";
    if (document.HasParseError()) {
      why += std::string(" at offset ") + std::to_string(document.GetErrorOffset()) + ": " +
             rapidjson::GetParseError_En(document.GetParseError());
    } else {
      why += ": a NUL byte, or nesting deeper than the parser allows";
    }
    SVLogger::Log(0, "Failed parsing input docString: %s", why.c_str());
    errors.push_back({"/", why});
    return false;
  }
  if (!document.IsObject()) {
    SVLogger::Log(0, "Imported document is not of type object.");
  } else {
    CheckStructure(document, *cache, errors);
  }
  if (!ValidateImportDocument(document, cache, errors)) return false;
  CollectObjects(doc, *cache, map);
  return true;
}

void UpdateConfigTypeMap(ConfigTypeMap& typeMap, const std::shared_ptr<SetvaultObject>& object) {
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  typeMap[SetvaultObjectId(id.key, id.group, id.component)][id.instanceId] = object;
}

bool Import(const std::string& document, std::vector<ErrorInfo>& errors) {
  SVLogger::Log(3, "%s invoked", "Import");
  const std::shared_ptr<SchemaObjectCache> cache = KorvoSchemaStore::SchemaStore::GetCache();
  DocumentObjectMap objects;
  if (!GetSvoidObjMapFromDocument(document, objects, cache, errors)) return false;
  if (objects.empty()) {
    SVLogger::Log(3, "Found nothing to import from document");
    return true;
  }
  ConfigTypeMap types;
  for (const auto& entry : objects) UpdateConfigTypeMap(types, entry.second);
  const auto conn = GetDBStore(DBStore::kConfigStore, true);
  RunUnderTransaction(conn, "Import", [&] {
    for (const auto& [type, instances] : types) {
      auto schema = cache->GetSchemaObject(type.component, type.group, type.key);
      // Rows replaced keep their creation time and count their revision on.
      const RevisionMap history = ReadRevisionMap(type, conn);
      DeleteInstancesInternal(type, conn);
      std::vector<std::shared_ptr<SetvaultObject>> list;
      list.reserve(instances.size());
      for (const auto& entry : instances) list.push_back(entry.second);
      SetInstancesInternal(list, USERDATA_CONTEXT{}, schema, conn, &history);
    }
  });
  return true;
}

}  // namespace KorvoSetvault
