// setvault: the command-line tool of the host's configuration store.
//
//   setvault --store /var/lib/host/store.db schema load /usr/share/host/schemas
//   setvault set korvo net vswitch vs0 '{"mtu": 9000}'
//   setvault get korvo net vswitch vs0
//
// Every command prints JSON. Exit status: 0 success, 1 a library error (its
// code and message on standard error), 2 a usage error, 3 nothing stored.
#include <CLI/CLI.hpp>

#include <cstdlib>
#include <iostream>

#include "setvault_cli/commands.h"

namespace {

using setvault_tool::Target;
using setvault_tool::WriteOptions;

constexpr char kStoreVariable[] = "SETVAULT_STORE";
constexpr char kSchemaVariable[] = "SETVAULT_SCHEMA_DB";

// Adds the component / group / key [instance] arguments to `command`.
void AddTarget(CLI::App* command, Target* target, bool with_instance) {
  command->add_option("component", target->component, "Component, e.g. korvo")->required();
  command->add_option("group", target->group, "Configuration group")->required();
  command->add_option("key", target->key, "Configuration key")->required();
  if (with_instance) command->add_option("instance", target->instance, "Instance id");
}

void ReportError(const KorvoSetvault::SetvaultException& e) {
  std::cerr << "setvault: error " << e.GetErrorCode() << ": " << e.what() << "\n";
  if (const auto* validation = dynamic_cast<const KorvoSetvault::ValidationException*>(&e)) {
    for (const auto& finding : validation->GetErrors()) {
      std::cerr << "  " << finding.path << ": " << finding.message << "\n";
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"setvault: read and write the host's configuration store"};
  app.require_subcommand(1);
  std::string store_path = std::getenv(kStoreVariable) ? std::getenv(kStoreVariable) : "";
  std::string schema_path = std::getenv(kSchemaVariable) ? std::getenv(kSchemaVariable) : "";
  int verbosity = -1;  // the tool reports failures itself
  app.add_option("--store", store_path, "Store database (default $SETVAULT_STORE or the system store)");
  app.add_option("--schema-db", schema_path,
                 "Schema database (default $SETVAULT_SCHEMA_DB or the system one)");
  app.add_option("-v,--verbosity", verbosity, "Also log library lines up to this priority on stderr (0-4)");

  Target target;
  WriteOptions write;
  std::string directory;
  std::string filter;
  bool merge = false;
  int status = 0;
  auto run = [&status](auto command) { return [&status, command] { status = command(); }; };

  CLI::App* schema = app.add_subcommand("schema", "Type definitions");
  schema->require_subcommand(1);
  auto* load = schema->add_subcommand("load", "Load a directory of definitions");
  load->add_option("directory", directory)->required();
  load->add_flag("--merge", merge, "Keep definitions of types the directory lacks");
  load->callback(run([&] { return setvault_tool::LoadSchemas(directory, merge); }));
  auto* check = schema->add_subcommand("check", "Check a directory of definitions");
  check->add_option("directory", directory)->required();
  check->callback(run([&] { return setvault_tool::CheckSchemas(directory); }));

  struct Read {
    const char* name;
    const char* help;
    bool instance;
    int (*handler)(const Target&);
  };
  for (const Read& read : {Read{"get", "Print a stored object", true, setvault_tool::Get},
                           Read{"default", "Print a shipped default", true, setvault_tool::GetDefault},
                           Read{"instance-ids", "List stored instance ids", false,
                                setvault_tool::InstanceIds},
                           Read{"revision", "Print an object's revision", true, setvault_tool::Revision},
                           Read{"revisions", "Print the revisions of instances", true,
                                setvault_tool::Revisions},
                           Read{"delete", "Delete an object", true, setvault_tool::Delete}}) {
    auto* command = app.add_subcommand(read.name, read.help);
    AddTarget(command, &target, read.instance);
    auto handler = read.handler;
    command->callback(run([&target, handler] { return handler(target); }));
  }

  auto* instances = app.add_subcommand("instances", "List stored instances matching a filter");
  AddTarget(instances, &target, false);
  instances->add_option("--filter", filter, "Filter: JSON, @file or -");
  instances->callback(run([&] { return setvault_tool::Instances(target, filter); }));
  auto* defaults = app.add_subcommand("default-instances", "List shipped default instances");
  AddTarget(defaults, &target, false);
  defaults->add_option("--filter", filter, "Filter: JSON, @file or -");
  defaults->callback(run([&] { return setvault_tool::DefaultInstances(target, filter); }));
  auto* remove = app.add_subcommand("delete-instances", "Delete the instances matching a filter");
  AddTarget(remove, &target, true);
  remove->add_option("--filter", filter, "Filter: JSON, @file or -");
  remove->callback(run([&] { return setvault_tool::DeleteInstances(target, filter); }));

  auto* validate = app.add_subcommand("validate", "Check data against its type's schema");
  AddTarget(validate, &target, false);
  validate->add_option("--instance", target.instance, "Instance id");
  validate->add_option("json", write.json, "Data: JSON, @file or -")->required();
  validate->callback(run([&] { return setvault_tool::Validate(target, write.json); }));

  for (const char* kind : {"set", "set-user", "set-vital", "set-cached", "update"}) {
    auto* command = app.add_subcommand(kind, std::string("Write an object (") + kind + ")");
    AddTarget(command, &target, false);
    command->add_option("--instance", target.instance, "Instance id");
    command->add_option("json", write.json, "Data: JSON, @file or -")->required();
    command->add_flag("--auto", write.auto_config, "Write as automatic configuration");
    const std::string mode = std::string(kind) == "set-user"     ? "user"
                             : std::string(kind) == "set-vital"  ? "vital"
                             : std::string(kind) == "set-cached" ? "cached"
                                                                 : kind;
    if (mode == "set" || mode == "update") {
      command->add_option("--if-revision", write.if_revision,
                          "Write only while the stored revision is this one (-1: none stored)");
    }
    command->callback(run([&target, &write, mode] { return setvault_tool::Write(mode, target, write); }));
  }
  auto* set_instances = app.add_subcommand("set-instances", "Write many instances at once");
  AddTarget(set_instances, &target, false);
  set_instances->add_option("json", write.json, "Object of instance id to data: JSON, @file or -")
      ->required();
  set_instances->add_flag("--auto", write.auto_config, "Write as automatic configuration");
  set_instances->callback(run([&] { return setvault_tool::SetInstances(target, write); }));

  // Settings take effect before any command runs.
  app.parse_complete_callback([&] {
    KorvoSetvault::SVLogger::SetStderrSink();
    KorvoSetvault::SVLogger::SetThreshold(verbosity);
    if (!store_path.empty()) KorvoSetvault::SetStorePath(store_path);
    if (!schema_path.empty()) KorvoSetvault::SetSchemaStorePath(schema_path);
  });

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  } catch (const KorvoSetvault::SetvaultException& e) {
    ReportError(e);
    return 1;
  } catch (const std::exception& e) {
    std::cerr << "setvault: error: " << e.what() << "\n";
    return 1;
  }
  return status;
}
