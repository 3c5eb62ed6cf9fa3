#include "schema/schema_database.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "platform/file_trust.h"
#include "schema/schema_definition.h"
#include "setvault/exceptions.h"

namespace KorvoSchemaStore {
namespace {

constexpr int kBusyTimeoutMs = 3000;

[[noreturn]] void Fail(const std::string& path, const std::string& what, sqlite3* db) {
  std::string message = "Schema database " + path + ": " + what;
  if (db != nullptr) message += ": " + std::string(sqlite3_errmsg(db));
  throw KorvoSetvault::SetvaultException(KorvoSetvault::SV_ERR_GENERIC, message.c_str());
}

// Closes a connection when it goes out of scope.
struct ConnectionCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
using Connection = std::unique_ptr<sqlite3, ConnectionCloser>;

// Finalizes a statement when it goes out of scope.
struct StatementFinalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

Statement Prepare(sqlite3* db, const char* sql, const std::string& path) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) {
    Fail(path, "cannot prepare statement", db);
  }
  return Statement(statement);
}

void Exec(sqlite3* db, const char* sql, const std::string& path) {
  if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) Fail(path, sql, db);
}

// Refuses a file other users could change (see CheckOthersCannotWrite).
void CheckTrusted(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return;  // opening names the cause
  std::string why;
  if (!KorvoSetvault::internal::CheckOthersCannotWrite(path, info, &why)) Fail(path, why, nullptr);
}

// A new database is created owner-only, never through a link planted at its path (nor a
// missing directory: those are made owner-only too).
Connection OpenForWriting(const std::string& path) {
  using KorvoSetvault::internal::ParentDirectory;
  int error = KorvoSetvault::internal::MakePrivateDirectories(ParentDirectory(path));
  if (error != 0) {
    Fail(path, "cannot create directory " + ParentDirectory(path) + ": " + std::strerror(error),
         nullptr);
  }
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) {
    error = KorvoSetvault::internal::CreatePrivateFile(path);
    if (error != 0 && error != EEXIST) {
      Fail(path, std::string("cannot create: ") + std::strerror(error), nullptr);
    }
  } else if (S_ISLNK(info.st_mode)) {
    Fail(path, "is a symbolic link: refused", nullptr);
  }
  CheckTrusted(path);
  sqlite3* db = nullptr;
  const int rc =
      sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW, nullptr);
  Connection connection(db);
  if (rc != SQLITE_OK) Fail(path, "cannot open", db);
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  return connection;
}

const char CREATE_SCHEMA_TABLE[] =
    "CREATE TABLE IF NOT EXISTS SmartnicSchema ("
    "Component TEXT NOT NULL, ConfigGroup TEXT NOT NULL, Name TEXT NOT NULL, "
    "ValueType TEXT, Version TEXT NOT NULL, Definition TEXT NOT NULL, "
    "PRIMARY KEY (Component, ConfigGroup, Name))";

const char DELETE_ALL_SCHEMAS[] = "DELETE FROM SmartnicSchema";

const char WRITE_SCHEMA[] =
    "INSERT OR REPLACE INTO SmartnicSchema "
    "(Component, ConfigGroup, Name, ValueType, Version, Definition) "
    "VALUES (?1, ?2, ?3, ?4, ?5, ?6)";

void BindText(sqlite3_stmt* statement, int index, const std::string& text) {
  sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

void InsertDefinition(sqlite3* db, sqlite3_stmt* statement, const SchemaDefinition& definition,
                      const std::string& path) {
  sqlite3_reset(statement);
  BindText(statement, 1, definition.component);
  BindText(statement, 2, definition.group);
  BindText(statement, 3, definition.key);
  if (definition.valueType.empty()) {
    sqlite3_bind_null(statement, 4);
  } else {
    BindText(statement, 4, definition.valueType);
  }
  BindText(statement, 5, definition.version);
  BindText(statement, 6, definition.text);
  if (sqlite3_step(statement) != SQLITE_DONE) {
    Fail(path,
         "cannot write the definition of " + definition.component + "/" + definition.group + "/" +
             definition.key,
         db);
  }
}

void WriteAll(sqlite3* db, const std::vector<std::shared_ptr<const SchemaDefinition>>& definitions,
              SchemaWriteMode mode, const std::string& path) {
  Exec(db, CREATE_SCHEMA_TABLE, path);
  if (mode == SchemaWriteMode::kReplaceAll) Exec(db, DELETE_ALL_SCHEMAS, path);
  Statement insert = Prepare(db, WRITE_SCHEMA, path);
  for (const auto& definition : definitions) InsertDefinition(db, insert.get(), *definition, path);
}

}  // namespace

