// The host flags the library reads from the key-value table.
#ifndef SETVAULT_SRC_DB_HOST_FLAGS_H_
#define SETVAULT_SRC_DB_HOST_FLAGS_H_

namespace KorvoSetvault {

// True exactly when "IS_BOOT" holds "true" (the host is booting). Read on the
// thread's connection. Throws SetvaultException 1002 when the store cannot be
// opened and 2000 "Failed to read value from database." when the read fails.
bool IsBoot();

// True exactly when "NOTIFY_NEXD" holds "true". A failed read counts as
// disabled; never throws for a read failure.
bool IsNexdNotificationEnabled();

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_HOST_FLAGS_H_
