// Schema set-up: loading configuration type definitions into the schema
// database.
//
// Each configuration type is defined by one JSON file (examples/schemas/ shows
// the format). A host or the command-line tool loads a directory of them into
// the schema database named by SetSchemaStorePath(); running processes see the
// new definitions at their next store operation, without a restart.
//
//   KorvoSetvault::SetSchemaStorePath("/var/lib/myhost/schema.db");
//   size_t types = KorvoSetvault::LoadSchemaDefinitions("/usr/share/myhost/schemas");
#ifndef SETVAULT_SCHEMA_SETUP_H_
#define SETVAULT_SCHEMA_SETUP_H_

#include <cstddef>
#include <string>

#include "setvault/export.h"

namespace KorvoSetvault {

// What a load does with the definitions already in the schema database.
enum class SchemaLoadMode {
  kReplaceAll,  // afterwards the database holds exactly the directory's definitions
  kMerge,       // the directory's definitions are added or replace those of their type
};

// Reads and checks every *.json file of `directory` (not its sub-directories)
// and writes the definitions into the schema database in one transaction.
// Returns the number of definitions loaded.
// Throws SetvaultException 2000 when the directory cannot be read or holds no
// *.json file, when a definition is refused (bad JSON, a missing or invalid
// component, group, key or version, a "schema" that is not an object, badly
// typed tags or flags, a name with characters other than letters, digits, '_'
// and '-', two files defining the same type) with a message naming the file
// and the fault, or when the schema database cannot be written. On any
// failure the schema database is left as it was. A definition file larger
// than 4 MiB, or whose text nests deeper than 512 levels or is not valid
// UTF-8, is refused the same way, never read whole or parsed recursively.
SETVAULT_EXPORT size_t LoadSchemaDefinitions(const std::string& directory,
                                             SchemaLoadMode mode = SchemaLoadMode::kReplaceAll);

// Reads and checks the definitions of `directory` like LoadSchemaDefinitions,
// without writing anything. Returns their number; throws the same errors.
SETVAULT_EXPORT size_t CheckSchemaDefinitions(const std::string& directory);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SCHEMA_SETUP_H_
