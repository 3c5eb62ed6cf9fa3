// Preparation of the schema that the value checks run against, per option set.
#include <string>

#include "jsonschema/json_validator_rules.h"

namespace JsonValidator {
namespace internal {

using KorvoSetvault::JsonAllocator;
using KorvoSetvault::JsonValue;

namespace {

// Keywords whose value is one schema, an array of schemas, or an object whose
// member values are schemas.
constexpr const char* kSchemaKeywords[] = {"additionalProperties",
                                           "additionalItems",
                                           "contains",
                                           "propertyNames",
                                           "not",
                                           "if",
                                           "then",
                                           "else"};
constexpr const char* kSchemaListKeywords[] = {"allOf", "anyOf", "oneOf", "items"};
constexpr const char* kSchemaMapKeywords[] = {"patternProperties", "dependencies"};
constexpr const char* kDefinitionKeywords[] = {"definitions", "$defs"};

JsonValue* FindMutable(JsonValue& object, const char* name) {
  auto it = object.FindMember(name);
  return it == object.MemberEnd() ? nullptr : &it->value;
}

const JsonValue* Find(const JsonValue& object, const char* name) {
  auto it = object.FindMember(name);
  return it == object.MemberEnd() ? nullptr : &it->value;
}

void RemoveFromRequired(JsonValue& schema, const JsonValue& name) {
  JsonValue* required = FindMutable(schema, "required");
  if (required == nullptr || !required->IsArray()) return;
  for (auto it = required->Begin(); it != required->End();) {
    it = (*it == name) ? required->Erase(it) : it + 1;
  }
}

// Walks `original` and its copy `prepared` side by side; decisions are taken
// on the original (whose rule nodes are known) and applied to the copy.
class Preparer {
 public:
  Preparer(const RuleTree& rules, OptionMask mask, JsonAllocator& allocator)
      : rules_(rules), mask_(mask), policy_(PolicyOfMask(mask)), allocator_(allocator) {}

  void Prepare(const JsonValue& original, JsonValue& prepared, TagSet inherited,
               const std::string& id_member) {
    if (!original.IsObject() || !prepared.IsObject()) return;
    const RuleNode* node = rules_.NodeFor(original);
    TagSet here = inherited | (node ? node->tags : 0);
    PrepareProperties(original, prepared, here, id_member);
    PrepareItems(original, prepared, here);
    for (const char* keyword : kSchemaKeywords) PrepareOne(original, prepared, keyword, here);
    for (const char* keyword : kSchemaListKeywords) {
      if (std::string(keyword) == "items") continue;  // handled with instance ids
      PrepareList(original, prepared, keyword, here, id_member);
    }
    for (const char* keyword : kSchemaMapKeywords) PrepareMap(original, prepared, keyword, here);
    // Shared definitions are prepared without the tags of the referring place.
    for (const char* keyword : kDefinitionKeywords) PrepareMap(original, prepared, keyword, 0);
    if (!(mask_ & kRequiredMembers)) prepared.RemoveMember("required");
  }

 private:
  void PrepareProperties(const JsonValue& original, JsonValue& prepared, TagSet here,
                         const std::string& id_member) {
    const JsonValue* properties = Find(original, "properties");
    JsonValue* copies = FindMutable(prepared, "properties");
    if (properties == nullptr || !properties->IsObject() || copies == nullptr) return;
    for (const auto& member : properties->GetObject()) {
      JsonValue* copy = FindMutable(*copies, member.name.GetString());
      if (copy == nullptr) continue;
      std::string name(member.name.GetString(), member.name.GetStringLength());
      TagSet below = here;
      bool id = name == id_member || name == kGeneratedIdMember;
      if (!id && !JudgeMember(policy_, here, rules_.NodeFor(member.value), name, &below).empty()) {
        // Rejected as a whole by the member rules: no value checks, not required.
        copy->SetObject();
        RemoveFromRequired(prepared, member.name);
        continue;
      }
      Prepare(member.value, *copy, below, std::string());
    }
    if (!copies->HasMember(kGeneratedIdMember)) {
      JsonValue string_schema(rapidjson::kObjectType);
      string_schema.AddMember("type", "string", allocator_);
      copies->AddMember(JsonValue(kGeneratedIdMember, allocator_), string_schema, allocator_);
    }
  }

