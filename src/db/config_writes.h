// Writes of stored configuration: one value column per origin, whole
// objects split into their columns, updates by context and deletes. Every
// function runs in the caller's transaction and throws SetvaultException 2000
// when a statement fails. Replacing writes keep CreationTime and raise
// Revision by exactly 1; UPDATEs change neither.
#ifndef SETVAULT_SRC_DB_CONFIG_WRITES_H_
#define SETVAULT_SRC_DB_CONFIG_WRITES_H_

#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "db/row_readers.h"
#include "setvault/user_context.h"

namespace KorvoSetvault {

using ObjectList = std::vector<ObjectPtr>;
// The value columns of a whole-object write, serialized; an absent column is
// written as NULL.
struct ColumnValues {
  std::optional<std::string> autoconf, user, vital, cached;
};
// Instance id to (revision, creation time) of rows written before: imported
// objects and objects replacing stored instances keep their history.
using RevisionMap = std::unordered_map<std::string, std::pair<int, std::string>>;

// The update kinds of UpdateByContextInternal and SetByContextInternal.
enum UPDATE_CONTEXT : int {
  kUpdateUser = 0,        // user data: clears DesiredValue
  kUpdateNonUser = 1,     // other types: user column, DesiredValue kept
  kUpdateAutoConfig = 2,  // auto-configuration column, DesiredValue kept
};

// One-column writers. The user writer stores Success 0 only when `confirmed`
// is false and the upgrade context is 2, and drops a pending DesiredValue.
void WriteUserConfigInstances(const ObjectList& objects, const ConnectionPtr& conn, bool confirmed);
void WriteCachedConfigInstances(const ObjectList& objects, const ConnectionPtr& conn);
void WriteVitalConfigInstances(const ObjectList& objects, const ConnectionPtr& conn);
void WriteAutoConfConfigInstances(const ObjectList& objects, const ConnectionPtr& conn);

// Writes whole objects: for each object its column values (`columns[i]` for
// `objects[i]`), Success by the upgrade context and the schema, and revision
// and creation time from `history` when it holds the instance.
void WriteCompleteConfigInstances(const std::vector<ColumnValues>& columns,
                                  const ObjectList& objects, const SchemaPtr& schema,
                                  const ConnectionPtr& conn, const RevisionMap* history);

// Splits the object by its schema and writes all its columns: the user part
// to UserValue for the external context and to AutoConfValue otherwise; the
// other of those two columns, and a vital or cached column the object has no
// part for, keep their stored values.
void SetInternal(const ObjectPtr& object, const SchemaPtr& schema, const USERDATA_CONTEXT& context,
                 const ConnectionPtr& conn);
// The same for many objects of one type in one pass; `history` (may be null)
// supplies revisions and creation times by instance id.
void SetInstancesInternal(const ObjectList& objects, const USERDATA_CONTEXT& context,
                          const SchemaPtr& schema, const ConnectionPtr& conn,
                          const RevisionMap* history);

// Updates the stored row's columns of `kind` in place (no new revision).
void UpdateByContextInternal(const ObjectPtr& object, const SchemaPtr& schema, UPDATE_CONTEXT kind,
                             const ConnectionPtr& conn);
// Inserts (or replaces) the row with the columns of `kind`; the other kinds'
// columns are carried over, and so is the pending DesiredValue unless `kind`
// is kUpdateUser.
void SetByContextInternal(const ObjectPtr& object, const SchemaPtr& schema, UPDATE_CONTEXT kind,
                          const ConnectionPtr& conn);

// Deletes one row.
void DeleteInternal(const SetvaultObjectId& id, const ConnectionPtr& conn);
// Deletes every row of the id's type.
void DeleteInstancesInternal(const SetvaultObjectId& id, const ConnectionPtr& conn);
// Clear one column of every row of the id's type; rows stay.
void DeleteUserConfigInstances(const SetvaultObjectId& id, const ConnectionPtr& conn);
void DeleteVitalConfigInstances(const SetvaultObjectId& id, const ConnectionPtr& conn);
void DeleteCachedConfigInstances(const SetvaultObjectId& id, const ConnectionPtr& conn);
void DeleteAutoConfConfigInstances(const SetvaultObjectId& id, const ConnectionPtr& conn);

// Revision and creation time of every stored instance of the id's type.
// Throws 2000 "Failed to read revision from setvault." when the read fails.
RevisionMap ReadRevisionMap(const SetvaultObjectId& id, const ConnectionPtr& conn);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_CONFIG_WRITES_H_
