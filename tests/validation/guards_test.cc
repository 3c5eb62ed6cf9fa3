// Argument and schema-kind guards: exact codes and messages, the order of
// their checks, and that none of them touches the store unless it must ask
// about an upgrade.
#include "validation/guards.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "store/setvault_impl.h"
#include "support/config_store.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kHostWithId("host", "system", "korvo", "h1");
const SetvaultObjectId kVswitches("vswitch", "net", "korvo");
const SetvaultObjectId kVs0("vswitch", "net", "korvo", "vs0");
const SetvaultObjectId kUnknown("nothing", "here", "korvo");
const SetvaultObjectId kOptions("options", "hvcore", "korvo");

const char kNeedsId[] = "2000 Non-Singleton object should contain instanceId";
const char kSingleton[] = "2000 Singleton object cannot contain instanceId";
const char kNotInstances[] = "2000 API called for singleton object, non-singleton expected";
const char kNotKernelOptions[] =
    "2000 API should only be invoked for Kernel options configuration.";
const char kExternalDuringBoot[] = "2000 API cannot be invoked with EXTERNAL context during boot";

// "" when `call` passes; "<code> <message>" of what it throws otherwise (a
// ValidationException carries no findings here).
std::string Outcome(const std::function<void()>& call) {
  try {
    call();
  } catch (const ValidationException& e) {
    EXPECT_TRUE(e.GetErrors().empty());
    return std::to_string(e.GetErrorCode()) + " " + e.what();
  } catch (const SetvaultException& e) {
    return std::to_string(e.GetErrorCode()) + " " + e.what();
  }
  return "";
}

std::string NoSchema(const SetvaultObjectId& id) {
  return "1037 Schema not found for " + id.toString();
}

std::shared_ptr<SetvaultObject> Object(const SetvaultObjectId& id, const char* data) {
  auto object = std::make_shared<SetvaultObject>(id);
  object->SetData(data);
  return object;
}

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

TEST_F(GuardsTest, CodesAndMessagesInTheOrderOfTheChecks) {
  auto host = LookUpSchema(kHost);
  auto vswitch = LookUpSchema(kVswitches);
  auto filter = [](const SetvaultObjectId& id) { return std::make_shared<FilterSpecObject>(id); };
  const struct {
    std::function<void()> call;
    std::string outcome;
  } cases[] = {
      {[&] { validateSingletonNonSingleton(kHost, host); }, ""},
      {[&] { validateSingletonNonSingleton(kVs0, vswitch); }, ""},
      {[&] { validateSingletonNonSingleton(kHostWithId, host); }, kSingleton},
      {[&] { validateSingletonNonSingleton(kVswitches, vswitch); }, kNeedsId},
      {[&] { validateSingletonNonSingleton(Object(kVswitches, "{}"), vswitch); }, kNeedsId},
      {[&] { ValidateSvoId(kHost, host); }, ""},
      {[&] { ValidateSvoId(kUnknown, nullptr); }, NoSchema(kUnknown)},
      // Both rules broken: the missing schema is reported.
      {[&] { ValidateSvoId(SetvaultObjectId("nothing", "here", "korvo", "x"), nullptr); },
       NoSchema(SetvaultObjectId("nothing", "here", "korvo", "x"))},
      {[&] { ValidateSvoId(kHostWithId, host); }, kSingleton},
      {[&] { ValidateSvoId(Object(kVswitches, "{}"), vswitch); }, kNeedsId},
      {[&] { CheckSchema(kVs0, nullptr); }, NoSchema(kVs0)},
      {[&] { ValidateSvoIdInstances(kVswitches, vswitch); }, ""},
      {[&] { ValidateSvoIdInstances(kHost, host); }, kNotInstances},
      {[&] { ValidateSvoIdInstances(kUnknown, nullptr); }, NoSchema(kUnknown)},
      {[&] { ValidateSvoIdInstances(filter(kHost), host); }, kNotInstances},
      {[&] { ValidateSvoIdInstances(filter(kVswitches), vswitch); }, ""},
      {[&] { ValidateRebootRequiredConfig(LookUpSchema(kOptions)); }, ""},
      {[&] { ValidateRebootRequiredConfig(host); },
       "2000 API should only be invoked for configurations tagged @rebootRequiredSetvault."},
      {[&] { ValidateEmptyObject(Object(kOptions, "{}")); },
       "2000 Empty object cannot be set for configurations tagged @rebootRequiredSetvault."},
      {[&] { ValidateEmptyObject(Object(kOptions, R"({"iommu":false})")); }, ""},
      {[&] { ValidateKernelOptionsSvoId(kOptions); }, ""},
      {[&] { ValidateKernelOptionsSvoId(SetvaultObjectId("options", "hvcore", "korvo", "x")); },
       ""},
      // The user context outside boot asks nothing (the store cannot be opened).
      {[&] { checkUserContext(false, USERDATA_CONTEXT{kExternalContext}); }, ""},
      {[&] { checkUserContext(true, USERDATA_CONTEXT{kAutoConfigContext}); }, ""},
  };
  for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
    EXPECT_EQ(Outcome(cases[i].call), cases[i].outcome) << "case " << i;
  }
  // The kernel options are matched exactly.
  for (const SetvaultObjectId& other : {SetvaultObjectId("Options", "hvcore", "korvo"),
                                        SetvaultObjectId("options", "HVCORE", "korvo"),
                                        SetvaultObjectId("options", "hvcore", "korvo2")}) {
    EXPECT_EQ(Outcome([&] { ValidateKernelOptionsSvoId(other); }), kNotKernelOptions);
  }
}

TEST_F(GuardsTest, EmptyPointersAndObjectsAreLogged) {
  auto filter = std::make_shared<FilterSpecObject>(kVswitches);
  auto empty = Object(kHost, "{}");
  auto full = Object(kHost, R"({"hostname":"h"})");
  LogCapture log(2);
  EXPECT_FALSE(IsNull(filter, "GetInstances"));
  EXPECT_FALSE(IsNull(empty, "Validate"));
  EXPECT_FALSE(ObjIsEmpty(full, "Set"));
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_TRUE(IsNull(std::shared_ptr<FilterSpecObject>(), "DeleteInstances"));
  EXPECT_TRUE(IsNull(std::shared_ptr<SetvaultObject>(), "Validate"));
  EXPECT_TRUE(ObjIsEmpty(empty, "SetUserData"));
  EXPECT_THAT(log.Lines(),
              ::testing::ElementsAre(
                  std::make_pair(1,
                                 "[1041] DeleteInstances: No object was given (empty object "
                                 "pointer)"),
                  std::make_pair(1, "[1041] Validate: No object was given (empty object pointer)"),
                  std::make_pair(1,
                                 "SetUserData, Configuration object for comp korvo grp system "
                                 "key host is empty, will not be persisted in the db")));
}

class UserContextTest : public setvault_test::ConfigStoreTest {};

TEST_F(UserContextTest, ExternalCallerDuringBootOnlyInAnUpgrade) {
  auto external = [] { checkUserContext(true, USERDATA_CONTEXT{kExternalContext}); };
  EXPECT_EQ(Outcome(external), kExternalDuringBoot);
  SetFlag("UPGRADE_CTX", "2");
  EXPECT_EQ(Outcome(external), "");
  SetFlag("UPGRADE_CTX", "0");
  EXPECT_EQ(Outcome(external), kExternalDuringBoot);
}

}  // namespace
}  // namespace KorvoSetvault
