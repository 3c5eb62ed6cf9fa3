// Splitting a whole configuration object into its value columns.
#ifndef SETVAULT_SRC_DB_OBJECT_SPLIT_H_
#define SETVAULT_SRC_DB_OBJECT_SPLIT_H_

#include <optional>
#include <string>

#include "setvault/json_doc.h"

namespace KorvoSetvault {

// The parts of one object's data, as serialized JSON; a part without members
// is absent (written as NULL).
struct SplitParts {
  std::optional<std::string> user;
  std::optional<std::string> vital;
  std::optional<std::string> cached;
};

// Splits `data` (a JSON object) by the tags of `schema`: members tagged
// "vital" go to the vital part, "cached" to the cached part, everything else
// to the user part; singleton sub-objects and instance arrays are split
// member by member, each part's instances keeping their instance id (or
// generated id). A type tagged "vital" or "cached" at its top goes whole to
// that part. An instance appears in the user part even when it holds only its
// id (the instance exists); in the vital and cached parts only when it holds
// more.
SplitParts SplitObjectData(const JsonValue& data, const JsonValue& schema);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_OBJECT_SPLIT_H_
