// The host's upgrade context: non-zero while an upgrade of the host is in progress.
#ifndef SETVAULT_SRC_DB_UPGRADE_CTX_H_
#define SETVAULT_SRC_DB_UPGRADE_CTX_H_

namespace KorvoSetvault {

// The integer stored under the key "UPGRADE_CTX" (0 when the key is absent or its text is
// not an integer), read on the calling thread's connection and cached by it until the
// database changes. Throws SetvaultException 1002 (the store path) when the store cannot be
// opened and 2000 "Failed to read value from database." when the read fails.
int GetUpgradeCtx();

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_UPGRADE_CTX_H_
