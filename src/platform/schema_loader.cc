#include <algorithm>
#include <filesystem>
#include <map>

#include "platform/bounded_file.h"
#include "platform/schema_database.h"
#include "platform/schema_definition.h"
#include "platform/schema_store.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/logger.h"
#include "setvault/schema_setup.h"

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

// Parses and checks every definition file of `directory`.
Definitions ReadDefinitions(const std::string& directory) {
  Definitions definitions;
  std::map<std::string, std::string> file_of_type;
  for (const std::string& file : ListDefinitionFiles(directory)) {
    auto definition = KorvoSchemaStore::ParseSchemaDefinition(ReadFile(file), file);
    const std::string type =
        definition->component + "/" + definition->group + "/" + definition->key;
    auto inserted = file_of_type.emplace(type, file);
    if (!inserted.second) {
      Fail(file + ": defines " + type + ", which " + inserted.first->second + " defines as well");
    }
    definitions.push_back(std::move(definition));
  }
  return definitions;
}

}  // namespace

size_t CheckSchemaDefinitions(const std::string& directory) {
  return ReadDefinitions(directory).size();
}

size_t LoadSchemaDefinitions(const std::string& directory, SchemaLoadMode mode) {
  const Definitions definitions = ReadDefinitions(directory);
  const std::string path = GetSchemaStorePath();
  KorvoSchemaStore::WriteSchemaDefinitions(path, definitions,
                                           mode == SchemaLoadMode::kMerge
                                               ? KorvoSchemaStore::SchemaWriteMode::kMerge
                                               : KorvoSchemaStore::SchemaWriteMode::kReplaceAll);
  SVLogger::Log(2, "Loaded %zu schema definitions from %s into %s", definitions.size(),
                directory.c_str(), path.c_str());
  return definitions.size();
}

}  // namespace KorvoSetvault
