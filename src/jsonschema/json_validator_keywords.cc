// The library's own constraints inside the checker's schemas.
#include "jsonschema/json_validator_keywords.h"

#include <arpa/inet.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <functional>
#include <new>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include <rapidjson/pointer.h>

#include "jsonschema/json_validator_lower.h"
#include "jsonschema/json_validator_report.h"
#include "jsonschema/json_validator_rules.h"
#include "jsonschema/pattern.h"

namespace JsonValidator {
namespace internal {

using KorvoSetvault::JsonValue;
using valijson::ValidationResults;
using valijson::adapters::Adapter;
using Context = std::vector<std::string>;

namespace {

// ---- Texts ------------------------------------------------------------------

std::string Quoted(const std::string& text) {
  return DescribeValue(
      JsonValue(rapidjson::StringRef(text.data(), static_cast<rapidjson::SizeType>(text.size()))));
}

const char* AdapterTypeName(const Adapter& value) {
  if (value.isString()) return "string";
  if (value.isBool()) return "boolean";
  if (value.isNull()) return "null";
  if (value.isObject()) return "object";
  if (value.isArray()) return "array";
  if (value.isInteger()) return "integer";
  return "number";
}

// A number as the findings show it.
std::string NumberText(const Adapter& value) {
  if (value.isInteger()) {
    int64_t integer = 0;
    if (value.getInteger(integer)) return std::to_string(integer);
  }
  return DescribeValue(JsonValue(value.getNumber()));
}

void Push(ValidationResults* results, const Context& context, std::string text) {
  if (results) results->pushError(context, std::move(text));
}

// ---- Formats ----------------------------------------------------------------

bool Digits(const std::string& text, size_t at, size_t count, int* value) {
  if (at + count > text.size()) return false;
  *value = 0;
  for (size_t i = at; i < at + count; ++i) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
    *value = *value * 10 + (text[i] - '0');
  }
  return true;
}

// "YYYY-MM-DD" at `at`; 10 characters.
bool IsDateAt(const std::string& text, size_t at) {
  int year = 0, month = 0, day = 0;
  if (!Digits(text, at, 4, &year) || text.size() < at + 10 || text[at + 4] != '-' ||
      !Digits(text, at + 5, 2, &month) || text[at + 7] != '-' || !Digits(text, at + 8, 2, &day)) {
    return false;
  }
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || day < 1) return false;
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return day <= kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

// "HH:MM:SS[.frac](Z|+HH:MM|-HH:MM)" from `at` to the end.
bool IsTimeAt(const std::string& text, size_t at) {
  int hour = 0, minute = 0, second = 0;
  if (!Digits(text, at, 2, &hour) || text.size() < at + 8 || text[at + 2] != ':' ||
      !Digits(text, at + 3, 2, &minute) || text[at + 5] != ':' ||
      !Digits(text, at + 6, 2, &second) || hour > 23 || minute > 59 || second > 60) {
    return false;
  }
  size_t i = at + 8;
  if (i < text.size() && text[i] == '.') {
    size_t digits = ++i;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
    if (i == digits) return false;
  }
  if (i < text.size() && (text[i] == 'Z' || text[i] == 'z')) return i + 1 == text.size();
  int offset_hour = 0, offset_minute = 0;
  return i + 6 == text.size() && (text[i] == '+' || text[i] == '-') &&
         Digits(text, i + 1, 2, &offset_hour) && text[i + 3] == ':' &&
         Digits(text, i + 4, 2, &offset_minute) && offset_hour <= 23 && offset_minute <= 59;
}

bool IsHostname(const std::string& text) {
  if (text.empty() || text.size() > 253) return false;
  size_t label = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == '.') {
      if (label == 0 || label > 63 || text[i - 1] == '-' || text[i - label] == '-') return false;
      label = 0;
    } else if (std::isalnum(static_cast<unsigned char>(text[i])) || text[i] == '-') {
      ++label;
    } else {
      return false;
    }
  }
  return true;
}

bool IsAddress(int family, const std::string& text) {
  unsigned char buffer[sizeof(struct in6_addr)];
  return text.find('\0') == std::string::npos && inet_pton(family, text.c_str(), buffer) == 1;
}

using FormatCheck = std::function<bool(const std::string&)>;

