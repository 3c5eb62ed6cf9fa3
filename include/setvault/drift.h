// Drift: how stored configuration differs from the configuration a host
// should have, as DriftObjects (see drift_object.h for the description
// format), so that a host can check compliance without writing anything.
//
//   auto drifts = KorvoSetvault::ComputeDocumentDrift(desired_document,
//                                                     KorvoSetvault::ExportStore());
//   for (const auto& drift : drifts) Report(drift->GetSetvaultObjectId(), drift->GetData());
//
// A member present only in the desired data is "ADD", one present only in the
// current data is "DELETE", one holding another value is "SET". A singleton
// sub-object that differs is described by the drift of its members; an array
// of instances (a member the type's id map names) by one description per
// drifted instance carrying its id under "INSTANCEID". Arrays whose instances
// cannot be told apart by id are compared as whole values.
#ifndef SETVAULT_DRIFT_H_
#define SETVAULT_DRIFT_H_

#include <memory>
#include <string>
#include <vector>

#include "setvault/drift_object.h"
#include "setvault/export.h"
#include "setvault/setvault_object.h"

namespace KorvoSetvault {

// The drift of `current` from `desired`, two objects of one type: empty when
// their data are equal; otherwise a new DriftObject (owned by the caller)
// with operation "ADD" when `current` is empty, "DELETE" when `desired` is
// empty and "SET" otherwise. Empty when both are empty. Throws
// InvalidArgumentException 1062 when the two name different objects.
SETVAULT_EXPORT std::shared_ptr<DriftObject> ComputeDrift(
    const std::shared_ptr<SetvaultObject>& desired, const std::shared_ptr<SetvaultObject>& current);

// The drift of the configuration document `current` from the document
// `desired` (the format of config_document.h): one DriftObject per object that
// differs, in the order of component, group, key and instance id. Only the
// types `desired` names are compared; for those, an instance `current` holds
// and `desired` lacks is "DELETE", as an import of `desired` would delete it.
// Throws ValidationException 2000 with the findings when either document is
// refused as an import would refuse it (which also covers text that is not
// JSON and types without schema).
SETVAULT_EXPORT std::vector<std::shared_ptr<DriftObject>> ComputeDocumentDrift(
    const std::string& desired, const std::string& current);

}  // namespace KorvoSetvault

#endif  // SETVAULT_DRIFT_H_
