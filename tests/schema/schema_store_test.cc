// The schema store's answers for the example definitions, loading them, and
// seeing a reloaded schema database without a restart.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "document/setvault_document.h"
#include "schema/schema_store.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using KorvoSchemaStore::SchemaObject;
using KorvoSchemaStore::SchemaStore;
using KorvoSetvault::SetvaultDocument;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string ExampleSchemas() { return setvault_test::SourceDir() + "/examples/schemas"; }

std::shared_ptr<SchemaObject> Lookup(const char* component, const char* group, const char* key) {
  return SchemaStore::GetStore(false)->GetSchemaObject(component, group, key);
}

std::string IdMapOf(const SchemaObject& schema) {
  return SetvaultDocument::SerializeValue(*schema.GetIdMap()->GetJsonValuePtr());
}

void Execute(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* error = nullptr;
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << error;
  sqlite3_free(error);
  sqlite3_close(db);
}

std::string Minimal(const std::string& key, const std::string& version = "1") {
  return R"({"component":"korvo","group":"test","key":")" + key + R"(","version":")" + version +
         R"(","schema":{"type":"object"}})";
}

class SchemaStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    database_ = dir_.File("schema.db");
    KorvoSetvault::SetSchemaStorePath(database_);
    KorvoSetvault::SetStorePath(dir_.File("store.db"));
  }
  void TearDown() override { KorvoSetvault::SetStorePath(KorvoSetvault::kDefaultStorePath); }

  setvault_test::TempDir dir_;
  std::string database_;
};

class ExampleSchemaTest : public SchemaStoreTest {
 protected:
  void SetUp() override {
    SchemaStoreTest::SetUp();
    ASSERT_EQ(KorvoSetvault::LoadSchemaDefinitions(ExampleSchemas()), 9u);
  }
};

TEST_F(ExampleSchemaTest, SingletonTypeWithVitalAndCachedMembers) {
  auto host = Lookup("korvo", "system", "host");
  ASSERT_NE(host, nullptr);
  EXPECT_FALSE(host->IsNonSingleton());
  EXPECT_FALSE(host->IsRebootRequiredConfig());
  EXPECT_EQ(host->GetInstanceIdProperty(), "");
  EXPECT_EQ(host->GetConfigKind(), 0);
  EXPECT_THAT(host->GetNonUserInstanceIds(), IsEmpty());
  EXPECT_EQ(host->GetVersion(), "1.2");
  EXPECT_EQ(host->GetValueType(), "");
  EXPECT_EQ(IdMapOf(*host), "{}");
  ASSERT_NE(host->GetDefaults(), nullptr);
  EXPECT_EQ(SetvaultDocument::SerializeValue(*host->GetDefaults()->GetJsonValuePtr()),
            R"({"timezone":"UTC","powerPolicy":"balanced"})");
  const auto& properties = host->GetSchemaJson()["properties"];
  EXPECT_TRUE(properties["systemUuid"]["vital"].GetBool());
  EXPECT_TRUE(properties["bmc"]["cached"].GetBool());
  EXPECT_EQ(properties["syslog"]["properties"]["rotation"]["type"], "object");
  EXPECT_FALSE(host->IsConfirmedDuringUpgrade());
  EXPECT_FALSE(host->UsesCurrentValueDuringBoot());
  EXPECT_EQ(host->GetComponent(), "korvo");
  EXPECT_EQ(host->GetGroup(), "system");
  EXPECT_EQ(host->GetKey(), "host");
}

TEST_F(ExampleSchemaTest, MultiInstanceTypeWithInstanceArray) {
  auto vswitch = Lookup("korvo", "net", "vswitch");
  ASSERT_NE(vswitch, nullptr);
  EXPECT_TRUE(vswitch->IsNonSingleton());
  EXPECT_EQ(vswitch->GetInstanceIdProperty(), "name");
  EXPECT_EQ(vswitch->GetValueType(), "korvo-shared");
  EXPECT_EQ(vswitch->GetVersion(), "2.0");
  EXPECT_EQ(IdMapOf(*vswitch), R"({"vswitch":"name","portgroups":"name"})");
  EXPECT_EQ((*vswitch->GetDefaults()->GetJsonValuePtr())["mtu"].GetInt(), 1500);
  EXPECT_FALSE(vswitch->IsRebootRequiredConfig());
}

