// The deep checks of a definition: its "schema" against the meta-schema of
// the supported dialect, references, compilation, and its defaults.
#include <memory>
#include <string>
#include <vector>

#include "document/setvault_document.h"
#include "jsonschema/json_validator.h"
#include "schema/schema_definition.h"
#include "setvault/exceptions.h"

namespace KorvoSchemaStore {

using KorvoSetvault::JsonValue;

namespace {

// The keywords of a schema node below the root ("$id" and "$schema" are
// allowed at the root only). Annotations are accepted and not checked;
// "vital", "cached", "solutionUser", "instanceIdProperty" and
// "generatedInstanceId" are the library's own.
constexpr const char kNodeKeywords[] = R"(
  "$ref": {"type": "string", "pattern": "^#"},
  "$comment": {"type": "string"},
  "title": {"type": "string"},
  "description": {"type": "string"},
  "default": {},
  "readOnly": {"type": "boolean"},
  "writeOnly": {"type": "boolean"},
  "examples": {"type": "array"},
  "multipleOf": {"type": "number", "exclusiveMinimum": 0},
  "maximum": {"type": "number"},
  "exclusiveMaximum": {"type": "number"},
  "minimum": {"type": "number"},
  "exclusiveMinimum": {"type": "number"},
  "maxLength": {"$ref": "#/definitions/count"},
  "minLength": {"$ref": "#/definitions/count"},
  "pattern": {"type": "string", "format": "regex"},
  "additionalItems": {"$ref": "#/definitions/node"},
  "items": {"if": {"type": "array"}, "then": {"$ref": "#/definitions/nodes"},
            "else": {"$ref": "#/definitions/node"}},
  "maxItems": {"$ref": "#/definitions/count"},
  "minItems": {"$ref": "#/definitions/count"},
  "uniqueItems": {"type": "boolean"},
  "contains": {"$ref": "#/definitions/node"},
  "maxProperties": {"$ref": "#/definitions/count"},
  "minProperties": {"$ref": "#/definitions/count"},
  "required": {"$ref": "#/definitions/names"},
  "additionalProperties": {"$ref": "#/definitions/node"},
  "definitions": {"type": "object", "additionalProperties": {"$ref": "#/definitions/node"}},
  "properties": {"type": "object", "additionalProperties": {"$ref": "#/definitions/node"}},
  "patternProperties": {"type": "object", "additionalProperties": {"$ref": "#/definitions/node"},
                        "propertyNames": {"format": "regex"}},
  "dependencies": {"type": "object", "additionalProperties": {
      "if": {"type": "array"}, "then": {"$ref": "#/definitions/names"},
      "else": {"$ref": "#/definitions/node"}}},
  "propertyNames": {"$ref": "#/definitions/node"},
  "const": {},
  "enum": {"type": "array", "minItems": 1},
  "type": {"type": ["string", "array"], "items": {"$ref": "#/definitions/typeName"},
           "minItems": 1, "uniqueItems": true,
           "if": {"type": "string"}, "then": {"$ref": "#/definitions/typeName"}},
  "format": {"enum": ["date", "time", "date-time", "ipv4", "ipv6", "hostname", "regex"]},
  "if": {"$ref": "#/definitions/node"},
  "then": {"$ref": "#/definitions/node"},
  "else": {"$ref": "#/definitions/node"},
  "allOf": {"$ref": "#/definitions/nodes"},
  "anyOf": {"$ref": "#/definitions/nodes"},
  "oneOf": {"$ref": "#/definitions/nodes"},
  "not": {"$ref": "#/definitions/node"},
  "vital": {"type": "boolean"},
  "cached": {"type": "boolean"},
  "solutionUser": {"type": "boolean"},
  "instanceIdProperty": {"type": "string"},
  "generatedInstanceId": {"type": "boolean"})";

std::string MetaSchemaText() {
  return std::string(R"({"type": "object", "additionalProperties": false, "properties": {
      "$schema": {"enum": ["http://json-schema.org/draft-07/schema#",
                           "http://json-schema.org/draft-07/schema"]},
      "$id": {"type": "string"},)") +
         kNodeKeywords + R"(},
    "definitions": {
      "node": {"type": ["object", "boolean"], "additionalProperties": false,
               "properties": {)" +
         kNodeKeywords + R"(}},
      "nodes": {"type": "array", "minItems": 1, "items": {"$ref": "#/definitions/node"}},
      "names": {"type": "array", "items": {"type": "string"}},
      "count": {"type": "integer", "minimum": 0},
      "typeName": {"enum": ["array", "boolean", "integer", "null", "number", "object",
                            "string"]}}})";
}

