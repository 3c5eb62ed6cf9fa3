#include "model/setvault_object_impl.h"

#include <cstring>

#include "document/setvault_document.h"
#include "document/value_limits.h"
#include "model/filter_match.h"
#include "setvault/exceptions.h"
#include "setvault/logger.h"
#include "setvault/setvault_object.h"
#include "validation/cleanup.h"
#include "validation/guards.h"

namespace KorvoSetvault {
namespace {

bool StringEquals(const JsonValue& value, const std::string& text) {
  return value.GetStringLength() == text.size() &&
         std::memcmp(value.GetString(), text.data(), text.size()) == 0;
}

JsonValue MakeString(const std::string& text, JsonAllocator& allocator) {
  return JsonValue(text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator);
}

// The position of the element of `array` whose member `id_member` equals
// `instance_id`; -1 when none. An element whose member is missing or not a
// string is a JSON error (1082).
long FindInstanceIndex(const JsonValue& array, const JsonValue& id_member,
                       const std::string& instance_id) {
  for (rapidjson::SizeType i = 0; i < array.Size(); ++i) {
    if (StringEquals(array[i][id_member], instance_id)) return static_cast<long>(i);
  }
  return -1;
}

void LogSubObjectCall(const char* operation, const SubObjectId& id) {
  SVLogger::Log(4, "%s : %s", operation, id.toString().c_str());
}

}  // namespace

std::shared_ptr<KorvoSchemaStore::SchemaObject> LookUpSchema(const SetvaultObjectId& id) {
  auto store = KorvoSchemaStore::SchemaStore::GetStore(false);
  return store ? store->GetSchemaObject(id.component, id.group, id.key) : nullptr;
}

SetvaultObjectImpl::SetvaultObjectImpl(const SetvaultObjectId& id)
    : StoreObjectImpl(id), top_level_id_(id) {
  LoadSchemaParts(true, true);
  SetInstanceIdFromSvoId();
}

SetvaultObjectImpl::SetvaultObjectImpl(Parts parts)
    : StoreObjectImpl(parts.id, parts.document ? parts.document : CreateDocument()),
      id_map_(std::move(parts.idMap)),
      top_level_id_(parts.topLevelId ? *parts.topLevelId : parts.id),
      index_(parts.index),
      schema_(std::move(parts.schema)),
      metadata_(std::move(parts.metadata)),
      defaults_(std::move(parts.defaults)) {
  if (!parts.document) GetDocument()->GetDocument().SetObject();
  LoadSchemaParts(parts.loadSchema, !parts.topLevelId);
}

SetvaultObjectImpl::~SetvaultObjectImpl() = default;

void SetvaultObjectImpl::LoadSchemaParts(bool load_schema, bool take_defaults) {
  if (!schema_ && load_schema) {
    schema_ = LookUpSchema(GetSetvaultObjectId());
    if (!schema_) ThrowSchemaNotFound(GetSetvaultObjectId());
  }
  if (!schema_) return;
  if (!id_map_) id_map_ = schema_->GetIdMap();
  if (!defaults_ && take_defaults) defaults_ = schema_->GetDefaults();
}

const JsonValue* SetvaultObjectImpl::GetValuePtrDefault(const char* key, bool& from_default) const {
  from_default = false;
  if (const JsonValue* own = GetValuePtr(key)) return own;
  if (!defaults_) return nullptr;
  const JsonValue& defaults = *defaults_->GetJsonValuePtr();
  if (!defaults.IsObject()) return nullptr;
  auto member = defaults.FindMember(key);
  if (member == defaults.MemberEnd() || member->value.IsNull()) return nullptr;
  from_default = true;
  return &member->value;
}

std::string SetvaultObjectImpl::GetData() const {
  auto scratch = CreateDocument();
  scratch->GetDocument().CopyFrom(Root(), scratch->GetAllocator());
  ClearGeneratedInstanceId(&scratch->GetDocument());
  return SetvaultDocument::SerializeValue(scratch->GetDocument());
}

std::string SetvaultObjectImpl::GetSerializedData() const { return StoreObjectImpl::GetData(); }

std::string SetvaultObjectImpl::GetIdMapStr() const {
  if (!id_map_) return "{}";
  return SetvaultDocument::SerializeValue(*id_map_->GetJsonValuePtr());
}

void SetvaultObjectImpl::SetValueEx(const char* key, const JsonValue& value) {
  if (key == nullptr) throw InvalidArgumentException(SV_ERR_GENERIC, "key cannot be null");
  CheckStorableValue(value, NestingLevelOf(*GetDocument()), key);
  JsonValue& root = Root();
  auto existing = root.FindMember(key);
  if (existing != root.MemberEnd() && SetvaultDocument::ValuesEqual(existing->value, value)) {
    return;
  }
  // Copy before removing: `value` may be (or lie inside) the member replaced.
  JsonAllocator& allocator = Allocator();
  JsonValue copy(value, allocator);
  if (existing != root.MemberEnd()) root.RemoveMember(existing);
  root.AddMember(MakeString(key, allocator), copy, allocator);
}

const JsonValue* SetvaultObjectImpl::InstanceIdMember(const std::string& key) const {
  if (!id_map_) return nullptr;
  const JsonValue& map = *id_map_->GetJsonValuePtr();
  if (!map.IsObject()) return nullptr;
  auto member = map.FindMember(key.c_str());
  return member == map.MemberEnd() ? nullptr : &member->value;
}

void SetvaultObjectImpl::SetInstanceIdFromSvoId() {
  const JsonValue* member = InstanceIdMember(GetSetvaultObjectId().key);
  if (member == nullptr) return;
  RequireCleanInstanceId(GetSetvaultObjectId());
  SetValue(member->GetString(), std::string_view(GetSetvaultObjectId().instanceId));
}

std::shared_ptr<SetvaultObjectImpl> SetvaultObjectImpl::MakeSubObjectPtr(
    const std::string& key, const JsonValue* instance_key, const std::string& instance_id,
    std::optional<uint64_t> index) const {
  JsonNode step;
  step.name = key;
  if (instance_key != nullptr) {
    step.instanceKey.assign(instance_key->GetString(), instance_key->GetStringLength());
    step.instanceId = instance_id;
  }
  if (index) {
    step.index = *index;
    step.hasIndex = true;
  }
  Parts parts;
  parts.id = SetvaultObjectId(key, GetSetvaultObjectId().group, GetSetvaultObjectId().component,
                              instance_id);
  parts.topLevelId = top_level_id_;
  parts.index = index;
  parts.document = GetDocument()->MakeView(step);
  parts.schema = schema_;
  parts.metadata.version = metadata_.version;
  parts.metadata.creationTime = metadata_.creationTime;
  parts.idMap = id_map_;  // and no defaults: those describe the top-level object only
  return std::make_shared<SetvaultObjectImpl>(std::move(parts));
}

std::shared_ptr<SetvaultObjectImpl> SetvaultObjectImpl::GetSubObject(const SubObjectId& id) const {
  LogSubObjectCall("GetSubObject", id);
  const JsonValue& root = Root();
  if (!SetvaultDocument::ValueExists(root, id.key.c_str())) {
    SVLogger::Log(4, "%s: Could not find key: %s", "GetSubObject", id.key.c_str());
    return nullptr;
  }
  const JsonValue& member = root.FindMember(id.key.c_str())->value;
  if (const JsonValue* id_member = InstanceIdMember(id.key)) {
    if (id.instanceId.empty()) {
      throw SetvaultException(
          SV_ERR_GENERIC, ("Non-Singleton object should contain instanceId: " + id.toString()).c_str());
    }
    const long position = FindInstanceIndex(member, *id_member, id.instanceId);
    if (position < 0) return nullptr;
    return MakeSubObjectPtr(id.key, id_member, id.instanceId, static_cast<uint64_t>(position));
  }
  if (!member.IsObject()) {
    throw InvalidArgumentException(SV_ERR_GENERIC,
                                   ("Not a singleton SubObject: " + id.toString()).c_str());
  }
  if (!id.instanceId.empty()) {
    throw SetvaultException(
        SV_ERR_GENERIC, ("Singleton object should not contain instanceId: " + id.toString()).c_str());
  }
  return MakeSubObjectPtr(id.key, nullptr, "", std::nullopt);
}

std::shared_ptr<SetvaultObjectImpl> SetvaultObjectImpl::CreateSubObject(const SubObjectId& id) {
  LogSubObjectCall("CreateSubObject", id);
  JsonValue& root = Root();
  JsonAllocator& allocator = Allocator();
  const bool exists = SetvaultDocument::ValueExists(root, id.key.c_str());
  const JsonValue* id_member = InstanceIdMember(id.key);
  // The new object sits one level deeper, two for an instance in its array.
  CheckStorableValue(JsonValue(rapidjson::kObjectType),
                     NestingLevelOf(*GetDocument()) + (id_member != nullptr ? 1 : 0),
                     id.key.c_str());
  if (id_member != nullptr) {
    if (id.instanceId.empty()) {
      throw SetvaultException(SV_ERR_GENERIC, "Non-Singleton object should contain instanceId");
    }
    if (exists && FindInstanceIndex(root[id.key.c_str()], *id_member, id.instanceId) >= 0) {
      throw SetvaultException(SV_ERR_GENERIC, "Object already exists.");
    }
    if (!exists) {
      root.AddMember(MakeString(id.key, allocator), JsonValue(rapidjson::kArrayType), allocator);
    }
    JsonValue& array = root[id.key.c_str()];
    JsonValue instance(rapidjson::kObjectType);
    instance.AddMember(JsonValue(*id_member, allocator), MakeString(id.instanceId, allocator),
                       allocator);
    array.PushBack(instance, allocator);
    return MakeSubObjectPtr(id.key, id_member, id.instanceId, array.Size() - 1);
  }
  if (exists) throw SetvaultException(SV_ERR_GENERIC, "Object already exists.");
  root.AddMember(MakeString(id.key, allocator), JsonValue(rapidjson::kObjectType), allocator);
  return MakeSubObjectPtr(id.key, nullptr, "", std::nullopt);
}

void SetvaultObjectImpl::DeleteSubObject(const SubObjectId& id) {
  LogSubObjectCall("DeleteSubObject", id);
  JsonValue& root = Root();
  if (!SetvaultDocument::ValueExists(root, id.key.c_str())) {
    SVLogger::Log(1, "%s: Could not find key: %s", "DeleteSubObject", id.key.c_str());
    return;
  }
  if (const JsonValue* id_member = InstanceIdMember(id.key)) {
    JsonValue& array = root[id.key.c_str()];
    const long position = FindInstanceIndex(array, *id_member, id.instanceId);
    if (position >= 0) array.Erase(array.Begin() + position);
    return;
  }
  root.RemoveMember(id.key.c_str());
}

std::vector<std::shared_ptr<SetvaultObjectImpl>> SetvaultObjectImpl::GetSubObjectInstances(
    const std::shared_ptr<FilterSpecObject>& filter) const {
  std::vector<std::shared_ptr<SetvaultObjectImpl>> instances;
  if (!filter) {
    SVLogger::Log(0, "%s called with no filter spec object", "GetSubObjectInstances");
    return instances;
  }
  const SubObjectId sub_id(filter->GetSetvaultObjectId());
  LogSubObjectCall("GetSubObjectInstances", sub_id);
  const JsonValue* id_member = InstanceIdMember(sub_id.key);
  if (id_member == nullptr) {
    throw SetvaultException(SV_ERR_SUBOBJECT_INSTANCES,
                            ("Not a non-singleton object:  " + sub_id.toString()).c_str());
  }
  const JsonValue& root = Root();
  if (!SetvaultDocument::ValueExists(root, sub_id.key.c_str())) {
    SVLogger::Log(4, "%s: Could not find key: %s", "GetSubObjectInstances", sub_id.key.c_str());
    return instances;
  }
  const JsonValue& array = root[sub_id.key.c_str()];
  for (rapidjson::SizeType i = 0; i < array.Size(); ++i) {
    const JsonValue& element_id = array[i][*id_member];
    const std::string instance_id(element_id.GetString(), element_id.GetStringLength());
    if (!sub_id.instanceId.empty() && instance_id != sub_id.instanceId) continue;
    instances.push_back(MakeSubObjectPtr(sub_id.key, id_member, instance_id, i));
  }
  return FilterSetvaultObjects(instances, filter);
}

void SetvaultObjectImpl::DeleteSubObjectInstances(const std::shared_ptr<FilterSpecObject>& filter) {
  if (!filter) {
    SVLogger::Log(0, "%s called with no filter spec object", "DeleteSubObjectInstances");
    return;
  }
  LogSubObjectCall("DeleteSubObjectInstances", SubObjectId(filter->GetSetvaultObjectId()));
  for (const auto& instance : GetSubObjectInstances(filter)) {
    DeleteSubObject(SubObjectId(instance->GetSetvaultObjectId()));
  }
}

std::string SetvaultObjectImpl::GetPath(const char* key) const {
  return GetDocument()->GetJsonPointer() + "/" +
         SetvaultDocument::EscapePointerToken(key != nullptr ? key : "");
}

std::vector<std::shared_ptr<SetvaultObjectImpl>> FilterSetvaultObjects(
    std::vector<std::shared_ptr<SetvaultObjectImpl>>& objects,
    const std::shared_ptr<FilterSpecObject>& filter) {
  return KeepMatching(objects, filter, [](const SetvaultObjectImpl& object) -> const JsonValue& {
    return object.Root();
  });
}

}  // namespace KorvoSetvault
