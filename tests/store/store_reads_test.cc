// The store's read operations through the public interface, over rows written
// by hand with SQL into a real store file: merged objects, instances, revisions,
// defaults, Validate, the next-boot handle, and refusals that run no SQL.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "model/setvault_object_impl.h"
#include "setvault/exceptions.h"
#include "setvault/setvault_store.h"
#include "store/setvault_impl.h"
#include "support/config_store.h"
#include "support/expect_error.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ConfigRow;
using setvault_test::ConfigStoreTest;
using setvault_test::LogCapture;
using setvault_test::ValueRow;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kVswitchType("vswitch", "net", "korvo");

std::vector<std::string> Names(const std::vector<std::shared_ptr<SetvaultObject>>& objects) {
  std::vector<std::string> names;
  for (const auto& object : objects) names.push_back(object->GetSetvaultObjectId().instanceId);
  return names;
}

// Counts the statements run on one SQLite connection while it lives.
class StatementCounter {
 public:
  explicit StatementCounter(sqlite3* db) : db_(db) {
    sqlite3_trace_v2(db_, SQLITE_TRACE_STMT, &StatementCounter::OnStatement, this);
  }
  ~StatementCounter() { sqlite3_trace_v2(db_, 0, nullptr, nullptr); }
  int count() const { return count_; }

 private:
  static int OnStatement(unsigned, void* self, void*, void*) {
    ++static_cast<StatementCounter*>(self)->count_;
    return 0;
  }
  sqlite3* db_;
  int count_ = 0;
};

class StoreReadsTest : public ConfigStoreTest {
 protected:
  void SetUp() override {
    ConfigStoreTest::SetUp();
    store_ = Setvault::GetStore("");
    ASSERT_NE(store_, nullptr);
  }
  void TearDown() override {
    store_.reset();
    ConfigStoreTest::TearDown();
  }

  void InsertVswitch(const std::string& name, int mtu, int revision) {
    ConfigRow row;
    row.group = "net";
    row.name = "vswitch";
    row.identifier = name;
    row.user = R"({"name":")" + name + R"(","mtu":)" + std::to_string(mtu) + "}";
    row.revision = revision;
    InsertConfig(row);
  }

  std::shared_ptr<SetvaultObject> Object(const SetvaultObjectId& id, const char* data) {
    auto object = std::make_shared<SetvaultObject>(id);
    object->SetData(data);
    return object;
  }

  std::shared_ptr<Setvault> store_;
};

TEST_F(StoreReadsTest, GetReturnsTheMergedRowWithItsMetadata) {
  ConfigRow row;
  row.group = "system";
  row.name = "host";
  row.version = "1.2";
  row.vital = R"({"systemUuid":"u","hostname":"v"})";
  row.cached = R"({"memoryBytes":1024,"hostname":"c"})";
  row.autoconf = R"({"timezone":"CET","hostname":"a"})";
  row.user = R"({"hostname":"u"})";
  row.revision = 12;
  row.creation = "2026-03-04 05:06:07";
  row.modified = "2026-04-05 06:07:08";
  InsertConfig(row);
  auto host = store_->Get(kHost);
  ASSERT_NE(host, nullptr);
  EXPECT_EQ(host->GetData(),
            R"({"systemUuid":"u","memoryBytes":1024,"timezone":"CET","hostname":"u"})");
  EXPECT_EQ(host->GetVersion(), "1.2");
  EXPECT_EQ(host->GetRevision(), 12);
  EXPECT_EQ(host->GetCreationTime(), "2026-03-04 05:06:07");
  EXPECT_EQ(host->GetModifiedTime(), "2026-04-05 06:07:08");
  // The object carries its type's defaults and schema.
  std::string power;
  EXPECT_EQ(host->GetValue("powerPolicy", &power), 2);
  EXPECT_EQ(power, "balanced");
}

