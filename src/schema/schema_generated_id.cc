#include "schema/schema_generated_id.h"

#include "document/setvault_document.h"
#include "schema/schema_definition.h"
#include "setvault/object_id.h"

namespace KorvoSetvault {
namespace {

bool GeneratesIds(const JsonValue& node) {
  auto flag = node.FindMember("generatedInstanceId");
  return flag != node.MemberEnd() && flag->value.IsBool() && flag->value.GetBool();
}

void PopulateArray(const JsonValue& schema, JsonValue& array, JsonAllocator& allocator) {
  auto items = schema.FindMember("items");
  if (items == schema.MemberEnd() || !items->value.IsObject()) return;
  const bool generate = GeneratesIds(schema);
  for (JsonValue& element : array.GetArray()) {
    if (generate && element.IsObject() &&
        !SetvaultDocument::ValueExists(element, KorvoSchemaStore::kGeneratedIdMember)) {
      element.AddMember(JsonValue(KorvoSchemaStore::kGeneratedIdMember, allocator),
                        JsonValue(GenerateInstanceId().c_str(), allocator), allocator);
    }
    PopulateGeneratedInstanceId(items->value, element, allocator);
  }
}

void PopulateObject(const JsonValue& schema, JsonValue& object, JsonAllocator& allocator) {
  auto properties = schema.FindMember("properties");
  if (properties == schema.MemberEnd() || !properties->value.IsObject()) return;
  for (auto& member : object.GetObject()) {
    auto property = properties->value.FindMember(member.name);
    if (property != properties->value.MemberEnd()) {
      PopulateGeneratedInstanceId(property->value, member.value, allocator);
    }
  }
}

}  // namespace

void PopulateGeneratedInstanceId(const JsonValue& schema, JsonValue& value,
                                 JsonAllocator& allocator) {
  if (!schema.IsObject()) return;
  if (value.IsObject()) {
    PopulateObject(schema, value, allocator);
  } else if (value.IsArray()) {
    PopulateArray(schema, value, allocator);
  }
}

void PopulateGeneratedInstanceId(const JsonValue& schema, JsonDocument& document) {
  PopulateGeneratedInstanceId(schema, document, document.GetAllocator());
}

void PopulateGeneratedInstanceId(const JsonValue& schema, const JsonDoc& doc) {
  PopulateGeneratedInstanceId(schema, *doc.GetJsonValuePtr(), doc.GetAllocator());
}

}  // namespace KorvoSetvault
