// Listing of the definitions in the schema database.
#include <algorithm>
#include <tuple>

#include "schema/schema_database.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"

namespace KorvoSetvault {

std::vector<StoredSchemaDefinition> ListSchemaDefinitions() {
  KorvoSchemaStore::SchemaDatabaseReader reader(GetSchemaStorePath());
  std::vector<StoredSchemaDefinition> definitions;
  for (auto& row : reader.ReadAll()) {
    definitions.push_back({std::move(row.component), std::move(row.group), std::move(row.name),
                           std::move(row.definition)});
  }
  std::sort(definitions.begin(), definitions.end(), [](const auto& a, const auto& b) {
    return std::tie(a.component, a.group, a.key) < std::tie(b.component, b.group, b.key);
  });
  return definitions;
}

}  // namespace KorvoSetvault
