// Subset matching of configuration data against filters.
#ifndef SETVAULT_SRC_MODEL_FILTER_MATCH_H_
#define SETVAULT_SRC_MODEL_FILTER_MATCH_H_

#include <memory>
#include <vector>

#include "setvault/filter_spec_object.h"
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

// The data value of `filter` (its root object).
const JsonValue& FilterData(const FilterSpecObject& filter);

// The elements of `objects` whose data (`data_of(object)`) match `filter`, in
// input order; all of them for no filter or an empty one. Null elements are
// dropped when filtering.
template <typename Object, typename DataOf>
std::vector<Object> KeepMatching(const std::vector<Object>& objects,
                                 const std::shared_ptr<FilterSpecObject>& filter,
                                 DataOf data_of) {
  if (!filter || filter->IsEmpty()) return objects;
  const JsonValue& wanted = FilterData(*filter);
  std::vector<Object> matching;
  for (const Object& object : objects) {
    if (object && svoMatchesFilter(data_of(*object), wanted)) matching.push_back(object);
  }
  return matching;
}

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_MODEL_FILTER_MATCH_H_
