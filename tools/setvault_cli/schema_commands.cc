// Commands on type definitions: schema load, check, list and show.
#include <filesystem>
#include <map>
#include <set>

#include "setvault_cli/commands.h"
#include "setvault_cli/json_io.h"
#include "setvault_cli/output.h"

namespace setvault_tool {
namespace {

using KorvoSetvault::JsonValue;

struct SchemaArgs {
  std::string directory;
  bool replace_all = false;
  bool force = false;
  Target target;
};

std::string Name(const std::string& component, const std::string& group, const std::string& key) {
  return component + " " + group + " " + key;
}

// The *.json files of `directory`, sorted.
std::vector<std::string> DefinitionFiles(const std::string& directory) {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    if (entry.path().extension() == ".json") files.push_back(entry.path().string());
  }
  if (error) throw ToolError(kExitFailed, "cannot read " + directory + ": " + error.message());
  std::sort(files.begin(), files.end());
  return files;
}

// The type names the definitions of `directory` define (unreadable ones are
// left to the library's check).
std::set<std::string> TypesIn(const std::string& directory) {
  std::set<std::string> types;
  for (const std::string& file : DefinitionFiles(directory)) {
    try {
      auto doc = KorvoSetvault::CreateDocumentFromFile(file);
      const JsonValue& d = *doc->GetJsonValuePtr();
      types.insert(Name(d["component"].GetString(), d["group"].GetString(), d["key"].GetString()));
    } catch (const std::exception&) {
    }
  }
  return types;
}

// The number of objects stored for a loaded type.
size_t StoredCount(KorvoSetvault::Setvault& store,
                   const KorvoSetvault::StoredSchemaDefinition& type) {
  const KorvoSetvault::SetvaultObjectId id(type.key, type.group, type.component);
  auto definition = KorvoSetvault::CreateDocumentFromString(type.definition);
  if (definition->GetJsonValuePtr()->HasMember("instanceIdProperty")) {
    return store.GetInstanceIds(id).size();
  }
  return store.Get(id) ? 1 : 0;
}

int Load(const SchemaArgs& args) {
  CheckStore(Access::kWrite);
  std::vector<std::string> dropped;
  if (args.replace_all) {
    const std::set<std::string> kept = TypesIn(args.directory);
    std::string busy;
    std::error_code error;
    const bool loaded_before = std::filesystem::exists(KorvoSetvault::GetSchemaStorePath(), error);
    const bool stored_before = std::filesystem::exists(KorvoSetvault::GetStorePath(), error);
    auto store = stored_before ? OpenStore(Access::kRead) : nullptr;
    for (const auto& type : loaded_before ? KorvoSetvault::ListSchemaDefinitions()
                                          : std::vector<KorvoSetvault::StoredSchemaDefinition>{}) {
      const std::string name = Name(type.component, type.group, type.key);
      if (kept.count(name) > 0) continue;
      dropped.push_back(name);
      const size_t count = store ? StoredCount(*store, type) : 0;
      if (count > 0) busy += "\n  " + name + " (" + std::to_string(count) + " stored)";
    }
    if (!busy.empty() && !args.force) {
      throw ToolError(kExitFailed,
                      "refusing to drop types that still have stored objects, which could no "
                      "longer be read, written or deleted:" +
                          busy + "\nload their definitions too, or give --force to drop them");
    }
  }
  const size_t count = KorvoSetvault::LoadSchemaDefinitions(
      args.directory, args.replace_all ? KorvoSetvault::SchemaLoadMode::kReplaceAll
                                       : KorvoSetvault::SchemaLoadMode::kMerge);
  for (const std::string& name : dropped) Note("dropped the type " + name);
  PrintJson("{\"loaded\":" + std::to_string(count) + ",\"dropped\":" + QuoteAll(dropped) + "}");
  return kExitOk;
}

// check: every file with its type, or with the faults the library found in it.
int Check(const std::string& directory) {
  std::string faults;
  size_t valid = 0;
  try {
    valid = KorvoSetvault::CheckSchemaDefinitions(directory);
  } catch (const KorvoSetvault::SetvaultException& e) {
    faults = e.what();
  }
  const std::vector<std::string> files = DefinitionFiles(directory);
  if (files.empty()) throw ToolError(kExitFailed, directory + " holds no *.json definition");
  std::string report = "[";
  for (const std::string& file : files) {
    std::vector<std::string> lines;
    for (size_t at = faults.find(file + ": "); at != std::string::npos;
         at = faults.find(file + ": ", at + 1)) {
      const size_t end = faults.find('\n', at);
      lines.push_back(faults.substr(at + file.size() + 2,
                                    end == std::string::npos ? end : end - at - file.size() - 2));
    }
    report += (report.size() > 1 ? "," : "") + std::string("{\"file\":") + Quote(file) +
              ",\"ok\":" + (faults.empty() || lines.empty() ? "true" : "false") +
              (lines.empty() ? "" : ",\"faults\":" + QuoteAll(lines)) + "}";
  }
  PrintJson(report + "]");
  if (faults.empty()) return valid > 0 ? kExitOk : kExitFailed;
  if (report.find("\"ok\":false") == std::string::npos) throw ToolError(kExitFailed, faults);
  return kExitRefused;
}

int List() {
  CheckSchemaDatabase();
  std::string list = "[";
  for (const auto& type : KorvoSetvault::ListSchemaDefinitions()) {
    auto doc = KorvoSetvault::CreateDocumentFromString(type.definition);
    const JsonValue& d = *doc->GetJsonValuePtr();
    auto text = [&d](const char* member) {
      auto it = d.FindMember(member);
      return it != d.MemberEnd() && it->value.IsString() ? Quote(it->value.GetString()) : "null";
    };
    list += std::string(list.size() > 1 ? "," : "") + "{\"component\":" + Quote(type.component) +
            ",\"group\":" + Quote(type.group) + ",\"key\":" + Quote(type.key) +
            ",\"version\":" + text("version") +
            ",\"instanceIdProperty\":" + text("instanceIdProperty") +
            ",\"description\":" + text("description") + "}";
  }
  PrintJson(list + "]");
  return kExitOk;
}

// Collects the JSON Pointers of the members flagged vital, cached or
// solutionUser, and of the instance arrays with their id member.
void Walk(const JsonValue& schema, const std::string& pointer,
          std::map<std::string, std::vector<std::string>>* flagged, std::string* arrays) {
  if (!schema.IsObject()) return;
  for (const char* flag : {"vital", "cached", "solutionUser"}) {
    auto it = schema.FindMember(flag);
    if (it != schema.MemberEnd() && it->value.IsBool() && it->value.GetBool()) {
      (*flagged)[flag].push_back(pointer);
    }
  }
  auto id = schema.FindMember("instanceIdProperty");
  if (!pointer.empty() && id != schema.MemberEnd() && id->value.IsString()) {
    *arrays +=
        (arrays->size() > 1 ? "," : "") + Quote(pointer) + ":" + Quote(id->value.GetString());
  }
  auto properties = schema.FindMember("properties");
  if (properties != schema.MemberEnd() && properties->value.IsObject()) {
    for (const auto& member : properties->value.GetObject()) {
      Walk(member.value, pointer + "/" + member.name.GetString(), flagged, arrays);
    }
  }
  auto items = schema.FindMember("items");
  if (items != schema.MemberEnd()) Walk(items->value, pointer + "/*", flagged, arrays);
}

int Show(const Target& target) {
  auto doc = FindDefinition(target);
  JsonValue& d = *doc->GetJsonValuePtr();
  std::map<std::string, std::vector<std::string>> flagged;
  std::string arrays = "{";
  if (d.HasMember("schema")) Walk(d["schema"], "", &flagged, &arrays);
  std::string text = Serialize(d);
  text.pop_back();
  for (const char* flag : {"vital", "cached", "solutionUser"}) {
    text += std::string(",\"") + flag + "Members\":" + QuoteAll(flagged[flag]);
  }
  PrintJson(text + ",\"instanceArrays\":" + arrays + "}}");
  return kExitOk;
}

}  // namespace

