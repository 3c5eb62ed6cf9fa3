#include "floor_sql.h"

#include <errno.h>  // program_invocation_short_name (GNU)

#include <cstdio>
#include <cstdlib>

namespace floor_bench {

void Die(const std::string& what) {
  std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, what.c_str());
  std::exit(1);
}

void Exec(sqlite3* db, const std::string& sql) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
    Die(sql + ": " + (message ? message : "?"));
  }
}

sqlite3_stmt* PrepareOnce(sqlite3* db, std::string_view sql) {
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                         &stmt, nullptr) != SQLITE_OK) {
    Die(std::string("prepare: ") + sqlite3_errmsg(db));
  }
  return stmt;
}

void BindText(sqlite3_stmt* stmt, int index, const std::string& text) {
  sqlite3_bind_text(stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}
void BindNullable(sqlite3_stmt* stmt, int index, const std::optional<std::string>& text) {
  if (text) {
    BindText(stmt, index, *text);
  } else {
    sqlite3_bind_null(stmt, index);
  }
}
void BindType(sqlite3_stmt* stmt, int first, const KorvoSetvault::SetvaultObjectId& type) {
  BindText(stmt, first, type.key);
  BindText(stmt, first + 1, type.group);
  BindText(stmt, first + 2, type.component);
}
std::optional<std::string> ColumnText(sqlite3_stmt* stmt, int column) {
  const unsigned char* text = sqlite3_column_text(stmt, column);
  if (text == nullptr) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(text),
                     static_cast<size_t>(sqlite3_column_bytes(stmt, column)));
}

}  // namespace floor_bench
