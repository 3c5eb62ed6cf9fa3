// Limits that every JSON value of the library obeys, whether it was parsed from
// text or built through the API.
#ifndef SETVAULT_SRC_DOCUMENT_VALUE_LIMITS_H_
#define SETVAULT_SRC_DOCUMENT_VALUE_LIMITS_H_

#include "setvault/json_doc.h"

namespace KorvoSetvault {

// Deepest nesting of arrays and objects a value may have (a document's root
// object is level 1). RapidJSON's parser, writer, copy and comparison recurse
// once per level; bounding the depth keeps hostile values from exhausting the
// stack. Configuration never comes near it.
constexpr int kMaxNestingDepth = 512;

// The nesting level of the value `view` selects: 1 for a document's root, one
// more for each member step and one more for each step into an array element.
int NestingLevelOf(const JsonDoc& view);

// Checks `value` before it is stored under `key` in a container at nesting
// level `level`, without recursion. Throws InvalidArgumentException 2000
// "Value nested deeper than 512 levels: <key>" when the stored value would
// nest deeper than kMaxNestingDepth, and InvalidTypeException 2000 "Invalid
// type specified for: <key>" when it holds NaN or an infinity, which JSON
// cannot represent.
void CheckStorableValue(const JsonValue& value, int level, const char* key);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DOCUMENT_VALUE_LIMITS_H_