TEST_F(ExampleSchemaTest, RebootRequiredTypesAndKernelOptions) {
  auto options = Lookup("korvo", "hvcore", "options");
  ASSERT_NE(options, nullptr);
  EXPECT_TRUE(options->IsRebootRequiredConfig());
  EXPECT_FALSE(options->IsNonSingleton());
  EXPECT_TRUE(options->UsesCurrentValueDuringBoot());
  EXPECT_FALSE(options->IsConfirmedDuringUpgrade());
  auto scheduler = Lookup("korvo", "hvcore", "cpuScheduler");
  ASSERT_NE(scheduler, nullptr);
  EXPECT_TRUE(scheduler->IsRebootRequiredConfig());  // among other tags
  EXPECT_FALSE(Lookup("korvo", "net", "dns")->IsRebootRequiredConfig());
}

TEST_F(ExampleSchemaTest, GeneratedIdsKindFiveAndSharedTypes) {
  auto firewall = Lookup("korvo", "net", "firewall");
  ASSERT_NE(firewall, nullptr);
  EXPECT_FALSE(firewall->IsNonSingleton());
  EXPECT_EQ(IdMapOf(*firewall), R"({"rules":"sv_generated_id"})");
  EXPECT_EQ(firewall->GetDefaults(), nullptr);

  auto datastore = Lookup("korvo", "storage", "datastore");
  ASSERT_NE(datastore, nullptr);
  EXPECT_EQ(datastore->GetConfigKind(), 5);
  EXPECT_THAT(datastore->GetNonUserInstanceIds(), ElementsAre("bootbank", "scratch"));
  EXPECT_EQ(datastore->GetInstanceIdProperty(), "label");

  auto dns = Lookup("korvo", "net", "dns");
  EXPECT_EQ(dns->GetValueType(), "korvo-shared");
  EXPECT_TRUE(dns->IsConfirmedDuringUpgrade());

  auto firmware = Lookup("nicmgr", "hw", "firmware");
  ASSERT_NE(firmware, nullptr);
  EXPECT_EQ(firmware->GetConfigKind(), 1);
  EXPECT_TRUE(firmware->GetSchemaJson()["cached"].GetBool());
}

TEST_F(ExampleSchemaTest, UnknownTypesHaveNoSchema) {
  EXPECT_EQ(Lookup("korvo", "net", "vswitches"), nullptr);
  EXPECT_EQ(Lookup("korvo", "hvcore", "Options"), nullptr);
  EXPECT_EQ(Lookup("nicmgr", "net", "vswitch"), nullptr);
  EXPECT_EQ(SchemaStore::GetCache()->Size(), 9u);
  EXPECT_EQ(SchemaStore::GetCache()->GetSchemaObject("korvo", "net", "dns"),
            Lookup("korvo", "net", "dns"));
}

TEST_F(SchemaStoreTest, ReloadedDatabaseIsSeenWithoutRestart) {
  dir_.WriteFile("a.json", Minimal("first", "1"));
  ASSERT_EQ(KorvoSetvault::LoadSchemaDefinitions(dir_.path()), 1u);
  auto before = SchemaStore::GetStore(false);
  auto first = before->GetSchemaObject("korvo", "test", "first");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(SchemaStore::GetStore(false), before);  // unchanged: the same reading

  dir_.WriteFile("a.json", Minimal("first", "2"));
  dir_.WriteFile("b.json", Minimal("second"));
  ASSERT_EQ(KorvoSetvault::LoadSchemaDefinitions(dir_.path()), 2u);
  EXPECT_EQ(Lookup("korvo", "test", "first")->GetVersion(), "2");
  EXPECT_NE(Lookup("korvo", "test", "second"), nullptr);
  // What was handed out before the reload stays usable and unchanged.
  EXPECT_EQ(first->GetVersion(), "1");
  EXPECT_NE(before->GetSchemaObject("korvo", "test", "first"), nullptr);
  EXPECT_EQ(before->GetSchemaObject("korvo", "test", "second"), nullptr);
}

