// The row callbacks that turn result rows into StoreRow maps (DBStore::ExecuteStmt form).
#ifndef SETVAULT_SRC_DB_ROW_CALLBACKS_H_
#define SETVAULT_SRC_DB_ROW_CALLBACKS_H_

#include "db/store_row.h"

namespace KorvoSetvault {

// Row into map: `context` is a StoreRow*. Stores each non-NULL column under its name,
// assigning over an earlier value of that name (with several rows, later non-NULL columns
// win). Returns 0.
int RowIntoMapCallback(void* context, int count, char** texts, char** names);

// Row appended: `context` is a StoreRows* (the shared vector must exist). Appends a new
// StoreRow filled as by RowIntoMapCallback. Returns 0.
int RowAppendedCallback(void* context, int count, char** texts, char** names);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_ROW_CALLBACKS_H_
