// Creating a store from many processes at once, and files that cannot be trusted:
// a store is refused with its cause or read without being changed, and nothing is created by a
// read; the schema database is created owner-only, never through a planted link, and one that is
// missing, damaged or open to every user is named in the 1037 that lookups then give.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "dbstore/db_store.h"
#include "reliability/store_processes.h"
#include "setvault/schema_setup.h"
#include "support/example_schemas.h"

namespace setvault_test {
namespace {

std::string WriteHost(const std::string& name = "written") {
  Setvault::GetStore("")->Set(Object(kHost, "{\"hostname\":\"" + name + "\"}"), kExternal);
  return name;
}

std::string Contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "<absent>";
}

// A store that does not exist yet, written first by 8 processes released at the same moment.
TEST(StoreOpenTest, ProcessesCreatingOneStoreTogetherAllWrite) {
  ExampleSchemas schemas;
  for (int round = 0; round < 5; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    KorvoSetvault::SetStorePath(schemas.dir().File("new" + std::to_string(round) + ".db"));
    std::vector<pid_t> children;
    {
      Pipe go;  // released when every writer end closes
      for (int i = 0; i < 8; ++i) {
        children.push_back(Spawn([&] {
          go.Close(1);
          return go.Await() ? 2 : WriteHost() == "written" ? 0 : 1;
        }));
      }
    }
    for (pid_t pid : children) EXPECT_EQ(Wait(pid), 0);
  }
}

// Makes a store holding one host object, closed (its log folded into the file), then gives the
// store and its directory these modes.
auto WithStore(mode_t file = 0600, mode_t dir_mode = 0755) {
  return [=](const std::string& dir, const std::string& path) {
    ASSERT_EQ(RunInChild([&] {
                KorvoSetvault::SetStorePath(path);
                const std::string written = WriteHost();
                // Moving the thread's connection elsewhere closes the store's.
                KorvoSetvault::SetStorePath(path + ".elsewhere");
                DBStore::GetConnection(DBStore::kConfigStore, true);
                return written;
              }),
              "written");
    chmod(path.c_str(), file);
    chmod(dir.c_str(), dir_mode);
  };
}

// How a case prepares its directory (0755, so that an unprivileged reader can enter it), and the
// cause that the read and the write through one handle then give ("" for a read that works, and for
// no write).
struct UntrustedCase {
  const char* name;
  std::function<void(const std::string& dir, const std::string& path)> prepare;
  std::string read_cause;
  std::string write_cause = "";
  std::function<void(const std::string& path)> while_open = nullptr;  // after a first read
  bool unprivileged = false;  // run as "nobody", for whom the file is read-only
};

// One statement run on a new or existing database file apart from the library.
auto WithSql(const std::string& sql, bool make_store = false) {
  return [=](const std::string& dir, const std::string& path) {
    if (make_store) WithStore()(dir, path);
    QueryFile(path, sql.c_str());
  };
}

TEST(StoreOpenTest, UntrustedStoresAreRefusedOrReadWithoutChange) {
  ExampleSchemas schemas;
  const std::string schema_copy = schemas.dir().File("readable-schema.db");
  ASSERT_EQ(std::system(("cp " + schemas.dir().File("schema.db") + " " + schema_copy).c_str()), 0);
  ASSERT_EQ(chmod(schema_copy.c_str(), 0644), 0);
  ASSERT_EQ(chmod(schemas.dir().path().c_str(), 0755), 0);
  const auto replace = [](auto& path) {
    std::system(("cp -p " + path + " " + path + ".copy && mv " + path + ".copy " + path).c_str());
  };
  const std::string gone = "was removed or replaced while in use";
  const std::string read_only = "is read-only for this process";
  const std::vector<UntrustedCase> cases = {
      {"empty file", [](auto&, auto& path) { std::ofstream{path}; }, "is empty (0 bytes)"},
      {"foreign database", WithSql("CREATE TABLE Config AS SELECT 1 AS Name"),
       "is a SQLite database but not a setvault"},
      {"not a database", [](auto&, auto& path) { std::ofstream{path} << std::string(4096, 'g'); },
       "cannot be set up: file is not a database"},
      {"newer store schema version", WithSql("PRAGMA user_version = 99", true),
       "has store schema version 99"},
      {"writable by every user", WithStore(0666, 0755), "is writable by every user"},
      {"directory every user can write", WithStore(0600, 0777), "lies in "},
      {"unlinked while open", WithStore(), gone, gone, [](auto& path) { unlink(path.c_str()); }},
      {"replaced while open", WithStore(), gone, gone, replace},
      {"missing: a read creates nothing", nullptr, "does not exist"},
      {"read-only file", WithStore(0644, 01777), "", read_only, nullptr, true},
      {"read-only directory", WithStore(0644, 0555), "", read_only, nullptr, true},
  };
  int index = 0;
  for (const UntrustedCase& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string dir = schemas.dir().File("case" + std::to_string(index++));
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    const std::string path = dir + "/store.db";
    if (c.prepare) c.prepare(dir, path);
    const std::string before = Contents(path);
    const std::string outcome = RunInChild([&] {
      KorvoSetvault::SetStorePath(path);
      if (c.unprivileged) {
        KorvoSetvault::SetSchemaStorePath(schema_copy);
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return std::string();
      }
      // One handle throughout: the one open when the file goes away must refuse.
      std::shared_ptr<Setvault> store;
      const auto read = [&] {
        if (!store) store = Setvault::GetStore("");
        auto object = store->Get(kHost);
        return object ? object->GetData() : std::string("null");
      };
      std::string text = c.while_open ? Outcome(read) + "\n" : "";
      if (c.while_open) c.while_open(path);
      text += Outcome(read) + "\n";
      if (c.write_cause.empty()) return text;
      return text + Outcome([&] {
               store->Set(Object(kHost, R"({"hostname":"other"})"), kExternal);
               return std::string("written");
             });
    });
    const std::string ok = "ok {\"hostname\":\"written\"}\n";
    const std::string refused = "2000 Store database " + path + " ";
    const std::string read = c.read_cause.empty() ? ok : refused + c.read_cause;
    EXPECT_THAT(outcome, testing::StartsWith((c.while_open ? ok : "") + read));
    if (!c.write_cause.empty()) {
      EXPECT_THAT(outcome, testing::HasSubstr("\n" + refused + c.write_cause));
    }
    // Nothing changed; the unlinked store stays gone (the refused write made no new one).
    const bool unlinked = std::string(c.name) == "unlinked while open";
    EXPECT_TRUE(Contents(path) == (unlinked ? "<absent>" : before)) << "the file was changed";
    chmod(dir.c_str(), 0700);
  }
}

std::string LoadSchemas() {
  return std::to_string(KorvoSetvault::LoadSchemaDefinitions(ExampleSchemaDir()));
}

TEST(SchemaDatabaseTest, CreatedOwnerOnlyNeverThroughALinkAndEveryFailureNamed) {
  ExampleSchemas schemas;
  const TempDir& dir = schemas.dir();
  const mode_t old_umask = umask(0);
  KorvoSetvault::SetSchemaStorePath(dir.File("new/dirs/schema.db"));
  EXPECT_EQ(Outcome(LoadSchemas), "ok 9");
  umask(old_umask);
  EXPECT_EQ(Mode(dir.File("new/dirs/schema.db")), 0600);
  EXPECT_EQ(Mode(dir.File("new/dirs")), 0700);
  EXPECT_EQ(Mode(dir.File("new")), 0700);

  const std::string victim = dir.WriteFile("victim", "keep");
  ASSERT_EQ(symlink(victim.c_str(), dir.File("planted.db").c_str()), 0);
  KorvoSetvault::SetSchemaStorePath(dir.File("planted.db"));
  EXPECT_THAT(Outcome(LoadSchemas),
              testing::AllOf(testing::StartsWith("2000 "), testing::HasSubstr("symbolic link")));
  EXPECT_EQ(Contents(victim), "keep");
  // A schema database missing, damaged, empty or open to every user, and a type it does not hold:
  // the 1037 of a lookup says which.
  const std::string loaded = dir.File("schema.db"), shared = dir.File("shared.db");
  ASSERT_EQ(std::system(("cp " + loaded + " " + shared).c_str()), 0);
  ASSERT_EQ(chmod(shared.c_str(), 0666), 0);
  const SetvaultObjectId nothing("nothing", "system", "korvo");
  const struct {
    std::string schema_path;
    SetvaultObjectId id;
    std::string detail;
  } cases[] = {
      {dir.File("missing.db"), kHost,
       "schema database " + dir.File("missing.db") + " does not exist"},
      {dir.WriteFile("damaged.db", std::string(4096, 'x')), kHost, "file is not a database"},
      {dir.WriteFile("empty.db", ""), kHost, "holds no definitions"},
      {shared, kHost, "writable by every user"},
      {loaded, nothing, "is read but holds no definition of"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.schema_path);
    KorvoSetvault::SetSchemaStorePath(c.schema_path);
    EXPECT_THAT(Outcome([&] { return Setvault::GetStore("")->Get(c.id)->GetData(); }),
                testing::AllOf(testing::StartsWith("1037 "), testing::HasSubstr(c.detail)));
  }
}

}  // namespace
}  // namespace setvault_test
