// Binding and running the statements of the persistence writers: the key
// columns, the version and the split value parts, always in parameter-number
// order (each Bind advances `index`).
#ifndef SETVAULT_SRC_DB_STATEMENT_BINDS_H_
#define SETVAULT_SRC_DB_STATEMENT_BINDS_H_

#include <optional>
#include <string>
#include <string_view>

#include "db/object_split.h"
#include "db/row_readers.h"

namespace KorvoSetvault {

// A text bound as SQL NULL when absent; views `text`, which must outlive it.
std::optional<std::string_view> Nullable(const std::optional<std::string>& text);

// Binds instance id, name, group, component and version (?1 to ?5 of the
// INSERT writers). `version` must outlive the statement's execution. True
// when every bind succeeded.
bool BindKeyAndVersion(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt, int& index,
                       const SetvaultObjectId& id, const std::string& version);

// Binds name, group, component and instance id (the WHERE of the UPDATEs).
bool BindWhereKey(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt, int& index,
                  const SetvaultObjectId& id);

// Binds the user, vital and cached parts, each NULL when absent.
bool BindParts(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt, int& index,
               const SplitParts& parts);

// Runs a statement that returns no rows. True when it is present and the
// database layer answers 0 (any other answer counts as failure).
bool Execute(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt);

// Runs a statement that returns no rows; false only when the database layer
// answers 1 (or no statement was prepared). For the writers whose failure is
// that answer alone.
bool ExecuteUnlessFailed(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_STATEMENT_BINDS_H_
