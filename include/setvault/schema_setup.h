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
#include <vector>

#include "setvault/export.h"

namespace KorvoSetvault {

// What a load does with the definitions already in the schema database.
enum class SchemaLoadMode {
  kReplaceAll,  // afterwards the database holds exactly the directory's definitions
  kMerge,       // the directory's definitions are added or replace those of their type
};

// Reads and checks every *.json file of `directory` (not its sub-directories)
// and writes the definitions into the schema database in one transaction.
// The shipped defaults they carry go into the store's (SetStorePath) table of
// default configuration at the same time: a singleton type's "defaults" as its
// default object, a multi-instance type's "defaultInstances" as its default
// instances; they replace the defaults of every type (kReplaceAll) or of the
// loaded types (kMerge). The store's transaction stays open until the schema
// database is written, so a failure of either leaves both as they were.
// Returns the number of definitions loaded.
// Throws SetvaultException 2000 when the directory cannot be read or holds no
// *.json file, when definitions are refused, or when the schema database
// cannot be written. A definition is refused for bad JSON, a missing or
// invalid component, group, key or version, badly typed tags or flags, a name
// with characters other than letters, digits, '_' and '-', two files defining
// the same type, a "schema" outside the supported JSON Schema dialect (an
// unknown or unsupported keyword, a pattern that does not compile, an
// unsupported "format", a "$ref" that does not resolve inside the
// definition), or "defaults" or "defaultInstances" that the schema refuses (default
// instances also when malformed or listed twice), or when the store cannot
// be written. The message holds one
// line per fault of every refused file: "<file>: <JSON Pointer>: <fault>".
// On any failure the schema database is left as it was. A definition file
// larger than 4 MiB, or whose text nests deeper than 512 levels or is not
// valid UTF-8, is refused the same way, never read whole or parsed
// recursively.
SETVAULT_EXPORT size_t LoadSchemaDefinitions(const std::string& directory,
                                             SchemaLoadMode mode = SchemaLoadMode::kReplaceAll);

// Reads and checks the definitions of `directory` like LoadSchemaDefinitions,
// without writing anything. Returns their number; throws the same errors.
SETVAULT_EXPORT size_t CheckSchemaDefinitions(const std::string& directory);

// One type definition as the schema database holds it.
struct SETVAULT_EXPORT StoredSchemaDefinition {
  std::string component;
  std::string group;
  std::string key;
  std::string definition;  // the whole definition file, as compact JSON text
};

// Every definition of the schema database (SetSchemaStorePath), ordered by
// component, group and key. Throws SetvaultException 2000 naming the path
// when the database cannot be opened or read.
SETVAULT_EXPORT std::vector<StoredSchemaDefinition> ListSchemaDefinitions();

}  // namespace KorvoSetvault

#endif  // SETVAULT_SCHEMA_SETUP_H_
