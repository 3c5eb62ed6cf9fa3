// SetvaultDocument: small JSON helpers shared by the object model and the
// document code.
#ifndef SETVAULT_SRC_PLATFORM_SETVAULT_DOCUMENT_H_
#define SETVAULT_SRC_PLATFORM_SETVAULT_DOCUMENT_H_

#include <string>

#include "setvault/json_doc.h"

namespace KorvoSetvault {

class SetvaultDocument {
 public:
  // True when `value` is an object with a member `name` (a null member counts).
  static bool ValueExists(const JsonValue& value, const char* name);

  // Deep equality: same kind and contents, object members compared by name
  // regardless of order, numbers by value.
  static bool ValuesEqual(const JsonValue& a, const JsonValue& b);

  // Compact JSON text of `value`. Throws SetvaultException 2000 when the value
  // holds NaN or an infinity.
  static std::string SerializeValue(const JsonValue& value);
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_PLATFORM_SETVAULT_DOCUMENT_H_
