// Small helpers of the hand-written floors on the sqlite3 C API.
#ifndef SETVAULT_BENCH_FLOOR_SQL_H_
#define SETVAULT_BENCH_FLOOR_SQL_H_

#include <sqlite3.h>

#include <optional>
#include <string>
#include <string_view>

#include "setvault/object_id.h"

namespace floor_bench {

// Prints `what` and ends the program.
[[noreturn]] void Die(const std::string& what);
// Runs `sql`; dies when it fails.
void Exec(sqlite3* db, const std::string& sql);
// A statement prepared once for many runs; dies when it does not prepare.
sqlite3_stmt* PrepareOnce(sqlite3* db, std::string_view sql);
// Binds `text` (kept alive by the caller until the step).
void BindText(sqlite3_stmt* stmt, int index, const std::string& text);
// Binds `text`, or NULL when it is empty.
void BindNullable(sqlite3_stmt* stmt, int index, const std::optional<std::string>& text);
// Binds the type's name, group and component to `first` and the two after it.
void BindType(sqlite3_stmt* stmt, int first, const KorvoSetvault::SetvaultObjectId& type);
// The column's text, or nothing for NULL.
std::optional<std::string> ColumnText(sqlite3_stmt* stmt, int column);

}  // namespace floor_bench

#endif  // SETVAULT_BENCH_FLOOR_SQL_H_
