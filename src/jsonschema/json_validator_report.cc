// Findings: JSON Pointers, message texts and the result document.
#include "jsonschema/json_validator_report.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <rapidjson/pointer.h>

#include "document/setvault_document.h"

namespace JsonValidator {
namespace internal {

using KorvoSetvault::JsonValue;

namespace {

constexpr size_t kMaxQuotedLength = 64;
constexpr int kMaxReferenceHops = 16;

// One step of an error's path, resolved against the instance.
struct Step {
  std::string token;
  bool is_index = false;
  size_t index = 0;
};

bool StartsWith(const std::string& text, const char* prefix) {
  return text.compare(0, std::strlen(prefix), prefix) == 0;
}

// The shortest text that reads back as `number` ("9216", "0.5", "1e+300").
std::string FormatNumber(double number) {
  char buffer[32];
  if (number > -1e15 && number < 1e15 && number == std::trunc(number)) {
    std::snprintf(buffer, sizeof(buffer), "%lld", static_cast<long long>(number));
    return buffer;
  }
  for (int precision = 1; precision <= 17; ++precision) {
    std::snprintf(buffer, sizeof(buffer), "%.*g", precision, number);
    if (std::strtod(buffer, nullptr) == number) break;
  }
  return buffer;
}

// The number that ends `text` after `prefix`, formatted again ("9216.000000"
// becomes "9216"); the rest of the text as is when it does not parse.
std::string NumberAfter(const std::string& text, const char* prefix) {
  std::string rest = text.substr(std::strlen(prefix));
  char* end = nullptr;
  double number = std::strtod(rest.c_str(), &end);
  if (end == rest.c_str()) return rest;
  return FormatNumber(number);
}

// The quoted name inside "... 'name'." or "... 'name'".
std::string QuotedName(const std::string& text) {
  size_t last = text.rfind('\'');
  size_t first =
      (last == std::string::npos || last == 0) ? std::string::npos : text.rfind('\'', last - 1);
  if (first == std::string::npos) return std::string();
  return text.substr(first + 1, last - first - 1);
}

// Resolves the checker's path ("<root>", "[a]", "[0]") against the instance:
// an element of an array is an index, a member of an object a name.
const JsonValue* ResolveContext(const std::vector<std::string>& context, const JsonValue& instance,
                                std::vector<Step>* steps) {
  const JsonValue* current = &instance;
  for (size_t i = 1; i < context.size(); ++i) {
    const std::string& part = context[i];
    Step step;
    step.token = (part.size() >= 2 && part.front() == '[' && part.back() == ']')
                     ? part.substr(1, part.size() - 2)
                     : part;
    if (current && current->IsArray()) {
      step.is_index = true;
      step.index = std::strtoul(step.token.c_str(), nullptr, 10);
      current = step.index < current->Size()
                    ? &(*current)[static_cast<rapidjson::SizeType>(step.index)]
                    : nullptr;
    } else if (current && current->IsObject()) {
      auto it = current->FindMember(
          JsonValue(rapidjson::StringRef(step.token.c_str(), step.token.size())));
      current = it == current->MemberEnd() ? nullptr : &it->value;
    } else {
      current = nullptr;
    }
    steps->push_back(std::move(step));
  }
  return current;
}

const JsonValue* Member(const JsonValue* object, const char* name) {
  if (object == nullptr || !object->IsObject()) return nullptr;
  auto it = object->FindMember(name);
  return it == object->MemberEnd() ? nullptr : &it->value;
}

// Follows local references from `node` (a few hops at most).
const JsonValue* Dereference(const JsonValue& root, const JsonValue* node) {
  for (int hop = 0; node && hop < kMaxReferenceHops; ++hop) {
    const JsonValue* ref = Member(node, "$ref");
    if (ref == nullptr) return node;
    if (!ref->IsString() || ref->GetStringLength() == 0 || ref->GetString()[0] != '#')
      return nullptr;
    rapidjson::GenericPointer<JsonValue> pointer(ref->GetString(), ref->GetStringLength());
    node = pointer.IsValid() ? pointer.Get(root) : nullptr;
  }
  return nullptr;
}

// The schema that applies at `steps`, when plain "properties" and "items"
// lead to it; null otherwise. Used to name what was expected.
const JsonValue* SchemaAt(const JsonValue& root, const std::vector<Step>& steps) {
  const JsonValue* node = Dereference(root, &root);
  for (const Step& step : steps) {
    if (node == nullptr) return nullptr;
    if (step.is_index) {
      const JsonValue* items = Member(node, "items");
      if (items && items->IsArray()) {
        items = step.index < items->Size() ? &(*items)[static_cast<rapidjson::SizeType>(step.index)]
                                           : nullptr;
      }
      node = items;
    } else {
      const JsonValue* properties = Member(node, "properties");
      const JsonValue* property = Member(properties, step.token.c_str());
      if (property == nullptr) property = Member(node, "additionalProperties");
      node = property;
    }
    node = Dereference(root, node);
  }
  return node && node->IsObject() ? node : nullptr;
}

std::string ExpectedType(const JsonValue* schema) {
  const JsonValue* type = Member(schema, "type");
  if (type == nullptr) return std::string();
  if (type->IsString()) return std::string(" (expected ") + type->GetString() + ")";
  if (!type->IsArray()) return std::string();
  std::string text;
  for (const auto& one : type->GetArray()) {
    if (!one.IsString()) continue;
    text += (text.empty() ? "" : " or ") + std::string(one.GetString());
  }
  return text.empty() ? text : " (expected " + text + ")";
}

std::string AllowedValues(const JsonValue* schema) {
  const JsonValue* values = Member(schema, "enum");
  if (values == nullptr || !values->IsArray() || values->Size() == 0 || values->Size() > 10) {
    return std::string();
  }
  std::string text;
  for (const auto& one : values->GetArray()) {
    text += (text.empty() ? "" : ", ") + DescribeValue(one);
  }
  return " (allowed: " + text + ")";
}

std::string PatternOf(const JsonValue* schema) {
  const JsonValue* pattern = Member(schema, "pattern");
  if (pattern == nullptr || !pattern->IsString()) return "the required pattern";
  return "the pattern " + DescribeValue(*pattern);
}

// Summaries that valijson adds above the errors it found further down.
bool IsSummary(const std::string& description) {
  static const char* const kSummaries[] = {
      "Failed to validate against schema associated with property name",
      "Failed to validate item #",
      "Failed to validate against additional properties schema",
      "Failed to validate against child schema #",
      "Failed to validate against schema associated with pattern",
      "Failed to validate against a conditional schema",
      "Failed to validate against dependent schema",
      "Cannot validate item #",
  };
  for (const char* summary : kSummaries) {
    if (StartsWith(description, summary)) return true;
  }
  return false;
}

std::string SizeText(size_t size, const char* unit) {
  return std::to_string(size) + " " + unit + (size == 1 ? "" : "s");
}

// The message for a value-check error at a value (null when the path does
// not resolve), or the checker's own text when there is no better one.
std::string Rewrite(const std::string& description, const JsonValue* value,
                    const JsonValue* schema) {
  const std::string shown = value ? DescribeValue(*value) : "the value";
  if (StartsWith(description, "Expected number less than or equal to ")) {
    return "value " + shown + " exceeds maximum " +
           NumberAfter(description, "Expected number less than or equal to ");
  }
  if (StartsWith(description, "Expected number less than ")) {
    return "value " + shown + " is not below the exclusive maximum " +
           NumberAfter(description, "Expected number less than ");
  }
  if (StartsWith(description, "Expected number greater than or equal to ")) {
    return "value " + shown + " is below minimum " +
           NumberAfter(description, "Expected number greater than or equal to ");
  }
  if (StartsWith(description, "Expected number greater than ")) {
    return "value " + shown + " is not above the exclusive minimum " +
           NumberAfter(description, "Expected number greater than ");
  }
  if (StartsWith(description, "Value should be a multiple of ")) {
    return "value " + shown + " is not a multiple of " +
           NumberAfter(description, "Value should be a multiple of ");
  }
  if (StartsWith(description, "Value type not permitted")) {
    return std::string("value of type ") + (value ? TypeNameOf(*value) : "unknown") +
           " is not allowed here" + ExpectedType(schema);
  }
  if (StartsWith(description, "Failed to match against any enum values")) {
    return "value " + shown + " is not one of the allowed values" + AllowedValues(schema);
  }
  if (StartsWith(description, "Failed to match expected value set by 'const'")) {
    const JsonValue* expected = Member(schema, "const");
    return "value " + shown + " is not the required value" +
           (expected ? " " + DescribeValue(*expected) : std::string());
  }
  if (StartsWith(description, "Failed to match regex")) {
    return "value " + shown + " does not match " + PatternOf(schema);
  }
  // Combinators and other whole-value keywords, each from its fixed text.
  static const std::pair<const char*, const char*> kWholeValue[] = {
      {"Target should not validate against schema specified in 'not'",
       " matches the schema under \"not\""},
      {"Failed to validate against any schemas allowed by anyOf",
       " matches none of the schemas of \"anyOf\""},
      {"Failed to validate against exactly one child schema",
       " does not match exactly one schema of \"oneOf\""},
      {"Failed to any values against subschema in 'contains'",
       " has no element that matches \"contains\""},
      {"Elements at indexes #", " has equal elements (\"uniqueItems\")"},
      {"Array contains more items than allowed by items", " has more elements than allowed"},
      {"Object should have no more than ", " has more members than allowed"},
      {"Object should have no fewer than ", " has fewer members than allowed"},
  };
  for (const auto& [prefix, text] : kWholeValue) {
    if (StartsWith(description, prefix)) {
      return (value && (value->IsArray() || value->IsObject())
                  ? "the " + std::string(TypeNameOf(*value))
                  : "value " + shown) +
             text;
    }
  }
  if (StartsWith(description, "Missing dependency '")) {
    return "missing member '" + QuotedName(description) + "' that another member depends on";
  }
  bool is_string = value && value->IsString();
  bool is_array = value && value->IsArray();
  if (StartsWith(description, "String should be no more than ") && is_string) {
    return "string of " + SizeText(value->GetStringLength(), "byte") + " is longer than " +
           "the maximum length " + NumberAfter(description, "String should be no more than ");
  }
  if (StartsWith(description, "String should be no fewer than ") && is_string) {
    return "string of " + SizeText(value->GetStringLength(), "byte") + " is shorter than " +
           "the minimum length " + NumberAfter(description, "String should be no fewer than ");
  }
  if (StartsWith(description, "Array should contain no more than ") && is_array) {
    return "array of " + SizeText(value->Size(), "element") + " has more than the maximum of " +
           NumberAfter(description, "Array should contain no more than ");
  }
  if (StartsWith(description, "Array should contain no fewer than ") && is_array) {
    return "array of " + SizeText(value->Size(), "element") + " has fewer than the minimum of " +
           NumberAfter(description, "Array should contain no fewer than ");
  }
  return description;
}

}  // namespace

std::string PointerOf(const std::vector<std::string>& tokens) {
  if (tokens.empty()) return "/";
  std::string pointer;
  for (const std::string& token : tokens) {
    pointer += '/' + KorvoSetvault::SetvaultDocument::EscapePointerToken(token);
  }
  return pointer;
}

const char* TypeNameOf(const JsonValue& value) {
  if (value.IsString()) return "string";
  if (value.IsBool()) return "boolean";
  if (value.IsNull()) return "null";
  if (value.IsObject()) return "object";
  if (value.IsArray()) return "array";
  if (value.IsInt64() || value.IsUint64()) return "integer";
  return "number";
}

std::string DescribeValue(const JsonValue& value) {
  if (value.IsObject()) return "an object";
  if (value.IsArray()) return "an array";
  if (value.IsDouble()) return FormatNumber(value.GetDouble());
  if (value.IsString() && value.GetStringLength() > kMaxQuotedLength) {
    JsonValue cut(rapidjson::StringRef(value.GetString(), kMaxQuotedLength));
    std::string text = KorvoSetvault::SetvaultDocument::SerializeValue(cut);
    return text.substr(0, text.size() - 1) + "...\"";
  }
  return KorvoSetvault::SetvaultDocument::SerializeValue(value);
}

void Findings::Add(std::string field, std::string error) {
  member_fields_.insert(field);
  if (!seen_.insert(field + '\n' + error).second) return;
  findings_.push_back({std::move(field), std::move(error)});
}

void Findings::AddValueFinding(std::string field, std::string error) {
  if (member_fields_.count(field)) return;
  if (!seen_.insert(field + '\n' + error).second) return;
  findings_.push_back({std::move(field), std::move(error)});
}

void Findings::WriteTo(KorvoSetvault::JsonDocument& result) const {
  result.SetArray();
  auto& allocator = result.GetAllocator();
  result.Reserve(static_cast<rapidjson::SizeType>(findings_.size()), allocator);
  for (const Finding& finding : findings_) {
    JsonValue entry(rapidjson::kObjectType);
    auto text = [&allocator](const std::string& s) {
      return JsonValue(s.data(), static_cast<rapidjson::SizeType>(s.size()), allocator);
    };
    entry.AddMember("field", text(finding.field), allocator);
    entry.AddMember("error", text(finding.error), allocator);
    result.PushBack(entry, allocator);
  }
}

bool TranslateValueError(const std::vector<std::string>& context, const std::string& description,
                         const JsonValue& instance, const JsonValue& schema, Finding* finding) {
  if (IsSummary(description)) return false;
  std::vector<Step> steps;
  const JsonValue* value = ResolveContext(context, instance, &steps);
  std::vector<std::string> tokens;
  for (const Step& step : steps) tokens.push_back(step.token);
  if (StartsWith(description, "Missing required property")) {
    std::string name = QuotedName(description);
    tokens.push_back(name);
    *finding = {PointerOf(tokens), "missing required member '" + name + "'"};
    return true;
  }
  if (StartsWith(description, "Object contains a property that could not be validated")) {
    std::string name = QuotedName(description);
    tokens.push_back(name);
    *finding = {PointerOf(tokens), "member '" + name + "' is not described in the schema"};
    return true;
  }
  *finding = {PointerOf(tokens), Rewrite(description, value, SchemaAt(schema, steps))};
  return true;
}

}  // namespace internal
}  // namespace JsonValidator
