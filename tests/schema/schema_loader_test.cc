// Loading a directory of definitions into the schema database: all or nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

#include "schema/schema_store.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"
#include "support/temp_dir.h"

namespace {

using KorvoSchemaStore::SchemaStore;
using KorvoSetvault::LoadSchemaDefinitions;
using KorvoSetvault::SchemaLoadMode;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string Minimal(const std::string& key, const std::string& version = "1") {
  return R"({"component":"korvo","group":"test","key":")" + key + R"(","version":")" + version +
         R"(","schema":{"type":"object"}})";
}

// A multi-instance type "multi" with an integer member "n" (at most 9) and the default
// instances `instances` (JSON text of the array).
std::string Multi(const std::string& instances) {
  return R"({"component":"korvo","group":"test","key":"multi","version":"1",)"
         R"("instanceIdProperty":"id","defaultInstances":)" +
         instances +
         R"(,"schema":{"type":"object","properties":{"id":{"type":"string"},)"
         R"("n":{"type":"integer","maximum":9},"c":{"type":"integer","cached":true}}}})";
}

// The first column of every row of `sql`, each followed by a blank; "" when the table
// cannot be read. By default "Name=Version(ValueType)" of every definition, by name.
std::string Rows(const std::string& path,
                 const char* sql =
                     "SELECT Name || '=' || Version || COALESCE('(' || ValueType || "
                     "')', '') FROM SmartnicSchema ORDER BY Name") {
  sqlite3* db = nullptr;
  std::string rows;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK) {
      while (sqlite3_step(statement) == SQLITE_ROW) {
        rows += std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0))) + " ";
      }
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return rows;
}

// The shipped defaults of a store: "Name/Identifier=Value" (and " cached=" CachedValue).
constexpr char kDefaultsSql[] =
    "SELECT Name || '/' || Identifier || '=' || COALESCE(Value, '-') || COALESCE(' cached=' || "
    "CachedValue, '') FROM DefaultConfig ORDER BY Name, Identifier";

std::string LoadError(const std::string& directory,
                      SchemaLoadMode mode = SchemaLoadMode::kReplaceAll) {
  try {
    LoadSchemaDefinitions(directory, mode);
  } catch (const KorvoSetvault::SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), KorvoSetvault::SV_ERR_GENERIC);
    return e.what();
  }
  ADD_FAILURE() << "load of " << directory << " succeeded";
  return std::string();
}

std::string CheckError(const std::string& directory) {
  try {
    KorvoSetvault::CheckSchemaDefinitions(directory);
  } catch (const KorvoSetvault::SetvaultException& e) {
    return e.what();
  }
  return "check of " + directory + " succeeded";
}

std::string Repeat(const std::string& text, int times) {
  std::string repeated;
  for (int i = 0; i < times; ++i) repeated += text;
  return repeated;
}

void Execute(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* error = nullptr;
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << error;
  sqlite3_free(error);
  sqlite3_close(db);
}

class SchemaLoaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    database_ = db_dir_.File("state/schema.db");
    KorvoSetvault::SetSchemaStorePath(database_);
    store_ = db_dir_.File("store.db");
    KorvoSetvault::SetStorePath(store_);
  }
  void TearDown() override { KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath); }

  setvault_test::TempDir defs_;
  setvault_test::TempDir db_dir_;
  std::string database_;
  std::string store_;
};

TEST_F(SchemaLoaderTest, LoadsEveryJsonFileAndIgnoresOthers) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  defs_.WriteFile("b.json", R"({"component":"korvo","group":"test","key":"beta","version":"3",
                              "valueType":"korvo-shared","schema":{}})");
  defs_.WriteFile("README.txt", "not a definition");
  std::filesystem::create_directory(defs_.File("nested.json"));
  EXPECT_EQ(LoadSchemaDefinitions(defs_.path()), 2u);
  EXPECT_EQ(Rows(database_), "alpha=1 beta=3(korvo-shared) ");
}