TEST_F(SchemaStoreTest, ChangesByAnotherConnectionAreSeen) {
  dir_.WriteFile("a.json", Minimal("first"));
  KorvoSetvault::LoadSchemaDefinitions(dir_.path());
  ASSERT_NE(Lookup("korvo", "test", "first"), nullptr);
  Execute(database_, "DELETE FROM SmartnicSchema");
  EXPECT_EQ(Lookup("korvo", "test", "first"), nullptr);
}

TEST_F(SchemaStoreTest, ReplacedFileIsSeen) {
  dir_.WriteFile("a.json", Minimal("first"));
  KorvoSetvault::LoadSchemaDefinitions(dir_.path());
  ASSERT_NE(Lookup("korvo", "test", "first"), nullptr);
  // A new file renamed over the old one has another identity.
  setvault_test::TempDir other;
  other.WriteFile("b.json", Minimal("second"));
  KorvoSetvault::SetSchemaStorePath(other.File("new.db"));
  KorvoSetvault::LoadSchemaDefinitions(other.path());
  KorvoSetvault::SetSchemaStorePath(database_);
  std::filesystem::rename(other.File("new.db"), database_);
  EXPECT_EQ(Lookup("korvo", "test", "first"), nullptr);
  EXPECT_NE(Lookup("korvo", "test", "second"), nullptr);
}

TEST_F(SchemaStoreTest, UnusableRowsAreSkippedAndLogged) {
  dir_.WriteFile("a.json", Minimal("first"));
  KorvoSetvault::LoadSchemaDefinitions(dir_.path());
  Execute(database_,
          "INSERT INTO SmartnicSchema VALUES ('korvo','test','broken',NULL,'1','{not json'),"
          "('korvo','test','alias',NULL,'1','" +
              Minimal("first") + "')");
  setvault_test::LogCapture log;
  EXPECT_NE(Lookup("korvo", "test", "first"), nullptr);
  EXPECT_EQ(Lookup("korvo", "test", "broken"), nullptr);
  EXPECT_EQ(Lookup("korvo", "test", "alias"), nullptr);
  EXPECT_EQ(log.CountStartingWith(
                0,
                "Skipping unusable schema definition: schema database row korvo/test/broken: "
                "not valid JSON"),
            1);
}

TEST_F(SchemaStoreTest, DatabaseWithoutTableReadsAsEmpty) {
  Execute(database_, "CREATE TABLE Other (x)");
  EXPECT_EQ(SchemaStore::GetStore(true)->GetSchemaCache()->Size(), 0u);
  dir_.WriteFile("a.json", Minimal("first"));
  KorvoSetvault::LoadSchemaDefinitions(dir_.path());
  EXPECT_NE(Lookup("korvo", "test", "first"), nullptr);
}

TEST_F(SchemaStoreTest, ForcedReloadAndForkedChildReadAgain) {
  dir_.WriteFile("a.json", Minimal("first"));
  KorvoSetvault::LoadSchemaDefinitions(dir_.path());
  auto before = SchemaStore::GetStore(false);
  auto forced = SchemaStore::GetStore(true);
  EXPECT_NE(forced, before);
  EXPECT_NE(forced->GetSchemaObject("korvo", "test", "first"), nullptr);

  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // The child reads through a connection of its own, not the parent's.
    auto own = SchemaStore::GetStore(false);
    _exit(own != forced && own->GetSchemaObject("korvo", "test", "first") != nullptr ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(SchemaStore::GetStore(false), forced);
}

// A stand-in type as tests of other parts write them.
class StandIn : public SchemaObject {
 public:
  bool IsNonSingleton() const override { return true; }
};

TEST(SchemaObjectStandInTest, DefaultsAnswerAsAnEmptySingletonDefinition) {
  StandIn stand_in;
  EXPECT_TRUE(stand_in.IsNonSingleton());
  EXPECT_FALSE(stand_in.IsRebootRequiredConfig());
  EXPECT_TRUE(stand_in.GetSchemaJson().IsObject());
  EXPECT_EQ(IdMapOf(stand_in), "{}");
  EXPECT_EQ(stand_in.GetDefaults(), nullptr);
}

}  // namespace
