// Lowering of a prepared schema into the checker's form.
#include "jsonschema/json_validator_lower.h"

#include <rapidjson/pointer.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "jsonschema/json_validator_keywords.h"
#include "jsonschema/json_validator_report.h"
#include "jsonschema/json_validator_rules.h"

namespace JsonValidator {
namespace internal {

using KorvoSetvault::JsonAllocator;
using KorvoSetvault::JsonValue;

namespace {

// Keywords that only annotate, and the library's own tags: not checked here.
const std::set<std::string> kIgnored = {
    "$comment", "title",        "description",        "default",
    "examples", "readOnly",     "writeOnly",          "vital",
    "cached",   "solutionUser", "instanceIdProperty", "generatedInstanceId"};
const std::set<std::string> kSingleSchema = {"not", "if", "then", "else", "contains"};
const std::set<std::string> kSchemaLists = {"allOf", "anyOf", "oneOf"};
const std::set<std::string> kCounts = {"maxLength", "minLength",     "maxItems",
                                       "minItems",  "maxProperties", "minProperties"};
const std::set<std::string> kBounds = {"maximum", "minimum", "exclusiveMaximum",
                                       "exclusiveMinimum"};
const std::unordered_map<std::string, const char*> kRenamed = {{"type", kTypeKeyword},
                                                               {"pattern", kPatternKeyword},
                                                               {"format", kFormatKeyword},
                                                               {"multipleOf", kMultipleOfKeyword}};

bool IsDraft7(const JsonValue& value) {
  if (!value.IsString()) return false;
  std::string uri(value.GetString(), value.GetStringLength());
  return uri == "http://json-schema.org/draft-07/schema#" ||
         uri == "http://json-schema.org/draft-07/schema";
}

class Lowerer {
 public:
  Lowerer(const JsonValue& root, KorvoSetvault::JsonDocument& out)
      : root_(root), out_(out), allocator_(out.GetAllocator()) {}

  void Run() {
    JsonValue lowered = Schema(root_, "", "#", true);
    static_cast<JsonValue&>(out_) = lowered;  // moves
    for (const auto& [at, text, where] : refs_) FixReference(at, text, where);
  }

 private:
  [[noreturn]] static void Refuse(const std::string& keyword, const std::string& where,
                                  const std::string& why) {
    ThrowInvalidSchema("\"" + keyword + "\" at " + where + " " + why);
  }

  JsonValue Copy(const JsonValue& value) { return JsonValue(value, allocator_); }
  JsonValue Text(const std::string& text) {
    return JsonValue(text.c_str(), text.size(), allocator_);
  }

  JsonValue Schema(const JsonValue& node, const std::string& at, const std::string& where,
                   bool root) {
    place_.emplace(&node, at);
    JsonValue out(rapidjson::kObjectType);
    if (node.IsBool()) {
      if (!node.GetBool()) out.AddMember(JsonValue(kFalseKeyword), JsonValue(true), allocator_);
      return out;
    }
    if (!node.IsObject()) ThrowInvalidSchema("the schema at " + where + " is not an object");
    bool has_patterns = node.HasMember("patternProperties");
    for (const auto& member : node.GetObject()) {
      std::string name(member.name.GetString(), member.name.GetStringLength());
      Keyword(name, member.value, at, where, root, has_patterns, out);
    }
    if (has_patterns || node.HasMember("propertyNames")) {
      out.AddMember(JsonValue(kMembersKeyword), Text(at), allocator_);
    }
    return out;
  }

  void Add(JsonValue& out, const std::string& name, JsonValue value) {
    out.AddMember(Text(name), value, allocator_);
  }

  // One keyword of a schema object.
  void Keyword(const std::string& name, const JsonValue& value, const std::string& at,
               const std::string& where, bool root, bool has_patterns, JsonValue& out) {
    const std::string token = PointerOf({name});
    const std::string below = where + token;
    if (kIgnored.count(name)) return;
    if (name == "$schema" || name == "$id") {
      if (!root) Refuse(name, where, "is supported at the root of the schema only");
      if (name == "$schema" && !IsDraft7(value)) Refuse(name, where, "must name draft 7");
      if (!value.IsString()) Refuse(name, where, "must be a string");
      return;
    }
    if (kSingleSchema.count(name)) return Add(out, name, Schema(value, at + token, below, false));
    if (kSchemaLists.count(name)) return Add(out, name, List(name, value, at + token, below));
    if (name == "items" || name == "additionalItems") {
      if (value.IsArray() && name == "items")
        return Add(out, name, List(name, value, at + token, below));
      if (value.IsBool() && name == "additionalItems") return Add(out, name, Copy(value));
      return Add(out, name, Schema(value, at + token, below, false));
    }
    if (name == "additionalProperties") {
      const std::string place = has_patterns ? kAdditionalSchema : name;
      if (value.IsBool()) return Add(out, place, Copy(value));
      return Add(out, place, Schema(value, at + PointerOf({place}), below, false));
    }
    if (name == "properties" || name == "definitions") {
      return Add(out, name, Map(name, value, at + token, below));
    }
    if (name == "patternProperties") {
      return Add(out, kPatternSchemas, Map(name, value, at + PointerOf({kPatternSchemas}), below));
    }
    if (name == "propertyNames") {
      return Add(out, kNamesSchema, Schema(value, at + PointerOf({kNamesSchema}), below, false));
    }
    if (name == "dependencies") return Add(out, name, Dependencies(value, at + token, below));
    if (name == "$ref") {
      if (!value.IsString()) Refuse(name, where, "must be a string");
      refs_.push_back({at, std::string(value.GetString(), value.GetStringLength()), where});
      return Add(out, name, Copy(value));
    }
    if (auto renamed = kRenamed.find(name); renamed != kRenamed.end()) {
      return Add(out, renamed->second, Copy(value));
    }
    if (kCounts.count(name)) return Add(out, name, Count(name, value, where));
    if (kBounds.count(name)) {
      if (!value.IsNumber()) Refuse(name, where, "must be a number");
      return Add(out, name, Copy(value));
    }
    if (name == "required") return Add(out, name, Names(name, value, where));
    if (name == "uniqueItems") {
      if (!value.IsBool()) Refuse(name, where, "must be true or false");
      return Add(out, name, Copy(value));
    }
    if (name == "enum") {
      if (!value.IsArray() || value.Empty()) Refuse(name, where, "must be a non-empty array");
      return Add(out, name, Copy(value));
    }
    if (name == "const") return Add(out, name, Copy(value));
    Refuse(name, where, "is not a supported keyword");
  }

