// Stepping a statement to the end with a SQLite-form row callback.
#include "dbstore/db_store_connection.h"
#include "setvault/logger.h"

namespace DBStore {
namespace {

constexpr int kInlineColumns = 32;

// Column texts and names of one statement, on the stack for the usual column counts.
class RowBuffers {
 public:
  RowBuffers(sqlite3_stmt* stmt, int count) : count_(count) {
    if (count > kInlineColumns) {
      heap_texts_.resize(count);
      heap_names_.resize(count);
      texts_ = heap_texts_.data();
      names_ = heap_names_.data();
    }
    for (int i = 0; i < count; ++i) names_[i] = const_cast<char*>(sqlite3_column_name(stmt, i));
  }

  void Load(sqlite3_stmt* stmt) {
    for (int i = 0; i < count_; ++i) {
      texts_[i] = const_cast<char*>(reinterpret_cast<const char*>(sqlite3_column_text(stmt, i)));
    }
  }

  char** texts() { return texts_; }
  char** names() { return names_; }

 private:
  int count_;
  char* inline_texts_[kInlineColumns];
  char* inline_names_[kInlineColumns];
  char** texts_ = inline_texts_;
  char** names_ = inline_names_;
  std::vector<char*> heap_texts_;
  std::vector<char*> heap_names_;
};

int Fail(sqlite3_stmt* stmt, int rc, const char* what) {
  internal::LogSqliteError(sqlite3_db_handle(stmt), rc, what, sqlite3_sql(stmt));
  sqlite3_reset(stmt);
  return 1;
}

}  // namespace

int ExecuteStmt(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt,
                RowCallback callback, void* context, int busy_timeout_ms) {
  if (!stmt) {
    KorvoSetvault::SVLogger::Log(0, "ExecuteStmt called without a statement");
    return 1;
  }
  internal::OperationGate gate;
  sqlite3_stmt* raw = stmt.get();
  if (conn) conn->UseBusyTimeout(busy_timeout_ms);
  const int64_t total_before = sqlite3_total_changes64(sqlite3_db_handle(raw));
  int rc = sqlite3_step(raw);
  if (rc == SQLITE_ROW && callback != nullptr) {
    int count = sqlite3_column_count(raw);
    RowBuffers row(raw, count);
    do {
      row.Load(raw);
      if (callback(context, count, row.texts(), row.names()) != 0) {
        KorvoSetvault::SVLogger::Log(0, "Row callback aborted the statement [%s]",
                                     sqlite3_sql(raw));
        sqlite3_reset(raw);
        return 1;
      }
    } while ((rc = sqlite3_step(raw)) == SQLITE_ROW);
  } else {
    while (rc == SQLITE_ROW) rc = sqlite3_step(raw);
  }
  if (rc != SQLITE_DONE) return Fail(raw, rc, "Statement");
  sqlite3_reset(raw);
  if (conn && callback == nullptr && conn->db() == sqlite3_db_handle(raw)) {
    internal::NoteChanges(*conn, stmt, total_before);
  }
  return 0;
}

}  // namespace DBStore
