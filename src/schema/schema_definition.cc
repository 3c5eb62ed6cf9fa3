#include "schema/schema_definition.h"

#include <cctype>
#include <set>

#include "document/json_parse.h"
#include "document/setvault_document.h"
#include "setvault/exceptions.h"

namespace KorvoSchemaStore {

using KorvoSetvault::JsonDoc;
using KorvoSetvault::JsonValue;

const char kGeneratedIdMember[] = "sv_generated_id";
const char kRebootRequiredTag[] = "@rebootRequiredSetvault";

namespace {

const std::set<std::string> kKnownMembers = {"component",
                                             "group",
                                             "key",
                                             "version",
                                             "description",
                                             "instanceIdProperty",
                                             "tags",
                                             "configKind",
                                             "nonUserInstanceIds",
                                             "valueType",
                                             "confirmedDuringUpgrade",
                                             "currentValueDuringBoot",
                                             "defaults",
                                             "defaultInstances",
                                             "schema"};

// The boolean markers a schema node may carry.
const char* const kNodeFlags[] = {"vital", "cached", "solutionUser", "generatedInstanceId"};

// Checks one definition document and fills a SchemaDefinition from it.
class DefinitionChecker {
 public:
  DefinitionChecker(const std::string& origin, SchemaDefinition& out)
      : origin_(origin), out_(out) {}

  void Check(const JsonValue& root) {
    if (!root.IsObject()) Fail("the definition must be a JSON object");
    for (const auto& member : root.GetObject()) {
      if (kKnownMembers.count(member.name.GetString()) == 0) {
        Fail(std::string("unknown member \"") + member.name.GetString() + "\"");
      }
    }
    out_.component = RequiredName(root, "component");
    out_.group = RequiredName(root, "group");
    out_.key = RequiredName(root, "key");
    out_.version = RequiredText(root, "version");
    OptionalText(root, "description");
    if (Has(root, "valueType")) out_.valueType = RequiredName(root, "valueType");
    if (Has(root, "instanceIdProperty")) {
      out_.instanceIdProperty = RequiredName(root, "instanceIdProperty");
    }
    out_.tags = OptionalTextList(root, "tags");
    out_.configKind = OptionalKind(root);
    out_.nonUserInstanceIds = OptionalTextList(root, "nonUserInstanceIds");
    out_.confirmedDuringUpgrade = OptionalBool(root, "confirmedDuringUpgrade");
    out_.currentValueDuringBoot = OptionalBool(root, "currentValueDuringBoot");
    CheckNonUserIds();
    if (Has(root, "defaults") && !root["defaults"].IsObject()) {
      Fail("\"defaults\" must be a JSON object");
    }
    CheckSchema(root);
    CheckDefaultInstances(root);
  }

