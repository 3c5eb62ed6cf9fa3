// Boot confirmation of next-boot configuration rows. After the host booted
// with a staged user value (DesiredValue, or a UserValue with Success 0),
// these functions make it the confirmed user value. They run on the caller's
// connection inside the caller's transaction and throw SetvaultException 2000
// when a statement fails; the caller cancels.
#ifndef SETVAULT_SRC_DB_BOOT_STATUS_H_
#define SETVAULT_SRC_DB_BOOT_STATUS_H_

#include "db/row_readers.h"

namespace KorvoSetvault {

// With `success` true: UserValue takes DesiredValue (where one is stored),
// DesiredValue is cleared and Success set to 1, for the id's row or, when the
// id names no instance, for every row of its type. Revision and CreationTime
// stay. Does nothing with `success` false. Returns 0; throws 2000
// "SetBootStatus: Failed to mark success status for given svoId." when the
// update fails.
int SetBootStatusInternal(const SetvaultObjectId& id, bool success, const ConnectionPtr& conn);

// Confirms the part of the row's next-boot value that `partial` carries: the
// confirmed user value (an empty object when none) merged with `partial`
// becomes the user value with Success 1; DesiredValue is cleared once it
// equals the new user value and kept otherwise. A pending value held in an
// unconfirmed UserValue is first copied to DesiredValue. Throws 2000 "desired
// config is empty" when nothing is staged and "partial config being restored
// is not part of desired config" when `partial` holds a value the staged one
// lacks.
void SetPartialBootStatusInternal(const ObjectPtr& partial, const SchemaPtr& schema,
                                  const ConnectionPtr& conn);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_BOOT_STATUS_H_
