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
//
// How the file is treated. Opening, like every statement, waits up to 3 s for
// a busy file, and it leaves a file already in WAL mode as it is.
//  - Missing: only a write creates it (with its directory, owner-only: 0600
//    and 0700 whatever the umask), built under a temporary name and linked
//    into place, so that no process ever sees it half made. Reads of a store
//    never written throw SetvaultException 2000 "Failed to connect to
//    database" naming the path ("does not exist"): a mistyped path never
//    produces an empty store that looks like lost configuration.
//  - Refused, nothing modified (2000 "Failed to connect to database", the path
//    and cause in GetDetailedMessage()): an empty (0-byte) file; a file that is
//    not a store of this library (another SQLite database, even one with a
//    Config table: a store is marked by PRAGMA application_id, or, made by an
//    earlier version, has every store table and schema version 1); a store of
//    a newer schema version; a file every user can write, or one in a
//    directory every user can write without the sticky bit (a group-writable
//    file is only logged).
//  - Removed or replaced while in use (its path no longer names the file that
//    was opened, checked at every read and transaction): the handles on the
//    old file refuse every read and write with the same 2000 and detail "was
//    removed or replaced while in use", instead of splitting the store in two;
//    handles obtained afterwards open the file now at the path.
//  - A file this process may only read (read-only media, a read-only file or
//    directory): reads work; writes fail with 2000 and detail "is read-only
//    for this process".
SETVAULT_EXPORT void SetStorePath(const std::string& path);
// The store database file in force.
SETVAULT_EXPORT std::string GetStorePath();

// Sets the schema database file. Thread-safe. Loading definitions creates it
// owner-only (0600, directories 0700, whatever the umask) and refuses a
// symbolic link at the path; a schema database every user can write (or
// replace) is refused, and, like a missing or damaged one, leaves no type
// defined: lookups then throw 1037 whose GetDetailedMessage() says which.
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

// Turns the cache of objects read by Get on or off for every thread (it is on
// by default). Each thread keeps, per store connection, up to 256 decoded
// objects of at most 64 KiB each; an object is handed out from the cache only
// after the store was found unchanged in the same read (another process's or
// connection's commit, or a write or rollback on this connection, empties it),
// and always as the caller's own copy. Thread-safe.
SETVAULT_EXPORT void SetObjectCacheEnabled(bool enabled);

}  // namespace KorvoSetvault

#endif  // SETVAULT_HOST_SETUP_H_
