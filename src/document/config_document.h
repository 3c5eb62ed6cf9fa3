// The steps of import and export of configuration documents.
#ifndef SETVAULT_SRC_DOCUMENT_CONFIG_DOCUMENT_H_
#define SETVAULT_SRC_DOCUMENT_CONFIG_DOCUMENT_H_

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "document/export_document.h"
#include "schema/schema_store.h"
#include "setvault/config_document.h"
#include "setvault/setvault_object.h"

namespace KorvoSetvault {

// Objects by id, in document order.
using DocumentObjectMap =
    std::map<SetvaultObjectId, std::shared_ptr<SetvaultObject>, DocumentOrder>;
// Type (an id without instance id) to instance id ("" for a singleton) to object.
using ConfigTypeMap =
    std::map<SetvaultObjectId, std::map<std::string, std::shared_ptr<SetvaultObject>>,
             DocumentOrder>;

// Parses and checks the import document `text` (see Import) against the
// schemas of `cache` and, when it passes, fills `map` with one object per
// singleton key and per instance. The objects are views into the one parsed
// document (generated ids filled in), which they keep alive. Returns false
// with the findings appended to `errors` when the document is refused.
bool GetSvoidObjMapFromDocument(const std::string& text, DocumentObjectMap& map,
                                const std::shared_ptr<KorvoSchemaStore::SchemaObjectCache>& cache,
                                std::vector<ErrorInfo>& errors);

// Adds `object` to `typeMap` under its type and instance id (replacing an
// earlier object of that id).
void UpdateConfigTypeMap(ConfigTypeMap& typeMap, const std::shared_ptr<SetvaultObject>& object);

// Writes every object of `map` into `document`, in the map's order; with
// `clear`, removes generated instance ids from each object's own data first.
void ExportInternal(ExportDocument& document, const DocumentObjectMap& map, bool clear);

// Test hook: called after each type an export has written, with the type.
void SetExportTypeHookForTesting(std::function<void(const SetvaultObjectId&)> hook);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DOCUMENT_CONFIG_DOCUMENT_H_
