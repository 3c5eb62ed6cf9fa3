// Configuration documents: the whole configuration, or the types a caller
// selects, as one JSON document, and the import of such a document.
//
// A document is a JSON object of components; each component an object of
// groups; each group an object of keys. A key holds the object's data for a
// singleton type and an array of instances for a multi-instance type, each
// instance naming itself in its type's instance id member:
//
//   {"korvo": {"net": {"vswitch": [{"name": "vs0", "mtu": 9000}]},
//              "system": {"host": {"hostname": "h1"}}}}
//
// Generated instance ids ("sv_generated_id") never appear in an export; an
// import generates them afresh. A host is backed up, cloned and compared
// through these documents:
//
//   std::string backup = KorvoSetvault::ExportStore();
//   std::vector<KorvoSetvault::ErrorInfo> errors;
//   if (!KorvoSetvault::Import(backup, errors)) { /* errors say what and where */ }
#ifndef SETVAULT_CONFIG_DOCUMENT_H_
#define SETVAULT_CONFIG_DOCUMENT_H_

#include <memory>
#include <string>
#include <vector>

#include "setvault/exceptions.h"
#include "setvault/export.h"
#include "setvault/filter_spec_object.h"

namespace KorvoSetvault {

// Imports `document` into the store (SetStorePath): every type the document
// names ends up holding exactly the document's objects (stored instances the
// document does not list are deleted; other types are not touched). The
// whole document is checked first: text that is not JSON, a root or level
// that is not an object, a name given twice on one level, a type without
// schema, data its schema refuses, an instance without its id (or with an
// empty one) and an id given twice are findings appended to `errors` (path
// as a JSON Pointer into the document, "/" for the whole), and nothing is
// written. Then all types are written in one transaction (nested in the
// caller's, if the thread holds one): rows replaced keep their creation time
// and their revision rises by one. Values are written as an external
// caller's, split by the schema's tags into the user, vital and cached parts.
// Returns true when imported, or when the document holds nothing ("{}"),
// false with the findings otherwise. Throws SetvaultException when the store
// cannot be reached or a write fails; nothing of the import then remains.
SETVAULT_EXPORT bool Import(const std::string& document, std::vector<ErrorInfo>& errors);

// The stored configuration of the types `filters` name, as a document: a
// singleton type's object (skipped when nothing is stored), and the instances
// of a multi-instance type that match any of its filters (an empty filter
// matches all; the filters' instance ids are not looked at). Types are
// written in the order of component, group and key. All reads are one
// snapshot of the store, whatever other processes write meanwhile. An empty
// list gives "{}" without opening the store. Null filters are skipped.
// Throws SetvaultException 1037 when a filter's type has no schema (before
// anything is read), and the read errors of the store.
SETVAULT_EXPORT std::string Export(std::vector<std::shared_ptr<FilterSpecObject>> filters);

// The whole stored configuration as a document: every type of the schema
// store that has stored objects, read as one snapshot like Export. Rows of
// types that have no schema (any more) are left out. Throws the read errors
// of the store.
SETVAULT_EXPORT std::string ExportStore();

}  // namespace KorvoSetvault

#endif  // SETVAULT_CONFIG_DOCUMENT_H_
