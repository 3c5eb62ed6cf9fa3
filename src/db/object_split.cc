#include "db/object_split.h"

#include "document/setvault_document.h"
#include "schema/schema_definition.h"

namespace KorvoSetvault {
namespace {

enum class Part { kUser, kVital, kCached };

bool TagIsSet(const JsonValue& node, const char* tag) {
  if (!node.IsObject()) return false;
  auto member = node.FindMember(tag);
  return member != node.MemberEnd() && member->value.IsBool() && member->value.GetBool();
}

// The part a schema node's tag sends its whole value to, if any.
std::optional<Part> TaggedPart(const JsonValue& node) {
  if (TagIsSet(node, "vital")) return Part::kVital;
  if (TagIsSet(node, "cached")) return Part::kCached;
  return std::nullopt;
}

const JsonValue* FindMember(const JsonValue& object, const char* name) {
  if (!object.IsObject()) return nullptr;
  auto member = object.FindMember(name);
  return member == object.MemberEnd() ? nullptr : &member->value;
}

const JsonValue* PropertySchema(const JsonValue& schema, const JsonValue& name) {
  const JsonValue* properties = FindMember(schema, "properties");
  if (properties == nullptr || !properties->IsObject()) return nullptr;
  auto member = properties->FindMember(name);
  return member == properties->MemberEnd() ? nullptr : &member->value;
}

// The member naming each instance's id in an instance array schema, or null
// for an array of plain values.
const char* InstanceIdMember(const JsonValue& array_schema) {
  const JsonValue* id = FindMember(array_schema, "instanceIdProperty");
  if (id != nullptr && id->IsString()) return id->GetString();
  if (TagIsSet(array_schema, "generatedInstanceId")) return KorvoSchemaStore::kGeneratedIdMember;
  return nullptr;
}

class Splitter {
 public:
  explicit Splitter(JsonAllocator& allocator) : allocator_(allocator) {}

  // Splits the members of `data` into the three objects.
  void SplitObject(const JsonValue& data, const JsonValue& schema, JsonValue& user,
                   JsonValue& vital, JsonValue& cached) {
    for (const auto& member : data.GetObject()) {
      const JsonValue* property = PropertySchema(schema, member.name);
      const std::optional<Part> tagged = property ? TaggedPart(*property) : std::nullopt;
      if (tagged) {
        Add(Target(*tagged, user, vital, cached), member.name, member.value);
      } else if (property && member.value.IsObject()) {
        SplitSubObject(member.name, member.value, *property, user, vital, cached);
      } else if (property && member.value.IsArray() && InstanceIdMember(*property) != nullptr) {
        SplitInstances(member.name, member.value, *property, user, vital, cached);
      } else {
        Add(user, member.name, member.value);
      }
    }
  }

 private:
  static JsonValue& Target(Part part, JsonValue& user, JsonValue& vital, JsonValue& cached) {
    return part == Part::kVital ? vital : part == Part::kCached ? cached : user;
  }

  void Add(JsonValue& object, const JsonValue& name, const JsonValue& value) {
    object.AddMember(JsonValue(name, allocator_), JsonValue(value, allocator_), allocator_);
  }

  void SplitSubObject(const JsonValue& name, const JsonValue& value, const JsonValue& schema,
                      JsonValue& user, JsonValue& vital, JsonValue& cached) {
    JsonValue sub_user(rapidjson::kObjectType), sub_vital(rapidjson::kObjectType),
        sub_cached(rapidjson::kObjectType);
    SplitObject(value, schema, sub_user, sub_vital, sub_cached);
    // An empty sub-object stays a (user) member: it may be meaningful.
    if (!sub_user.ObjectEmpty() || (sub_vital.ObjectEmpty() && sub_cached.ObjectEmpty())) {
      user.AddMember(JsonValue(name, allocator_), sub_user, allocator_);
    }
    if (!sub_vital.ObjectEmpty()) vital.AddMember(JsonValue(name, allocator_), sub_vital, allocator_);
    if (!sub_cached.ObjectEmpty()) {
      cached.AddMember(JsonValue(name, allocator_), sub_cached, allocator_);
    }
  }

  void SplitInstances(const JsonValue& name, const JsonValue& array, const JsonValue& schema,
                      JsonValue& user, JsonValue& vital, JsonValue& cached) {
    const char* id_member = InstanceIdMember(schema);
    const JsonValue* items = FindMember(schema, "items");
    JsonValue users(rapidjson::kArrayType), vitals(rapidjson::kArrayType),
        cacheds(rapidjson::kArrayType);
    for (const JsonValue& element : array.GetArray()) {
      if (!element.IsObject() || items == nullptr) {
        users.PushBack(JsonValue(element, allocator_), allocator_);
        continue;
      }
      JsonValue u(rapidjson::kObjectType), v(rapidjson::kObjectType), c(rapidjson::kObjectType);
      SplitObject(element, *items, u, v, c);
      const JsonValue* id = FindMember(element, id_member);
      KeepId(u, id, id_member);
      users.PushBack(u, allocator_);
      if (HasContentBeyondId(v, id_member)) {
        KeepId(v, id, id_member);
        vitals.PushBack(v, allocator_);
      }
      if (HasContentBeyondId(c, id_member)) {
        KeepId(c, id, id_member);
        cacheds.PushBack(c, allocator_);
      }
    }
    user.AddMember(JsonValue(name, allocator_), users, allocator_);
    if (!vitals.Empty()) vital.AddMember(JsonValue(name, allocator_), vitals, allocator_);
    if (!cacheds.Empty()) cached.AddMember(JsonValue(name, allocator_), cacheds, allocator_);
  }

  static bool HasContentBeyondId(const JsonValue& part, const char* id_member) {
    return part.MemberCount() > (SetvaultDocument::ValueExists(part, id_member) ? 1u : 0u);
  }

  // Puts the instance's id first in `part` unless it is there already.
  void KeepId(JsonValue& part, const JsonValue* id, const char* id_member) {
    if (id == nullptr || SetvaultDocument::ValueExists(part, id_member)) return;
    JsonValue with_id(rapidjson::kObjectType);
    with_id.AddMember(JsonValue(id_member, allocator_), JsonValue(*id, allocator_), allocator_);
    for (auto& member : part.GetObject()) with_id.AddMember(member.name, member.value, allocator_);
    part = with_id;
  }

  JsonAllocator& allocator_;
};

// The text of a part; none (a NULL column) for a part without members.
std::optional<std::string> Serialized(const JsonValue& part) {
  if (part.IsObject() && part.ObjectEmpty()) return std::nullopt;
  return SetvaultDocument::SerializeValue(part);
}

}  // namespace

SplitParts SplitObjectData(const JsonValue& data, const JsonValue& schema) {
  SplitParts parts;
  if (const std::optional<Part> whole = TaggedPart(schema)) {
    (*whole == Part::kVital ? parts.vital : parts.cached) = Serialized(data);
    return parts;
  }
  JsonDocument scratch;
  JsonValue user(rapidjson::kObjectType), vital(rapidjson::kObjectType),
      cached(rapidjson::kObjectType);
  Splitter(scratch.GetAllocator()).SplitObject(data, schema, user, vital, cached);
  parts.user = Serialized(user);
  parts.vital = Serialized(vital);
  parts.cached = Serialized(cached);
  return parts;
}

}  // namespace KorvoSetvault
