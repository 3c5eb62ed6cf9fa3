// Shipped default instances of multi-instance types.
//
// A type's definition may ship default instances ("defaultInstances"); they
// are loaded into the store with the definitions (LoadSchemaDefinitions) and
// read with Setvault::GetDefaultConfigInstances. These two calls relate a
// list of instances of one type to them:
//
//   auto all = KorvoSetvault::AddDefaultConfigInstances(store->GetInstances(filter));
//   auto changed = KorvoSetvault::FilterDefaultConfigInstances(store->GetInstances(filter));
#ifndef SETVAULT_DEFAULT_INSTANCES_H_
#define SETVAULT_DEFAULT_INSTANCES_H_

#include <memory>
#include <vector>

#include "setvault/export.h"
#include "setvault/setvault_object.h"

namespace KorvoSetvault {

// `objects` (empty pointers dropped), followed by every shipped default
// instance of their type whose instance id none of them has, in the store's
// order. The list's own objects are handed back as they are; the added ones
// are new objects read from the store's default configuration.
// Throws InvalidArgumentException 1061 when the list holds no object, 1062
// when its objects are of different types, SetvaultException 1037 when the
// type has no schema and ValidationException 2000 ("API called for singleton
// object, non-singleton expected") for a singleton type; the store's read
// errors otherwise.
SETVAULT_EXPORT std::vector<std::shared_ptr<SetvaultObject>> AddDefaultConfigInstances(
    std::vector<std::shared_ptr<SetvaultObject>> objects);

// `objects` (empty pointers dropped) without those equal to the shipped
// default instance of their instance id: the instances a user changed or
// added. Data are compared as JSON values (object members in any order),
// generated instance ids left out. Throws as AddDefaultConfigInstances.
SETVAULT_EXPORT std::vector<std::shared_ptr<SetvaultObject>> FilterDefaultConfigInstances(
    std::vector<std::shared_ptr<SetvaultObject>> objects);

}  // namespace KorvoSetvault

#endif  // SETVAULT_DEFAULT_INSTANCES_H_