const std::map<std::string, FormatCheck>& Formats() {
  static const auto* formats = new std::map<std::string, FormatCheck>{
      {"date", [](const std::string& s) { return s.size() == 10 && IsDateAt(s, 0); }},
      {"time", [](const std::string& s) { return IsTimeAt(s, 0); }},
      {"date-time",
       [](const std::string& s) {
         return s.size() > 10 && IsDateAt(s, 0) && (s[10] == 'T' || s[10] == 't') &&
                IsTimeAt(s, 11);
       }},
      {"ipv4", [](const std::string& s) { return IsAddress(AF_INET, s); }},
      {"ipv6", [](const std::string& s) { return IsAddress(AF_INET6, s); }},
      {"hostname", IsHostname},
      {"regex", [](const std::string& s) { return KorvoSetvault::Pattern(s).Ok(); }},
  };
  return *formats;
}

// ---- Constraints ------------------------------------------------------------

// Copyable constraint of the library; valijson clones it into its schema.
template <typename Derived>
class Keyword : public valijson::constraints::PolyConstraint {
 private:
  Constraint* cloneInto(void* memory) const override {
    return new (memory) Derived(static_cast<const Derived&>(*this));
  }
  size_t sizeOf() const override { return sizeof(Derived); }
};

class TypeKeyword : public Keyword<TypeKeyword> {
 public:
  TypeKeyword(std::set<std::string> names, std::string expected)
      : names_(std::move(names)), expected_(std::move(expected)) {}

  bool validate(const Adapter& target, const Context& context,
                ValidationResults* results) const override {
    if (Allows(target)) return true;
    Push(results, context,
         std::string("value of type ") + AdapterTypeName(target) +
             " is not allowed here (expected " + expected_ + ")");
    return false;
  }

 private:
  bool Allows(const Adapter& target) const {
    auto named = [this](const char* name) { return names_.count(name) != 0; };
    if (target.isNull()) return named("null");
    if (target.isBool()) return named("boolean");
    if (target.isString()) return named("string");
    if (target.isArray()) return named("array");
    if (target.isObject()) return named("object");
    if (!target.isNumber()) return false;
    if (named("number")) return true;
    // An integer is a number without a fractional part, however written.
    double number = target.getNumber();
    return named("integer") && (target.isInteger() || number == std::trunc(number));
  }

  std::set<std::string> names_;
  std::string expected_;
};

class PatternKeyword : public Keyword<PatternKeyword> {
 public:
  explicit PatternKeyword(std::shared_ptr<const KorvoSetvault::Pattern> pattern)
      : pattern_(std::move(pattern)) {}

  bool validate(const Adapter& target, const Context& context,
                ValidationResults* results) const override {
    std::string text;
    if (!target.isString() || !target.getString(text) || pattern_->Search(text)) return true;
    Push(results, context,
         "value " + Quoted(text) + " does not match the pattern " + Quoted(pattern_->Source()));
    return false;
  }

 private:
  std::shared_ptr<const KorvoSetvault::Pattern> pattern_;
};

class FormatKeyword : public Keyword<FormatKeyword> {
 public:
  FormatKeyword(std::string name, const FormatCheck* check)
      : name_(std::move(name)), check_(check) {}

  bool validate(const Adapter& target, const Context& context,
                ValidationResults* results) const override {
    std::string text;
    if (!target.isString() || !target.getString(text) || (*check_)(text)) return true;
    std::string why = name_ == "regex" ? " (" + KorvoSetvault::PatternError(text) + ")" : "";
    Push(results, context, "value " + Quoted(text) + " is not a valid " + name_ + why);
    return false;
  }

 private:
  std::string name_;
  const FormatCheck* check_;
};

class MultipleOfKeyword : public Keyword<MultipleOfKeyword> {
 public:
  MultipleOfKeyword(double divisor, std::string text) : divisor_(divisor), text_(std::move(text)) {}

  bool validate(const Adapter& target, const Context& context,
                ValidationResults* results) const override {
    if (!target.isNumber() || IsMultiple(target)) return true;
    Push(results, context, "value " + NumberText(target) + " is not a multiple of " + text_);
    return false;
  }

 private:
  bool IsMultiple(const Adapter& target) const {
    int64_t integer = 0;
    if (target.isInteger() && target.getInteger(integer) && divisor_ == std::trunc(divisor_) &&
        std::fabs(divisor_) < 9e15) {
      return integer % static_cast<int64_t>(divisor_) == 0;
    }
    // The quotient is a whole number, up to the rounding of decimal fractions
    // (0.3 is a multiple of 0.1); beyond 2^53 every double is whole.
    double quotient = target.getNumber() / divisor_;
    if (!std::isfinite(quotient)) return true;
    return std::fabs(quotient - std::round(quotient)) <= 1e-9 * std::fmax(1.0, std::fabs(quotient));
  }

  double divisor_;
  std::string text_;
};

class FalseKeyword : public Keyword<FalseKeyword> {
 public:
  bool validate(const Adapter&, const Context& context, ValidationResults* results) const override {
    Push(results, context, "no value is allowed here");
    return false;
  }
};

