#include "validation/cleanup.h"

#include <algorithm>
#include <cstring>

#include "document/setvault_document.h"
#include "model/setvault_object_impl.h"
#include "schema/schema_definition.h"
#include "setvault/exceptions.h"
#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

constexpr const char* kNonUserTags[] = {"solutionUser", "vital", "cached"};

// True unless the node carries "solutionUser", "vital" or "cached" set to
// true. The tags must be booleans (GetBool asserts: 1082).
bool IsUserDataNode(const JsonValue& node) {
  for (const char* tag : kNonUserTags) {
    auto member = node.FindMember(tag);
    if (member != node.MemberEnd() && member->value.GetBool()) return false;
  }
  return true;
}

// True when the node's "type" is `type`. "type" is required: an object node
// without one asserts. A boolean schema (true or false) has no type.
bool HasType(const JsonValue& schema_node, const char* type) {
  if (schema_node.IsBool()) return false;
  const JsonValue& value = schema_node["type"];
  return value.IsString() && std::strcmp(value.GetString(), type) == 0;
}

// True when the config kind of `object`'s type exempts it from clean-up.
bool SkipsCleanup(const SetvaultObjectId& id,
                  const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema) {
  const int kind = schema->GetConfigKind();
  if (kind == 1 || kind == 3 || kind == 4) return true;
  if (kind != 5) return false;
  const std::vector<std::string> non_user = schema->GetNonUserInstanceIds();
  return std::find(non_user.begin(), non_user.end(), id.instanceId) != non_user.end();
}

void CleanupValue(JsonValue& data, const JsonValue& schema_node);

// Cleans the elements of an instance array member; erases empty ones.
void CleanupInstances(JsonValue& array, const JsonValue& items, const char* name) {
  for (rapidjson::SizeType i = 0; i < array.Size();) {
    JsonValue& element = array[i];
    if (!element.IsObject()) {  // not an instance: data is never an error here
      ++i;
      continue;
    }
    CleanupValue(element, items);
    if (element.ObjectEmpty()) {
      SVLogger::Log(2, "Erasing empty instance of array prop %s", name);
      array.Erase(array.Begin() + i);
    } else {
      ++i;
    }
  }
}

void CleanupValue(JsonValue& data, const JsonValue& schema_node) {
  const JsonValue& properties = schema_node["properties"];
  properties.GetObject();  // must be an object: asserts otherwise
  for (auto member = data.MemberBegin(); member != data.MemberEnd();) {
    auto described = properties.FindMember(member->name);
    if (described == properties.MemberEnd()) {
      ++member;
      continue;
    }
    const JsonValue& property = described->value;
    const char* name = member->name.GetString();
    JsonValue& value = member->value;
    bool erase = false;
    const bool is_object_type = HasType(property, "object");
    if (value.IsObject() && is_object_type && IsUserDataNode(property)) {
      CleanupValue(value, property);
      if (value.ObjectEmpty()) {
        SVLogger::Log(2, "Erasing empty object prop %s", name);
        erase = true;
      }
    } else if (value.IsArray() && HasType(property, "array")) {
      const JsonValue& items = property["items"];  // required: asserts when missing
      if (HasType(items, "object") && IsUserDataNode(items)) {
        CleanupInstances(value, items, name);
        if (value.Empty()) {
          SVLogger::Log(2, "Erasing empty array prop %s", name);
          erase = true;
        }
      }
    }
    member = erase ? data.EraseMember(member) : member + 1;
  }
  if (IsUserDataNode(schema_node) && data.MemberCount() == 1 &&
      SetvaultDocument::ValueExists(data, KorvoSchemaStore::kGeneratedIdMember)) {
    SVLogger::Log(2, "Erasing sv_generated_id since it is the only remaining property in the object");
    data.RemoveAllMembers();
  }
}

}  // namespace

void CleanupObject(const std::shared_ptr<SetvaultObject>& object,
                   const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema) {
  const SetvaultObjectId& id = object->GetSetvaultObjectId();
  if (SkipsCleanup(id, schema)) {
    SVLogger::Log(3, "Skipping empty object check since non-user config: %s", id.toString().c_str());
    return;
  }
  SVLogger::Log(3, "Checking for empty objects and arrays in %s object", id.toString().c_str());
  JsonValue& data = object->GetImpl()->Root();
  if (!data.IsObject()) return;
  CleanupValue(data, schema->GetSchemaJson());
}

void ClearGeneratedInstanceId(JsonValue* value) {
  if (value->IsArray()) {
    for (JsonValue& element : value->GetArray()) ClearGeneratedInstanceId(&element);
  } else if (value->IsObject()) {
    if (SetvaultDocument::ValueExists(*value, KorvoSchemaStore::kGeneratedIdMember)) {
      value->RemoveMember(KorvoSchemaStore::kGeneratedIdMember);
    }
    for (auto& member : value->GetObject()) ClearGeneratedInstanceId(&member.value);
  }
}

std::string GetInstanceIdFromValue(const JsonValue& value,
                                   const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema) {
  const std::string name = schema->GetInstanceIdProperty();
  if (name.empty()) return std::string();
  if (value.IsObject()) {
    auto member = value.FindMember(name.c_str());
    if (member != value.MemberEnd() && member->value.IsString()) {
      return std::string(member->value.GetString(), member->value.GetStringLength());
    }
  }
  ThrowException<SetvaultException, const char*>(SV_ERR_INSTANCE_ID_VALUE, name.c_str());
}

}  // namespace KorvoSetvault
