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

// Sets the notification allowlist file: a JSON array of "component.group.key"
// and "component.group.*" names of the types whose changes are announced
// (default "/usr/lib/tarsel/setwarden/notify-list/allowlist.json"). The file
// is read again at the next change. Thread-safe.
SETVAULT_EXPORT void SetNotifyAllowlistPath(const std::string& path);
// Sets the directory of the management daemon's notification socket ("", the
// default: the current directory). Thread-safe.
SETVAULT_EXPORT void SetNotifySocketDirectory(const std::string& directory);
// The path of the notification socket in force: the directory and the socket
// name "trsLocalSocketNexdNotifyMirk". Notifications are sent only while the
// host flag "NOTIFY_NEXD" holds "true".
SETVAULT_EXPORT std::string GetNotifySocketPath();

// A number that changes whenever either path is set; lets holders of open
// connections notice that they refer to an old file.
SETVAULT_EXPORT uint64_t GetStorePathGeneration();

}  // namespace KorvoSetvault

#endif  // SETVAULT_HOST_SETUP_H_