TEST_F(StoreReadsTest, ReadsShowThePendingUserValueOnlyDuringAnUpgrade) {
  // The type asks for the pending value during boot; that concerns Update's
  // merge, not the reads.
  const SetvaultObjectId options("options", "hvcore", "korvo");
  ConfigRow row;
  row.group = "hvcore";
  row.name = "options";
  row.user = R"({"logLevel":"info"})";
  row.desired = R"({"logLevel":"debug"})";
  row.success = 1;
  InsertConfig(row);
  SetFlag("IS_BOOT", "true");
  std::string level;
  EXPECT_EQ(store_->Get(options)->GetValue("logLevel", &level), 1);
  EXPECT_EQ(level, "info");
  SetFlag("UPGRADE_CTX", "1");
  level.clear();
  EXPECT_EQ(store_->Get(options)->GetValue("logLevel", &level), 1);
  EXPECT_EQ(level, "debug");
}

TEST_F(StoreReadsTest, NothingStoredIsAnEmptyResultNotAnError) {
  EXPECT_EQ(store_->Get(kHost), nullptr);
  EXPECT_EQ(store_->Get(SetvaultObjectId("vswitch", "net", "korvo", "vs0")), nullptr);
  EXPECT_THAT(store_->GetInstances(std::make_shared<FilterSpecObject>(kVswitchType)), IsEmpty());
  EXPECT_THAT(store_->GetInstanceIds(kVswitchType), IsEmpty());
  EXPECT_EQ(store_->GetRevision(kHost), -1);
  EXPECT_THAT(store_->GetInstancesRevision(kVswitchType), IsEmpty());
  EXPECT_EQ(store_->GetDefaultConfig(kHost), nullptr);
  EXPECT_THAT(store_->GetDefaultConfigInstances(std::make_shared<FilterSpecObject>(kVswitchType)),
              IsEmpty());
}

TEST_F(StoreReadsTest, InstancesAreListedInRowOrderAndNarrowedByTheFilter) {
  InsertVswitch("vs0", 9000, 1);
  InsertVswitch("vs1", 1500, 4);
  InsertVswitch("vs2", 9000, 2);
  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  auto all = store_->GetInstances(filter);
  EXPECT_THAT(Names(all), ElementsAre("vs0", "vs1", "vs2"));
  EXPECT_EQ(all[1]->GetData(), R"({"name":"vs1","mtu":1500})");
  EXPECT_EQ(all[1]->GetRevision(), 4);
  filter->SetValue("mtu", 9000);
  EXPECT_THAT(Names(store_->GetInstances(filter)), ElementsAre("vs0", "vs2"));
  filter->SetValue("mtu", 1);
  EXPECT_THAT(store_->GetInstances(filter), IsEmpty());
  EXPECT_THAT(store_->GetInstanceIds(kVswitchType), ElementsAre("vs0", "vs1", "vs2"));

  // A row that shows no value (only an unconfirmed user value) is still an
  // instance: both reads list it, the object holding its id and row metadata.
  ConfigRow pending;
  pending.group = "net";
  pending.name = "vswitch";
  pending.identifier = "vs3";
  pending.user = R"({"name":"vs3","mtu":1600})";
  pending.success = 0;
  pending.revision = 7;
  InsertConfig(pending);
  EXPECT_THAT(store_->GetInstanceIds(kVswitchType), ElementsAre("vs0", "vs1", "vs2", "vs3"));
  auto listed = store_->GetInstances(std::make_shared<FilterSpecObject>(kVswitchType));
  EXPECT_THAT(Names(listed), ElementsAre("vs0", "vs1", "vs2", "vs3"));
  EXPECT_EQ(listed[3]->GetData(), R"({"name":"vs3"})");
  EXPECT_EQ(listed[3]->GetRevision(), 7);
}

TEST_F(StoreReadsTest, RevisionsOfOneOrEveryInstance) {
  InsertVswitch("vs0", 9000, 3);
  InsertVswitch("vs1", 1500, 8);
  EXPECT_EQ(store_->GetRevision(SetvaultObjectId("vswitch", "net", "korvo", "vs1")), 8);
  EXPECT_EQ(store_->GetRevision(SetvaultObjectId("vswitch", "net", "korvo", "vs9")), -1);
  EXPECT_THAT(store_->GetInstancesRevision(kVswitchType),
              ElementsAre(Pair("vs0", 3), Pair("vs1", 8)));
  EXPECT_THAT(store_->GetInstancesRevision(SetvaultObjectId("vswitch", "net", "korvo", "vs0")),
              ElementsAre(Pair("vs0", 3)));
  EXPECT_THAT(store_->GetInstancesRevision(SetvaultObjectId("vswitch", "net", "korvo", "vs9")),
              IsEmpty());
  ConfigRow host;
  host.group = "system";
  host.name = "host";
  host.vital = "{}";
  InsertConfig(host);
  EXPECT_EQ(store_->GetRevision(kHost), 1);  // the column default of a first insert
}

