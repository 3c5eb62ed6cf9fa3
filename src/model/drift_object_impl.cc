#include "model/drift_object_impl.h"

#include <algorithm>
#include <cstring>

#include "document/setvault_document.h"
#include "setvault/exceptions.h"
#include "setvault/logger.h"

namespace KorvoSetvault {

const char kDriftSet[] = "SET";
const char kDriftAdd[] = "ADD";
const char kDriftDelete[] = "DELETE";
const char kDriftInstanceId[] = "INSTANCEID";

namespace {

bool StringEquals(const JsonValue& value, const std::string& text) {
  return value.IsString() && value.GetStringLength() == text.size() &&
         std::memcmp(value.GetString(), text.data(), text.size()) == 0;
}

}  // namespace

DriftObject::~DriftObject() = default;

DriftObjectImpl::DriftObjectImpl(const SetvaultObjectId& id, const std::string& operation,
                                 const std::string& json)
    : id_(id), operation_(operation), document_(CreateDocumentFromString(json)) {}

DriftObjectImpl::DriftObjectImpl(const SetvaultObjectId& id, const std::string& operation,
                                 const JsonValue& description)
    : id_(id), operation_(operation), document_(CreateDocument()) {
  document_->GetDocument().CopyFrom(description, document_->GetAllocator());
}

DriftObjectImpl::~DriftObjectImpl() = default;

std::vector<std::pair<std::string, std::string>> DriftObjectImpl::Get() const {
  std::vector<std::pair<std::string, std::string>> properties;
  for (const auto& member : document_->GetDocument().GetObject()) {
    std::string name(member.name.GetString(), member.name.GetStringLength());
    std::string operation = member.value.IsString()
                                ? std::string(member.value.GetString(), member.value.GetStringLength())
                                : std::string(kDriftSet);
    properties.emplace_back(std::move(name), std::move(operation));
  }
  return properties;
}

const JsonValue* DriftObjectImpl::FindPart(const std::string& key) const {
  const JsonValue& root = document_->GetDocument();
  if (!SetvaultDocument::ValueExists(root, key.c_str())) {
    SVLogger::Log(0, "property %s is not in drift", key.c_str());
    return nullptr;
  }
  return &root.FindMember(key.c_str())->value;
}

std::shared_ptr<DriftObject> DriftObjectImpl::MakePart(const std::string& key,
                                                       const std::string& instance_id,
                                                       const std::string& operation,
                                                       const JsonValue& description) const {
  SetvaultObjectId part_id(key, id_.group, id_.component, instance_id);
  return std::make_shared<DriftObjectImpl>(part_id, operation, description);
}

std::shared_ptr<DriftObject> DriftObjectImpl::GetSubObject(const SubObjectId& id) const {
  const JsonValue* part = FindPart(id.key);
  if (part == nullptr) return nullptr;
  if (id.instanceId.empty()) {
    if (part->IsArray()) {
      ThrowException<SetvaultException, const char*>(SV_ERR_SUBOBJECT_NEEDS_INSTANCE,
                                                     id.toString().c_str());
    }
    return MakePart(id.key, "", kDriftSet, *part);
  }
  // A whole instance list that was added or removed.
  if (StringEquals(*part, kDriftAdd) || StringEquals(*part, kDriftDelete)) {
    JsonValue empty(rapidjson::kObjectType);
    return MakePart(id.key, id.instanceId, std::string(part->GetString()), empty);
  }
  if (!part->IsArray()) {
    ThrowException<SetvaultException, const char*>(SV_ERR_SUBOBJECT_NOT_ARRAY,
                                                   id.toString().c_str());
  }
  for (const JsonValue& element : part->GetArray()) {
    if (element.IsObject() && SetvaultDocument::ValueExists(element, kDriftInstanceId) &&
        StringEquals(element.FindMember(kDriftInstanceId)->value, id.instanceId)) {
      return MakePart(id.key, id.instanceId, kDriftSet, element);
    }
  }
  SVLogger::Log(0, "subobject %s is not in drift", id.toString().c_str());
  return nullptr;
}

std::vector<std::shared_ptr<DriftObject>> DriftObjectImpl::GetSubObjectInstances(
    const SubObjectId& id) const {
  std::vector<std::shared_ptr<DriftObject>> instances;
  const JsonValue* part = FindPart(id.key);
  if (part == nullptr) return instances;
  // Only an array of instance descriptions, each an object with a string id,
  // has instances; anything else is refused before a part is made.
  auto is_instance = [](const JsonValue& element) {
    if (!element.IsObject()) return false;
    auto instance_id = element.FindMember(kDriftInstanceId);
    return instance_id != element.MemberEnd() && instance_id->value.IsString();
  };
  if (!part->IsArray() || !std::all_of(part->Begin(), part->End(), is_instance)) {
    ThrowException<SetvaultException, const char*>(SV_ERR_SUBOBJECT_INSTANCES,
                                                   id.toString().c_str());
  }
  for (const JsonValue& element : part->GetArray()) {
    const JsonValue& instance_id = element[kDriftInstanceId];
    instances.push_back(MakePart(
        id.key, std::string(instance_id.GetString(), instance_id.GetStringLength()), kDriftSet,
        element));
  }
  return instances;
}

std::string DriftObjectImpl::GetData() const {
  return SetvaultDocument::SerializeValue(document_->GetDocument());
}

std::shared_ptr<DriftObject> CreateDriftObject(const SetvaultObjectId& id, const std::string& json,
                                               std::string operation) {
  return std::make_shared<DriftObjectImpl>(id, operation, json);
}

}  // namespace KorvoSetvault
