// Conditional writes: checks that the stored revision is still the one a caller read.
// Run inside the write's transaction, so that check and write are one step.
#ifndef SETVAULT_SRC_STORE_REVISION_CHECK_H_
#define SETVAULT_SRC_STORE_REVISION_CHECK_H_

#include <map>
#include <string>

#include "db/config_writes.h"
#include "db/statements.h"
#include "setvault/object_id.h"

namespace KorvoSetvault {

// "SELECT Identifier, Revision ..." of one object: key, group, component, instance id.
extern const KeyStatement4 kRevisionOfInstanceSql;

// The stored revision of `id`; -1 when no row is stored. Throws SetvaultException 2000
// "GetRevision command failed" when the read fails.
int ReadStoredRevision(const SetvaultObjectId& id, const ConnectionPtr& conn);

// Throws RevisionConflictException when the stored revision of `id` (-1: none) is not
// `expected`; throws as ReadStoredRevision.
void RequireRevision(const SetvaultObjectId& id, int expected, const ConnectionPtr& conn);

// RequireRevision for every instance id of `expected` (instance id to revision) of the
// type of `type`: one indexed read per expected instance, none for the rest of the type.
void RequireRevisions(const SetvaultObjectId& type, const std::map<std::string, int>& expected,
                      const ConnectionPtr& conn);

// Raises the stored revision of `id` by one, for a write that changes a row in place (an
// UPDATE keeps the revision otherwise). Throws SetvaultException 2000 when that fails.
void RaiseRevision(const SetvaultObjectId& id, const ConnectionPtr& conn);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_STORE_REVISION_CHECK_H_
