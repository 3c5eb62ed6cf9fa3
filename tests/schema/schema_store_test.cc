// Loading a directory of definitions into the schema database (all or
// nothing), and the schema store reading it: a reloaded or changed database
// is seen without a restart, unusable rows are skipped, and a forked child
// reads through its own connection.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>

#include "schema/schema_store.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"
#include "support/log_capture.h"
#include "support/reliability_processes.h"
#include "support/temp_dir.h"
#include "support/thrown.h"

namespace setvault_test {
namespace {

using KorvoSchemaStore::SchemaStore;
using KorvoSetvault::LoadSchemaDefinitions;
using KorvoSetvault::SchemaLoadMode;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// A definition of korvo/test/`key` whose schema takes any object.
std::string Minimal(const std::string& key, const std::string& version = "1") {
  return R"({"component":"korvo","group":"test","key":")" + key + R"(","version":")" + version +
         R"(","schema":{"type":"object"}})";
}

// Runs `sql` on the database at `path` through a connection of its own and
// returns the first column of every row, each followed by a blank.
std::string Sql(const std::string& path, const std::string& sql) {
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

// The schema store's current answer for korvo/test/`key`.
std::shared_ptr<KorvoSchemaStore::SchemaObject> Lookup(const char* key) {
  return SchemaStore::GetStore(false)->GetSchemaObject("korvo", "test", key);
}

// A schema database and a store in a temporary directory, and definitions written as files.
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
using SchemaLoaderTest = SchemaFilesTest;
using SchemaStoreTest = SchemaFilesTest;

// A multi-instance type "multi" with an integer member "n" (at most 9), a
// cached member "c" and the default instances `instances` (JSON text of the array).
std::string Multi(const std::string& instances) {
  return R"({"component":"korvo","group":"test","key":"multi","version":"1",)"
         R"("instanceIdProperty":"id","defaultInstances":)" +
         instances +
         R"(,"schema":{"type":"object","properties":{"id":{"type":"string"},)"
         R"("n":{"type":"integer","maximum":9},"c":{"type":"integer","cached":true}}}})";
}

// "Name=Version(ValueType)" of every definition in the schema database, by name.
constexpr char kNamesSql[] =
    "SELECT Name || '=' || Version || COALESCE('(' || ValueType || ')', '') FROM SmartnicSchema "
    "ORDER BY Name";

// The shipped defaults of a store: "Name/Identifier=Value" (and " cached=" CachedValue).
constexpr char kDefaultsSql[] =
    "SELECT Name || '/' || Identifier || '=' || COALESCE(Value, '-') || COALESCE(' cached=' || "
    "CachedValue, '') FROM DefaultConfig ORDER BY Name, Identifier";

// "<code> <message>" of the refusal of a load (or, with `check`, of a check) of `directory`.
std::string Refusal(const std::string& directory, bool check = false) {
  return Thrown([&] {
    check ? KorvoSetvault::CheckSchemaDefinitions(directory) : LoadSchemaDefinitions(directory);
  });
}

TEST_F(SchemaLoaderTest, LoadsEveryJsonFileAndIgnoresOthers) {
  EXPECT_THAT(Refusal(defs_.path()), StartsWith("2000 No schema definition (*.json) found in "));
  EXPECT_THAT(Refusal(defs_.File("missing")),
              StartsWith("2000 Cannot read schema definition directory " + defs_.File("missing")));
  EXPECT_EQ(KorvoSetvault::CheckSchemaDefinitions(SourceDir() + "/examples/schemas"), 9u);
  EXPECT_FALSE(std::filesystem::exists(database_));  // checking writes nothing
  defs_.WriteFile("a.json", Minimal("alpha"));
  defs_.WriteFile("b.json", R"({"component":"korvo","group":"test","key":"beta","version":"3",
                              "valueType":"korvo-shared","schema":{}})");
  defs_.WriteFile("README.txt", "not a definition");
  std::filesystem::create_directory(defs_.File("nested.json"));
  EXPECT_EQ(LoadSchemaDefinitions(defs_.path()), 2u);
  EXPECT_EQ(Sql(database_, kNamesSql), "alpha=1 beta=3(korvo-shared) ");
}

