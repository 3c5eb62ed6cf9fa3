// ConfigStoreTest: a real store file in a temporary directory, the example
// schemas loaded as the process's schema store, and helpers that write rows
// and host flags with plain SQL on the thread's connection, so that reads are
// checked against data the library did not write itself.
#ifndef SETVAULT_TESTS_SUPPORT_CONFIG_STORE_H_
#define SETVAULT_TESTS_SUPPORT_CONFIG_STORE_H_

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dbstore/db_store.h"
#include "setvault/host_setup.h"
#include "support/example_schemas.h"
#include "support/temp_dir.h"

namespace setvault_test {

// One row of Config; an absent optional is SQL NULL (or the column default
// for the times, revision and success flag). Every member has an initializer,
// so that a row can be given by its first members only.
struct ConfigRow {
  std::string component = "korvo";
  std::string group = {};
  std::string name = {};
  std::string identifier = {};
  std::optional<std::string> version = {};
  std::optional<std::string> user = {};
  std::optional<std::string> vital = {};
  std::optional<std::string> cached = {};
  std::optional<std::string> autoconf = {};
  std::optional<std::string> desired = {};
  std::optional<int> success = {};
  std::optional<int> revision = {};
  std::optional<std::string> creation = {};
  std::optional<std::string> modified = {};
};

class ConfigStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    store_path_ = dir_.File("store.db");
    KorvoSetvault::SetStorePath(store_path_);
    conn_ = DBStore::GetConnection(DBStore::kConfigStore, true);
    DBStore::CheckStore(conn_, true);  // a store file exists from the start
    ASSERT_NE(conn_, nullptr);
  }
  void TearDown() override {
    conn_.reset();
    KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath);
  }

  sqlite3* Db() const { return DBStore::GetSqliteHandle(*conn_); }

  // Runs `sql` by hand; fails the test when it fails.
  void Sql(const std::string& sql) {
    char* error = nullptr;
    int rc = sqlite3_exec(Db(), sql.c_str(), nullptr, nullptr, &error);
    EXPECT_EQ(rc, SQLITE_OK) << sql << ": " << (error ? error : "");
    sqlite3_free(error);
  }

  // The first column of the first row of `sql`; "<null>" / "<none>" otherwise.
  std::string Query(const std::string& sql) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(Db(), sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
      return std::string("<error: ") + sqlite3_errmsg(Db()) + ">";
    }
    std::string result = "<none>";
    if (sqlite3_step(stmt) == SQLITE_ROW) {
      const unsigned char* text = sqlite3_column_text(stmt, 0);
      result = text ? reinterpret_cast<const char*>(text) : "<null>";
    }
    sqlite3_finalize(stmt);
    return result;
  }

  void InsertConfig(const ConfigRow& row) {
    std::string columns = "Component, ConfigGroup, Name, Identifier";
    std::vector<std::optional<std::string>> values = {row.component, row.group, row.name,
                                                      row.identifier};
    auto add = [&](const char* column, const std::optional<std::string>& value) {
      if (!value) return;
      columns += std::string(", ") + column;
      values.push_back(value);
    };
    add("Version", row.version);
    add("UserValue", row.user);
    add("VitalValue", row.vital);
    add("CachedValue", row.cached);
    add("AutoConfValue", row.autoconf);
    add("DesiredValue", row.desired);
    if (row.success) add("Success", std::to_string(*row.success));
    if (row.revision) add("Revision", std::to_string(*row.revision));
    add("CreationTime", row.creation);
    add("ModifiedTime", row.modified);
    Insert("Config", columns, values);
  }

  // Sets a host flag (IS_BOOT, UPGRADE_CTX, ...) with SQL.
  void SetFlag(const std::string& key, const std::string& value) {
    Insert("KeyValue", "Key, Value", {key, value});
  }

  TempDir dir_;
  ExampleSchemas schemas_;
  std::string store_path_;
  std::shared_ptr<DBStore::StoreConnection> conn_;

 private:
  void Insert(const std::string& table, const std::string& columns,
              const std::vector<std::optional<std::string>>& values) {
    std::string marks;
    for (size_t i = 0; i < values.size(); ++i) marks += i ? ", ?" : "?";
    const std::string sql =
        "INSERT OR REPLACE INTO " + table + " (" + columns + ") VALUES (" + marks + ")";
    sqlite3_stmt* stmt = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(Db(), sql.c_str(), -1, &stmt, nullptr), SQLITE_OK)
        << sqlite3_errmsg(Db());
    for (size_t i = 0; i < values.size(); ++i) {
      const int index = static_cast<int>(i) + 1;
      if (values[i]) {
        sqlite3_bind_text(stmt, index, values[i]->c_str(), -1, SQLITE_TRANSIENT);
      } else {
        sqlite3_bind_null(stmt, index);
      }
    }
    EXPECT_EQ(sqlite3_step(stmt), SQLITE_DONE) << sqlite3_errmsg(Db());
    sqlite3_finalize(stmt);
  }
};

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_SUPPORT_CONFIG_STORE_H_
