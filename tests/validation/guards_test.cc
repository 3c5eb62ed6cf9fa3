// Argument and schema-kind guards: exact codes and messages, the order of
// their checks, and that none of them touches the store unless it must ask
// about an upgrade.
#include "validation/guards.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "store/setvault_impl.h"
#include "support/config_store.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ConfigStoreTest;
using setvault_test::ExampleSchemas;
using setvault_test::LogCapture;
using setvault_test::TempDir;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kHostWithId("host", "system", "korvo", "h1");
const SetvaultObjectId kVswitchType("vswitch", "net", "korvo");
const SetvaultObjectId kVs0("vswitch", "net", "korvo", "vs0");
const SetvaultObjectId kUnknown("nothing", "here", "korvo");

const char kNeedsId[] = "Non-Singleton object should contain instanceId";
const char kSingleton[] = "Singleton object cannot contain instanceId";
const char kNotInstances[] = "API called for singleton object, non-singleton expected";
const char kNotRebootRequired[] =
    "API should only be invoked for configurations tagged @rebootRequiredSetvault.";
const char kEmptyRebootRequired[] =
    "Empty object cannot be set for configurations tagged @rebootRequiredSetvault.";
const char kNotKernelOptions[] = "API should only be invoked for Kernel options configuration.";
const char kExternalDuringBoot[] = "API cannot be invoked with EXTERNAL context during boot";

// Expects a ValidationException 2000 with `message` and no findings.
template <typename Call>
void ExpectRefused(Call call, const std::string& message) {
  try {
    call();
    ADD_FAILURE() << "no exception, expected " << message;
  } catch (const ValidationException& e) {
    EXPECT_EQ(e.GetErrorCode(), 2000);
    EXPECT_EQ(std::string(e.what()), message);
    EXPECT_TRUE(e.GetErrors().empty());
  } catch (const std::exception& e) {
    ADD_FAILURE() << "other exception: " << e.what();
  }
}

// Expects SetvaultException 1037 naming `id` (not a ValidationException).
template <typename Call>
void ExpectNoSchema(Call call, const SetvaultObjectId& id) {
  try {
    call();
    ADD_FAILURE() << "no exception";
  } catch (const ValidationException& e) {
    ADD_FAILURE() << "ValidationException: " << e.what();
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1037);
    EXPECT_EQ(std::string(e.what()), "Schema not found for " + id.toString());
  }
}

// Example schemas, and a store path whose file does not exist: a guard that
// reads the store would create it (or fail), so its absence afterwards shows
// that no database was touched.
class GuardsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    store_path_ = dir_.File("never/store.db");
    SetStorePath(store_path_);
  }
  void TearDown() override {
    EXPECT_FALSE(Exists(dir_.File("never"))) << "a guard opened the store";
    SetStorePath(kDefaultStorePath);
  }
  static bool Exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
  }
  std::shared_ptr<SchemaObject> Schema(const SetvaultObjectId& id) { return LookUpSchema(id); }
  std::shared_ptr<SetvaultObject> Object(const SetvaultObjectId& id, const char* data) {
    auto object = std::make_shared<SetvaultObject>(id);
    object->SetData(data);
    return object;
  }

  ExampleSchemas schemas_;
  TempDir dir_;
  std::string store_path_;
};

TEST_F(GuardsTest, InstanceIdMustFitTheKindOfType) {
  auto host = Schema(kHost);
  auto vswitch = Schema(kVswitchType);
  validateSingletonNonSingleton(kHost, host);
  validateSingletonNonSingleton(kVs0, vswitch);
  ExpectRefused([&] { validateSingletonNonSingleton(kHostWithId, host); }, kSingleton);
  ExpectRefused([&] { validateSingletonNonSingleton(kVswitchType, vswitch); }, kNeedsId);
  // The object overload reads the object's id.
  ExpectRefused([&] { validateSingletonNonSingleton(Object(kVswitchType, "{}"), vswitch); },
                kNeedsId);
  validateSingletonNonSingleton(Object(kVs0, "{}"), vswitch);
  // validateInstanceId asks no schema.
  validateInstanceId(kHostWithId);
  ExpectRefused([] { validateInstanceId(kVswitchType); }, kNeedsId);
}

TEST_F(GuardsTest, ValidateSvoIdChecksTheSchemaFirst) {
  ValidateSvoId(kHost, Schema(kHost));
  ValidateSvoId(kVs0, Schema(kVswitchType));
  ExpectNoSchema([] { ValidateSvoId(kUnknown, nullptr); }, kUnknown);
  // Both rules broken: the missing schema is reported.
  const SetvaultObjectId unknown_with_id("nothing", "here", "korvo", "x");
  ExpectNoSchema([&] { ValidateSvoId(unknown_with_id, nullptr); }, unknown_with_id);
  ExpectRefused([&] { ValidateSvoId(kHostWithId, Schema(kHost)); }, kSingleton);
  ExpectRefused([&] { ValidateSvoId(Object(kVswitchType, "{}"), Schema(kVswitchType)); }, kNeedsId);
  ExpectNoSchema([&] { ValidateSvoId(Object(kHost, "{}"), nullptr); }, kHost);
  ExpectNoSchema([] { CheckSchema(kVs0, nullptr); }, kVs0);
  CheckSchema(kVs0, Schema(kVswitchType));
}

