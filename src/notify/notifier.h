// Change notification: tells the host management daemon that a
// configuration object of an allowlisted type changed.
#ifndef SETVAULT_SRC_NOTIFY_NOTIFIER_H_
#define SETVAULT_SRC_NOTIFY_NOTIFIER_H_

#include <memory>
#include <string>
#include <unordered_set>

#include "dbstore/db_store.h"
#include "setvault/object_id.h"

namespace KorvoSetvault {

// The allowlist file and the daemon's socket name.
extern const char kNotifyAllowlistPath[];
extern const char kNotifyEndpoint[];

// Reads the allowlist file: a JSON array of "component.group.key" and
// "component.group.*" strings. Throws SetvaultException 2000 "Notification
// allowlist <path> missing." when the file does not exist, 1081 when it
// cannot be read, is larger than 16 MiB or is not JSON, and 1082 when it is
// not an array of strings.
std::unordered_set<std::string> ReadNotifyAllowlist();

// The process's allowlist, read on first use; a failed read is not kept and
// is retried at the next call. Thread-safe.
const std::unordered_set<std::string>& GetNotifyAllowlist();

// When notification is enabled on the host and the id's type is allowlisted
// (by full name or by its group's wildcard), sends the daemon one notify
// request. Failures are logged, never thrown: the write that caused the
// notification stands.
void NotifyIfAllowlisted(const SetvaultObjectId& id);

// NotifyIfAllowlisted for the type of `id`, once the outermost transaction open on
// `connection` has committed (at once when none is open): the daemon, reading the store
// when told, sees the change. Nothing is sent when that transaction rolls back, and a
// type changed several times in one transaction is notified once. Never throws for
// notification failures.
void NotifyAfterCommit(const SetvaultObjectId& id,
                       const std::shared_ptr<DBStore::StoreConnection>& connection);

// The HTTP request NotifyIfAllowlisted sends for `id` from process `pid`.
std::string BuildNotifyRequest(const SetvaultObjectId& id, long pid);

// Test hook: drops the cached allowlist so that the next use reads the file again.
void ResetNotifyAllowlistForTesting();

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_NOTIFY_NOTIFIER_H_