// Runs `schema` on one member value or name and adds its errors below
// `context`.
template <typename ValueAdapter>
bool RunBelow(const valijson::Schema& schema, const ValueAdapter& value, const Context& context,
              ValidationResults* results) {
  valijson::Validator checker(valijson::Validator::kStrongTypes);
  if (results == nullptr) return checker.validate(schema, value, nullptr);
  ValidationResults below;
  bool valid = checker.validate(schema, value, &below);
  ValidationResults::Error error;
  while (below.popError(error)) {
    Context full = context;
    full.insert(full.end(), error.context.begin() + (error.context.empty() ? 0 : 1),
                error.context.end());
    results->pushError(full, error.description);
  }
  return valid;
}

struct PatternSchema {
  std::shared_ptr<const KorvoSetvault::Pattern> pattern;
  const valijson::Schema* schema;
};

class MembersKeyword : public Keyword<MembersKeyword> {
 public:
  std::set<std::string> described;      // names under "properties"
  std::vector<PatternSchema> patterns;  // "patternProperties"
  bool closed = false;                  // "additionalProperties": false
  const valijson::Schema* additional = nullptr;
  const valijson::Schema* names = nullptr;  // "propertyNames"

  bool validate(const Adapter& target, const Context& context,
                ValidationResults* results) const override {
    if (!target.isObject()) return true;
    bool valid = true;
    target.applyToObject([&](const std::string& name, const Adapter& value) {
      Context here = context;
      here.push_back("[" + name + "]");
      if (names && !RunBelow(*names, valijson::adapters::StdStringAdapter(name), here, nullptr)) {
        Push(results, here, "member name " + Quoted(name) + " is not allowed by \"propertyNames\"");
        valid = false;
      }
      if (!patterns.empty()) valid = CheckValue(name, value, here, results) && valid;
      return valid || results != nullptr;  // without results the first error decides
    });
    return valid;
  }

 private:
  bool CheckValue(const std::string& name, const Adapter& value, const Context& here,
                  ValidationResults* results) const {
    const auto* json = dynamic_cast<const valijson::adapters::RapidJsonAdapter*>(&value);
    if (json == nullptr) return true;  // members of a name are never checked here
    bool matched = described.count(name) != 0;
    bool valid = true;
    for (const PatternSchema& entry : patterns) {
      if (!entry.pattern->Search(name)) continue;
      matched = true;
      valid = RunBelow(*entry.schema, *json, here, results) && valid;
    }
    if (matched) return valid;
    if (closed) {
      Push(results, here, "member '" + name + "' is not described in the schema");
      return false;
    }
    return additional == nullptr || RunBelow(*additional, *json, here, results);
  }
};

// ---- Builders ---------------------------------------------------------------

[[noreturn]] void Malformed(const std::string& detail) { throw std::runtime_error(detail); }

std::string TextOf(const Adapter& value, const char* keyword) {
  std::string text;
  if (!value.isString() || !value.getString(text)) {
    Malformed(std::string("\"") + keyword + "\" must be a string");
  }
  return text;
}

std::shared_ptr<const KorvoSetvault::Pattern> Compile(const std::string& source) {
  auto pattern = std::make_shared<const KorvoSetvault::Pattern>(source);
  if (!pattern->Ok())
    Malformed("pattern " + Quoted(source) + " does not compile: " + pattern->Error());
  return pattern;
}

class TypeBuilder : public valijson::ConstraintBuilder {
 public:
  valijson::constraints::Constraint* make(const Adapter& value) const override {
    std::set<std::string> names;
    std::string expected;
    auto add = [&](const Adapter& name) {
      static const std::set<std::string> kTypes = {"object",  "array",   "string", "number",
                                                   "integer", "boolean", "null"};
      std::string text;
      if (!name.isString() || !name.getString(text) || kTypes.count(text) == 0) {
        Malformed("\"type\" must name JSON types");
      }
      expected += (expected.empty() ? "" : " or ") + text;
      names.insert(text);
      return true;
    };
    if (value.isArray()) {
      value.applyToArray(add);
    } else {
      add(value);
    }
    if (names.empty()) Malformed("\"type\" must name JSON types");
    return new TypeKeyword(std::move(names), std::move(expected));
  }
};

class PatternBuilder : public valijson::ConstraintBuilder {
 public:
  valijson::constraints::Constraint* make(const Adapter& value) const override {
    return new PatternKeyword(Compile(TextOf(value, "pattern")));
  }
};

class FormatBuilder : public valijson::ConstraintBuilder {
 public:
  valijson::constraints::Constraint* make(const Adapter& value) const override {
    std::string name = TextOf(value, "format");
    auto found = Formats().find(name);
    if (found == Formats().end()) Malformed("format " + Quoted(name) + " is not supported");
    return new FormatKeyword(name, &found->second);
  }
};