TEST_F(GuardsTest, InstanceOperationsNeedAMultiInstanceType) {
  auto vswitch = Schema(kVswitchType);
  ValidateSvoIdInstances(kVswitchType, vswitch);  // all instances
  ValidateSvoIdInstances(kVs0, vswitch);          // one instance
  ExpectRefused([&] { ValidateSvoIdInstances(kHost, Schema(kHost)); }, kNotInstances);
  ExpectRefused([&] { ValidateSvoIdInstances(kHostWithId, Schema(kHost)); }, kNotInstances);
  ExpectNoSchema([] { ValidateSvoIdInstances(kUnknown, nullptr); }, kUnknown);
  auto filter = std::make_shared<FilterSpecObject>(kHost);
  ExpectRefused([&] { ValidateSvoIdInstances(filter, Schema(kHost)); }, kNotInstances);
  ValidateSvoIdInstances(std::make_shared<FilterSpecObject>(kVswitchType), vswitch);
  ExpectNoSchema(
      [] { ValidateSvoIdInstances(std::make_shared<FilterSpecObject>(kUnknown), nullptr); },
      kUnknown);
}

TEST_F(GuardsTest, RebootRequiredGuards) {
  const SetvaultObjectId options("options", "hvcore", "korvo");
  ValidateRebootRequiredConfig(Schema(options));
  ValidateRebootRequiredConfig(Schema(SetvaultObjectId("cpuScheduler", "hvcore", "korvo")));
  ExpectRefused([&] { ValidateRebootRequiredConfig(Schema(kHost)); }, kNotRebootRequired);
  ExpectRefused([&] { ValidateEmptyObject(Object(options, "{}")); }, kEmptyRebootRequired);
  ValidateEmptyObject(Object(options, R"({"iommu":false})"));
}

TEST_F(GuardsTest, KernelOptionsIdIsMatchedExactly) {
  ValidateKernelOptionsSvoId(SetvaultObjectId("options", "hvcore", "korvo"));
  ValidateKernelOptionsSvoId(SetvaultObjectId("options", "hvcore", "korvo", "any"));
  for (const SetvaultObjectId& other :
       {SetvaultObjectId("Options", "hvcore", "korvo"),
        SetvaultObjectId("options", "HVCORE", "korvo"),
        SetvaultObjectId("options", "hvcore", "korvo2"),
        SetvaultObjectId("options ", "hvcore", "korvo"),
        SetvaultObjectId("hvcore", "options", "korvo"), SetvaultObjectId("", "", "")}) {
    ExpectRefused([&] { ValidateKernelOptionsSvoId(other); }, kNotKernelOptions);
  }
}

TEST_F(GuardsTest, IsNullWarnsOnceForAnEmptyPointer) {
  auto filter = std::make_shared<FilterSpecObject>(kVswitchType);
  auto object = Object(kHost, "{}");
  LogCapture log(2);
  EXPECT_FALSE(IsNull(filter, "GetInstances"));
  EXPECT_FALSE(IsNull(object, "Validate"));
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_TRUE(IsNull(std::shared_ptr<FilterSpecObject>(), "DeleteInstances"));
  EXPECT_TRUE(IsNull(std::shared_ptr<SetvaultObject>(), "Validate"));
  ASSERT_EQ(log.Lines().size(), 2u);
  EXPECT_TRUE(
      log.Contains(1, "[1041] DeleteInstances: No object was given (empty object pointer)"));
  EXPECT_TRUE(log.Contains(1, "[1041] Validate: No object was given (empty object pointer)"));
}

TEST_F(GuardsTest, ObjIsEmptyWarnsForAnObjectWithoutData) {
  auto full = Object(kHost, R"({"hostname":"h"})");
  auto empty = Object(kHost, "{}");
  LogCapture log(2);
  EXPECT_FALSE(ObjIsEmpty(full, "Set"));
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_TRUE(ObjIsEmpty(empty, "SetUserData"));
  EXPECT_TRUE(log.Contains(1,
                           "SetUserData, Configuration object for comp korvo grp system key "
                           "host is empty, will not be persisted in the db"));
}

TEST_F(GuardsTest, UserContextOutsideBootAsksNothing) {
  // The store path cannot be opened, so asking about an upgrade would throw.
  checkUserContext(false, USERDATA_CONTEXT{kExternalContext});
  checkUserContext(true, USERDATA_CONTEXT{kAutoConfigContext});
  checkUserContext(true, USERDATA_CONTEXT{7});
}

class UserContextTest : public ConfigStoreTest {};

TEST_F(UserContextTest, ExternalCallerDuringBootOnlyInAnUpgrade) {
  ExpectRefused([] { checkUserContext(true, USERDATA_CONTEXT{kExternalContext}); },
                kExternalDuringBoot);
  SetFlag("UPGRADE_CTX", "2");
  checkUserContext(true, USERDATA_CONTEXT{kExternalContext});
  SetFlag("UPGRADE_CTX", "0");
  ExpectRefused([] { checkUserContext(true, USERDATA_CONTEXT{kExternalContext}); },
                kExternalDuringBoot);
}

}  // namespace
}  // namespace KorvoSetvault