// Hostile and malformed definitions: each is refused with the file and the fault,
// by the check and by the load alike, and the database is left as it was.
TEST_F(SchemaLoaderTest, RefusedDefinitionLeavesTheDatabaseAsItWas) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  defs_.WriteFile("b.json", Minimal("beta"));
  ASSERT_EQ(LoadSchemaDefinitions(defs_.path()), 2u);
  ASSERT_NE(SchemaStore::GetStore(false)->GetSchemaObject("korvo", "test", "beta"), nullptr);

  struct Case {
    std::string text;
    std::string fault;
  };
  const Case cases[] = {
      {R"({"component":"korvo","group":"test","key":"gamma","version":"1","schema":{})",
       "not valid JSON"},
      {R"({"group":"test","key":"gamma","version":"1","schema":{}})", "\"component\" is missing"},
      {R"({"component":"korvo","key":"gamma","version":"1","schema":{}})", "\"group\" is missing"},
      {R"({"component":"korvo","group":"test","version":"1","schema":{}})", "\"key\" is missing"},
      {R"({"component":"korvo","group":"test","key":"gamma","version":"1","schema":5})",
       "\"schema\" must be a JSON object"},
      {R"({"component":"korvo","group":"test","key":"gamma","version":"1","schema":{},)"
       R"("defaultInstances":[]})",
       "\"defaultInstances\" needs a multi-instance type"},
      {Multi("{}"), "\"defaultInstances\" must be an array of objects"},
      {Multi("[5]"), "\"defaultInstances\" element 0 must be an object"},
      {Multi(R"([{"n":1}])"), "element 0 must name its instance in \"id\""},
      {Multi(R"([{"id":""}])"), "element 0 must name its instance in \"id\""},
      {Multi(R"([{"id":"a"},{"id":"a"}])"), "element 1: instance \"a\" is listed twice"},
      {Multi(R"([{"id":"a"},{"id":"b","n":10}])"), "/defaultInstances/1/n: value 10 exceeds maximum"},
      {Multi(R"([{"id":"a","x":1}])"), "/defaultInstances/0/x: member 'x' is not described"},
      {R"({"component":"korvo","group":"test","key":"gamma","version":1,"schema":{}})",
       "\"version\" must be a string"},
      {R"({"component":"korvo","group":"test","key":"gamma","version":"1","tags":{},"schema":{}})",
       "\"tags\" must be an array of strings"},
      // 400 KB of nested brackets once overflowed the stack of the parser.
      {std::string(200000, '[') + std::string(200000, ']'),
       "not valid JSON at offset 512: arrays and objects nested deeper than 512 levels."},
      {R"({"component":"korvo","group":"test","key":"gamma","version":"1","schema":)" +
           Repeat(R"({"items":)", 600) + "{}" + std::string(600, '}') + "}",
       "nested deeper than 512 levels."},
      {R"({"component":"korvo","group":"test","key":"gamma","version":"1",)"
       "\"description\":\"caf\xe9\",\"schema\":{}}",
       "not valid JSON at offset 82: Invalid encoding in string."},
      {std::string("{\"component\":\"korvo\"\0}", 22), "not valid JSON at offset 20: NUL byte"},
      {Minimal("gamma") + std::string(4 * 1024 * 1024, ' '),
       "larger than the limit of 4194304 bytes"},
  };
  for (const Case& c : cases) {
    // A good new definition sorts before the bad one and a changed one after it.
    setvault_test::TempDir next;
    next.WriteFile("a.json", Minimal("alpha", "2"));
    next.WriteFile("m.json", c.text);
    next.WriteFile("z.json", Minimal("zeta"));
    const std::string message = LoadError(next.path());
    EXPECT_THAT(message, StartsWith(next.File("m.json") + ": ")) << c.fault;
    EXPECT_THAT(message, HasSubstr(c.fault));
    EXPECT_EQ(CheckError(next.path()), message);
    EXPECT_EQ(Rows(database_), "alpha=1 beta=1 ");
    EXPECT_EQ(Rows(store_, kDefaultsSql), "");
    EXPECT_EQ(SchemaStore::GetStore(false)->GetSchemaObject("korvo", "test", "alpha")->GetVersion(),
              "1");
  }
}

TEST_F(SchemaLoaderTest, EveryRefusedFileIsReported) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  defs_.WriteFile("b.json", Minimal("alpha", "2"));
  defs_.WriteFile("c.json", R"({"component":"korvo","group":"test","key":"gamma","version":"1",
      "schema":{"type":"object","propertise":{},"properties":{"s":{"type":"string",
      "pattern":"(["}}}})");
  defs_.WriteFile("d.json", Minimal("delta"));
  defs_.WriteFile("e.json", "{");
  const std::string expected =
      defs_.File("b.json") + ": defines korvo/test/alpha, which " + defs_.File("a.json") +
      " defines as well\n" + defs_.File("c.json") +
      ": /schema/properties/s/pattern: value \"([\" is not a valid regex (missing ]: [)\n" +
      defs_.File("c.json") + ": /schema/propertise: \"propertise\" is not a supported keyword\n" +
      defs_.File("e.json") + ": not valid JSON at offset 1: Missing a name for object member.";
  EXPECT_EQ(LoadError(defs_.path()), expected);
  try {
    KorvoSetvault::CheckSchemaDefinitions(defs_.path());
    ADD_FAILURE() << "check passed";
  } catch (const KorvoSetvault::SetvaultException& e) {
    EXPECT_EQ(e.what(), expected);
  }
  EXPECT_FALSE(std::filesystem::exists(database_));
}

TEST_F(SchemaLoaderTest, DirectoryProblemsAreReported) {
  EXPECT_THAT(LoadError(defs_.path()), StartsWith("No schema definition (*.json) found in "));
  EXPECT_THAT(LoadError(defs_.File("missing")),
              StartsWith("Cannot read schema definition directory " + defs_.File("missing")));
  EXPECT_EQ(KorvoSetvault::CheckSchemaDefinitions(setvault_test::SourceDir() + "/examples/schemas"),
            9u);
  EXPECT_FALSE(std::filesystem::exists(database_));  // checking writes nothing
}

