// A store on a fresh database file with the example schemas loaded, and helpers that read
// the stored rows by hand, so that tests check what the store wrote rather than what the
// library's own reads make of it.
#ifndef SETVAULT_TESTS_STORE_STORE_FIXTURE_H_
#define SETVAULT_TESTS_STORE_STORE_FIXTURE_H_

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "dbstore/db_store.h"
#include "dbstore/db_store_fixture.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"
#include "support/example_schemas.h"
#include "support/temp_dir.h"

namespace setvault_test {

using KorvoSetvault::SetvaultObject;
using KorvoSetvault::SetvaultObjectId;
using KorvoSetvault::USERDATA_CONTEXT;

using Objects = std::vector<std::shared_ptr<SetvaultObject>>;

inline const USERDATA_CONTEXT kExternal{KorvoSetvault::kExternalContext};
inline const USERDATA_CONTEXT kAutoConfig{KorvoSetvault::kAutoConfigContext};
inline const SetvaultObjectId kHost("host", "system", "korvo");

inline SetvaultObjectId Vswitch(const std::string& name) {
  return SetvaultObjectId("vswitch", "net", "korvo", name);
}
inline SetvaultObjectId Datastore(const std::string& label) {
  return SetvaultObjectId("datastore", "storage", "korvo", label);
}

// Collects the SQL text of every statement `db` starts while it lives.
class StatementTrace {
 public:
  explicit StatementTrace(sqlite3* db) : db_(db) {
    sqlite3_trace_v2(db_, SQLITE_TRACE_STMT, &StatementTrace::OnStatement, this);
  }
  ~StatementTrace() { sqlite3_trace_v2(db_, 0, nullptr, nullptr); }
  const std::vector<std::string>& statements() const { return statements_; }

 private:
  static int OnStatement(unsigned, void* self, void* statement, void*) {
    const char* sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
    static_cast<StatementTrace*>(self)->statements_.push_back(sql != nullptr ? sql : "");
    return 0;
  }
  sqlite3* db_;
  std::vector<std::string> statements_;
};

class WriteStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KorvoSetvault::SetStorePath(dir_.File("store.db"));
    store_ = KorvoSetvault::Setvault::GetStore("");
    // Reads need a store file: the first write would make it.
    DBStore::CheckStore(DBStore::GetConnection(DBStore::kConfigStore, true), true);
  }
  void TearDown() override {
    store_.reset();
    KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath);
  }

  // The raw handle of the thread's connection (the one the store writes through).
  sqlite3* Db() {
    return DBStore::GetSqliteHandle(*DBStore::GetConnection(DBStore::kConfigStore, true));
  }

  // `column` of the Config row of `id`, as QueryText reports it ("<null>", "<none>").
  std::string Column(const SetvaultObjectId& id, const std::string& column) {
    return QueryText(Db(), "SELECT " + column + " FROM Config WHERE " + OfType(id) +
                               " AND Identifier = " + Literal(id.instanceId));
  }
  // Number of Config rows of the type `id` names.
  int RowCount(const SetvaultObjectId& id) {
    return std::stoi(QueryText(Db(), "SELECT COUNT(*) FROM Config WHERE " + OfType(id)));
  }
  // `text` as an SQL string literal.
  static std::string Literal(std::string text) {
    for (size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 2) {
      text.insert(at, 1, '\'');
    }
    return "'" + text + "'";
  }
  static std::string OfType(const SetvaultObjectId& id) {
    return "Name = " + Literal(id.key) + " AND ConfigGroup = " + Literal(id.group) +
           " AND Component = " + Literal(id.component);
  }

  // Every column of every row `sql` yields, "a|b|" a row; "<error: ...>" when it fails.
  std::string Rows(const std::string& sql) {
    std::string rows;
    const auto add = [](void* out, int columns, char** values, char**) {
      auto& text = *static_cast<std::string*>(out);
      for (int i = 0; i < columns; ++i) text += std::string(values[i] ? values[i] : "-") + "|";
      text += "\n";
      return 0;
    };
    if (sqlite3_exec(Db(), sql.c_str(), add, &rows, nullptr) == SQLITE_OK) return rows;
    return "<error: " + std::string(sqlite3_errmsg(Db())) + ">";
  }
  // Every row of every table the library writes, for before/after comparison.
  std::string Snapshot() {
    return Rows("SELECT * FROM Config; SELECT * FROM DesiredUserConfig; SELECT * FROM KeyValue");
  }
  // The data of `object`; "<none>" for an empty pointer.
  static std::string Data(const std::shared_ptr<SetvaultObject>& object) {
    return object ? object->GetData() : "<none>";
  }

  // Makes the database refuse `event` ("INSERT ON Config WHEN ...") until DropFault().
  void Fault(const std::string& event) {
    RunSql(Db(),
           "CREATE TRIGGER Fault BEFORE " + event + " BEGIN SELECT RAISE(ABORT, 'injected'); END");
  }
  void DropFault() { ASSERT_EQ(RunSql(Db(), "DROP TRIGGER Fault"), SQLITE_OK); }

  // A new object of `id`'s type holding `json`.
  static std::shared_ptr<SetvaultObject> Object(const SetvaultObjectId& id,
                                                const std::string& json) {
    auto object = std::make_shared<SetvaultObject>(id);
    object->SetData(json.c_str());
    return object;
  }
  // A vswitch `name` with `mtu`.
  static std::shared_ptr<SetvaultObject> Switch(const std::string& name, int mtu) {
    return Object(Vswitch(name), R"({"name":")" + name + R"(","mtu":)" + std::to_string(mtu) + "}");
  }

  ExampleSchemas schemas_;
  TempDir dir_;
  std::shared_ptr<KorvoSetvault::Setvault> store_;
};

// Runs `call`, expecting an exception of type E with `code`; returns its message.
template <typename E, typename Call>
std::string ExpectThrow(Call call, int code) {
  try {
    call();
  } catch (const E& e) {
    EXPECT_EQ(e.GetErrorCode(), code) << e.what();
    return e.what();
  }
  ADD_FAILURE() << "no exception, expected code " << code;
  return "";
}

// Calls the library must refuse, each with its code and, unless it is empty, its message.
using Refusals = std::vector<std::tuple<std::function<void()>, int, std::string>>;
inline void ExpectRefusals(const Refusals& refusals) {
  for (size_t i = 0; i < refusals.size(); ++i) {
    SCOPED_TRACE("refusal " + std::to_string(i));
    const auto& [call, code, message] = refusals[i];
    const std::string what = ExpectThrow<KorvoSetvault::SetvaultException>(call, code);
    EXPECT_TRUE(message.empty() || what == message) << what;
  }
}

// The instance ids of `objects`, in order.
inline std::vector<std::string> Ids(const Objects& objects) {
  std::vector<std::string> ids;
  for (const auto& object : objects) ids.push_back(object->GetSetvaultObjectId().instanceId);
  return ids;
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_STORE_STORE_FIXTURE_H_
