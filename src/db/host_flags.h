// The host flags the library reads from the key-value table: IsBoot and
// IsNexdNotificationEnabled, declared (and documented) with the public
// host-level functions.
#ifndef SETVAULT_SRC_DB_HOST_FLAGS_H_
#define SETVAULT_SRC_DB_HOST_FLAGS_H_

#include "setvault/host_functions.h"

#endif  // SETVAULT_SRC_DB_HOST_FLAGS_H_
