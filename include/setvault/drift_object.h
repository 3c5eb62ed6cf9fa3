// DriftObject: how one configuration object differs from what it should be.
//
// A drift description is a JSON object whose members are the drifted
// properties. A member holding a string names the operation on that property
// ("SET", "ADD", "DELETE"); any other value means the property was set. A
// sub-object member holds an object (singleton) or an array of instance
// descriptions, each carrying its instance id under "INSTANCEID".
//
//   auto drift = KorvoSetvault::CreateDriftObject(
//       id, R"({"mtu": 9000, "ports": [{"INSTANCEID": "p1", "speed": "DELETE"}]})", "SET");
//   for (const auto& [property, operation] : drift->Get()) { ... }   // (mtu, SET), (ports, SET)
//   auto port = drift->GetSubObject(KorvoSetvault::SubObjectId("ports", "p1"));
//
// Drift objects are read-only and own their description.
#ifndef SETVAULT_DRIFT_OBJECT_H_
#define SETVAULT_DRIFT_OBJECT_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "setvault/export.h"
#include "setvault/object_id.h"

namespace KorvoSetvault {

class SETVAULT_EXPORT DriftObject {
 public:
  virtual ~DriftObject();

  // The identity of the drifted object (a sub-object drift carries the
  // sub-object key with the parent's group and component).
  virtual SetvaultObjectId GetSetvaultObjectId() const = 0;
  // The operation on the whole object: "SET", "ADD" or "DELETE".
  virtual std::string GetOperation() const = 0;
  // One (property, operation) pair per member of the description, in order:
  // the member's text when it is a string, "SET" otherwise. Throws
  // SetvaultException 1082 when the description is not an object.
  virtual std::vector<std::pair<std::string, std::string>> Get() const = 0;
  // The drift of a sub-object, or empty (logged at priority 0) when that part
  // did not drift. Throws SetvaultException 1048 when `id` has no instance id
  // but the part is an array of instances, and 1049 when `id` has one but the
  // part is not an array.
  virtual std::shared_ptr<DriftObject> GetSubObject(const SubObjectId& id) const = 0;
  // The drift of every instance of a non-singleton part; empty (logged) when
  // the part did not drift. Throws SetvaultException 1046 when the part is not
  // an array of instances.
  virtual std::vector<std::shared_ptr<DriftObject>> GetSubObjectInstances(
      const SubObjectId& id) const = 0;
  // The description as compact JSON text.
  virtual std::string GetData() const = 0;
};

// A drift object for `id` from the JSON text `json` (note: the text comes
// before the operation). Throws InvalidArgumentException 1080 when `json`
// does not parse. The caller owns the result.
SETVAULT_EXPORT std::shared_ptr<DriftObject> CreateDriftObject(const SetvaultObjectId& id,
                                                               const std::string& json,
                                                               std::string operation);

}  // namespace KorvoSetvault

#endif  // SETVAULT_DRIFT_OBJECT_H_
