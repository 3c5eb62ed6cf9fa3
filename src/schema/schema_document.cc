// GenerateSchemaDocument: one JSON schema for a whole import/export document.
#include "schema/schema_store.h"
#include "setvault/error_codes.h"
#include "setvault/format.h"
#include "setvault/object_id.h"

namespace KorvoSchemaStore {
namespace {

using KorvoSetvault::JsonAllocator;
using KorvoSetvault::JsonValue;

// One JSON Pointer token: "/" then the name with "~" as "~0" and "/" as "~1".
void AppendPointerToken(std::string& pointer, const char* name, size_t length) {
  pointer.push_back('/');
  for (size_t i = 0; i < length; ++i) {
    if (name[i] == '~') {
      pointer.append("~0");
    } else if (name[i] == '/') {
      pointer.append("~1");
    } else {
      pointer.push_back(name[i]);
    }
  }
}

std::string Text(const JsonValue& name) {
  return std::string(name.GetString(), name.GetStringLength());
}

// {"type": "object", "properties": {}}
JsonValue MakeObjectSchema(JsonAllocator& allocator) {
  JsonValue schema(rapidjson::kObjectType);
  schema.AddMember("type", "object", allocator);
  schema.AddMember("properties", JsonValue(rapidjson::kObjectType), allocator);
  return schema;
}

// Adds `schema` under `name` to the "properties" of `parent` unless a member
// of that name (a duplicate name in the document) is already there.
void AddProperty(JsonValue& parent, const JsonValue& name, JsonValue& schema,
                 JsonAllocator& allocator) {
  JsonValue& properties = parent["properties"];
  if (properties.FindMember(name) != properties.MemberEnd()) return;
  properties.AddMember(JsonValue(name, allocator), schema, allocator);
}

void AddFinding(KorvoSetvault::JsonDocument& result, const std::string& field,
                const std::string& error) {
  JsonAllocator& allocator = result.GetAllocator();
  JsonValue finding(rapidjson::kObjectType);
  finding.AddMember("field", JsonValue(field.c_str(), allocator), allocator);
  finding.AddMember("error", JsonValue(error.c_str(), allocator), allocator);
  result.PushBack(finding, allocator);
}

// The schema of one key: the type's schema, or an array of instances of it.
JsonValue MakeKeySchema(const SchemaObject& schema, JsonAllocator& allocator) {
  JsonValue type_schema(schema.GetSchemaJson(), allocator);
  if (!schema.IsNonSingleton()) return type_schema;
  JsonValue array(rapidjson::kObjectType);
  array.AddMember("type", "array", allocator);
  array.AddMember("instanceIdProperty",
                  JsonValue(schema.GetInstanceIdProperty().c_str(), allocator), allocator);
  array.AddMember("items", type_schema, allocator);
  return array;
}

struct Generator {
  const std::shared_ptr<SchemaObjectCache>& cache;
  JsonAllocator& allocator;
  KorvoSetvault::JsonDocument& result;

  JsonValue KeySchema(const JsonValue& component, const JsonValue& group, const JsonValue& key) {
    std::shared_ptr<SchemaObject> schema;
    if (cache) schema = cache->GetSchemaObject(Text(component), Text(group), Text(key));
    if (schema) return MakeKeySchema(*schema, allocator);
    std::string field;
    AppendPointerToken(field, component.GetString(), component.GetStringLength());
    AppendPointerToken(field, group.GetString(), group.GetStringLength());
    AppendPointerToken(field, key.GetString(), key.GetStringLength());
    const KorvoSetvault::SetvaultObjectId id(Text(key), Text(group), Text(component));
    AddFinding(result, field,
               KorvoSetvault::Format<const char*>(
                   KorvoSetvault::ErrorMessageForId(KorvoSetvault::SV_ERR_SCHEMA_NOT_FOUND),
                   id.toString().c_str()));
    return JsonValue(rapidjson::kObjectType);  // accepts anything; the finding reports it
  }

  JsonValue GroupSchema(const JsonValue& component, const JsonValue& group, const JsonValue& keys) {
    JsonValue schema = MakeObjectSchema(allocator);
    if (!keys.IsObject()) return schema;  // the validator reports the wrong type
    for (const auto& key : keys.GetObject()) {
      JsonValue key_schema = KeySchema(component, group, key.name);
      AddProperty(schema, key.name, key_schema, allocator);
    }
    return schema;
  }

  JsonValue ComponentSchema(const JsonValue& component, const JsonValue& groups) {
    JsonValue schema = MakeObjectSchema(allocator);
    if (!groups.IsObject()) return schema;
    for (const auto& group : groups.GetObject()) {
      JsonValue group_schema = GroupSchema(component, group.name, group.value);
      AddProperty(schema, group.name, group_schema, allocator);
    }
    return schema;
  }
};

}  // namespace

void GenerateSchemaDocument(const JsonValue& document,
                            const std::shared_ptr<SchemaObjectCache>& cache,
                            KorvoSetvault::JsonDocument& schemaDocument,
                            KorvoSetvault::JsonDocument& resultDocument) {
  if (!resultDocument.IsArray()) resultDocument.SetArray();
  JsonAllocator& allocator = schemaDocument.GetAllocator();
  schemaDocument.SetObject();
  schemaDocument.AddMember("type", "object", allocator);
  if (!document.IsObject()) return;
  schemaDocument.AddMember("properties", JsonValue(rapidjson::kObjectType), allocator);
  Generator generator{cache, allocator, resultDocument};
  for (const auto& component : document.GetObject()) {
    JsonValue component_schema = generator.ComponentSchema(component.name, component.value);
    AddProperty(schemaDocument, component.name, component_schema, allocator);
  }
}

}  // namespace KorvoSchemaStore