const JsonValue& MetaSchema() {
  static const auto* meta =  // never destroyed
      new std::shared_ptr<KorvoSetvault::JsonDoc>(
          KorvoSetvault::CreateDocumentFromString(MetaSchemaText()));
  return *(*meta)->GetJsonValuePtr();
}

// "member 'x' is not described in the schema" from the meta-schema means an
// unknown keyword.
std::string KeywordFinding(const std::string& error) {
  const std::string prefix = "member '";
  const std::string suffix = "' is not described in the schema";
  if (error.size() > prefix.size() + suffix.size() &&
      error.compare(0, prefix.size(), prefix) == 0 &&
      error.compare(error.size() - suffix.size(), suffix.size(), suffix) == 0) {
    return "\"" + error.substr(prefix.size(), error.size() - prefix.size() - suffix.size()) +
           "\" is not a supported keyword";
  }
  return error;
}

void AddFindings(const KorvoSetvault::JsonDocument& result, const std::string& base, bool keywords,
                 std::vector<std::string>* faults) {
  for (const auto& finding : result.GetArray()) {
    std::string field = finding["field"].GetString();
    std::string error = finding["error"].GetString();
    if (keywords) error = KeywordFinding(error);
    faults->push_back((field == "/" ? base : base + field) + ": " + error);
  }
}

}  // namespace

void CheckDefinitionSchema(const JsonValue& schema, std::vector<std::string>* faults) {
  KorvoSetvault::JsonDocument result;
  JsonValidator::Validate(MetaSchema(), schema, result, {0}, "setvault/dialect");
  AddFindings(result, "/schema", true, faults);
  if (!result.Empty()) return;
  // What the meta-schema cannot say: references resolve, nothing loops, the
  // whole compiles under every option set of the library.
  KorvoSetvault::JsonDocument empty;
  empty.SetObject();
  try {
    JsonValidator::Validate(schema, empty, result, {0, 1, 3, 7, 8}, "");
  } catch (const KorvoSetvault::SetvaultException& e) {
    faults->push_back(std::string("/schema: ") + e.what());
  }
}

void CheckValueAgainstSchema(const JsonValue& schema, const JsonValue& value,
                             const std::string& pointer_base, std::vector<std::string>* faults,
                             const std::unordered_set<int>& options) {
  KorvoSetvault::JsonDocument result;
  try {
    JsonValidator::Validate(schema, value, result, options, "");
  } catch (const KorvoSetvault::SetvaultException& e) {
    faults->push_back("/schema: " + std::string(e.what()));
    return;
  }
  AddFindings(result, pointer_base, false, faults);
}

std::shared_ptr<const SchemaDefinition> CheckSchemaDefinition(const std::string& text,
                                                              const std::string& origin) {
  auto definition = ParseSchemaDefinition(text, origin);
  std::vector<std::string> faults;
  CheckDefinitionSchema(definition->Schema(), &faults);
  if (faults.empty() && definition->defaults) {
    CheckValueAgainstSchema(definition->Schema(), *definition->defaults->GetJsonValuePtr(),
                            "/defaults", &faults);
  }
  const JsonValue* instances = definition->DefaultInstances();
  for (rapidjson::SizeType i = 0; faults.empty() && instances && i < instances->Size(); ++i) {
    // As a whole-object write of the instance checks it.
    CheckValueAgainstSchema(definition->Schema(), (*instances)[i],
                            "/defaultInstances/" + std::to_string(i), &faults, {0, 1, 7, 8});
  }
  if (faults.empty()) return definition;
  std::string message;
  for (const std::string& fault : faults)
    message += (message.empty() ? "" : "\n") + origin + ": " + fault;
  throw KorvoSetvault::SetvaultException(KorvoSetvault::SV_ERR_GENERIC, message.c_str());
}

}  // namespace KorvoSchemaStore
