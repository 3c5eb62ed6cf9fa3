// The store's read operations through the public interface, over rows written
// by hand with SQL into a real store file: merged objects, instances,
// revisions, defaults, Validate, the store and next-boot handles, and refusals
// that run no SQL.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "model/setvault_object_impl.h"
#include "setvault/host_functions.h"
#include "store/store_fixture.h"
#include "support/thrown.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExpectError;
using setvault_test::Ids;
using setvault_test::kHost;
using setvault_test::RunSql;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const SetvaultObjectId kVswitchType = setvault_test::Vswitch("");
const SetvaultObjectId kVs0 = setvault_test::Vswitch("vs0");

class StoreReadsTest : public setvault_test::WriteStoreTest {
 protected:
  // Writes a Config row of vswitch `name` by hand; `success` 0 leaves its user value unconfirmed.
  void InsertVswitch(const std::string& name, int mtu, int revision, int success = 1) {
    RunSql(Db(),
           "INSERT INTO Config (Component, ConfigGroup, Name, Identifier, UserValue, Revision, "
           "Success) VALUES ('korvo', 'net', 'vswitch', '" +
               name + "', '" + Switch(name, mtu)->GetData() + "', " + std::to_string(revision) +
               ", " + std::to_string(success) + ")");
  }
};

TEST_F(StoreReadsTest, InstancesAndRevisionsInRowOrderNarrowedByTheFilter) {
  InsertVswitch("vs0", 9000, 3);
  InsertVswitch("vs1", 1500, 8);
  InsertVswitch("vs2", 9000, 2);
  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  auto all = store_->GetInstances(filter);
  EXPECT_THAT(Ids(all), ElementsAre("vs0", "vs1", "vs2"));
  EXPECT_EQ(all[1]->GetRevision(), 8);
  filter->SetValue("mtu", 9000);
  EXPECT_THAT(Ids(store_->GetInstances(filter)), ElementsAre("vs0", "vs2"));
  EXPECT_EQ(store_->GetRevision(setvault_test::Vswitch("vs1")), 8);
  EXPECT_EQ(store_->GetRevision(setvault_test::Vswitch("vs9")), -1);
  EXPECT_THAT(store_->GetInstancesRevision(kVswitchType),
              ElementsAre(Pair("vs0", 3), Pair("vs1", 8), Pair("vs2", 2)));
  EXPECT_THAT(store_->GetInstancesRevision(kVs0), ElementsAre(Pair("vs0", 3)));

  // A row that shows no value (only an unconfirmed user value) is still an
  // instance: both reads list it, the object holding its id and row metadata.
  InsertVswitch("vs3", 1600, 7, 0);
  EXPECT_THAT(store_->GetInstanceIds(kVswitchType), ElementsAre("vs0", "vs1", "vs2", "vs3"));
  auto listed = store_->GetInstances(std::make_shared<FilterSpecObject>(kVswitchType));
  ASSERT_THAT(Ids(listed), ElementsAre("vs0", "vs1", "vs2", "vs3"));
  EXPECT_EQ(listed[3]->GetData(), R"({"name":"vs3"})");
  EXPECT_EQ(listed[3]->GetRevision(), 7);
}

TEST_F(StoreReadsTest, RefusedReadsRunNoStatementAndFailedOnesSayWhich) {
  const SetvaultObjectId unknown("nothing", "here", "korvo");
  const SetvaultObjectId host_with_id("host", "system", "korvo", "h1");
  const std::string singleton = "Singleton object cannot contain instanceId";
  const std::string needs_id = "Non-Singleton object should contain instanceId";
  const std::string not_instances = "API called for singleton object, non-singleton expected";
  const std::string no_schema = "Schema not found for comp korvo grp here key nothing";
  auto host_filter = std::make_shared<FilterSpecObject>(kHost);
  auto unknown_filter = std::make_shared<FilterSpecObject>(unknown);
  setvault_test::LogCapture log;
  setvault_test::StatementTrace trace(Db());
  setvault_test::ExpectRefusals({
      {[&] { store_->Get(unknown); }, 1037, no_schema},
      {[&] { store_->Get(host_with_id); }, 2000, singleton},
      {[&] { store_->Get(kVswitchType); }, 2000, needs_id},
      {[&] { GetMemberOrigins(kVswitchType); }, 2000, needs_id},
      {[&] { store_->GetDefaultConfig(host_with_id); }, 2000, singleton},
      {[&] { store_->GetInstances(unknown_filter); }, 1037, no_schema},
      {[&] { store_->GetInstances(host_filter); }, 2000, not_instances},
      {[&] { store_->GetDefaultConfigInstances(host_filter); }, 2000, not_instances},
      {[&] { store_->GetInstanceIds(kHost); }, 2000, not_instances},
      {[&] { store_->GetRevision(kVswitchType); }, 2000, needs_id},
      {[&] { store_->GetInstancesRevision(kHost); }, 2000, not_instances},
      // The missing schema wins over the instance-id rule.
      {[&] { store_->Get(SetvaultObjectId("nothing", "here", "korvo", "x")); }, 1037,
       no_schema + " id x"},
  });
  // Empty pointers give empty results and a warning.
  EXPECT_THAT(store_->GetInstances(nullptr), IsEmpty());
  EXPECT_THAT(store_->GetDefaultConfigInstances(nullptr), IsEmpty());
  EXPECT_THAT(store_->Validate(nullptr), IsEmpty());
  EXPECT_THAT(trace.statements(), IsEmpty());
  for (const char* call : {"GetInstances", "GetDefaultConfigInstances", "Validate"}) {
    EXPECT_TRUE(log.Contains(
        1, std::string("[1041] ") + call + ": No object was given (empty object pointer)"));
  }
  EXPECT_EQ(log.CountStartingWith(3, "Validate :"), 0);
  // An accepted read runs statements and logs one trace line.
  store_->GetRevision(kVs0);
  EXPECT_THAT(trace.statements(), ::testing::Not(IsEmpty()));
  EXPECT_TRUE(log.Contains(4, "GetRevision : comp korvo grp net key vswitch id vs0, context: 1"));
  // A read whose statement fails says which.
  ASSERT_EQ(RunSql(Db(), "DROP TABLE Config"), SQLITE_OK);
  ExpectError([&] { store_->GetRevision(kHost); }, 2000, "GetRevision command failed");
  ExpectError([&] { store_->GetInstancesRevision(kVswitchType); }, 2000,
              "GetRevision command failed");
  ExpectError([&] { store_->GetInstanceIds(kVswitchType); }, 2000, "GetInstanceIds failed");
}