void WriteSchemaDefinitions(const std::string& path,
                            const std::vector<std::shared_ptr<const SchemaDefinition>>& definitions,
                            SchemaWriteMode mode) {
  Connection connection = OpenForWriting(path);
  sqlite3* db = connection.get();
  Exec(db, "BEGIN IMMEDIATE", path);
  try {
    WriteAll(db, definitions, mode, path);
    Exec(db, "COMMIT", path);
  } catch (...) {
    // Nothing of a failed load may stay; a rollback that fails leaves the
    // transaction to be discarded when the connection closes.
    sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

SchemaDatabaseReader::SchemaDatabaseReader(const std::string& path) : path_(path) {
  CheckTrusted(path);
  const int rc = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr);
  if (rc != SQLITE_OK) {
    const std::string message = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
    sqlite3_close_v2(db_);
    db_ = nullptr;
    Fail(path, "cannot open read-only: " + message, nullptr);
  }
  sqlite3_busy_timeout(db_, kBusyTimeoutMs);
  // Closing never checkpoints: a child process closes the reader it inherited.
  sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

SchemaDatabaseReader::~SchemaDatabaseReader() {
  sqlite3_finalize(data_version_);
  sqlite3_close_v2(db_);
}

const char READ_DATA_VERSION[] = "PRAGMA data_version";

int64_t SchemaDatabaseReader::DataVersion() {
  // Asked on every schema store lookup: the statement is prepared once.
  if (data_version_ == nullptr &&
      sqlite3_prepare_v2(db_, READ_DATA_VERSION, -1, &data_version_, nullptr) != SQLITE_OK) {
    return -1;
  }
  int64_t version = -1;
  if (sqlite3_step(data_version_) == SQLITE_ROW) version = sqlite3_column_int64(data_version_, 0);
  sqlite3_reset(data_version_);
  return version;
}

int64_t SchemaDatabaseReader::ChangeCounter() {
  // The header from its file format versions (offset 18: 2 means a
  // write-ahead log) to the end of the change counter (offset 24, 4 bytes).
  constexpr int kHeaderOffset = 18;
  constexpr int kHeaderBytes = 10;
  constexpr int kCounterAt = 6;
  constexpr unsigned char kWriteAheadLogFormat = 2;
  sqlite3_file* file = nullptr;
  if (sqlite3_file_control(db_, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
      file == nullptr || file->pMethods == nullptr) {
    return -1;
  }
  unsigned char bytes[kHeaderBytes];
  if (file->pMethods->xRead(file, bytes, kHeaderBytes, kHeaderOffset) != SQLITE_OK) return -1;
  if (bytes[0] == kWriteAheadLogFormat || bytes[1] == kWriteAheadLogFormat) return -1;
  const unsigned char* counter = bytes + kCounterAt;
  return (int64_t{counter[0]} << 24) | (int64_t{counter[1]} << 16) | (int64_t{counter[2]} << 8) |
         int64_t{counter[3]};
}

const char READ_JOURNAL_MODE[] = "PRAGMA journal_mode";

bool SchemaDatabaseReader::UsesWriteAheadLog() {
  sqlite3_stmt* stmt = nullptr;
  bool wal = true;
  if (sqlite3_prepare_v2(db_, READ_JOURNAL_MODE, -1, &stmt, nullptr) == SQLITE_OK &&
      sqlite3_step(stmt) == SQLITE_ROW) {
    const unsigned char* mode = sqlite3_column_text(stmt, 0);
    wal = mode == nullptr || sqlite3_stricmp(reinterpret_cast<const char*>(mode), "wal") == 0;
  }
  sqlite3_finalize(stmt);
  return wal;
}

const char HAS_SCHEMA_TABLE[] =
    "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'SmartnicSchema'";

const char READ_ALL_SCHEMAS[] =
    "SELECT Component, ConfigGroup, Name, Definition FROM SmartnicSchema";

namespace {

std::string ColumnText(sqlite3_stmt* statement, int column) {
  const unsigned char* text = sqlite3_column_text(statement, column);
  if (text == nullptr) return std::string();
  return std::string(reinterpret_cast<const char*>(text),
                     static_cast<size_t>(sqlite3_column_bytes(statement, column)));
}

}  // namespace

std::vector<SchemaRow> SchemaDatabaseReader::ReadAll() {
  std::vector<SchemaRow> rows;
  Statement has_table = Prepare(db_, HAS_SCHEMA_TABLE, path_);
  const int has_rc = sqlite3_step(has_table.get());
  if (has_rc == SQLITE_DONE) return rows;
  if (has_rc != SQLITE_ROW) Fail(path_, "cannot read", db_);
  Statement read = Prepare(db_, READ_ALL_SCHEMAS, path_);
  int rc;
  while ((rc = sqlite3_step(read.get())) == SQLITE_ROW) {
    rows.push_back({ColumnText(read.get(), 0), ColumnText(read.get(), 1), ColumnText(read.get(), 2),
                    ColumnText(read.get(), 3)});
  }
  if (rc != SQLITE_DONE) Fail(path_, "cannot read SmartnicSchema", db_);
  return rows;
}

}  // namespace KorvoSchemaStore
