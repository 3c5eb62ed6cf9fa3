#include "model/filter_match.h"

#include "document/setvault_document.h"
#include "model/filter_spec_object_impl.h"
#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

const JsonValue* FindMember(const JsonValue& object, const JsonValue& name) {
  auto member = object.FindMember(name);
  return member == object.MemberEnd() ? nullptr : &member->value;
}

const JsonValue* PropertySchema(const JsonValue& schema, const JsonValue& name) {
  if (!schema.IsObject()) return nullptr;
  const JsonValue* properties = FindMember(schema, JsonValue("properties"));
  if (properties == nullptr || !properties->IsObject()) return nullptr;
  return FindMember(*properties, name);
}

// The instance id member an array schema names, or null.
const JsonValue* InstanceIdProperty(const JsonValue& array_schema) {
  if (!array_schema.IsObject()) return nullptr;
  const JsonValue* name = FindMember(array_schema, JsonValue("instanceIdProperty"));
  return name != nullptr && name->IsString() ? name : nullptr;
}

// The element of `array` whose `id_name` member equals `id`, or null.
const JsonValue* FindInstance(const JsonValue& array, const JsonValue& id_name,
                              const JsonValue& id) {
  for (const JsonValue& element : array.GetArray()) {
    if (!element.IsObject()) continue;
    const JsonValue* element_id = FindMember(element, id_name);
    if (element_id != nullptr && *element_id == id) return &element;
  }
  return nullptr;
}

bool InstancesAreSubset(const JsonValue& object_array, const JsonValue& subset_array,
                        const JsonValue& array_schema, const JsonValue& id_name) {
  const JsonValue* items = array_schema.IsObject()
                               ? FindMember(array_schema, JsonValue("items"))
                               : nullptr;
  for (const JsonValue& wanted : subset_array.GetArray()) {
    const JsonValue* id = wanted.IsObject() ? FindMember(wanted, id_name) : nullptr;
    const JsonValue* found =
        id != nullptr ? FindInstance(object_array, id_name, *id) : nullptr;
    if (found == nullptr) {
      SVLogger::Log(0, "obj is not subset, instanceId %s did not match",
                    id != nullptr && id->IsString() ? id->GetString() : "(none)");
      return false;
    }
    if (items != nullptr && !IsSubsetBySchema(*found, wanted, *items)) return false;
  }
  return true;
}

}  // namespace

const JsonValue& FilterData(const FilterSpecObject& filter) { return filter.GetImpl()->Root(); }

bool svoMatchesFilter(const JsonValue& object, const JsonValue& filter) {
  for (const auto& member : filter.GetObject()) {
    const JsonValue* actual = FindMember(object, member.name);
    if (actual == nullptr) return false;
    if (actual->IsArray()) {
      SVLogger::Log(0, "%s: Non-Singleton SubObject filtering not supported", "svoMatchesFilter");
      return false;
    }
    const JsonValue& wanted = member.value;
    if (wanted.IsObject()) {
      if (!actual->IsObject() || !svoMatchesFilter(*actual, wanted)) return false;
    } else if (actual->IsObject() || !SetvaultDocument::ValuesEqual(*actual, wanted)) {
      return false;
    }
  }
  return true;
}

bool IsSubsetBySchema(const JsonValue& object, const JsonValue& subset, const JsonValue& schema) {
  for (const auto& member : subset.GetObject()) {
    const JsonValue* property = PropertySchema(schema, member.name);
    if (property == nullptr) continue;  // not described: not compared
    const JsonValue* actual = FindMember(object, member.name);
    const JsonValue& wanted = member.value;
    bool same;
    if (actual == nullptr) {
      same = false;
    } else if (wanted.IsObject() && actual->IsObject()) {
      // A difference inside is logged there, with the inner key.
      if (!IsSubsetBySchema(*actual, wanted, *property)) return false;
      same = true;
    } else if (wanted.IsArray() && actual->IsArray() && InstanceIdProperty(*property) != nullptr) {
      // Instance mismatches are logged with their id; no key line follows.
      if (!InstancesAreSubset(*actual, wanted, *property, *InstanceIdProperty(*property))) {
        return false;
      }
      same = true;
    } else {
      same = SetvaultDocument::ValuesEqual(*actual, wanted);
    }
    if (!same) {
      SVLogger::Log(0, "obj is not susbset, key %s did not match", member.name.GetString());
      return false;
    }
  }
  return true;
}

}  // namespace KorvoSetvault
