// Host set-up: where the store keeps its files.
//
// A host (daemon or tool) chooses the store database and the schema database
// before it opens its first store. The library itself reads no environment
// variable and no configuration file for this.
//
//   KorvoSetvault::SetStorePath("/var/lib/myhost/store.db");
//   KorvoSetvault::SetSchemaStorePath("/var/lib/myhost/schema.db");
//   auto store = KorvoSetvault::Setvault::GetStore("");
//
// Changing a path later makes each thread open its next connection on the new
// file; connections already handed out keep their file.
#ifndef SETVAULT_HOST_SETUP_H_
#define SETVAULT_HOST_SETUP_H_

#include <cstdint>
#include <string>

#include "setvault/export.h"

namespace KorvoSetvault {

// The default store database, used when the host sets none.
SETVAULT_EXPORT extern const char kDefaultStorePath[];
// The default schema database, used when the host sets none.
SETVAULT_EXPORT extern const char kDefaultSchemaStorePath[];

// Sets the store database file. Thread-safe.
SETVAULT_EXPORT void SetStorePath(const std::string& path);
// The store database file in force.
SETVAULT_EXPORT std::string GetStorePath();

// Sets the schema database file. Thread-safe.
SETVAULT_EXPORT void SetSchemaStorePath(const std::string& path);
// The schema database file in force.
SETVAULT_EXPORT std::string GetSchemaStorePath();

// A number that changes whenever either path is set; lets holders of open
// connections notice that they refer to an old file.
SETVAULT_EXPORT uint64_t GetStorePathGeneration();

// Turns the cache of objects read by Get on or off for every thread (it is on
// by default). Each thread keeps, per store connection, up to 256 decoded
// objects of at most 64 KiB each; an object is handed out from the cache only
// after the store was found unchanged in the same read (another process's or
// connection's commit, or a write or rollback on this connection, empties it),
// and always as the caller's own copy. Thread-safe.
SETVAULT_EXPORT void SetObjectCacheEnabled(bool enabled);

}  // namespace KorvoSetvault

#endif  // SETVAULT_HOST_SETUP_H_