// Every refused file is reported with all its faults, by the check and the
// load alike (the checks of single definitions have their own tests). A
// refused load creates no schema database, or leaves it and the shipped
// defaults as they were.
TEST_F(SchemaLoaderTest, EveryRefusedFileIsReportedAndNothingIsWritten) {
  TempDir bad;
  bad.WriteFile("a.json", Minimal("alpha", "2"));
  bad.WriteFile("b.json", Minimal("alpha", "3"));
  bad.WriteFile("c.json", R"({"component":"korvo","group":"test","key":"gamma","version":"1",
      "schema":{"type":"object","propertise":{},"properties":{"s":{"type":"string",
      "pattern":"(["}}}})");
  bad.WriteFile("e.json", "{");
  bad.WriteFile("m.json", Multi(R"([{"id":"a"},{"id":"b","n":10}])"));
  // Files read are bounded in size.
  bad.WriteFile("s.json", Minimal("sigma") + std::string(4 * 1024 * 1024, ' '));
  bad.WriteFile("z.json", Minimal("zeta"));
  const std::string expected =
      "2000 " + bad.File("b.json") + ": defines korvo/test/alpha, which " + bad.File("a.json") +
      " defines as well\n" + bad.File("c.json") +
      ": /schema/properties/s/pattern: value \"([\" is not a valid regex (missing ]: [)\n" +
      bad.File("c.json") + ": /schema/propertise: \"propertise\" is not a supported keyword\n" +
      bad.File("e.json") + ": not valid JSON at offset 1: Missing a name for object member.\n" +
      bad.File("m.json") + ": /defaultInstances/1/n: value 10 exceeds maximum 9\n" +
      bad.File("s.json") + ": larger than the limit of 4194304 bytes";
  EXPECT_EQ(Refusal(bad.path(), true), expected);
  EXPECT_EQ(Refusal(bad.path()), expected);
  EXPECT_FALSE(std::filesystem::exists(database_));
  defs_.WriteFile("a.json", Minimal("alpha"));
  defs_.WriteFile("b.json", Minimal("beta"));
  ASSERT_EQ(LoadSchemaDefinitions(defs_.path()), 2u);
  EXPECT_EQ(Refusal(bad.path()), expected);
  EXPECT_EQ(Sql(database_, kNamesSql), "alpha=1 beta=1 ");
  EXPECT_EQ(Sql(store_, kDefaultsSql), "");
  EXPECT_EQ(Lookup("alpha")->GetVersion(), "1");
}

// Merging keeps the types (and their shipped defaults) that are not loaded
// again; replacing drops them.
TEST_F(SchemaLoaderTest, ShippedDefaultsGoIntoTheStoreWithTheirDefinitions) {
  defs_.WriteFile("a.json", R"({"component":"korvo","group":"test","key":"alpha","version":"1",)"
                            R"("defaults":{"n":1},"schema":{"type":"object","properties":)"
                            R"({"n":{"type":"integer"}}}})");
  defs_.WriteFile("m.json", Multi(R"([{"id":"b","n":2,"c":3},{"id":"a"}])"));
  LoadSchemaDefinitions(defs_.path());
  EXPECT_EQ(Sql(store_, kDefaultsSql),
            R"(alpha/={"n":1} multi/a={"id":"a"} multi/b={"id":"b","n":2} cached={"c":3} )");
  TempDir more;
  more.WriteFile("m.json", Multi(R"([{"id":"z"}])"));
  more.WriteFile("z.json", Minimal("zeta"));
  EXPECT_EQ(LoadSchemaDefinitions(more.path(), SchemaLoadMode::kMerge), 2u);
  EXPECT_EQ(Sql(database_, kNamesSql), "alpha=1 multi=1 zeta=1 ");
  EXPECT_EQ(Sql(store_, kDefaultsSql), R"(alpha/={"n":1} multi/z={"id":"z"} )");
  EXPECT_EQ(LoadSchemaDefinitions(more.path(), SchemaLoadMode::kReplaceAll), 2u);
  EXPECT_EQ(Sql(database_, kNamesSql), "multi=1 zeta=1 ");
  EXPECT_EQ(Sql(store_, kDefaultsSql), R"(multi/z={"id":"z"} )");
  EXPECT_EQ(Lookup("alpha"), nullptr);

  // When the store refuses the defaults, the schema database is not written either.
  Sql(store_,
      "CREATE TRIGGER refuse BEFORE INSERT ON DefaultConfig BEGIN SELECT RAISE(ABORT, "
      "'refused'); END");
  EXPECT_THAT(Refusal(defs_.path()), HasSubstr("Write default configuration failed: "));
  EXPECT_EQ(Sql(database_, kNamesSql), "multi=1 zeta=1 ");
  EXPECT_EQ(Sql(store_, kDefaultsSql), R"(multi/z={"id":"z"} )");
}

// A failed write of the schema database rolls back the whole load.
TEST_F(SchemaLoaderTest, DatabaseFaultsLeaveTheRowsAsTheyWere) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  std::filesystem::create_directories(database_);  // a directory where the file should be
  EXPECT_THAT(Refusal(defs_.path()), StartsWith("2000 Schema database " + database_ + ": "));
  std::filesystem::remove(database_);
  defs_.WriteFile("b.json", Minimal("beta"));
  LoadSchemaDefinitions(defs_.path());
  Sql(database_,
      "CREATE TRIGGER refuse_zeta BEFORE INSERT ON SmartnicSchema WHEN NEW.Name = 'zeta' "
      "BEGIN SELECT RAISE(ABORT, 'zeta refused'); END");
  // Replacing deletes every row and writes alpha before zeta fails.
  TempDir next;
  next.WriteFile("a.json", Minimal("alpha", "2"));
  next.WriteFile("z.json", Minimal("zeta"));
  EXPECT_THAT(Refusal(next.path()),
              ::testing::AllOf(HasSubstr("cannot write the definition of korvo/test/zeta"),
                               HasSubstr("zeta refused")));
  EXPECT_EQ(Sql(database_, kNamesSql), "alpha=1 beta=1 ");
  // A second writer holding the write lock makes the load fail once the busy
  // time-out has passed.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(database_.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  defs_.WriteFile("a.json", Minimal("alpha", "2"));
  EXPECT_THAT(Refusal(defs_.path()), HasSubstr("database is locked"));
  sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  EXPECT_EQ(Sql(database_, kNamesSql), "alpha=1 beta=1 ");
}

