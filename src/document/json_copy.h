// Deep copies of JSON documents.
#ifndef SETVAULT_SRC_DOCUMENT_JSON_COPY_H_
#define SETVAULT_SRC_DOCUMENT_JSON_COPY_H_

#include <memory>

#include "setvault/json_doc.h"

namespace KorvoSetvault {

// A new document (own allocator, empty path) holding a deep copy of the value `source`
// selects, its first memory chunk sized by what `source`'s allocator holds. Throws as
// JsonDoc::GetJsonValuePtr when `source` is a view whose value is gone.
std::shared_ptr<JsonDoc> CopyDocument(const JsonDoc& source);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DOCUMENT_JSON_COPY_H_
