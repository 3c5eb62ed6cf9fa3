// Drift between desired and current configuration, built as drift
// descriptions (see setvault/drift_object.h) member by member.
#include "setvault/drift.h"

#include <map>
#include <set>
#include <string>

#include "document/config_document.h"
#include "model/drift_object_impl.h"
#include "model/setvault_object_impl.h"
#include "schema/schema_store.h"

namespace KorvoSetvault {
namespace {

std::string Text(const JsonValue& value) {
  return std::string(value.GetString(), value.GetStringLength());
}

// The instances of `array` by the string in their member `id_member`, or
// false when some element is not an object with such an id (or an id repeats).
bool IndexInstances(const JsonValue& array, const char* id_member,
                    std::map<std::string, const JsonValue*>* index) {
  for (const JsonValue& element : array.GetArray()) {
    if (!element.IsObject()) return false;
    auto id = element.FindMember(id_member);
    if (id == element.MemberEnd() || !id->value.IsString()) return false;
    if (!index->emplace(Text(id->value), &element).second) return false;
  }
  return true;
}

// Every member of `data` marked with `operation`.
JsonValue MarkAll(const JsonValue& data, const char* operation, JsonAllocator& allocator) {
  JsonValue description(rapidjson::kObjectType);
  for (const auto& member : data.GetObject()) {
    description.AddMember(JsonValue(member.name, allocator), JsonValue(operation, allocator),
                          allocator);
  }
  return description;
}

JsonValue DescribeMembers(const JsonValue& desired, const JsonValue& current,
                          const SetvaultObjectImpl* type, JsonAllocator& allocator);

// The description of an array of instances that differ, or a null value when
// the instances cannot be matched by id (the caller then marks the member).
JsonValue DescribeInstances(const JsonValue& desired, const JsonValue& current,
                            const char* id_member, JsonAllocator& allocator) {
  std::map<std::string, const JsonValue*> wanted;
  std::map<std::string, const JsonValue*> present;
  if (!IndexInstances(desired, id_member, &wanted) ||
      !IndexInstances(current, id_member, &present)) {
    return JsonValue();
  }
  JsonValue instances(rapidjson::kArrayType);
  auto add = [&](const std::string& id, JsonValue description) {
    if (description.MemberCount() == 0) return;
    JsonValue entry(rapidjson::kObjectType);
    entry.AddMember(JsonValue(kDriftInstanceId, allocator), JsonValue(id.c_str(), allocator),
                    allocator);
    for (auto& member : description.GetObject()) {
      if (member.name != kDriftInstanceId) entry.AddMember(member.name, member.value, allocator);
    }
    instances.PushBack(entry, allocator);
  };
  for (const auto& [id, instance] : wanted) {
    auto stored = present.find(id);
    add(id, stored == present.end()
                ? MarkAll(*instance, kDriftAdd, allocator)
                : DescribeMembers(*instance, *stored->second, nullptr, allocator));
  }
  for (const auto& [id, instance] : present) {
    if (wanted.count(id) == 0) add(id, MarkAll(*instance, kDriftDelete, allocator));
  }
  return instances;
}

// The drift description of `current` against `desired`, both JSON objects.
// `type` (null below the top level) names the members that are instance arrays.
JsonValue DescribeMembers(const JsonValue& desired, const JsonValue& current,
                          const SetvaultObjectImpl* type, JsonAllocator& allocator) {
  JsonValue description(rapidjson::kObjectType);
  for (const auto& member : desired.GetObject()) {
    auto stored = current.FindMember(member.name);
    JsonValue part(kDriftSet, allocator);
    if (stored == current.MemberEnd()) {
      part.SetString(kDriftAdd, allocator);
    } else if (stored->value == member.value) {
      continue;
    } else if (member.value.IsObject() && stored->value.IsObject()) {
      part = DescribeMembers(member.value, stored->value, nullptr, allocator);
    } else if (member.value.IsArray() && stored->value.IsArray() && type != nullptr) {
      const JsonValue* id_member = type->InstanceIdMember(Text(member.name));
      if (id_member != nullptr && id_member->IsString()) {
        JsonValue instances =
            DescribeInstances(member.value, stored->value, id_member->GetString(), allocator);
        if (!instances.IsNull()) part = instances;
      }
    }
    description.AddMember(JsonValue(member.name, allocator), part, allocator);
  }
  for (const auto& member : current.GetObject()) {
    if (!desired.HasMember(member.name)) {
      description.AddMember(JsonValue(member.name, allocator), JsonValue(kDriftDelete, allocator),
                            allocator);
    }
  }
  return description;
}

std::string TypeName(const SetvaultObjectId& id) {
  return id.component + "\n" + id.group + "\n" + id.key;
}

// The types (component, group, key) a document names, without instance ids.
std::set<std::string> TypesOf(const std::string& document) {
  std::set<std::string> types;
  auto doc = CreateDocumentFromString(document);
  const JsonValue& root = *doc->GetJsonValuePtr();
  if (!root.IsObject()) return types;
  for (const auto& component : root.GetObject()) {
    if (!component.value.IsObject()) continue;
    for (const auto& group : component.value.GetObject()) {
      if (!group.value.IsObject()) continue;
      for (const auto& key : group.value.GetObject()) {
        types.insert(Text(component.name) + "\n" + Text(group.name) + "\n" + Text(key.name));
      }
    }
  }
  return types;
}

DocumentObjectMap ReadDocument(const std::string& text,
                               const std::shared_ptr<KorvoSchemaStore::SchemaObjectCache>& cache,
                               const char* which) {
  DocumentObjectMap objects;
  std::vector<ErrorInfo> errors;
  if (!GetSvoidObjMapFromDocument(text, objects, cache, errors)) {
    throw ValidationException(
        SV_ERR_GENERIC, (std::string("The ") + which + " document is refused.").c_str(), errors);
  }
  return objects;
}

}  // namespace

std::shared_ptr<DriftObject> ComputeDrift(const std::shared_ptr<SetvaultObject>& desired,
                                          const std::shared_ptr<SetvaultObject>& current) {
  if (!desired && !current) return nullptr;
  if (desired && current && desired->GetSetvaultObjectId() != current->GetSetvaultObjectId()) {
    throw InvalidArgumentException(SV_ERR_MIXED_TYPES,
                                   "Drift is computed between two versions of one object.");
  }
  const SetvaultObject& named = desired ? *desired : *current;
  auto doc = CreateDocument();
  JsonAllocator& allocator = doc->GetAllocator();
  auto wanted = CreateDocumentFromString(desired ? desired->GetData() : "{}");
  auto present = CreateDocumentFromString(current ? current->GetData() : "{}");
  JsonValue description = DescribeMembers(*wanted->GetJsonValuePtr(), *present->GetJsonValuePtr(),
                                          named.GetImpl().get(), allocator);
  if (description.MemberCount() == 0) return nullptr;
  const char* operation = !current ? kDriftAdd : !desired ? kDriftDelete : kDriftSet;
  return std::make_shared<DriftObjectImpl>(named.GetSetvaultObjectId(), operation, description);
}

std::vector<std::shared_ptr<DriftObject>> ComputeDocumentDrift(const std::string& desired,
                                                               const std::string& current) {
  auto cache = KorvoSchemaStore::SchemaStore::GetCache();
  const DocumentObjectMap wanted = ReadDocument(desired, cache, "desired");
  const DocumentObjectMap present = ReadDocument(current, cache, "current");
  const std::set<std::string> types = TypesOf(desired);
  // Both maps are in document order; walk their union in that order.
  std::map<SetvaultObjectId, int, DocumentOrder> ids;
  for (const auto& entry : wanted) ids.emplace(entry.first, 0);
  for (const auto& entry : present) {
    if (types.count(TypeName(entry.first)) > 0) ids.emplace(entry.first, 0);
  }
  std::vector<std::shared_ptr<DriftObject>> drifts;
  for (const auto& entry : ids) {
    auto want = wanted.find(entry.first);
    auto have = present.find(entry.first);
    auto drift = ComputeDrift(want == wanted.end() ? nullptr : want->second,
                              have == present.end() ? nullptr : have->second);
    if (drift) drifts.push_back(drift);
  }
  return drifts;
}

}  // namespace KorvoSetvault
