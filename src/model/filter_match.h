// Subset matching of configuration data against filters.
#ifndef SETVAULT_SRC_MODEL_FILTER_MATCH_H_
#define SETVAULT_SRC_MODEL_FILTER_MATCH_H_

#include "setvault/json_doc.h"

namespace KorvoSetvault {

// True when `object` holds every value that `filter` states: scalars and
// arrays deep-equal, nested objects matched recursively. A member of `object`
// that is an array (a non-singleton sub-object) never matches (logged at
// priority 0). Both must be JSON objects (SetvaultException 1082 otherwise).
bool svoMatchesFilter(const JsonValue& object, const JsonValue& filter);

// Schema-guided subset test: true when every member of `subset` that the
// schema node `schema` describes under "properties" is in `object` with the
// same value; singleton sub-objects are compared recursively and the
// instances of instance arrays (named by their "instanceIdProperty") are
// paired by instance id, in any order. The first difference is logged at
// priority 0 and ends the test.
bool IsSubsetBySchema(const JsonValue& object, const JsonValue& subset, const JsonValue& schema);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_MODEL_FILTER_MATCH_H_