TEST_F(StoreReadsTest, FailedRevisionAndInstanceIdQueriesThrow) {
  Sql("DROP TABLE Config");
  setvault_test::ExpectError<SetvaultException>([&] { store_->GetRevision(kHost); }, 2000,
                                                "GetRevision command failed");
  setvault_test::ExpectError<SetvaultException>([&] { store_->GetInstancesRevision(kVswitchType); },
                                                2000, "GetRevision command failed");
  setvault_test::ExpectError<SetvaultException>([&] { store_->GetInstanceIds(kVswitchType); }, 2000,
                                                "GetInstanceIds failed");
}

TEST_F(StoreReadsTest, DefaultConfigAndDefaultInstances) {
  ValueRow host;
  host.group = "system";
  host.name = "host";
  host.value = R"({"hostname":"factory"})";
  host.vital = R"({"systemUuid":"x"})";
  InsertDefault(host);
  for (const char* name : {"vs0", "vs1"}) {
    ValueRow row;
    row.group = "net";
    row.name = "vswitch";
    row.identifier = name;
    row.value = std::string(R"({"name":")") + name + "\"}";
    InsertDefault(row);
  }
  EXPECT_EQ(store_->GetDefaultConfig(kHost)->GetData(),
            R"({"systemUuid":"x","hostname":"factory"})");
  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  EXPECT_THAT(Names(store_->GetDefaultConfigInstances(filter)), ElementsAre("vs0", "vs1"));
  filter->SetValue("name", "vs1");
  EXPECT_THAT(Names(store_->GetDefaultConfigInstances(filter)), ElementsAre("vs1"));
  // The current configuration is another table.
  EXPECT_EQ(store_->Get(kHost), nullptr);
}

TEST_F(StoreReadsTest, ReadsLogOneTraceLineAtPriorityFour) {
  LogCapture log;
  store_->Get(kHost);
  store_->GetInstances(std::make_shared<FilterSpecObject>(kVswitchType));
  store_->GetRevision(SetvaultObjectId("vswitch", "net", "korvo", "vs0"));
  EXPECT_TRUE(log.Contains(4, "Get : comp korvo grp system key host, context: 1"));
  EXPECT_TRUE(log.Contains(4, "GetInstances : comp korvo grp net key vswitch, context: 1"));
  EXPECT_TRUE(log.Contains(4, "GetRevision : comp korvo grp net key vswitch id vs0, context: 1"));
  store_->Validate(Object(kHost, R"({"hostname":"h"})"));
  EXPECT_TRUE(log.Contains(3, "Validate : comp korvo grp system key host, context: 1"));
}

TEST_F(StoreReadsTest, TraceLinesBelowTheThresholdAreNotWritten) {
  LogCapture log(2);
  store_->Get(kHost);
  EXPECT_EQ(log.CountStartingWith(4, "Get :"), 0);
}

// --- Refusals run no SQL --------------------------------------------------

