// The command groups of the setvault tool and what they share: the target of
// a command, how a command is declared and run, and access to the store.
#ifndef SETVAULT_TOOLS_SETVAULT_COMMANDS_H_
#define SETVAULT_TOOLS_SETVAULT_COMMANDS_H_

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <string>

#include <setvault/setvault.h>

namespace setvault_tool {

// The configuration type (and instance) a command works on, as given on the
// command line: component, group, key and an optional instance id.
struct Target {
  std::string component;
  std::string group;
  std::string key;
  std::string instance;

  KorvoSetvault::SetvaultObjectId Id() const {
    return KorvoSetvault::SetvaultObjectId(key, group, component, instance);
  }
  // "component group key [instance]", as typed on the command line.
  std::string Words() const;
};

// Adds a command `name` to `parent` with a one-line `summary`, a longer
// `description` and one `example` (shown by --help), running `handler`, whose
// result becomes the exit status.
CLI::App* AddCommand(CLI::App* parent, const std::string& name, const std::string& summary,
                     const std::string& description, const std::string& example,
                     std::function<int()> handler);
// The exit status of the command that ran.
int CommandStatus();

// Adds the positional component, group and key arguments, and the instance id
// (positional and --instance) when `with_instance` is set.
void AddTarget(CLI::App* command, Target* target, bool with_instance);

// Whether a command reads or writes the store.
enum class Access { kRead, kWrite };
// The store, after checking its file: a read needs an existing, readable
// file (reads never create a store); a write needs a writable file or
// directory. Throws ToolError naming the path otherwise.
std::shared_ptr<KorvoSetvault::Setvault> OpenStore(Access access);
// The same checks without opening the store, for the library's host calls.
void CheckStore(Access access);
// Checks that the schema database exists; throws ToolError naming it.
void CheckSchemaDatabase();

// The definition of a type as loaded, parsed; throws ToolError (exit 3) when
// the schema database has none.
std::shared_ptr<KorvoSetvault::JsonDoc> FindDefinition(const Target& target);

// The command groups.
void AddSchemaCommands(CLI::App* app);
void AddObjectReadCommands(CLI::App* app);
void AddObjectWriteCommands(CLI::App* app);
void AddDocumentCommands(CLI::App* app);
void AddBootCommands(CLI::App* app);
void AddWatchCommand(CLI::App* app);

}  // namespace setvault_tool

#endif  // SETVAULT_TOOLS_SETVAULT_COMMANDS_H_