class MultipleOfBuilder : public valijson::ConstraintBuilder {
 public:
  valijson::constraints::Constraint* make(const Adapter& value) const override {
    if (!value.isNumber() || !(value.getNumber() > 0)) {
      Malformed("\"multipleOf\" must be a number above 0");
    }
    return new MultipleOfKeyword(value.getNumber(), NumberText(value));
  }
};

class FalseBuilder : public valijson::ConstraintBuilder {
 public:
  valijson::constraints::Constraint* make(const Adapter&) const override {
    return new FalseKeyword();
  }
};

class MembersBuilder : public valijson::ConstraintBuilder {
 public:
  MembersBuilder(const JsonValue& lowered, CheckerSchemas& schemas)
      : lowered_(lowered), schemas_(schemas) {}

  valijson::constraints::Constraint* make(const Adapter& value) const override {
    const std::string at = TextOf(value, "svMembers");
    rapidjson::GenericPointer<JsonValue> pointer(at.c_str(), at.size());
    const JsonValue* node = pointer.IsValid() ? pointer.Get(lowered_) : nullptr;
    if (node == nullptr || !node->IsObject()) Malformed("misplaced member rules at " + at);
    auto keyword = std::make_unique<MembersKeyword>();
    if (auto properties = node->FindMember("properties"); properties != node->MemberEnd()) {
      for (const auto& member : properties->value.GetObject()) {
        keyword->described.emplace(member.name.GetString(), member.name.GetStringLength());
      }
    }
    if (auto patterns = node->FindMember(kPatternSchemas); patterns != node->MemberEnd()) {
      for (const auto& member : patterns->value.GetObject()) {
        std::string source(member.name.GetString(), member.name.GetStringLength());
        keyword->patterns.push_back(
            {Compile(source), schemas_.At(at + "/" + kPatternSchemas + "/" + Escape(source))});
      }
    }
    if (auto additional = node->FindMember(kAdditionalSchema); additional != node->MemberEnd()) {
      if (additional->value.IsBool()) {
        keyword->closed = !additional->value.GetBool();
      } else {
        keyword->additional = schemas_.At(at + "/" + kAdditionalSchema);
      }
    }
    if (node->HasMember(kNamesSchema)) keyword->names = schemas_.At(at + "/" + kNamesSchema);
    return keyword.release();
  }

 private:
  static std::string Escape(const std::string& token) { return PointerOf({token}).substr(1); }

  const JsonValue& lowered_;
  CheckerSchemas& schemas_;
};

}  // namespace

CheckerSchemas::CheckerSchemas(const JsonValue& lowered) : lowered_(lowered) {
  root_ = std::make_unique<valijson::Schema>();
  Populate(lowered_, *root_);
}

const valijson::Schema* CheckerSchemas::At(const std::string& pointer) {
  auto found = at_.find(pointer);
  if (found != at_.end()) return found->second.get();  // done, or being built (a cycle)
  valijson::Schema* schema =
      at_.emplace(pointer, std::make_unique<valijson::Schema>()).first->second.get();
  // The whole lowered document with a root reference to `pointer`, so that
  // local references inside the schema still resolve.
  auto document = std::make_unique<KorvoSetvault::JsonDocument>();
  CopyOwned(lowered_, *document);
  const std::string fragment = FragmentOf(pointer);
  document->RemoveMember("$ref");
  document->AddMember("$ref", JsonValue(fragment.c_str(), document->GetAllocator()),
                      document->GetAllocator());
  const KorvoSetvault::JsonDocument& kept =
      *documents_.emplace(pointer, std::move(document)).first->second;
  Populate(kept, *schema);
  return schema;
}

void CheckerSchemas::Populate(const JsonValue& document, valijson::Schema& schema) {
  valijson::SchemaParser parser(valijson::SchemaParser::kDraft7);
  // The parser owns and deletes its builders.
  parser.addConstraintBuilder(kTypeKeyword, new TypeBuilder());
  parser.addConstraintBuilder(kPatternKeyword, new PatternBuilder());
  parser.addConstraintBuilder(kFormatKeyword, new FormatBuilder());
  parser.addConstraintBuilder(kMultipleOfKeyword, new MultipleOfBuilder());
  parser.addConstraintBuilder(kFalseKeyword, new FalseBuilder());
  parser.addConstraintBuilder(kMembersKeyword, new MembersBuilder(lowered_, *this));
  parser.populateSchema(valijson::adapters::RapidJsonAdapter(document), schema);
}

}  // namespace internal
}  // namespace JsonValidator
