// The commands of the setvault tool. Each prints its JSON result on standard
// output and returns the process exit status; library failures propagate as
// exceptions for main() to report.
#ifndef SETVAULT_TOOLS_SETVAULT_COMMANDS_H_
#define SETVAULT_TOOLS_SETVAULT_COMMANDS_H_

#include <optional>
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
};

// Options shared by the writing commands.
struct WriteOptions {
  std::string json;   // the data: JSON text, @file or - for standard input
  bool auto_config = false;  // write as the host's automatic configuration
  // set and update: write only while the stored revision is this one (-1: none stored).
  std::optional<int> if_revision;
};

int LoadSchemas(const std::string& directory, bool merge);
int CheckSchemas(const std::string& directory);

int Get(const Target& target);
int GetDefault(const Target& target);
int Instances(const Target& target, const std::string& filter_json);
int DefaultInstances(const Target& target, const std::string& filter_json);
int InstanceIds(const Target& target);
int Revision(const Target& target);
int Revisions(const Target& target);
int Validate(const Target& target, const std::string& json);

// kind: "set", "user", "vital", "cached" or "update".
int Write(const std::string& kind, const Target& target, const WriteOptions& options);
int Delete(const Target& target);
// `json` maps instance id to data: {"vs0": {...}, "vs1": {...}}.
int SetInstances(const Target& target, const WriteOptions& options);
int DeleteInstances(const Target& target, const std::string& filter_json);

}  // namespace setvault_tool

#endif  // SETVAULT_TOOLS_SETVAULT_COMMANDS_H_
