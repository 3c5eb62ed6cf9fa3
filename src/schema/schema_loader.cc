#include <algorithm>
#include <filesystem>
#include <map>

#include "db/default_config_writes.h"
#include "jsonschema/json_validator.h"
#include "platform/bounded_file.h"
#include "schema/schema_database.h"
#include "schema/schema_definition.h"
#include "schema/schema_store.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/logger.h"
#include "setvault/schema_setup.h"
#include "store/setvault_impl.h"
#include "store/transaction_scope.h"
#include "validation/schema_validation.h"

namespace KorvoSetvault {
namespace {

using KorvoSchemaStore::SchemaDefinition;
using Definitions = std::vector<std::shared_ptr<const SchemaDefinition>>;

[[noreturn]] void Fail(const std::string& message) {
  throw SetvaultException(SV_ERR_GENERIC, message.c_str());
}

// The *.json files directly in `directory`, sorted by name.
std::vector<std::string> ListDefinitionFiles(const std::string& directory) {
  std::vector<std::string> files;
  std::error_code error;
  std::filesystem::directory_iterator it(directory, error);
  if (error) {
    Fail("Cannot read schema definition directory " + directory + ": " + error.message());
  }
  for (const auto& entry : it) {
    if (entry.path().extension() == ".json" && entry.is_regular_file(error)) {
      files.push_back(entry.path().string());
    }
  }
  if (files.empty()) Fail("No schema definition (*.json) found in " + directory);
  std::sort(files.begin(), files.end());
  return files;
}

// The text of the definition file at `path`, at most kMaxDefinitionFileBytes.
std::string ReadFile(const std::string& path) {
  std::string text;
  std::string fault;
  if (!ReadFileBounded(path, kMaxDefinitionFileBytes, &text, &fault)) Fail(path + ": " + fault);
  return text;
}

// The DefaultConfig rows of `definitions`: a singleton type's "defaults" and a
// multi-instance type's "defaultInstances", split into their columns.
std::vector<DefaultConfigRow> DefaultConfigRows(const Definitions& definitions) {
  std::vector<DefaultConfigRow> rows;
  for (const auto& definition : definitions) {
    const SetvaultObjectId type(definition->key, definition->group, definition->component);
    if (definition->instanceIdProperty.empty() && definition->defaults) {
      rows.push_back(
          {type, definition->version,
           SplitObjectData(*definition->defaults->GetJsonValuePtr(), definition->Schema())});
    }
    if (definition->DefaultInstances() == nullptr) continue;
    const char* id_member = definition->instanceIdProperty.c_str();
    for (const JsonValue& instance : definition->DefaultInstances()->GetArray()) {
      SetvaultObjectId id = type;
      id.instanceId = instance[id_member].GetString();
      rows.push_back(
          {std::move(id), definition->version, SplitObjectData(instance, definition->Schema())});
    }
  }
  return rows;
}

// Parses and checks every definition file of `directory`. Every refused file
// is reported, each with all its faults, in one exception.
Definitions ReadDefinitions(const std::string& directory) {
  Definitions definitions;
  std::map<std::string, std::string> file_of_type;
  std::string refusals;
  auto refuse = [&refusals](const std::string& what) {
    refusals += (refusals.empty() ? "" : "\n") + what;
  };
  for (const std::string& file : ListDefinitionFiles(directory)) {
    std::shared_ptr<const SchemaDefinition> definition;
    try {
      definition = KorvoSchemaStore::CheckSchemaDefinition(ReadFile(file), file);
    } catch (const SetvaultException& e) {
      refuse(e.what());
      continue;
    }
    const std::string type =
        definition->component + "/" + definition->group + "/" + definition->key;
    auto inserted = file_of_type.emplace(type, file);
    if (!inserted.second) {
      refuse(file + ": defines " + type + ", which " + inserted.first->second + " defines as well");
      continue;
    }
    definitions.push_back(std::move(definition));
  }
  if (!refusals.empty()) Fail(refusals);
  return definitions;
}

}  // namespace

size_t CheckSchemaDefinitions(const std::string& directory) {
  return ReadDefinitions(directory).size();
}

size_t LoadSchemaDefinitions(const std::string& directory, SchemaLoadMode mode) {
  const Definitions definitions = ReadDefinitions(directory);
  const std::vector<DefaultConfigRow> rows = DefaultConfigRows(definitions);
  std::vector<SetvaultObjectId> types;
  for (const auto& definition : definitions) {
    types.emplace_back(definition->key, definition->group, definition->component);
  }
  const std::string path = GetSchemaStorePath();
  // The store's shipped defaults and the schema database change together:
  // the definitions are written inside the store's transaction, which is
  // cancelled when they cannot be.
  const auto connection = GetDBStore(DBStore::kConfigStore, true);
  RunUnderTransaction(connection, "LoadSchemaDefinitions", [&] {
    ReplaceDefaultConfigInternal(types, mode == SchemaLoadMode::kReplaceAll, rows, connection);
    KorvoSchemaStore::WriteSchemaDefinitions(path, definitions,
                                             mode == SchemaLoadMode::kMerge
                                                 ? KorvoSchemaStore::SchemaWriteMode::kMerge
                                                 : KorvoSchemaStore::SchemaWriteMode::kReplaceAll);
  });
  SVLogger::Log(2, "Loaded %zu schema definitions from %s into %s", definitions.size(),
                directory.c_str(), path.c_str());
  return definitions.size();
}

}  // namespace KorvoSetvault