  JsonValue List(const std::string& name, const JsonValue& value, const std::string& at,
                 const std::string& where) {
    if (!value.IsArray() || value.Empty()) Refuse(name, where, "must be a non-empty array");
    JsonValue out(rapidjson::kArrayType);
    for (rapidjson::SizeType i = 0; i < value.Size(); ++i) {
      const std::string token = "/" + std::to_string(i);
      out.PushBack(Schema(value[i], at + token, where + PointerOf({name}) + token, false),
                   allocator_);
    }
    return out;
  }

  JsonValue Map(const std::string& name, const JsonValue& value, const std::string& at,
                const std::string& where) {
    if (!value.IsObject()) Refuse(name, where, "must be an object");
    JsonValue out(rapidjson::kObjectType);
    for (const auto& member : value.GetObject()) {
      const std::string token =
          PointerOf({std::string(member.name.GetString(), member.name.GetStringLength())});
      out.AddMember(Copy(member.name),
                    Schema(member.value, at + token, where + PointerOf({name}) + token, false),
                    allocator_);
    }
    return out;
  }

  JsonValue Dependencies(const JsonValue& value, const std::string& at, const std::string& where) {
    if (!value.IsObject()) Refuse("dependencies", where, "must be an object");
    JsonValue out(rapidjson::kObjectType);
    for (const auto& member : value.GetObject()) {
      const std::string token =
          PointerOf({std::string(member.name.GetString(), member.name.GetStringLength())});
      JsonValue lowered = member.value.IsArray() ? Names("dependencies", member.value, where)
                                                 : Schema(member.value, at + token,
                                                          where + "/dependencies" + token, false);
      out.AddMember(Copy(member.name), lowered, allocator_);
    }
    return out;
  }

  JsonValue Names(const std::string& name, const JsonValue& value, const std::string& where) {
    bool valid = value.IsArray();
    for (rapidjson::SizeType i = 0; valid && i < value.Size(); ++i) valid = value[i].IsString();
    if (!valid) Refuse(name, where, "must be an array of strings");
    return Copy(value);
  }

  // A count: a non-negative integer, which may be written 2.0.
  JsonValue Count(const std::string& name, const JsonValue& value, const std::string& where) {
    if (value.IsUint64()) return JsonValue(value.GetUint64());
    double number = value.IsNumber() ? value.GetDouble() : -1;
    if (!(number >= 0 && number == std::trunc(number) && number < 1.8e19)) {
      Refuse(name, where, "must be a non-negative integer");
    }
    return JsonValue(static_cast<uint64_t>(number));
  }

  void FixReference(const std::string& at, const std::string& text, const std::string& where) {
    if (text.empty() || text[0] != '#') {
      ThrowInvalidSchema("only local references are supported: \"" + text + "\" at " + where);
    }
    rapidjson::GenericPointer<JsonValue> pointer(text.c_str(), text.size());
    const JsonValue* target = pointer.IsValid() ? pointer.Get(root_) : nullptr;
    auto place = target ? place_.find(target) : place_.end();
    if (place == place_.end()) {
      ThrowInvalidSchema("unresolved \"$ref\" \"" + text + "\" at " + where +
                         " (a reference names a schema by its JSON Pointer)");
    }
    rapidjson::GenericPointer<JsonValue> holder(at.c_str(), at.size());
    JsonValue* node = holder.Get(out_);
    (*node)["$ref"] = Text(FragmentOf(place->second));
  }

  const JsonValue& root_;
  KorvoSetvault::JsonDocument& out_;
  JsonAllocator& allocator_;
  std::unordered_map<const JsonValue*, std::string> place_;
  struct Reference {
    std::string at;
    std::string text;
    std::string where;
  };
  std::vector<Reference> refs_;
};

}  // namespace

std::string FragmentOf(const std::string& pointer) {
  std::string fragment = "#";
  for (unsigned char c : pointer) {
    if (std::isalnum(c) || std::string("/-._~").find(static_cast<char>(c)) != std::string::npos) {
      fragment += static_cast<char>(c);
    } else {
      char escaped[4];
      std::snprintf(escaped, sizeof(escaped), "%%%02X", c);
      fragment += escaped;
    }
  }
  return fragment;
}

void LowerForChecker(const JsonValue& prepared, KorvoSetvault::JsonDocument& lowered) {
  Lowerer(prepared, lowered).Run();
}

}  // namespace internal
}  // namespace JsonValidator
