// Argument and schema-kind guards: exact codes and messages, the order of
// their checks, and that none of them touches the store unless it must ask
// about an upgrade.
#include "validation/guards.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <utility>

#include "setvault/host_setup.h"
#include "store/setvault_impl.h"
#include "support/config_store.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"
#include "support/validation_thrown.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;
using setvault_test::Thrown;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kVswitches("vswitch", "net", "korvo");

const char kNeedsId[] = "2000 Non-Singleton object should contain instanceId";
const char kNotKernelOptions[] =
    "2000 API should only be invoked for Kernel options configuration.";
const char kExternalDuringBoot[] = "2000 API cannot be invoked with EXTERNAL context during boot";

// Example schemas, and a store path whose file does not exist: a guard that
// reads the store would create it (or fail), so its absence afterwards shows
// that no database was touched.
class GuardsTest : public ::testing::Test {
 protected:
  void SetUp() override { SetStorePath(dir_.File("never/store.db")); }
  void TearDown() override {
    struct stat info;
    EXPECT_NE(stat(dir_.File("never").c_str(), &info), 0) << "a guard opened the store";
    SetStorePath(kDefaultStorePath);
  }

  setvault_test::ExampleSchemas schemas_;
  setvault_test::TempDir dir_;
};

// The store's tests check each guard's message through the public calls;
// these are the overloads and orders those calls do not reach.
TEST_F(GuardsTest, CodesAndMessagesInTheOrderOfTheChecks) {
  auto host = LookUpSchema(kHost);
  auto vswitch = LookUpSchema(kVswitches);
  auto filter = [](const SetvaultObjectId& id) { return std::make_shared<FilterSpecObject>(id); };
  const SetvaultObjectId unknown_with_id("nothing", "here", "korvo", "x");
  const auto no_id = std::make_shared<SetvaultObject>(kVswitches);
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { validateSingletonNonSingleton(no_id, vswitch); }, kNeedsId},
      {[&] { ValidateSvoId(no_id, vswitch); }, kNeedsId},
      // Both rules broken: the missing schema is reported.
      {[&] { ValidateSvoId(unknown_with_id, nullptr); },
       "1037 Schema not found for " + unknown_with_id.toString()},
      {[&] { ValidateSvoIdInstances(filter(kHost), host); },
       "2000 API called for singleton object, non-singleton expected"},
      {[&] { ValidateSvoIdInstances(filter(kVswitches), vswitch); }, ""},
      {[&] { ValidateKernelOptionsSvoId(SetvaultObjectId("options", "hvcore", "korvo", "x")); },
       ""},
      // The kernel options are matched exactly.
      {[&] { ValidateKernelOptionsSvoId(SetvaultObjectId("options", "HVCORE", "korvo")); },
       kNotKernelOptions},
      {[&] { ValidateKernelOptionsSvoId(SetvaultObjectId("options", "hvcore", "korvo2")); },
       kNotKernelOptions},
      // The user context outside boot asks nothing (the store cannot be opened).
      {[&] { checkUserContext(false, USERDATA_CONTEXT{kExternalContext}); }, ""},
      {[&] { checkUserContext(true, USERDATA_CONTEXT{kAutoConfigContext}); }, ""},
  };
  for (const auto& [call, outcome] : cases) EXPECT_EQ(Thrown(call), outcome) << outcome;
}

TEST_F(GuardsTest, EmptyObjectsAreLogged) {
  auto empty = std::make_shared<SetvaultObject>(kHost);
  auto full = std::make_shared<SetvaultObject>(kHost);
  full->SetData(R"({"hostname":"h"})");
  LogCapture log(2);
  EXPECT_FALSE(ObjIsEmpty(full, "Set"));
  EXPECT_TRUE(ObjIsEmpty(empty, "SetUserData"));
  EXPECT_THAT(log.Lines(), ::testing::ElementsAre(std::make_pair(
                               1,
                               "SetUserData, Configuration object for comp korvo grp system "
                               "key host is empty, will not be persisted in the db")));
}

class UserContextTest : public setvault_test::ConfigStoreTest {};

TEST_F(UserContextTest, ExternalCallerDuringBootOnlyInAnUpgrade) {
  auto external = [] { checkUserContext(true, USERDATA_CONTEXT{kExternalContext}); };
  EXPECT_EQ(Thrown(external), kExternalDuringBoot);
  SetFlag("UPGRADE_CTX", "2");
  EXPECT_EQ(Thrown(external), "");
  SetFlag("UPGRADE_CTX", "0");
  EXPECT_EQ(Thrown(external), kExternalDuringBoot);
}

}  // namespace
}  // namespace KorvoSetvault
