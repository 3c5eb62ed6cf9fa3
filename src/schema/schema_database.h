// The schema database: one SQLite file holding every type definition in the
// table SmartnicSchema. The writer is used by the definition loader; the
// reader is the schema store's own read-only connection.
#ifndef SETVAULT_SRC_SCHEMA_SCHEMA_DATABASE_H_
#define SETVAULT_SRC_SCHEMA_SCHEMA_DATABASE_H_

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace KorvoSchemaStore {

struct SchemaDefinition;

// How a load treats definitions already in the database.
enum class SchemaWriteMode {
  kReplaceAll,  // the database ends up holding exactly the new definitions
  kMerge,       // new definitions replace those of the same type; others stay
};

// Writes `definitions` into the schema database at `path` in one transaction,
// creating the file (and a missing parent directory) and the table when
// needed: owner-only (0600 and 0700 whatever the umask), and never through a
// symbolic link at `path`. On any failure nothing is changed and
// SetvaultException 2000 is thrown naming the path and the cause (SQLite's
// message; a link at `path`; a file or directory every user can write).
void WriteSchemaDefinitions(const std::string& path,
                            const std::vector<std::shared_ptr<const SchemaDefinition>>& definitions,
                            SchemaWriteMode mode);

// One row of SmartnicSchema.
struct SchemaRow {
  std::string component;
  std::string group;
  std::string name;
  std::string definition;
};

// A read-only connection to an existing schema database.
class SchemaDatabaseReader {
 public:
  // Opens `path` read-only. Throws SetvaultException 2000 naming the path and
  // the cause when it cannot, or when every user can write the file (or
  // replace it: a directory every user can write, without the sticky bit).
  explicit SchemaDatabaseReader(const std::string& path);
  ~SchemaDatabaseReader();
  SchemaDatabaseReader(const SchemaDatabaseReader&) = delete;
  SchemaDatabaseReader& operator=(const SchemaDatabaseReader&) = delete;

  // A number that changes when another connection commits to the file.
  // Returns -1 when it cannot be read.
  int64_t DataVersion();

  // The file change counter of the database header, read through the
  // connection's own file handle without a lock or a query: in
  // rollback-journal mode every commit of any connection raises it. Returns
  // -1 when it cannot be read (no file handle, a file shorter than a header)
  // or the file is in write-ahead-log mode.
  int64_t ChangeCounter();

  // True when the file is in write-ahead-log mode: commits of other
  // connections then go to the log file and leave the database file as it is.
  // Also true when the mode cannot be read (the cautious answer).
  bool UsesWriteAheadLog();

  // Every row of SmartnicSchema. A database without the table reads as no
  // rows. Throws SetvaultException 2000 on a read failure.
  std::vector<SchemaRow> ReadAll();

 private:
  sqlite3* db_ = nullptr;
  sqlite3_stmt* data_version_ = nullptr;  // prepared on first use
  std::string path_;
};

}  // namespace KorvoSchemaStore

#endif  // SETVAULT_SRC_SCHEMA_SCHEMA_DATABASE_H_