  void PrepareItems(const JsonValue& original, JsonValue& prepared, TagSet here) {
    const JsonValue* items = Find(original, "items");
    JsonValue* copy = FindMutable(prepared, "items");
    if (items == nullptr || copy == nullptr) return;
    std::string id_member;
    if (const JsonValue* id = Find(original, "instanceIdProperty"); id && id->IsString()) {
      id_member = id->GetString();
    }
    if (items->IsObject()) {
      Prepare(*items, *copy, here, id_member);
    } else if (items->IsArray() && copy->IsArray()) {
      for (rapidjson::SizeType i = 0; i < items->Size() && i < copy->Size(); ++i) {
        Prepare((*items)[i], (*copy)[i], here, id_member);
      }
    }
  }

  void PrepareOne(const JsonValue& original, JsonValue& prepared, const char* keyword,
                  TagSet here) {
    const JsonValue* value = Find(original, keyword);
    JsonValue* copy = FindMutable(prepared, keyword);
    if (value && copy) Prepare(*value, *copy, here, std::string());
  }

  void PrepareList(const JsonValue& original, JsonValue& prepared, const char* keyword, TagSet here,
                   const std::string& id_member) {
    const JsonValue* list = Find(original, keyword);
    JsonValue* copy = FindMutable(prepared, keyword);
    if (list == nullptr || copy == nullptr || !list->IsArray() || !copy->IsArray()) return;
    for (rapidjson::SizeType i = 0; i < list->Size() && i < copy->Size(); ++i) {
      Prepare((*list)[i], (*copy)[i], here, id_member);
    }
  }

  void PrepareMap(const JsonValue& original, JsonValue& prepared, const char* keyword,
                  TagSet here) {
    const JsonValue* map = Find(original, keyword);
    JsonValue* copy = FindMutable(prepared, keyword);
    if (map == nullptr || copy == nullptr || !map->IsObject() || !copy->IsObject()) return;
    for (const auto& member : map->GetObject()) {
      JsonValue* entry = FindMutable(*copy, member.name.GetString());
      if (entry) Prepare(member.value, *entry, here, std::string());
    }
  }

  const RuleTree& rules_;
  OptionMask mask_;
  TagPolicy policy_;
  JsonAllocator& allocator_;
};

}  // namespace

void CopyOwned(const JsonValue& source, KorvoSetvault::JsonDocument& target) {
  // Passes the source's events to the target, asking it to copy every string.
  struct Copier {
    KorvoSetvault::JsonDocument& to;
    bool Null() { return to.Null(); }
    bool Bool(bool b) { return to.Bool(b); }
    bool Int(int i) { return to.Int(i); }
    bool Uint(unsigned u) { return to.Uint(u); }
    bool Int64(int64_t i) { return to.Int64(i); }
    bool Uint64(uint64_t u) { return to.Uint64(u); }
    bool Double(double d) { return to.Double(d); }
    bool RawNumber(const char* s, rapidjson::SizeType n, bool) { return to.RawNumber(s, n, true); }
    bool String(const char* s, rapidjson::SizeType n, bool) { return to.String(s, n, true); }
    bool StartObject() { return to.StartObject(); }
    bool Key(const char* s, rapidjson::SizeType n, bool) { return to.Key(s, n, true); }
    bool EndObject(rapidjson::SizeType n) { return to.EndObject(n); }
    bool StartArray() { return to.StartArray(); }
    bool EndArray(rapidjson::SizeType n) { return to.EndArray(n); }
  };
  auto generate = [&source](KorvoSetvault::JsonDocument& document) {
    Copier copier{document};
    return source.Accept(copier);
  };
  target.Populate(generate);
}

void PrepareValueSchema(const JsonValue& original, const RuleTree& rules, OptionMask mask,
                        KorvoSetvault::JsonDocument& prepared) {
  CopyOwned(original, prepared);
  Preparer(rules, mask, prepared.GetAllocator()).Prepare(original, prepared, 0, std::string());
}

}  // namespace internal
}  // namespace JsonValidator
