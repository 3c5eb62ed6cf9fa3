#include "setvault_cli/commands.h"

#include <sys/stat.h>
#include <unistd.h>

#include "setvault_cli/output.h"

namespace setvault_tool {
namespace {

int& Status() {
  static int status = kExitOk;
  return status;
}

bool Exists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

std::string Target::Words() const {
  return component + " " + group + " " + key + (instance.empty() ? "" : " " + instance);
}

CLI::App* AddCommand(CLI::App* parent, const std::string& name, const std::string& summary,
                     const std::string& description, const std::string& example,
                     std::function<int()> handler) {
  CLI::App* command = parent->add_subcommand(name, summary);
  command->footer(description + "\n\nExample:\n  " + example);
  if (handler) command->callback([handler] { Status() = handler(); });
  return command;
}

int CommandStatus() { return Status(); }

void AddTarget(CLI::App* command, Target* target, bool with_instance) {
  command->add_option("component", target->component, "Component, e.g. korvo")->required();
  command->add_option("group", target->group, "Group of the type, e.g. net")->required();
  command->add_option("key", target->key, "Key of the type, e.g. vswitch")->required();
  if (with_instance) {
    command->add_option("instance", target->instance,
                        "Instance id (types with instances only), e.g. vs0");
    command->add_option("--instance", target->instance, "The instance id, as an option");
  }
}

void CheckStore(Access access) {
  const std::string path = KorvoSetvault::GetStorePath();
  if (!Exists(path)) {
    if (access == Access::kRead) {
      throw ToolError(kExitFailed, "no store at " + path +
                                       " (reads never create one; check --store or "
                                       "$SETVAULT_STORE)");
    }
    const std::string directory = DirectoryOf(path);
    if (Exists(directory) && access != Access::kRead && ::access(directory.c_str(), W_OK) != 0) {
      throw ToolError(kExitFailed, "permission denied: cannot create the store " + path);
    }
    return;
  }
  const int mode = access == Access::kRead ? R_OK : (R_OK | W_OK);
  if (::access(path.c_str(), mode) != 0) {
    throw ToolError(kExitFailed, std::string("permission denied: cannot ") +
                                     (access == Access::kRead ? "read" : "write") + " the store " +
                                     path);
  }
}

std::shared_ptr<KorvoSetvault::Setvault> OpenStore(Access access) {
  CheckStore(access);
  return KorvoSetvault::Setvault::GetStore(KorvoSetvault::sGlobalNamespace);
}

void CheckSchemaDatabase() {
  const std::string path = KorvoSetvault::GetSchemaStorePath();
  if (!Exists(path)) {
    throw ToolError(kExitFailed, "no schema database at " + path +
                                     " (load type definitions with `setvault schema load DIR`, "
                                     "or check --schema-db)");
  }
}

std::shared_ptr<KorvoSetvault::JsonDoc> FindDefinition(const Target& target) {
  CheckSchemaDatabase();
  for (const auto& definition : KorvoSetvault::ListSchemaDefinitions()) {
    if (definition.component == target.component && definition.group == target.group &&
        definition.key == target.key) {
      return KorvoSetvault::CreateDocumentFromString(definition.definition);
    }
  }
  throw ToolError(kExitNotFound, "no type " + target.component + " " + target.group + " " +
                                     target.key + " is loaded (see `setvault schema list`)");
}

}  // namespace setvault_tool
