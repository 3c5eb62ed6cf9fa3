// The schema database is created owner-only and never through a planted link; one that is
// missing, damaged or open to every user is named in the detail of the 1037 that lookups
// then give, apart from a type that is simply not defined.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"
#include "setvault/setvault_store.h"
#include "support/example_schemas.h"
#include "support/temp_dir.h"

namespace setvault_test {
namespace {

int Mode(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 07777) : -1;
}

// The detailed message of the exception `call` throws, after its code and text.
std::string Failure(const std::function<void()>& call) {
  try {
    call();
    return "no exception";
  } catch (const KorvoSetvault::SetvaultException& e) {
    return std::to_string(e.GetErrorCode()) + " " + e.GetDetailedMessage();
  }
}

class SchemaDatabaseTest : public ::testing::Test {
 protected:
  void SetUp() override { KorvoSetvault::SetStorePath(dir_.File("store.db")); }
  void TearDown() override {
    KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath);
    KorvoSetvault::SetSchemaStorePath(KorvoSetvault::kDefaultSchemaStorePath);
  }
  TempDir dir_;
};

TEST_F(SchemaDatabaseTest, CreatedOwnerOnlyWhateverTheUmaskAndNeverThroughALink) {
  const mode_t old_umask = umask(0);
  const std::string schema = dir_.File("new/dirs/schema.db");
  KorvoSetvault::SetSchemaStorePath(schema);
  EXPECT_EQ(KorvoSetvault::LoadSchemaDefinitions(ExampleSchemaDir()), 9u);
  umask(old_umask);
  EXPECT_EQ(Mode(schema), 0600);
  EXPECT_EQ(Mode(dir_.File("new/dirs")), 0700);
  EXPECT_EQ(Mode(dir_.File("new")), 0700);

  const std::string victim = dir_.WriteFile("victim", "keep");
  const std::string planted = dir_.File("planted.db");
  ASSERT_EQ(symlink(victim.c_str(), planted.c_str()), 0);
  KorvoSetvault::SetSchemaStorePath(planted);
  const std::string failure =
      Failure([] { KorvoSetvault::LoadSchemaDefinitions(ExampleSchemaDir()); });
  EXPECT_EQ(failure.rfind("2000 ", 0), 0u) << failure;
  EXPECT_NE(failure.find("symbolic link"), std::string::npos) << failure;
  std::ifstream in(victim);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "keep");
}

TEST_F(SchemaDatabaseTest, SchemaNotFoundTellsWhyInItsDetail) {
  const std::string loaded = dir_.File("loaded.db");
  KorvoSetvault::SetSchemaStorePath(loaded);
  KorvoSetvault::LoadSchemaDefinitions(ExampleSchemaDir());
  const std::string shared = dir_.File("shared.db");
  ASSERT_EQ(std::system(("cp " + loaded + " " + shared).c_str()), 0);
  ASSERT_EQ(chmod(shared.c_str(), 0666), 0);
  struct Case {
    std::string schema_path;
    KorvoSetvault::SetvaultObjectId id;
    std::string detail;
  };
  const KorvoSetvault::SetvaultObjectId host("host", "system", "korvo");
  const std::vector<Case> cases = {
      {dir_.File("missing.db"), host,
       "schema database " + dir_.File("missing.db") + " does not exist"},
      {dir_.WriteFile("damaged.db", std::string(4096, 'x')), host, "file is not a database"},
      {dir_.WriteFile("empty.db", ""), host, "holds no definitions"},
      {shared, host, "writable by every user"},
      {loaded, KorvoSetvault::SetvaultObjectId("nothing", "system", "korvo"),
       "is read but holds no definition of"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.schema_path);
    KorvoSetvault::SetSchemaStorePath(c.schema_path);
    const std::string failure = Failure([&] { KorvoSetvault::Setvault::GetStore("")->Get(c.id); });
    EXPECT_EQ(failure.rfind("1037 Schema not found for", 0), 0u) << failure;
    EXPECT_NE(failure.find(c.detail), std::string::npos) << failure;
  }
}

}  // namespace
}  // namespace setvault_test