TEST_F(SchemaLoaderTest, ReplaceAllDropsTypesThatAreGoneAndMergeKeepsThem) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  defs_.WriteFile("b.json", Minimal("beta"));
  LoadSchemaDefinitions(defs_.path());

  setvault_test::TempDir more;
  more.WriteFile("b.json", Minimal("beta", "2"));
  more.WriteFile("c.json", Minimal("gamma"));
  EXPECT_EQ(LoadSchemaDefinitions(more.path(), SchemaLoadMode::kMerge), 2u);
  EXPECT_EQ(Rows(database_), "alpha=1 beta=2 gamma=1 ");

  EXPECT_EQ(LoadSchemaDefinitions(more.path(), SchemaLoadMode::kReplaceAll), 2u);
  EXPECT_EQ(Rows(database_), "beta=2 gamma=1 ");
  EXPECT_EQ(SchemaStore::GetStore(false)->GetSchemaObject("korvo", "test", "alpha"), nullptr);
}

TEST_F(SchemaLoaderTest, ShippedDefaultsGoIntoTheStoreWithTheirDefinitions) {
  defs_.WriteFile("a.json", R"({"component":"korvo","group":"test","key":"alpha","version":"1",)"
                            R"("defaults":{"n":1},"schema":{"type":"object","properties":)"
                            R"({"n":{"type":"integer"}}}})");
  defs_.WriteFile("m.json", Multi(R"([{"id":"b","n":2,"c":3},{"id":"a"}])"));
  LoadSchemaDefinitions(defs_.path());
  EXPECT_EQ(Rows(store_, kDefaultsSql),
            R"(alpha/={"n":1} multi/a={"id":"a"} multi/b={"id":"b","n":2} cached={"c":3} )");

  // Merging replaces the defaults of the loaded types only; replacing drops the others.
  setvault_test::TempDir more;
  more.WriteFile("m.json", Multi(R"([{"id":"z"}])"));
  LoadSchemaDefinitions(more.path(), SchemaLoadMode::kMerge);
  EXPECT_EQ(Rows(store_, kDefaultsSql), R"(alpha/={"n":1} multi/z={"id":"z"} )");
  LoadSchemaDefinitions(more.path(), SchemaLoadMode::kReplaceAll);
  EXPECT_EQ(Rows(store_, kDefaultsSql), R"(multi/z={"id":"z"} )");

  // When the store refuses the defaults, the schema database is not written either.
  Execute(store_,
          "CREATE TRIGGER refuse BEFORE INSERT ON DefaultConfig BEGIN SELECT RAISE(ABORT, "
          "'refused'); END");
  EXPECT_THAT(LoadError(defs_.path()), HasSubstr("Write default configuration failed: "));
  EXPECT_EQ(Rows(database_), "multi=1 ");
  EXPECT_EQ(Rows(store_, kDefaultsSql), R"(multi/z={"id":"z"} )");
}

TEST_F(SchemaLoaderTest, UnwritableDatabaseIsReported) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  // A directory where the database file should be.
  std::filesystem::create_directories(database_);
  EXPECT_THAT(LoadError(defs_.path()), StartsWith("Schema database " + database_ + ": "));
}

TEST_F(SchemaLoaderTest, FailedWriteRollsBackTheWholeLoad) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  defs_.WriteFile("b.json", Minimal("beta"));
  LoadSchemaDefinitions(defs_.path());
  Execute(database_,
          "CREATE TRIGGER refuse_zeta BEFORE INSERT ON SmartnicSchema WHEN NEW.Name = 'zeta' "
          "BEGIN SELECT RAISE(ABORT, 'zeta refused'); END");
  // Replacing deletes every row and writes alpha before zeta fails.
  setvault_test::TempDir next;
  next.WriteFile("a.json", Minimal("alpha", "2"));
  next.WriteFile("z.json", Minimal("zeta"));
  EXPECT_THAT(LoadError(next.path()),
              ::testing::AllOf(HasSubstr("cannot write the definition of korvo/test/zeta"),
                               HasSubstr("zeta refused")));
  EXPECT_EQ(Rows(database_), "alpha=1 beta=1 ");
}

TEST_F(SchemaLoaderTest, LockedDatabaseFailsCleanlyAfterTheBusyTimeout) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  LoadSchemaDefinitions(defs_.path());
  // A second writer holding the write lock makes the load fail cleanly once
  // the busy time-out has passed, leaving the rows as they were.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(database_.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  defs_.WriteFile("a.json", Minimal("alpha", "2"));
  EXPECT_THAT(LoadError(defs_.path()), HasSubstr("database is locked"));
  sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  EXPECT_EQ(Rows(database_), "alpha=1 ");
}

}  // namespace
