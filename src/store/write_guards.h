// Checks shared by the store's write operations.
#ifndef SETVAULT_SRC_STORE_WRITE_GUARDS_H_
#define SETVAULT_SRC_STORE_WRITE_GUARDS_H_

#include <memory>
#include <optional>
#include <vector>

#include "schema/schema_store.h"
#include "setvault/setvault_object.h"
#include "setvault/user_context.h"

namespace KorvoSetvault {

// True when the object holds user configuration: its type is not vital or
// cached as a whole, and its config kind (and, for kind 5, its instance id)
// does not mark it as system-managed.
bool isUserType(const std::shared_ptr<SetvaultObject>& object,
                const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema);

// For user configuration, refuses an external caller while the host boots
// outside an upgrade. A list of objects passes the same `booting` (initially
// empty) for each, so that the host's boot flag is read once for the list.
void BootGuard(const std::shared_ptr<SetvaultObject>& object,
               const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema,
               const USERDATA_CONTEXT& context, std::optional<bool>* booting = nullptr);

// Drops empty pointers; throws InvalidArgumentException 1061 when nothing is
// left.
std::vector<std::shared_ptr<SetvaultObject>> WithoutEmptyPointers(
    std::vector<std::shared_ptr<SetvaultObject>> objects);

// Throws InvalidArgumentException 1062 unless every object has the first
// object's key, group and component.
void RequireOneType(const std::vector<std::shared_ptr<SetvaultObject>>& objects);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_STORE_WRITE_GUARDS_H_