TEST_F(StoreReadsTest, RefusedReadsRunNoStatement) {
  const SetvaultObjectId unknown("nothing", "here", "korvo");
  const SetvaultObjectId host_with_id("host", "system", "korvo", "h1");
  const std::string singleton = "Singleton object cannot contain instanceId";
  const std::string needs_id = "Non-Singleton object should contain instanceId";
  const std::string not_instances = "API called for singleton object, non-singleton expected";
  const std::string no_schema = "Schema not found for comp korvo grp here key nothing";
  auto host_filter = std::make_shared<FilterSpecObject>(kHost);
  auto unknown_filter = std::make_shared<FilterSpecObject>(unknown);

  StatementCounter counter(Db());
  setvault_test::ExpectError<SetvaultException>([&] { store_->Get(unknown); }, 1037, no_schema);
  setvault_test::ExpectError<ValidationException>([&] { store_->Get(host_with_id); }, 2000,
                                                  singleton);
  setvault_test::ExpectError<ValidationException>([&] { store_->Get(kVswitchType); }, 2000,
                                                  needs_id);
  setvault_test::ExpectError<SetvaultException>([&] { store_->GetDefaultConfig(unknown); }, 1037,
                                                no_schema);
  setvault_test::ExpectError<ValidationException>([&] { store_->GetDefaultConfig(host_with_id); },
                                                  2000, singleton);
  setvault_test::ExpectError<SetvaultException>([&] { store_->GetInstances(unknown_filter); }, 1037,
                                                no_schema);
  setvault_test::ExpectError<ValidationException>([&] { store_->GetInstances(host_filter); }, 2000,
                                                  not_instances);
  setvault_test::ExpectError<ValidationException>(
      [&] { store_->GetDefaultConfigInstances(host_filter); }, 2000, not_instances);
  setvault_test::ExpectError<ValidationException>([&] { store_->GetInstanceIds(kHost); }, 2000,
                                                  not_instances);
  setvault_test::ExpectError<SetvaultException>([&] { store_->GetInstanceIds(unknown); }, 1037,
                                                no_schema);
  setvault_test::ExpectError<ValidationException>([&] { store_->GetRevision(kVswitchType); }, 2000,
                                                  needs_id);
  setvault_test::ExpectError<SetvaultException>([&] { store_->GetRevision(unknown); }, 1037,
                                                no_schema);
  setvault_test::ExpectError<ValidationException>([&] { store_->GetInstancesRevision(kHost); },
                                                  2000, not_instances);
  EXPECT_EQ(counter.count(), 0);
  // The counter does see the statements of an accepted read.
  store_->GetRevision(kHost);
  EXPECT_GT(counter.count(), 0);
}

TEST_F(StoreReadsTest, MissingSchemaWinsOverTheInstanceIdRule) {
  // An unknown type with an instance id: 1037, not an instance-id refusal.
  setvault_test::ExpectError<SetvaultException>(
      [&] { store_->Get(SetvaultObjectId("nothing", "here", "korvo", "x")); }, 1037,
      "Schema not found for comp korvo grp here key nothing id x");
}

TEST_F(StoreReadsTest, EmptyPointersGiveEmptyResultsAndAWarning) {
  LogCapture log;
  StatementCounter counter(Db());
  EXPECT_THAT(store_->GetInstances(nullptr), IsEmpty());
  EXPECT_THAT(store_->GetDefaultConfigInstances(nullptr), IsEmpty());
  EXPECT_THAT(store_->Validate(nullptr), IsEmpty());
  EXPECT_EQ(counter.count(), 0);
  EXPECT_TRUE(log.Contains(1, "[1041] GetInstances: No object was given (empty object pointer)"));
  EXPECT_TRUE(log.Contains(
      1, "[1041] GetDefaultConfigInstances: No object was given (empty object pointer)"));
  EXPECT_TRUE(log.Contains(1, "[1041] Validate: No object was given (empty object pointer)"));
  // No trace line of their own.
  EXPECT_EQ(log.CountStartingWith(4, "GetInstances :"), 0);
  EXPECT_EQ(log.CountStartingWith(3, "Validate :"), 0);
}

// --- Validate -------------------------------------------------------------

TEST_F(StoreReadsTest, ValidateReportsEveryViolationWithItsPath) {
  auto vswitch = Object(SetvaultObjectId("vswitch", "net", "korvo", "vs0"),
                        R"({"name":"vs0","mtu":100,"bogus":true,
                            "teaming":{"policy":"random"},
                            "portgroups":[{"name":"pg","vlanId":5000}]})");
  StatementCounter counter(Db());
  std::vector<ErrorInfo> errors = store_->Validate(vswitch);
  EXPECT_EQ(counter.count(), 0);
  std::vector<std::string> paths;
  for (const auto& error : errors) {
    paths.push_back(error.path);
    EXPECT_FALSE(error.message.empty());
  }
  EXPECT_THAT(paths, ::testing::UnorderedElementsAre("/mtu", "/bogus", "/teaming/policy",
                                                     "/portgroups/0/vlanId"));
  // Valid data: nothing.
  EXPECT_THAT(store_->Validate(Object(SetvaultObjectId("vswitch", "net", "korvo", "vs0"),
                                      R"({"name":"vs0","mtu":9000})")),
              IsEmpty());
}

