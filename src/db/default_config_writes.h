// Writes of the shipped defaults (table DefaultConfig), made when type
// definitions are loaded.
#ifndef SETVAULT_SRC_DB_DEFAULT_CONFIG_WRITES_H_
#define SETVAULT_SRC_DB_DEFAULT_CONFIG_WRITES_H_

#include <string>
#include <vector>

#include "db/object_split.h"
#include "db/row_readers.h"

namespace KorvoSetvault {

// One shipped default object: its id (instance id empty for a singleton),
// the type's version and its data split into the Value (user), VitalValue
// and CachedValue columns.
struct DefaultConfigRow {
  SetvaultObjectId id;
  std::string version;
  SplitParts parts;
};

// Replaces shipped defaults in the caller's transaction: removes every row
// of DefaultConfig when `replaceAll`, otherwise the rows of each type in
// `types` (ids without instance id), then inserts `rows`. Throws
// SetvaultException 2000 "Write default configuration failed: <id>" naming
// the type or object whose statement failed.
void ReplaceDefaultConfigInternal(const std::vector<SetvaultObjectId>& types, bool replaceAll,
                                  const std::vector<DefaultConfigRow>& rows,
                                  const ConnectionPtr& conn);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_DEFAULT_CONFIG_WRITES_H_