void AddSchemaCommands(CLI::App* app) {
  static SchemaArgs args;
  CLI::App* schema = app->add_subcommand("schema", "Load, check and show type definitions");
  schema->require_subcommand(1);
  auto* load =
      AddCommand(schema, "load", "Load a directory of type definitions",
                 "Adds the *.json type definitions of DIR and replaces those of the same types;\n"
                 "other loaded types are kept. With --replace-all the loaded types become exactly\n"
                 "those of DIR: dropping a type that still has stored objects is refused unless\n"
                 "--force is given, and every dropped type is listed.",
                 "setvault schema load /usr/share/setvault/schemas", [] { return Load(args); });
  load->add_option("directory", args.directory, "Directory of *.json definitions")->required();
  load->add_flag("--replace-all", args.replace_all, "Drop the loaded types DIR does not define");
  load->add_flag("--force", args.force, "With --replace-all, drop types that have stored objects");

  auto* check =
      AddCommand(schema, "check", "Check a directory of type definitions without loading them",
                 "Checks every *.json definition of DIR and reports each file: ok, or its faults\n"
                 "as JSON Pointer and text. Exit status 4 when a definition is refused.",
                 "setvault schema check ./schemas", [] { return Check(args.directory); });
  check->add_option("directory", args.directory, "Directory of *.json definitions")->required();

  AddCommand(schema, "list", "List the loaded types",
             "Lists every loaded type with its version, instance id member (null for a\n"
             "type with one object) and description.",
             "setvault schema list", [] { return List(); });
  auto* show =
      AddCommand(schema, "show", "Show the definition of a type",
                 "Prints the type's definition (schema, defaults, default instances) followed by\n"
                 "the members it marks vital, cached and solutionUser and its instance arrays.",
                 "setvault schema show korvo net vswitch", [] { return Show(args.target); });
  AddTarget(show, &args.target, false);
}

}  // namespace setvault_tool