TEST_F(StoreReadsTest, ValidateChecksRequiredMembersOfWholeObjects) {
  auto vswitch = Object(SetvaultObjectId("vswitch", "net", "korvo", "vs0"), R"({"mtu":9000})");
  std::vector<ErrorInfo> errors = store_->Validate(vswitch);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].path, "/name");
}

TEST_F(StoreReadsTest, ValidateReportsIdentityProblemsAsOneFinding) {
  auto vswitch = Object(kVswitchType, R"({"mtu":1})");
  auto errors = store_->Validate(vswitch);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].path, "/");
  EXPECT_EQ(errors[0].message,
            "/korvo/net/vswitch is a non-singleton object and needs an instance id");

  SetvaultObjectImpl::Parts parts;  // an object of a type without schema
  parts.id = SetvaultObjectId("nothing", "here", "korvo");
  parts.document = CreateDocumentFromString(R"({"a":1})");
  auto unknown = std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(parts));
  errors = store_->Validate(unknown);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].path, "/");
  EXPECT_EQ(errors[0].message, "Schema not found for /korvo/here/nothing");

  parts.id = SetvaultObjectId("host", "system", "korvo", "h1");
  parts.schema = LookUpSchema(kHost);
  errors = store_->Validate(
      std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(parts)));
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].message, "/korvo/system/host is a singleton object and takes no instance id");
}

// --- Store handle and next-boot store -------------------------------------

TEST_F(StoreReadsTest, OnlyTheEmptyNamespaceOpensAStore) {
  setvault_test::ExpectError<InvalidArgumentException>([] { Setvault::GetStore("other"); }, 2000,
                                                       "Invalid value for namespace.");
  setvault_test::ExpectError<InvalidArgumentException>(
      [] { Setvault::GetStore(std::string(1, '\0')); }, 2000, "Invalid value for namespace.");
  auto second = Setvault::GetStore(sGlobalNamespace);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, store_);  // a new store each call
  InsertVswitch("vs0", 9000, 1);
  EXPECT_THAT(second->GetInstanceIds(kVswitchType), ElementsAre("vs0"));
}

TEST_F(StoreReadsTest, UnreachableDatabase) {
  dir_.WriteFile("plain", "x");
  SetStorePath(dir_.File("plain/store.db"));
  EXPECT_EQ(GetDBStore(DBStore::kConfigStore, false), nullptr);
  setvault_test::ExpectError<SetvaultException>([] { GetDBStore(DBStore::kConfigStore, true); },
                                                2000, "Failed to connect to database");
  setvault_test::ExpectError<SetvaultException>([] { Setvault::GetStore(""); }, 2000,
                                                "Failed to connect to database");
}

TEST_F(StoreReadsTest, NextBootStoreIsRefusedDuringBootAndUpgrade) {
  EXPECT_NE(store_->GetNextBootStore(), nullptr);
  for (const char* key : {"IS_BOOT", "UPGRADE_CTX"}) {
    SetFlag(key, key == std::string("IS_BOOT") ? "true" : "3");
    try {
      store_->GetNextBootStore();
      ADD_FAILURE() << "no exception with " << key;
    } catch (const ValidationException& e) {
      EXPECT_EQ(e.GetErrorCode(), 2000);
      EXPECT_STREQ(e.what(), "NextBootStore is not supported during the upgrade or boot phase");
      EXPECT_THAT(e.GetErrors(), IsEmpty());
    }
    Sql("DELETE FROM KeyValue");
  }
  EXPECT_NE(store_->GetNextBootStore(), nullptr);
}

}  // namespace
}  // namespace KorvoSetvault
