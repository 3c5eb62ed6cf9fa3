// Commands that write objects: set, set-user, set-vital, set-cached, update,
// unset, set-instances, delete and delete-instances.
#include <rapidjson/pointer.h>

#include <optional>

#include "setvault_cli/commands.h"
#include "setvault_cli/json_io.h"
#include "setvault_cli/output.h"

namespace setvault_tool {
namespace {

using KorvoSetvault::FilterSpecObject;
using KorvoSetvault::SetvaultObject;
using KorvoSetvault::USERDATA_CONTEXT;

struct WriteArgs {
  Target target;
  std::string json;
  std::string filter;
  std::string path;
  bool auto_config = false;
  bool existing = false;
  bool all = false;
  // set and update: write only while the stored revision is this one (-1: none stored).
  std::optional<int> if_revision;
  std::vector<std::string> words;  // [instance] data of the writers
};

// A new object of the target's type holding `json`, with the instance id
// written into the member the type keeps it in.
std::shared_ptr<SetvaultObject> MakeObject(const KorvoSetvault::SetvaultObjectId& id,
                                           const std::string& json) {
  auto object = std::make_shared<SetvaultObject>(id);
  object->SetData(json.c_str());
  object->SetInstanceIdFromSvoId();
  return object;
}

USERDATA_CONTEXT ContextOf(const WriteArgs& args) {
  USERDATA_CONTEXT context;
  context.kind =
      args.auto_config ? KorvoSetvault::kAutoConfigContext : KorvoSetvault::kExternalContext;
  return context;
}

int PrintStored(KorvoSetvault::Setvault& store, const Target& target) {
  auto object = store.Get(target.Id());
  PrintJson(object ? ObjectToJson(*object) : "null");
  return kExitOk;
}

// The writers, by command name.
int Write(const std::string& writer, WriteArgs& args) {
  if (args.words.size() == 2) {
    if (!args.target.instance.empty()) throw ToolError(kExitUsage, "instance id given twice");
    args.target.instance = args.words[0];
  }
  args.json = args.words.back();
  auto store = OpenStore(Access::kWrite);
  auto object = MakeObject(args.target.Id(), ReadJsonObject(args.json, "data"));
  if (writer == "set" && args.if_revision) {
    store->SetIfRevision(object, *args.if_revision, ContextOf(args));
  } else if (writer == "set") {
    store->Set(object, ContextOf(args));
  } else if (writer == "set-user") {
    store->SetUserData(object, ContextOf(args));
  } else if (writer == "set-vital") {
    store->SetVitalData(object);
  } else if (writer == "set-cached") {
    store->SetCachedData(object);
  } else {
    KorvoSetvault::SetvaultTransaction transaction(store);
    const bool existed = store->Get(args.target.Id()) != nullptr;
    if (!existed && args.existing) {
      throw ToolError(kExitNotFound, "nothing stored for " + args.target.Words() +
                                         "; --existing refuses to create it");
    }
    if (args.if_revision) {
      store->UpdateIfRevision(object, *args.if_revision, ContextOf(args));
    } else {
      store->Update(object, ContextOf(args));
    }
    transaction.Commit();
    if (!existed) Note("created " + args.target.Words() + " (nothing was stored before)");
  }
  return PrintStored(*store, args.target);
}

// unset: removes one member, named as a JSON Pointer ("/ntp/servers") or with
// dots ("ntp.servers"), and writes the object back.
int Unset(const WriteArgs& args) {
  auto store = OpenStore(Access::kWrite);
  KorvoSetvault::SetvaultTransaction transaction(store);
  auto stored = store->Get(args.target.Id());
  if (!stored) throw ToolError(kExitNotFound, "nothing stored for " + args.target.Words());
  std::string pointer = args.path;
  if (pointer.empty() || pointer[0] != '/') {
    pointer = "/" + pointer;
    for (char& c : pointer) c = c == '.' ? '/' : c;
  }
  rapidjson::Document data;
  data.Parse(stored->GetData().c_str());
  if (!rapidjson::Pointer(pointer.c_str()).Erase(data)) {
    throw ToolError(kExitNotFound, args.path + " is not set in " + args.target.Words());
  }
  store->Set(MakeObject(args.target.Id(), Serialize(data)), ContextOf(args));
  transaction.Commit();
  return PrintStored(*store, args.target);
}

int SetInstances(const WriteArgs& args) {
  auto doc = KorvoSetvault::CreateDocumentFromString(ReadJsonObject(args.json, "instances"));
  std::vector<std::shared_ptr<SetvaultObject>> objects;
  for (const auto& member : doc->GetJsonValuePtr()->GetObject()) {
    Target instance = args.target;
    instance.instance.assign(member.name.GetString(), member.name.GetStringLength());
    objects.push_back(MakeObject(instance.Id(), Serialize(member.value)));
  }
  if (objects.empty()) throw ToolError(kExitUsage, "instances: give at least one instance");
  auto store = OpenStore(Access::kWrite);
  store->SetInstances(objects, ContextOf(args));
  PrintJson("{\"written\":" + std::to_string(objects.size()) + "}");
  return kExitOk;
}

int Delete(const Target& target) {
  auto store = OpenStore(Access::kWrite);
  KorvoSetvault::SetvaultTransaction transaction(store);
  if (!store->Get(target.Id()))
    throw ToolError(kExitNotFound, "nothing stored for " + target.Words());
  store->Delete(target.Id());
  transaction.Commit();
  PrintJson("{\"deleted\":1}");
  return kExitOk;
}

int DeleteInstances(const WriteArgs& args) {
  if (args.filter.empty() == !args.all) {
    throw ToolError(kExitUsage, "delete-instances needs either --filter JSON or --all");
  }
  auto store = OpenStore(Access::kWrite);
  auto filter = std::make_shared<FilterSpecObject>(args.target.Id());
  if (!args.filter.empty()) filter->SetData(ReadJsonObject(args.filter, "--filter").c_str());
  KorvoSetvault::SetvaultTransaction transaction(store);
  const size_t count = store->GetInstances(filter).size();
  if (count == 0) {
    throw ToolError(kExitNotFound, "no stored instance of " + args.target.Words() + " matches");
  }
  store->DeleteInstances(filter);
  transaction.Commit();
  PrintJson("{\"deleted\":" + std::to_string(count) + "}");
  return kExitOk;
}

struct Writer {
  const char* name;
  const char* summary;
  const char* description;
  bool auto_config;  // takes --auto
  const char* example;
};

}  // namespace

void AddObjectWriteCommands(CLI::App* app) {
  static WriteArgs args;
  Target& t = args.target;
  const Writer writers[] = {
      {"set", "Store an object, split into its user, vital and cached parts",
       "Stores the whole object. Members the type marks vital or cached go to those\n"
       "columns, the rest is user configuration (auto-configuration with --auto).\n"
       "Columns the data has no part for keep what they hold.",
       true, "korvo net vswitch vs0 '{\"mtu\": 9000}'"},
      {"set-user", "Store the user part of an object",
       "Stores the data as user configuration: what an operator or a management\n"
       "client chose (auto-configuration with --auto). Vital and cached members are refused.",
       true, "korvo system host '{\"hostname\": \"host-01\"}' --auto"},
      {"set-vital", "Store the vital part of an object",
       "Stores members the type marks vital: identity facts of the host that must\n"
       "survive a reset of its configuration (a system UUID, an install date).\n"
       "Other members are refused.",
       false, "korvo system host '{\"systemUuid\": \"4c4c4544-0042\"}'"},
      {"set-cached", "Store the cached part of an object",
       "Stores members the type marks cached: facts the host discovers at run time\n"
       "and can find again (hardware inventory, counters). Other members are refused.",
       false, "korvo system host '{\"cpuModel\": \"EPYC 7543\"}'"},
      {"update", "Merge data into a stored object",
       "Merges the data into the stored object: sub-objects member by member,\n"
       "instance arrays by instance id, other members replaced. Creates the object\n"
       "when nothing is stored and says so (refused with --existing, exit status 3).",
       true, "korvo net vswitch vs0 '{\"teaming\": {\"policy\": \"failover\"}}'"},
  };
  for (const Writer& writer : writers) {
    const std::string name = writer.name;
    auto* command =
        AddCommand(app, name, writer.summary, writer.description,
                   "setvault " + name + " " + writer.example, [name] { return Write(name, args); });
    AddTarget(command, &t, false);
    command
        ->add_option("data", args.words,
                     "[INSTANCE] DATA: the instance id (types with instances only), then the "
                     "data: JSON, @file or -")
        ->required()
        ->expected(1, 2);
    command->add_option("--instance", t.instance, "Instance id (types with instances only)");
    if (writer.auto_config) {
      command->add_flag("--auto", args.auto_config,
                        "Write as the host's auto-configuration, not as user configuration");
    }
    if (name == "update") {
      command->add_flag("--existing", args.existing, "Refuse to create an object not stored");
    }
    if (name == "set" || name == "update") {
      command->add_option("--if-revision", args.if_revision,
                          "Write only while the stored revision is N (-1: nothing stored); "
                          "otherwise fail with error 1105 and write nothing");
    }
  }
  auto* unset =
      AddCommand(app, "unset", "Remove one member of a stored object",
                 "Removes the member PATH (a JSON Pointer such as /ntp/servers, or ntp.servers)\n"
                 "from the stored object and stores the rest. Exit status 3 when it is not set.",
                 "setvault unset korvo system host ntp.servers", [] { return Unset(args); });
  AddTarget(unset, &t, false);
  unset->add_option("path", args.path, "The member: /a/b or a.b")->required();
  unset->add_option("--instance", t.instance, "Instance id (types with instances only)");

  auto* set_instances =
      AddCommand(app, "set-instances", "Store many instances of a type at once",
                 "Stores every instance of the object {instance id: data, ...} in one transaction.",
                 "setvault set-instances korvo net vswitch '{\"vs1\": {\"mtu\": 1500}}'",
                 [] { return SetInstances(args); });
  AddTarget(set_instances, &t, false);
  set_instances->add_option("json", args.json, "{instance id: data}: JSON, @file or -")->required();
  set_instances->add_flag("--auto", args.auto_config, "Write as auto-configuration");

  auto* remove = AddCommand(app, "delete", "Delete a stored object",
                            "Deletes the object (one instance of a type with instances) and\n"
                            "prints how many were deleted. Exit status 3 when nothing is stored.",
                            "setvault delete korvo net vswitch vs2", [] { return Delete(t); });
  AddTarget(remove, &t, true);

  auto* remove_many =
      AddCommand(app, "delete-instances", "Delete the instances matching a filter",
                 "Deletes the stored instances whose data contain every value of --filter, or all\n"
                 "of them with --all, and prints how many. Exit status 3 when none matches.",
                 "setvault delete-instances korvo net vswitch --filter '{\"mtu\": 1500}'",
                 [] { return DeleteInstances(args); });
  AddTarget(remove_many, &t, false);
  remove_many->add_option("--filter", args.filter, "Values to match: JSON, @file or -");
  remove_many->add_flag("--all", args.all, "Delete every instance of the type");
}

}  // namespace setvault_tool
