// Generated instance ids: instances of arrays whose schema says
// "generatedInstanceId": true are told apart by a random id that the library
// keeps in their member "sv_generated_id".
#ifndef SETVAULT_SRC_SCHEMA_SCHEMA_GENERATED_ID_H_
#define SETVAULT_SRC_SCHEMA_SCHEMA_GENERATED_ID_H_

#include "setvault/json_doc.h"

namespace KorvoSetvault {

// Walks `value` along `schema` ("properties" of objects, "items" of arrays)
// and gives every object element of an array whose schema node carries
// "generatedInstanceId": true, and that has no "sv_generated_id" yet, a new
// one (GenerateInstanceId()). Strings are allocated from `allocator`, which
// must be the allocator of `value`'s document. Parts of `value` that the
// schema does not describe, or that have another JSON type than it expects,
// are left alone. Works for a type's schema and data as for a generated
// schema document and its whole import document.
void PopulateGeneratedInstanceId(const JsonValue& schema, JsonValue& value,
                                 JsonAllocator& allocator);

// The same for a whole document, allocating from its allocator.
void PopulateGeneratedInstanceId(const JsonValue& schema, JsonDocument& document);

// The same for the value a JsonDoc view stands for.
void PopulateGeneratedInstanceId(const JsonValue& schema, const JsonDoc& doc);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_SCHEMA_SCHEMA_GENERATED_ID_H_
