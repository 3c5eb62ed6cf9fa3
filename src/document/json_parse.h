// Parsing JSON text into an existing document, with the library's limits.
#ifndef SETVAULT_SRC_DOCUMENT_JSON_PARSE_H_
#define SETVAULT_SRC_DOCUMENT_JSON_PARSE_H_

#include <memory>
#include <string>
#include <string_view>

#include "setvault/json_doc.h"

namespace KorvoSetvault {

// Parses `text` into `document` (strict JSON in valid UTF-8, one root value).
// False when it is not valid JSON, holds a NUL byte or a number longer than
// 40 characters or of magnitude outside [1e-307, 1e308) other than zero, or nests arrays and
// objects more than 512 levels deep (RapidJSON's parser, writer and copy are recursive); `fault`,
// when given, then says where and why: "at offset <n>: <reason>".
bool ParseJsonText(std::string_view text, JsonDocument& document, std::string* fault = nullptr);

// A new document parsed from `text` as ParseJsonText parses it, its memory
// sized to the text (CreateDocumentFromString). Throws
// InvalidArgumentException 1080 with the fault when the text is refused.
std::shared_ptr<JsonDoc> ParseDocument(std::string_view text);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DOCUMENT_JSON_PARSE_H_
