// The boot-mode flag of the key-value table. The general accessors
// GetKeyValue and SetKeyValue are public (setvault/host_functions.h).
#ifndef SETVAULT_SRC_DB_KEY_VALUE_H_
#define SETVAULT_SRC_DB_KEY_VALUE_H_

#include <memory>
#include <string>

#include "dbstore/db_store.h"
#include "setvault/host_functions.h"  // GetKeyValue, SetKeyValue

namespace KorvoSetvault {

// True when "BOOT_MODE" holds exactly "1" (the host is being remediated), read on `conn`.
// Throws 2000 "Failed to read value from database." when the read fails.
bool IsHostRemediated(const std::shared_ptr<DBStore::StoreConnection>& conn);

// Stores "4" under "BOOT_MODE" on `conn` (a reboot-required change is pending). Throws 2000
// "Failed to write BootMode to database." when the write fails.
void MarkBootModeChanged(const std::shared_ptr<DBStore::StoreConnection>& conn);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_KEY_VALUE_H_
