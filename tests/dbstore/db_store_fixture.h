// Small helpers that run SQL by hand to check what the database layer did.
#ifndef SETVAULT_TESTS_DBSTORE_DB_STORE_FIXTURE_H_
#define SETVAULT_TESTS_DBSTORE_DB_STORE_FIXTURE_H_

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "dbstore/db_store.h"
#include "setvault/host_setup.h"
#include "support/temp_dir.h"

namespace setvault_test {

// The first text of the first row of `sql` run on `db`; "<null>" for SQL NULL, "<none>"
// when there is no row, "<error: ...>" when it fails.
inline std::string QueryText(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* stmt = nullptr;
  int rc = sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_step(stmt);
  const unsigned char* text = rc == SQLITE_ROW ? sqlite3_column_text(stmt, 0) : nullptr;
  std::string result = text != nullptr     ? reinterpret_cast<const char*>(text)
                       : rc == SQLITE_ROW  ? "<null>"
                       : rc == SQLITE_DONE ? "<none>"
                                           : std::string("<error: ") + sqlite3_errmsg(db) + ">";
  sqlite3_finalize(stmt);
  return result;
}

// Runs `sql` (one or more statements) on `db`; returns the primary SQLite code.
inline int RunSql(sqlite3* db, const std::string& sql) {
  return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) & 0xff;
}

// The first text `sql` gives on the database at `path` (created when missing), opened apart from
// the library (as the next process would: a hot journal left by a crash is rolled back), as
// QueryText gives it.
inline std::string QueryFile(const std::string& path, const char* sql) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  const std::string result = QueryText(db, sql);
  sqlite3_close(db);
  return result;
}

// The permission bits of `path` (not followed when a link), -1 when it does not exist.
inline int Mode(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 07777) : -1;
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_DBSTORE_DB_STORE_FIXTURE_H_