TEST_F(SchemaStoreTest, UnusableRowsAreSkippedAndLogged) {
  std::filesystem::create_directories(db_dir_.File("state"));
  Sql(database_, "CREATE TABLE Other (x)");  // a database without the table reads as empty
  EXPECT_EQ(SchemaStore::GetStore(true)->GetSchemaCache()->Size(), 0u);
  defs_.WriteFile("a.json", Minimal("first"));
  LoadSchemaDefinitions(defs_.path());
  Sql(database_,
      "INSERT INTO SmartnicSchema VALUES ('korvo','test','broken',NULL,'1','{not json'),"
      "('korvo','test','alias',NULL,'1','" +
          Minimal("first") + "')");
  LogCapture log;
  EXPECT_NE(Lookup("first"), nullptr);
  EXPECT_EQ(Lookup("broken"), nullptr);
  EXPECT_EQ(Lookup("alias"), nullptr);
  EXPECT_EQ(log.CountStartingWith(0,
                                  "Skipping unusable schema definition: schema database row "
                                  "korvo/test/broken: not valid JSON"),
            1);
}

TEST_F(SchemaStoreTest, ReloadedOrReplacedDatabaseIsSeenAndAForkedChildReadsAgain) {
  defs_.WriteFile("a.json", Minimal("first"));
  LoadSchemaDefinitions(defs_.path());
  auto before = SchemaStore::GetStore(false);
  auto first = before->GetSchemaObject("korvo", "test", "first");
  EXPECT_EQ(SchemaStore::GetStore(false), before);  // unchanged: the same reading
  auto forced = SchemaStore::GetStore(true);
  EXPECT_NE(forced, before);
  EXPECT_NE(forced->GetSchemaObject("korvo", "test", "first"), nullptr);
  // What was handed out before a reload stays usable and unchanged.
  defs_.WriteFile("a.json", Minimal("first", "2"));
  LoadSchemaDefinitions(defs_.path());
  EXPECT_EQ(Lookup("first")->GetVersion(), "2");
  EXPECT_EQ(first->GetVersion(), "1");
  forced = SchemaStore::GetStore(false);
  // A forked child reads through a connection of its own, not the parent's.
  const pid_t child = Spawn([&] {
    auto own = SchemaStore::GetStore(false);
    return own != forced && own->GetSchemaObject("korvo", "test", "first") ? 0 : 1;
  });
  EXPECT_EQ(Wait(child), 0);
  EXPECT_EQ(SchemaStore::GetStore(false), forced);
  // A new file renamed over the old one has another identity.
  TempDir other;
  other.WriteFile("b.json", Minimal("second"));
  KorvoSetvault::SetSchemaStorePath(other.File("new.db"));
  LoadSchemaDefinitions(other.path());
  KorvoSetvault::SetSchemaStorePath(database_);
  std::filesystem::rename(other.File("new.db"), database_);
  EXPECT_EQ(Lookup("first"), nullptr);
  EXPECT_NE(Lookup("second"), nullptr);
}

// The cheap change check sees commits by another connection, right after a
// load and to a file left alone for seconds, in both journal modes.
class SchemaStoreStampsTest : public SchemaFilesTest,
                              public ::testing::WithParamInterface<const char*> {};

TEST_P(SchemaStoreStampsTest, CommitsOfAnotherConnectionAreSeen) {
  defs_.WriteFile("first.json", Minimal("first"));
  defs_.WriteFile("second.json", Minimal("second"));
  ASSERT_EQ(LoadSchemaDefinitions(defs_.path()), 2u);
  Sql(database_, std::string("PRAGMA journal_mode=") + GetParam());
  ASSERT_NE(Lookup("first"), nullptr);
  Sql(database_, "DELETE FROM SmartnicSchema WHERE Name = 'first'");
  EXPECT_EQ(Lookup("first"), nullptr);
  // Past the window in which a recently written file is always asked for its
  // data version: only the cheap check remains.
  sleep(3);
  ASSERT_NE(Lookup("second"), nullptr);
  Sql(database_, "DELETE FROM SmartnicSchema WHERE Name = 'second'");
  EXPECT_EQ(Lookup("second"), nullptr);
}

INSTANTIATE_TEST_SUITE_P(JournalModes, SchemaStoreStampsTest, ::testing::Values("DELETE", "WAL"));

}  // namespace
}  // namespace setvault_test
