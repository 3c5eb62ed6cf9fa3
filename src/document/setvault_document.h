// SetvaultDocument: small JSON helpers shared by the object model and the
// document code.
#ifndef SETVAULT_SRC_DOCUMENT_SETVAULT_DOCUMENT_H_
#define SETVAULT_SRC_DOCUMENT_SETVAULT_DOCUMENT_H_

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

  // `token` escaped for a JSON Pointer: "~" as "~0", "/" as "~1".
  static std::string EscapePointerToken(const std::string& token);

  // Compact JSON text of `value`. Throws SetvaultException 2000 when the value
  // holds NaN or an infinity.
  static std::string SerializeValue(const JsonValue& value);

  // Places one configuration object into an export document `root` (made an
  // object when it is not one): root[component][group][key] becomes `data`
  // for a singleton (empty `instanceId`; an earlier value is replaced), and
  // `data` is appended to the array root[component][group][key] for an
  // instance (the array is created when missing). `data` is moved from and,
  // like every name added, must belong to `allocator`, the allocator of
  // `root`'s document. Throws SetvaultException 2000 when a level on the way
  // holds something else than an object, or when the key holds a singleton
  // where an instance is added (or the reverse).
  static void AddObject(JsonValue& root, const std::string& component, const std::string& group,
                        const std::string& key, const std::string& instanceId, JsonValue& data,
                        JsonAllocator& allocator);
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DOCUMENT_SETVAULT_DOCUMENT_H_
