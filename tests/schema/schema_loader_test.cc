// Loading a directory of definitions into the schema database: all or nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

#include "schema/schema_files.h"
#include "setvault/exceptions.h"

namespace setvault_test {
namespace {

using KorvoSetvault::LoadSchemaDefinitions;
using KorvoSetvault::SchemaLoadMode;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// A multi-instance type "multi" with an integer member "n" (at most 9), a
// cached member "c" and the default instances `instances` (JSON text of the array).
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
  std::string rows;
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  auto add = [](void* out, int, char** values, char**) {
    *static_cast<std::string*>(out) += std::string(values[0]) + " ";
    return 0;
  };
  sqlite3_exec(db, sql, add, &rows, nullptr);
  sqlite3_close(db);
  return rows;
}

// The shipped defaults of a store: "Name/Identifier=Value" (and " cached=" CachedValue).
constexpr char kDefaultsSql[] =
    "SELECT Name || '/' || Identifier || '=' || COALESCE(Value, '-') || COALESCE(' cached=' || "
    "CachedValue, '') FROM DefaultConfig ORDER BY Name, Identifier";

// The message of the refusal of a load (or, with `check`, of a check) of `directory`.
std::string Refusal(const std::string& directory, bool check = false) {
  try {
    if (check) {
      KorvoSetvault::CheckSchemaDefinitions(directory);
    } else {
      LoadSchemaDefinitions(directory);
    }
  } catch (const KorvoSetvault::SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), KorvoSetvault::SV_ERR_GENERIC);
    return e.what();
  }
  ADD_FAILURE() << directory << " was accepted";
  return std::string();
}

using SchemaLoaderTest = SchemaFilesTest;

TEST_F(SchemaLoaderTest, LoadsEveryJsonFileAndIgnoresOthers) {
  EXPECT_THAT(Refusal(defs_.path()), StartsWith("No schema definition (*.json) found in "));
  EXPECT_THAT(Refusal(defs_.File("missing")),
              StartsWith("Cannot read schema definition directory " + defs_.File("missing")));
  EXPECT_EQ(KorvoSetvault::CheckSchemaDefinitions(SourceDir() + "/examples/schemas"), 9u);
  EXPECT_FALSE(std::filesystem::exists(database_));  // checking writes nothing
  defs_.WriteFile("a.json", Minimal("alpha"));
  defs_.WriteFile("b.json", R"({"component":"korvo","group":"test","key":"beta","version":"3",
                              "valueType":"korvo-shared","schema":{}})");
  defs_.WriteFile("README.txt", "not a definition");
  std::filesystem::create_directory(defs_.File("nested.json"));
  EXPECT_EQ(LoadSchemaDefinitions(defs_.path()), 2u);
  EXPECT_EQ(Rows(database_), "alpha=1 beta=3(korvo-shared) ");
}

// A refused definition (the checks of single definitions have their own
// tests) is reported with its file by the check and the load alike, and
// leaves the schema database and the shipped defaults as they were.
TEST_F(SchemaLoaderTest, RefusedDefinitionLeavesTheDatabaseAsItWas) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  defs_.WriteFile("b.json", Minimal("beta"));
  ASSERT_EQ(LoadSchemaDefinitions(defs_.path()), 2u);
  struct Case {
    std::string text;
    std::string fault;
  };
  const Case cases[] = {
      {Minimal("gamma") + "}", "not valid JSON"},
      {Multi(R"([{"id":"a"},{"id":"b","n":10}])"),
       "/defaultInstances/1/n: value 10 exceeds maximum"},
      // Files read are bounded in size.
      {Minimal("gamma") + std::string(4 * 1024 * 1024, ' '),
       "larger than the limit of 4194304 bytes"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.fault);
    // A good new definition sorts before the bad one and a changed one after it.
    TempDir next;
    next.WriteFile("a.json", Minimal("alpha", "2"));
    next.WriteFile("m.json", c.text);
    next.WriteFile("z.json", Minimal("zeta"));
    const std::string message = Refusal(next.path());
    EXPECT_THAT(message, StartsWith(next.File("m.json") + ": "));
    EXPECT_THAT(message, HasSubstr(c.fault));
    EXPECT_EQ(Refusal(next.path(), true), message);
    EXPECT_EQ(Rows(database_), "alpha=1 beta=1 ");
    EXPECT_EQ(Rows(store_, kDefaultsSql), "");
    EXPECT_EQ(Lookup("alpha")->GetVersion(), "1");
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
  EXPECT_EQ(Refusal(defs_.path()), expected);
  EXPECT_EQ(Refusal(defs_.path(), true), expected);
  EXPECT_FALSE(std::filesystem::exists(database_));
}

