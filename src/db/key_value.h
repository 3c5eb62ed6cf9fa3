// General access to the key-value table of host flags, and the boot-mode flag.
#ifndef SETVAULT_SRC_DB_KEY_VALUE_H_
#define SETVAULT_SRC_DB_KEY_VALUE_H_

#include <memory>
#include <string>

#include "platform/db_store.h"

namespace KorvoSetvault {

// The text stored under `key` (empty when absent), on the thread's own connection. Throws
// SetvaultException 1002 (the store path) when the store cannot be opened and 2000
// "Failed to read KV table for key: <key>" when the read fails.
std::string GetKeyValue(const std::string& key);

// Stores `value` under `key` on the thread's own connection. Throws 1002 as GetKeyValue and
// 2000 "Failed to write KV table for key: <key>" when the write fails.
void SetKeyValue(const std::string& key, const std::string& value);

// True when "BOOT_MODE" holds exactly "1" (the host is being remediated), read on `conn`.
// Throws 2000 "Failed to read value from database." when the read fails.
bool IsHostRemediated(const std::shared_ptr<DBStore::StoreConnection>& conn);

// Stores "4" under "BOOT_MODE" on `conn` (a reboot-required change is pending). Throws 2000
// "Failed to write BootMode to database." when the write fails.
void MarkBootModeChanged(const std::shared_ptr<DBStore::StoreConnection>& conn);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_KEY_VALUE_H_