  // "defaultInstances": the shipped instances of a multi-instance type, each
  // an object naming itself in the type's instance id member with a
  // non-empty string, unique among them. Their data are checked against the
  // schema when definitions are read for loading (schema_loader.cc).
  void CheckDefaultInstances(const JsonValue& root) const {
    if (!Has(root, "defaultInstances")) return;
    const JsonValue& instances = root["defaultInstances"];
    if (out_.instanceIdProperty.empty()) {
      Fail("\"defaultInstances\" needs a multi-instance type (\"instanceIdProperty\")");
    }
    if (!instances.IsArray()) Fail("\"defaultInstances\" must be an array of objects");
    const char* id_member = out_.instanceIdProperty.c_str();
    std::set<std::string> seen;
    for (rapidjson::SizeType i = 0; i < instances.Size(); ++i) {
      const std::string where = "\"defaultInstances\" element " + std::to_string(i);
      const JsonValue& instance = instances[i];
      if (!instance.IsObject()) Fail(where + " must be an object");
      if (!Has(instance, id_member) || !instance[id_member].IsString() ||
          instance[id_member].GetStringLength() == 0) {
        Fail(where + " must name its instance in \"" + out_.instanceIdProperty +
             "\" with a non-empty string");
      }
      const std::string id(instance[id_member].GetString(), instance[id_member].GetStringLength());
      if (!seen.insert(id).second) Fail(where + ": instance \"" + id + "\" is listed twice");
    }
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const {
    throw KorvoSetvault::SetvaultException(KorvoSetvault::SV_ERR_GENERIC,
                                           (origin_ + ": " + what).c_str());
  }

  static bool Has(const JsonValue& object, const char* name) {
    return KorvoSetvault::SetvaultDocument::ValueExists(object, name);
  }

  std::string RequiredText(const JsonValue& root, const char* name) const {
    if (!Has(root, name)) Fail(std::string("\"") + name + "\" is missing");
    const JsonValue& value = root[name];
    if (!value.IsString()) Fail(std::string("\"") + name + "\" must be a string");
    std::string text(value.GetString(), value.GetStringLength());
    if (text.empty()) Fail(std::string("\"") + name + "\" must not be empty");
    return text;
  }

  void OptionalText(const JsonValue& root, const char* name) const {
    if (Has(root, name) && !root[name].IsString()) {
      Fail(std::string("\"") + name + "\" must be a string");
    }
  }

  std::string RequiredName(const JsonValue& root, const char* name) const {
    std::string text = RequiredText(root, name);
    if (!IsValidSchemaName(text)) {
      Fail(std::string("\"") + name + "\" value \"" + text +
           "\" may hold only letters, digits, '_' and '-'");
    }
    return text;
  }

  std::vector<std::string> OptionalTextList(const JsonValue& root, const char* name) const {
    std::vector<std::string> list;
    if (!Has(root, name)) return list;
    const JsonValue& value = root[name];
    if (!value.IsArray()) Fail(std::string("\"") + name + "\" must be an array of strings");
    for (const JsonValue& element : value.GetArray()) {
      if (!element.IsString()) Fail(std::string("\"") + name + "\" must hold strings only");
      list.emplace_back(element.GetString(), element.GetStringLength());
    }
    return list;
  }

  bool OptionalBool(const JsonValue& root, const char* name) const {
    if (!Has(root, name)) return false;
    if (!root[name].IsBool()) Fail(std::string("\"") + name + "\" must be true or false");
    return root[name].GetBool();
  }

  int OptionalKind(const JsonValue& root) const {
    if (!Has(root, "configKind")) return 0;
    const JsonValue& value = root["configKind"];
    if (!value.IsInt() || value.GetInt() < 0) {
      Fail("\"configKind\" must be a non-negative integer");
    }
    return value.GetInt();
  }

  void CheckNonUserIds() const {
    if (out_.nonUserInstanceIds.empty()) return;
    if (out_.configKind != 5) Fail("\"nonUserInstanceIds\" applies to \"configKind\" 5 only");
    if (out_.instanceIdProperty.empty()) {
      Fail("\"nonUserInstanceIds\" needs a multi-instance type (\"instanceIdProperty\")");
    }
  }

  void CheckSchema(const JsonValue& root) {
    if (!Has(root, "schema")) Fail("\"schema\" is missing");
    const JsonValue& schema = root["schema"];
    if (!schema.IsObject()) Fail("\"schema\" must be a JSON object");
    if (!out_.instanceIdProperty.empty()) {
      RequireDescribed(schema, out_.instanceIdProperty, "/schema");
      AddIdMapEntry(out_.key, out_.instanceIdProperty);
    }
    CheckNode(schema, "/schema");
    if (IsTrue(schema, "vital") && IsTrue(schema, "cached")) {
      Fail("a type cannot be both \"vital\" and \"cached\"");
    }
  }

  static bool IsTrue(const JsonValue& node, const char* name) {
    return Has(node, name) && node[name].IsBool() && node[name].GetBool();
  }

  // Refuses an instance id member that a node with "properties" does not describe.
  void RequireDescribed(const JsonValue& node, const std::string& member,
                        const std::string& where) const {
    if (!Has(node, "properties")) return;
    const JsonValue& properties = node["properties"];
    if (properties.IsObject() && !Has(properties, member.c_str())) {
      Fail("schema node " + where + ": instance id member \"" + member +
           "\" is not described under \"properties\"");
    }
  }

  void CheckNode(const JsonValue& node, const std::string& where) {
    if (node.IsBool()) return;  // true accepts anything, false nothing
    if (!node.IsObject()) Fail("schema node " + where + " must be a JSON object or a boolean");
    for (const char* flag : kNodeFlags) {
      if (Has(node, flag) && !node[flag].IsBool()) {
        Fail("schema node " + where + ": \"" + flag + "\" must be true or false");
      }
    }
    if (Has(node, "type")) CheckType(node["type"], where);
    if (Has(node, "properties")) {
      const JsonValue& properties = node["properties"];
      if (!properties.IsObject()) {
        Fail("schema node " + where + ": \"properties\" must be an object");
      }
      for (const auto& property : properties.GetObject()) {
        const std::string name(property.name.GetString(), property.name.GetStringLength());
        const std::string path = where + "/properties/" + name;
        CheckInstanceArray(name, property.value, path);
        CheckNode(property.value, path);
        RequireShape(property.value, path);
      }
    }
    if (Has(node, "items") && node["items"].IsObject()) CheckNode(node["items"], where + "/items");
  }

  // The clean-up of user data walks described members by their "type", into
  // objects by their "properties" and into arrays by their "items": every
  // described member says what it is, so that a write never meets a schema it
  // cannot walk.
  void RequireShape(const JsonValue& node, const std::string& where) const {
    if (node.IsBool()) return;
    if (!Has(node, "type")) Fail("schema node " + where + ": \"type\" is missing");
    const JsonValue& type = node["type"];
    if (!type.IsString()) return;
    const std::string name = type.GetString();
    if (name == "object" && !Has(node, "properties")) {
      Fail("schema node " + where + ": an object needs \"properties\"");
    }
    if (name == "array" && !Has(node, "items")) {
      Fail("schema node " + where + ": an array needs \"items\"");
    }
  }

  // "type" is one JSON type name or a list of them.
  void CheckType(const JsonValue& type, const std::string& where) const {
    static const std::set<std::string> kTypeNames = {"object",  "array",   "string", "number",
                                                     "integer", "boolean", "null"};
    const auto known = [](const JsonValue& name) {
      return name.IsString() && kTypeNames.count(name.GetString()) != 0;
    };
    bool valid = known(type);
    if (type.IsArray()) {
      valid = !type.Empty();
      for (const JsonValue& name : type.GetArray()) valid = valid && known(name);
    }
    if (!valid) Fail("schema node " + where + ": \"type\" must name JSON types");
  }

  // Checks the instance-id markers of the property `name` and records its id map entry.
  void CheckInstanceArray(const std::string& name, const JsonValue& node,
                          const std::string& where) {
    if (!node.IsObject()) return;  // CheckNode reports it
    const bool named = Has(node, "instanceIdProperty");
    const bool generated = IsTrue(node, "generatedInstanceId");
    if (!named && !generated) return;
    if (named && generated) {
      Fail("schema node " + where +
           ": use either \"instanceIdProperty\" or \"generatedInstanceId\", not both");
    }
    const bool is_array = Has(node, "type") && node["type"].IsString() &&
                          std::string(node["type"].GetString()) == "array";
    if (!is_array || !Has(node, "items") || !node["items"].IsObject()) {
      Fail("schema node " + where + ": an instance array needs \"type\": \"array\" and " +
           "object \"items\"");
    }
    std::string id_member = kGeneratedIdMember;
    if (named) {
      const JsonValue& value = node["instanceIdProperty"];
      if (!value.IsString() || !IsValidSchemaName(value.GetString())) {
        Fail("schema node " + where + ": \"instanceIdProperty\" must be a name");
      }
      id_member = value.GetString();
    }
    const JsonValue& items = node["items"];
    if (!Has(items, "properties") || !items["properties"].IsObject() ||
        !Has(items["properties"], id_member.c_str())) {
      Fail("schema node " + where + "/items: instance id member \"" + id_member +
           "\" is not described under \"properties\"");
    }
    AddIdMapEntry(name, id_member);
  }

  void AddIdMapEntry(const std::string& key, const std::string& id_member) {
    JsonValue& map = *out_.idMap->GetJsonValuePtr();
    auto& allocator = out_.idMap->GetAllocator();
    auto found = map.FindMember(key.c_str());
    if (found != map.MemberEnd()) {
      if (id_member != found->value.GetString()) {
        Fail("instances of \"" + key + "\" are told apart by \"" + found->value.GetString() +
             "\" in one place and by \"" + id_member + "\" in another");
      }
      return;
    }
    map.AddMember(JsonValue(key.c_str(), allocator), JsonValue(id_member.c_str(), allocator),
                  allocator);
  }

  const std::string& origin_;
  SchemaDefinition& out_;
};

}  // namespace

const JsonValue& SchemaDefinition::Schema() const {
  return (*document->GetJsonValuePtr())["schema"];
}

const JsonValue* SchemaDefinition::DefaultInstances() const {
  const JsonValue& root = *document->GetJsonValuePtr();
  auto member = root.FindMember("defaultInstances");
  return member == root.MemberEnd() ? nullptr : &member->value;
}

bool IsValidSchemaName(const std::string& name) {
  if (name.empty()) return false;
  for (unsigned char c : name) {
    if (!std::isalnum(c) && c != '_' && c != '-') return false;
  }
  return true;
}

std::shared_ptr<const SchemaDefinition> ParseSchemaDefinition(const std::string& text,
                                                              const std::string& origin) {
  auto definition = std::make_shared<SchemaDefinition>();
  definition->document = KorvoSetvault::CreateDocument();
  auto& document = definition->document->GetDocument();
  std::string fault;
  if (!KorvoSetvault::ParseJsonText(text, document, &fault)) {
    throw KorvoSetvault::SetvaultException(KorvoSetvault::SV_ERR_GENERIC,
                                           (origin + ": not valid JSON " + fault).c_str());
  }
  definition->idMap = KorvoSetvault::CreateDocument();
  definition->idMap->GetDocument().SetObject();
  DefinitionChecker(origin, *definition).Check(document);
  // The schema of a multi-instance type names the member that holds the
  // object's own instance id, so that checks of the data accept it wherever
  // they only accept tagged members.
  KorvoSetvault::JsonValue& schema = document["schema"];
  if (!definition->instanceIdProperty.empty() &&
      !KorvoSetvault::SetvaultDocument::ValueExists(schema, "instanceIdProperty")) {
    auto& allocator = document.GetAllocator();
    schema.AddMember("instanceIdProperty",
                     KorvoSetvault::JsonValue(definition->instanceIdProperty.c_str(), allocator),
                     allocator);
  }
  if (KorvoSetvault::SetvaultDocument::ValueExists(document, "defaults")) {
    KorvoSetvault::JsonNode step;
    step.name = "defaults";
    definition->defaults = definition->document->MakeView(std::move(step));
  }
  definition->text = KorvoSetvault::SetvaultDocument::SerializeValue(document);
  return definition;
}

}  // namespace KorvoSchemaStore