// Merging keeps the types (and their shipped defaults) that are not loaded
// again; replacing drops them.
TEST_F(SchemaLoaderTest, ShippedDefaultsGoIntoTheStoreWithTheirDefinitions) {
  defs_.WriteFile("a.json", R"({"component":"korvo","group":"test","key":"alpha","version":"1",)"
                            R"("defaults":{"n":1},"schema":{"type":"object","properties":)"
                            R"({"n":{"type":"integer"}}}})");
  defs_.WriteFile("m.json", Multi(R"([{"id":"b","n":2,"c":3},{"id":"a"}])"));
  LoadSchemaDefinitions(defs_.path());
  EXPECT_EQ(Rows(store_, kDefaultsSql),
            R"(alpha/={"n":1} multi/a={"id":"a"} multi/b={"id":"b","n":2} cached={"c":3} )");
  TempDir more;
  more.WriteFile("m.json", Multi(R"([{"id":"z"}])"));
  more.WriteFile("z.json", Minimal("zeta"));
  EXPECT_EQ(LoadSchemaDefinitions(more.path(), SchemaLoadMode::kMerge), 2u);
  EXPECT_EQ(Rows(database_), "alpha=1 multi=1 zeta=1 ");
  EXPECT_EQ(Rows(store_, kDefaultsSql), R"(alpha/={"n":1} multi/z={"id":"z"} )");
  EXPECT_EQ(LoadSchemaDefinitions(more.path(), SchemaLoadMode::kReplaceAll), 2u);
  EXPECT_EQ(Rows(database_), "multi=1 zeta=1 ");
  EXPECT_EQ(Rows(store_, kDefaultsSql), R"(multi/z={"id":"z"} )");
  EXPECT_EQ(Lookup("alpha"), nullptr);

  // When the store refuses the defaults, the schema database is not written either.
  Execute(store_,
          "CREATE TRIGGER refuse BEFORE INSERT ON DefaultConfig BEGIN SELECT RAISE(ABORT, "
          "'refused'); END");
  EXPECT_THAT(Refusal(defs_.path()), HasSubstr("Write default configuration failed: "));
  EXPECT_EQ(Rows(database_), "multi=1 zeta=1 ");
  EXPECT_EQ(Rows(store_, kDefaultsSql), R"(multi/z={"id":"z"} )");
}

// A failed write of the schema database rolls back the whole load.
TEST_F(SchemaLoaderTest, DatabaseFaultsLeaveTheRowsAsTheyWere) {
  defs_.WriteFile("a.json", Minimal("alpha"));
  std::filesystem::create_directories(database_);  // a directory where the file should be
  EXPECT_THAT(Refusal(defs_.path()), StartsWith("Schema database " + database_ + ": "));
  std::filesystem::remove(database_);
  defs_.WriteFile("b.json", Minimal("beta"));
  LoadSchemaDefinitions(defs_.path());
  Execute(database_,
          "CREATE TRIGGER refuse_zeta BEFORE INSERT ON SmartnicSchema WHEN NEW.Name = 'zeta' "
          "BEGIN SELECT RAISE(ABORT, 'zeta refused'); END");
  // Replacing deletes every row and writes alpha before zeta fails.
  TempDir next;
  next.WriteFile("a.json", Minimal("alpha", "2"));
  next.WriteFile("z.json", Minimal("zeta"));
  EXPECT_THAT(Refusal(next.path()),
              ::testing::AllOf(HasSubstr("cannot write the definition of korvo/test/zeta"),
                               HasSubstr("zeta refused")));
  EXPECT_EQ(Rows(database_), "alpha=1 beta=1 ");
  // A second writer holding the write lock makes the load fail once the busy
  // time-out has passed.
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(database_.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  defs_.WriteFile("a.json", Minimal("alpha", "2"));
  EXPECT_THAT(Refusal(defs_.path()), HasSubstr("database is locked"));
  sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  EXPECT_EQ(Rows(database_), "alpha=1 beta=1 ");
}

}  // namespace
}  // namespace setvault_test
