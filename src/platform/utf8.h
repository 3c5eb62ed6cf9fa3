// UTF-8 well-formedness of texts and of the strings inside JSON values.
#ifndef SETVAULT_SRC_PLATFORM_UTF8_H_
#define SETVAULT_SRC_PLATFORM_UTF8_H_

#include <optional>
#include <string>
#include <string_view>

#include "setvault/json_doc.h"

namespace KorvoSetvault {

// True when `text` is well-formed UTF-8: no stray continuation bytes, no
// truncated sequences, no overlong forms, no surrogates, nothing above
// U+10FFFF.
bool IsValidUtf8(std::string_view text);

// The JSON Pointer of a string value in `value` that is not valid UTF-8, or
// of the object holding a member name that is not (such a name cannot be
// spelled in a pointer); nullopt when every string and name is valid. Walks
// without recursion, so any depth is safe.
std::optional<std::string> FindInvalidUtf8(const JsonValue& value);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_PLATFORM_UTF8_H_