TEST_F(StoreReadsTest, ValidateReportsEveryFindingWithItsPath) {
  using ::testing::UnorderedElementsAre;
  auto findings = [&](const std::shared_ptr<SetvaultObject>& object) {
    std::vector<std::pair<std::string, std::string>> found;
    for (const auto& error : store_->Validate(object))
      found.emplace_back(error.path, error.message);
    return found;
  };
  const auto some = ::testing::Not(IsEmpty());
  setvault_test::StatementTrace trace(Db());
  EXPECT_THAT(
      findings(Object(kVs0, R"({"name":"vs0","mtu":100,"bogus":true,
      "teaming":{"policy":"random"},"portgroups":[{"name":"pg","vlanId":5000}]})")),
      UnorderedElementsAre(Pair("/mtu", some), Pair("/bogus", some), Pair("/teaming/policy", some),
                           Pair("/portgroups/0/vlanId", some)));
  EXPECT_THAT(trace.statements(), IsEmpty());
  EXPECT_THAT(findings(Object(kVs0, R"({"name":"vs0","mtu":9000})")), IsEmpty());
  EXPECT_THAT(findings(Object(kVs0, R"({"mtu":9000})")), ElementsAre(Pair("/name", some)));
  // Identity problems are one finding at the root.
  EXPECT_THAT(findings(Object(kVswitchType, R"({"mtu":1})")),
              ElementsAre(Pair("/",
                               "/korvo/net/vswitch is a non-singleton object and needs an "
                               "instance id")));
  SetvaultObjectImpl::Parts parts;  // an object of a type without schema
  parts.id = SetvaultObjectId("nothing", "here", "korvo");
  parts.document = CreateDocumentFromString(R"({"a":1})");
  auto build = [&] {
    return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(parts));
  };
  EXPECT_THAT(findings(build()),
              ElementsAre(Pair("/", "Schema not found for /korvo/here/nothing")));
  parts.id = SetvaultObjectId("host", "system", "korvo", "h1");
  parts.schema = LookUpSchema(kHost);
  EXPECT_THAT(findings(build()),
              ElementsAre(Pair("/",
                               "/korvo/system/host is a singleton object and takes no "
                               "instance id")));
}

TEST_F(StoreReadsTest, StoreHandles) {
  for (const std::string& name : {std::string("other"), std::string(1, '\0')}) {
    ExpectError<InvalidArgumentException>([&] { Setvault::GetStore(name); }, 2000,
                                          "Invalid value for namespace.");
  }
  InsertVswitch("vs0", 9000, 1);
  auto second = Setvault::GetStore(sGlobalNamespace);
  EXPECT_NE(second, store_);  // a new store each call
  EXPECT_THAT(second->GetInstanceIds(kVswitchType), ElementsAre("vs0"));

  // The next-boot store is refused during boot and upgrade.
  for (const auto& [key, value] : {std::pair("IS_BOOT", "true"), std::pair("UPGRADE_CTX", "3")}) {
    SetKeyValue(key, value);
    ExpectError<ValidationException>([&] { store_->GetNextBootStore(); }, 2000,
                                     "NextBootStore is not supported during the upgrade or boot "
                                     "phase");
    SetKeyValue(key, "0");
  }

  dir_.WriteFile("plain", "x");
  SetStorePath(dir_.File("plain/store.db"));
  ExpectError([] { Setvault::GetStore(""); }, 2000, "Failed to connect to database");
  SetStorePath(dir_.File("missing.db"));  // reads never create a store file
  EXPECT_THAT(setvault_test::ExpectThrow<SetvaultException>([] { GetMemberOrigins(kHost); }, 2000),
              ::testing::HasSubstr("Failed to connect to database"));
  EXPECT_FALSE(std::ifstream(dir_.File("missing.db")).good());
}

}  // namespace
}  // namespace KorvoSetvault
