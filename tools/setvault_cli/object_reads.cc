// Commands that read objects: get, default, instances, ids, revisions, ls and
// validate.
#include <iostream>

#include "setvault_cli/commands.h"
#include "setvault_cli/json_io.h"
#include "setvault_cli/output.h"

namespace setvault_tool {
namespace {

using KorvoSetvault::FilterSpecObject;
using KorvoSetvault::JsonValue;
using KorvoSetvault::SetvaultObject;

struct ReadArgs {
  Target target;
  std::string filter;
  std::string json;
  std::string document;
  bool effective = false;
  bool origin = false;
};

std::shared_ptr<FilterSpecObject> MakeFilter(const Target& target, const std::string& json) {
  auto filter = std::make_shared<FilterSpecObject>(target.Id());
  if (!json.empty()) filter->SetData(ReadJsonObject(json, "--filter").c_str());
  return filter;
}

int PrintFound(const Target& target, const std::shared_ptr<SetvaultObject>& object,
               const std::string& data) {
  if (!object) {
    Note("nothing stored for " + target.Words());
    return kExitNotFound;
  }
  PrintJson(ObjectToJson(*object, data));
  return kExitOk;
}

// get: the stored data, with --effective the type's defaults for members not
// stored, and with --origin an "origin" map of member to the origin that
// supplied it (defaults only with --effective).
int Get(const ReadArgs& args) {
  auto object = OpenStore(Access::kRead)->Get(args.target.Id());
  if (!object || (!args.effective && !args.origin)) {
    return PrintFound(args.target, object, object ? object->GetData() : "");
  }
  auto data_doc = KorvoSetvault::CreateDocumentFromString(object->GetData());
  JsonValue& data = *data_doc->GetJsonValuePtr();
  auto& allocator = data_doc->GetAllocator();
  if (args.effective) {
    auto definition_doc = FindDefinition(args.target);
    const JsonValue& definition = *definition_doc->GetJsonValuePtr();
    auto defaults = definition.FindMember("defaults");
    if (defaults != definition.MemberEnd() && defaults->value.IsObject()) {
      for (const auto& member : defaults->value.GetObject()) {
        if (data.HasMember(member.name) || member.value.IsNull()) continue;
        data.AddMember(JsonValue(member.name, allocator), JsonValue(member.value, allocator),
                       allocator);
      }
    }
  }
  std::string text = ObjectToJson(*object, Serialize(data));
  if (args.origin) {
    // In the order of the members shown; defaults appear only when shown.
    const auto origins = KorvoSetvault::GetMemberOrigins(args.target.Id());
    std::string origin = "{";
    for (const auto& member : data.GetObject()) {
      auto found = origins.find(std::string(member.name.GetString(), member.name.GetStringLength()));
      if (found == origins.end()) continue;
      origin += (origin.size() > 1 ? "," : "") + Quote(found->first) + ":" + Quote(found->second);
    }
    text = text.substr(0, text.size() - 1) + ",\"origin\":" + origin + "}}";
  }
  PrintJson(text);
  return kExitOk;
}

// ls: one entry per stored object of every loaded type (of one component or
// group when given).
int List(const Target& scope) {
  auto store = OpenStore(Access::kRead);
  std::string list = "[";
  auto add = [&list](const Target& t) {
    list += std::string(list.size() > 1 ? "," : "") + "{\"component\":" + Quote(t.component) +
            ",\"group\":" + Quote(t.group) + ",\"key\":" + Quote(t.key) +
            ",\"instanceId\":" + Quote(t.instance) + "}";
  };
  CheckSchemaDatabase();
  for (const auto& type : KorvoSetvault::ListSchemaDefinitions()) {
    if ((!scope.component.empty() && type.component != scope.component) ||
        (!scope.group.empty() && type.group != scope.group)) {
      continue;
    }
    Target target{type.component, type.group, type.key, ""};
    auto definition = KorvoSetvault::CreateDocumentFromString(type.definition);
    if (definition->GetJsonValuePtr()->HasMember("instanceIdProperty")) {
      for (const auto& id : store->GetInstanceIds(target.Id())) {
        target.instance = id;
        add(target);
      }
    } else if (store->Get(target.Id())) {
      add(target);
    }
  }
  PrintJson(list + "]");
  return kExitOk;
}

// validate: the findings of one object, or of a whole document, against the
// schemas; writes nothing.
int Validate(const ReadArgs& args) {
  std::vector<KorvoSetvault::ErrorInfo> findings;
  if (!args.document.empty()) {
    CheckSchemaDatabase();
    try {
      KorvoSetvault::ComputeDocumentDrift(ReadDocumentFile(args.document), "{}");
    } catch (const KorvoSetvault::ValidationException& e) {
      findings = e.GetErrors();
    }
  } else {
    if (args.target.key.empty() || args.json.empty()) {
      throw ToolError(kExitUsage,
                      "give a type and its data (component group key JSON), "
                      "or --document FILE");
    }
    auto object = std::make_shared<SetvaultObject>(args.target.Id());
    object->SetData(ReadJsonObject(args.json, "data").c_str());
    object->SetInstanceIdFromSvoId();
    findings = OpenStore(Access::kRead)->Validate(object);
  }
  PrintJson(FindingsToJson(findings));
  return findings.empty() ? kExitOk : kExitRefused;
}

}  // namespace

void AddObjectReadCommands(CLI::App* app) {
  static ReadArgs args;
  Target& t = args.target;
  auto* get = AddCommand(
      app, "get", "Print a stored object",
      "Prints the object stored for a type (and instance) with its revision and times (UTC).\n"
      "--effective also shows the type's defaults for members not stored; --origin adds\n"
      "which origin (vital, cached, auto, user, or default with --effective) supplied\n"
      "each top-level member.\n"
      "Exit status 3 when nothing is stored.",
      "setvault get korvo net vswitch vs0 --effective", [] { return Get(args); });
  AddTarget(get, &t, true);
  get->add_flag("--effective", args.effective, "Fill in the type's defaults");
  get->add_flag("--origin", args.origin, "Show the column each member came from");

  auto* shipped =
      AddCommand(app, "default", "Print the shipped default of an object",
                 "Prints the default object the type's definition ships (exit status 3 when none).",
                 "setvault default korvo system host", [] {
                   auto object = OpenStore(Access::kRead)->GetDefaultConfig(args.target.Id());
                   return PrintFound(args.target, object, object ? object->GetData() : "");
                 });
  AddTarget(shipped, &t, true);

  for (bool defaults : {false, true}) {
    auto* list = AddCommand(
        app, defaults ? "default-instances" : "instances",
        defaults ? "List the shipped default instances of a type"
                 : "List the stored instances of a type",
        std::string("Prints every ") + (defaults ? "shipped default" : "stored") +
            " instance of the type, or those whose data contain every value of --filter.",
        std::string("setvault ") + (defaults ? "default-instances" : "instances") +
            " korvo net vswitch --filter '{\"mtu\": 9000}'",
        [defaults] {
          auto store = OpenStore(Access::kRead);
          auto filter = MakeFilter(args.target, args.filter);
          PrintJson(ObjectsToJson(defaults ? store->GetDefaultConfigInstances(filter)
                                           : store->GetInstances(filter)));
          return kExitOk;
        });
    AddTarget(list, &t, false);
    list->add_option("--filter", args.filter, "Values to match: JSON, @file or -");
  }

  auto* ids = AddCommand(app, "ids", "List the stored instance ids of a type",
                         "Prints the instance ids stored for the type, as a JSON array.",
                         "setvault ids korvo net vswitch", [] {
                           PrintJson(QuoteAll(OpenStore(Access::kRead)->GetInstanceIds(t.Id())));
                           return kExitOk;
                         });
  ids->alias("instance-ids");
  AddTarget(ids, &t, false);

  auto* revision = AddCommand(
      app, "revision", "Print the revision of a stored object",
      "Prints the revision number of the stored object; it rises by one with every write.\n"
      "Exit status 3 when nothing is stored.",
      "setvault revision korvo system host", [] {
        const int stored = OpenStore(Access::kRead)->GetRevision(t.Id());
        if (stored < 0) return PrintFound(t, nullptr, "");
        std::cout << stored << "\n";
        return static_cast<int>(kExitOk);
      });
  AddTarget(revision, &t, true);
  auto* revisions = AddCommand(
      app, "revisions", "Print the revision of every stored instance",
      "Prints {instance id: revision} for the stored instances of a type (one when named).",
      "setvault revisions korvo net vswitch", [] {
        std::string map = "{";
        for (const auto& [id, rev] : OpenStore(Access::kRead)->GetInstancesRevision(t.Id())) {
          map += (map.size() > 1 ? "," : "") + Quote(id) + ":" + std::to_string(rev);
        }
        PrintJson(map + "}");
        return kExitOk;
      });
  AddTarget(revisions, &t, true);

  auto* ls = AddCommand(app, "ls", "List every stored object",
                        "Lists the identity of every stored object, optionally of one component\n"
                        "or one group only.",
                        "setvault ls korvo net", [] { return List(args.target); });
  ls->add_option("component", t.component, "Only this component");
  ls->add_option("group", t.group, "Only this group");

  auto* validate = AddCommand(
      app, "validate", "Check data against its type without writing it",
      "Checks an object's data (or with --document a whole configuration document, as\n"
      "`import` reads it) against the type definitions and prints every finding as\n"
      "{\"field\", \"error\"}. Nothing is written. Exit status 4 when there are findings.",
      "setvault validate korvo system host '{\"hostname\": 42}'", [] { return Validate(args); });
  validate->add_option("component", t.component, "Component, e.g. korvo");
  validate->add_option("group", t.group, "Group of the type");
  validate->add_option("key", t.key, "Key of the type");
  validate->add_option("json", args.json, "Data: JSON, @file or -");
  validate->add_option("--instance", t.instance, "Instance id");
  validate->add_option("--document", args.document,
                       "A configuration document file, or - for standard input");
}

}  // namespace setvault_tool
