// Set-up shared by the schema store tests: a schema database and a store in a
// temporary directory, definitions written as files, and plain SQL on the
// database beside the library's own connections.
#ifndef SETVAULT_TESTS_SCHEMA_SCHEMA_FILES_H_
#define SETVAULT_TESTS_SCHEMA_SCHEMA_FILES_H_

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>

#include "schema/schema_store.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"
#include "support/temp_dir.h"

namespace setvault_test {

// A definition of korvo/test/`key` whose schema takes any object.
inline std::string Minimal(const std::string& key, const std::string& version = "1") {
  return R"({"component":"korvo","group":"test","key":")" + key + R"(","version":")" + version +
         R"(","schema":{"type":"object"}})";
}

// Runs `sql` on the database at `path` through a connection of its own and
// returns the first column of every row, each followed by a blank.
inline std::string Sql(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  std::string rows;
  auto add = [](void* out, int, char** values, char**) {
    *static_cast<std::string*>(out) += std::string(values[0] ? values[0] : "") + " ";
    return 0;
  };
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), add, &rows, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  sqlite3_close(db);
  return rows;
}

// The schema store's current answer for korvo/test/`key` (or another type).
inline std::shared_ptr<KorvoSchemaStore::SchemaObject> Lookup(const char* key,
                                                              const char* group = "test",
                                                              const char* component = "korvo") {
  return KorvoSchemaStore::SchemaStore::GetStore(false)->GetSchemaObject(component, group, key);
}

class SchemaFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    database_ = db_dir_.File("state/schema.db");
    KorvoSetvault::SetSchemaStorePath(database_);
    store_ = db_dir_.File("store.db");
    KorvoSetvault::SetStorePath(store_);
  }
  void TearDown() override {
    KorvoSetvault::SetSchemaStorePath(KorvoSetvault::kDefaultSchemaStorePath);
    KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath);
  }

  TempDir defs_;
  TempDir db_dir_;
  std::string database_;
  std::string store_;
};

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_SCHEMA_SCHEMA_FILES_H_
